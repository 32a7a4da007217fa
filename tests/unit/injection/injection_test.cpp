// Runs every scenario with every call failing; see injection.h. The outcomes are files of lines
//
//     CALL NUMBER FAILURE: RESULT AND OUTPUTS [descriptors +N] [children +N] [| LEVEL FUNCTION "LOG LINE"]...
//
// where NUMBER counts the calls of that function, "and on" stands for this call and all after it, and only
// log lines that the undisturbed run does not have are shown. A changed outcome is a changed behaviour: hold
// it against the header's description before it is written down with OZU_WRITE_OUTCOMES=1.
#include "injection.h"

#include "scenarios.h"

#include "fake_platform.h"
#include "resource_count.h"
#include "test_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

using ozu::test::failures;
using ozu::test::injection;
using ozu::test::LogLine;
using ozu::test::platform;
using ozu::test::Scenario;

namespace {

// What a call must leave as it was, whatever fails.
struct Surroundings {
    std::string folder = std::filesystem::current_path();
    mode_t mask = umaskNow();
    sigset_t blocked = signalsBlocked();
    std::string zone = getenv("TZ") == nullptr ? "" : getenv("TZ");

    static mode_t umaskNow() {
        const mode_t mask = umask(0);
        umask(mask);
        return mask;
    }
    static sigset_t signalsBlocked() {
        sigset_t set;
        memset(&set, 0, sizeof set);
        sigprocmask(SIG_BLOCK, nullptr, &set);
        return set;
    }
    bool operator==(const Surroundings &other) const {
        return folder == other.folder && mask == other.mask && zone == other.zone &&
               memcmp(&blocked, &other.blocked, sizeof blocked) == 0;
    }
};

std::set<int> openFds() {
    std::set<int> fds;
    for (int fd = 0; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) {
            fds.insert(fd);
        }
    }
    return fds;
}

struct Run {
    std::string told;
    std::vector<std::string> calls;
    std::vector<LogLine> log;
    std::size_t descriptors = 0; // left open
    int children = 0;

    [[nodiscard]] std::string outcome(const Run &undisturbed) const {
        std::string text = told;
        if (descriptors != 0) {
            text += " descriptors +" + std::to_string(descriptors);
        }
        if (children != 0) {
            text += " children +" + std::to_string(children);
        }
        for (const LogLine &line : log) {
            if (std::find(undisturbed.log.begin(), undisturbed.log.end(), line) == undisturbed.log.end()) {
                text += " | " + std::to_string(line.level) + " " + line.function + " \"" + line.text + '"';
            }
        }
        std::replace(text.begin(), text.end(), '\n', '$');
        return text;
    }
};

// The folder of a run has another name each time.
std::string withoutFolder(std::string text) {
    const std::string folder = ozu::test::worldFile("");
    for (std::size_t at = text.find(folder); at != std::string::npos; at = text.find(folder)) {
        text.replace(at, folder.size(), "FOLDER/");
    }
    return text;
}

Run run(const Scenario &scenario, int position = -1, std::size_t way = 0, bool onwards = false) {
    platform() = ozu::test::FakePlatform();
    ozu::test::resetWorld();
    const Surroundings before;
    const std::set<int> fdsBefore = openFds();
    const int childrenBefore = ozu::test::children();
    Run result;
    injection().begin(position, way, onwards);
    result.told = scenario.run();
    injection().end();
    result.calls = injection().calls();
    for (LogLine &line : result.log = platform().log) {
        line.text = withoutFolder(line.text);
    }
    result.children = ozu::test::children() - childrenBefore;
    for (const int fd : openFds()) {
        if (fdsBefore.count(fd) == 0) {
            ++result.descriptors;
            close(fd);
        }
    }
    ozu::test::reapChildren();
    EXPECT_TRUE(Surroundings() == before) << scenario.name << ", call " << position;
    EXPECT_EQ(injection().streams, 0) << scenario.name << ", call " << position;
    EXPECT_EQ(injection().channels, 0) << scenario.name << ", call " << position;
    EXPECT_TRUE(injection().memory.empty()) << scenario.name << ", call " << position;
    return result;
}

std::string outcomesOf(const Scenario &scenario) {
    const Run undisturbed = run(scenario);
    std::string text = scenario.name + "\n    undisturbed: " + undisturbed.outcome(undisturbed) + "\n";
    std::map<std::string, int> numbers;
    for (std::size_t i = 0; i < undisturbed.calls.size(); ++i) {
        const std::string &call = undisturbed.calls[i];
        const std::string label = "    " + call + " " + std::to_string(++numbers[call]) + " ";
        const auto &ways = failures().at(call);
        std::string usual;
        for (std::size_t way = 0; way < ways.size(); ++way) {
            const std::string outcome = run(scenario, static_cast<int>(i), way).outcome(undisturbed);
            text += label + ways[way].name + ": " + outcome + "\n";
            usual = way == 0 ? outcome : usual;
        }
        const std::string onwards = run(scenario, static_cast<int>(i), 0, true).outcome(undisturbed);
        if (onwards != usual) {
            text += label + "and on: " + onwards + "\n";
        }
    }
    return text;
}

void compare(const std::string &room, const std::vector<Scenario> &scenarios) {
    std::string outcomes;
    for (const Scenario &scenario : scenarios) {
        outcomes += outcomesOf(scenario) + "\n";
    }
    const std::string path = std::string(OZU_TEST_OUTCOMES) + "/" + room + ".txt";
    if (getenv("OZU_WRITE_OUTCOMES") != nullptr) {
        ozu::test::writeFile(path, outcomes);
        GTEST_SKIP() << "written, not tested: " << path;
    }
    EXPECT_EQ(outcomes, ozu::test::readFile(path)) << path;
}

} // namespace

// A failure that no scenario meets would prove nothing.
TEST(Injection, everyCallIsMadeBySomeScenario) {
    std::set<std::string> made;
    for (const auto &scenarios :
         {ozu::test::alarmScenarios(), ozu::test::deviceScenarios(), ozu::test::mediaScenarios(),
          ozu::test::networkScenarios(), ozu::test::processScenarios(), ozu::test::securityScenarios(),
          ozu::test::timeScenarios()}) {
        for (const Scenario &scenario : scenarios) {
            const auto calls = run(scenario).calls;
            made.insert(calls.begin(), calls.end());
        }
    }
    for (const auto &entry : failures()) {
        EXPECT_EQ(made.count(entry.first), 1u) << entry.first;
    }
}

TEST(Injection, alarm) {
    compare("alarm", ozu::test::alarmScenarios());
}

TEST(Injection, devices) {
    compare("devices", ozu::test::deviceScenarios());
}

TEST(Injection, media) {
    compare("media", ozu::test::mediaScenarios());
}

TEST(Injection, network) {
    compare("network", ozu::test::networkScenarios());
}

TEST(Injection, process) {
    compare("process", ozu::test::processScenarios());
}

TEST(Injection, security) {
    compare("security", ozu::test::securityScenarios());
}

TEST(Injection, time) {
    compare("time", ozu::test::timeScenarios());
}

// Runs every scenario with every call failing; see injection.h. The outcomes are files of
//
//     FUNCTION
//         undisturbed: RESULT AND OUTPUTS
//         CALL FAILS SO: RESULT AND OUTPUTS [N descriptors left open] [N children left]
//             LEVEL of FUNCTION: LOG LINE
//         no difference when
//             CALL FAILS SO
//
// Only log lines that the undisturbed run does not have are shown. A changed outcome is a changed behaviour:
// hold it against the header's description before it is written down with OZU_WRITE_OUTCOMES=1.
#include "injection.h"

#include "scenarios.h"

#include "fake_platform.h"
#include "resource_count.h"
#include "test_files.h"

#include <fcntl.h>
#include <ozulog.h>
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

    [[nodiscard]] std::string outcome(const Run &undisturbed) const;
};

const char *levelName(int level) {
    switch (level) {
    case OZULOG_TRACE:
        return "TRACE";
    case OZULOG_DEBUG:
        return "DEBUG";
    case OZULOG_INFO:
        return "INFO";
    case OZULOG_NOTICE:
        return "NOTICE";
    case OZULOG_WARNING:
        return "WARNING";
    case OZULOG_REMOTE:
        return "REMOTE";
    case OZULOG_ERROR:
        return "ERROR";
    case OZULOG_CRITICAL:
        return "CRITICAL";
    default:
        return "UNKNOWN";
    }
}

std::string inOneLine(const std::string &text) {
    std::string line;
    for (const char c : text) {
        line += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return line;
}

std::string Run::outcome(const Run &undisturbed) const {
    std::string text = inOneLine(told);
    if (descriptors != 0) {
        text += ", " + std::to_string(descriptors) + " descriptors left open";
    }
    if (children != 0) {
        text += ", " + std::to_string(children) + " child left";
    }
    for (auto line = log.begin(); line != log.end();) {
        const auto next =
            std::find_if(line, log.end(), [&](const LogLine &other) { return !(other == *line); });
        if (std::find(undisturbed.log.begin(), undisturbed.log.end(), *line) == undisturbed.log.end()) {
            text += std::string("\n        ") + levelName(line->level);
            text += (line->function.empty() ? "" : " of " + line->function) + ": " + inOneLine(line->text);
            text += next - line == 1 ? "" : " (" + std::to_string(next - line) + " times)";
        }
        line = next;
    }
    return text;
}

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

// "the 2nd of 3 fwrite fails with ENOSPC"
struct Failed {
    std::string call;
    int number;
    std::string words;

    [[nodiscard]] std::string text(int ofAll) const {
        static const std::vector<std::string> kEndings = {"th", "st", "nd", "rd"};
        const auto last = static_cast<std::size_t>(number % 10);
        const std::string ordinal =
            std::to_string(number) + kEndings[last < 4 && number / 10 != 1 ? last : 0];
        return ofAll == 1 ? call + " " + words
                          : "the " + ordinal + " of " + std::to_string(ofAll) + " " + call + " " + words;
    }
};

// What makes no difference, one line for a call and its way to fail.
std::string harmless(const std::vector<Failed> &all, const std::map<std::string, int> &calls) {
    std::string text;
    std::map<std::string, int> times;
    for (const Failed &failed : all) {
        ++times[failed.call + " " + failed.words];
    }
    std::set<std::string> written;
    for (const Failed &failed : all) {
        const std::string words = failed.call + " " + failed.words;
        const int ofAll = calls.at(failed.call);
        if (ofAll == 1 || times[words] < ofAll) {
            text += "        " + failed.text(ofAll) + "\n";
        } else if (written.insert(words).second) {
            text += "        " + words + ", whichever of " + std::to_string(ofAll) + "\n";
        }
    }
    return text.empty() ? text : "    no difference when\n" + text;
}

std::string outcomesOf(const Scenario &scenario) {
    const Run undisturbed = run(scenario);
    const std::string same = undisturbed.outcome(undisturbed);
    std::string text = scenario.name + "\n    undisturbed: " + same + "\n";
    std::map<std::string, int> calls;
    for (const std::string &call : undisturbed.calls) {
        ++calls[call];
    }
    std::map<std::string, int> numbers;
    std::vector<Failed> indifferent;
    const auto note = [&](const Failed &failed, const std::string &outcome) {
        if (outcome == same) {
            indifferent.push_back(failed);
        } else {
            text += "    " + failed.text(calls[failed.call]) + ": " + outcome + "\n";
        }
    };
    for (std::size_t i = 0; i < undisturbed.calls.size(); ++i) {
        const std::string &call = undisturbed.calls[i];
        const int number = ++numbers[call];
        std::string usual;
        for (std::size_t way = 0; way < failures().at(call).size(); ++way) {
            const std::string outcome = run(scenario, static_cast<int>(i), way).outcome(undisturbed);
            note({call, number, failures().at(call)[way].words}, outcome);
            usual = way == 0 ? outcome : usual;
        }
        const std::string onwards = run(scenario, static_cast<int>(i), 0, true).outcome(undisturbed);
        if (onwards != usual) {
            note({call, number, std::string(failures().at(call)[0].words) + ", then every call fails"},
                 onwards);
        }
    }
    return text + harmless(indifferent, calls);
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

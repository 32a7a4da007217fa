#include "diagnosis.h"

#include "bus_listener.h"
#include "log_line.h"
#include "timeline.h"

#include <ozu_platform_tools.h>

#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <vector>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

constexpr std::int64_t kEarliestMs = 1704067200000; // 2024-01-01: no panel of this release is older
constexpr std::int64_t kLatestMs = 2147483647000;   // the panel's times have 32 bits
constexpr unsigned long long kLittleRoom = 16ULL * 1024 * 1024;
constexpr int kNetAdmin = 12; // CAP_NET_ADMIN
constexpr int kSyslog = 34;   // CAP_SYSLOG

Json row(const char *check, const char *state, const std::string &found, const std::string &advice = {}) {
    return {{"check", check}, {"state", state}, {"found", found}, {"advice", advice}};
}

Json versions() {
    utsname machine = {};
    uname(&machine);
    return row("versions", "ok",
               std::string("ozuctl and library " OZUCTL_VERSION ", ") + machine.sysname + " " +
                   machine.release + " " + machine.machine);
}

Json dataFolder() {
    const std::string folder = platform::dataFolder();
    constexpr const char *kName = "platform folder";
    if (access(folder.c_str(), F_OK) != 0) {
        return row(kName, "wrong", folder + ": " + strerror(errno),
                   "Start a panel process, which makes it, or name another one in OZU_PLATFORM_DIR.");
    }
    if (access(folder.c_str(), R_OK | W_OK | X_OK) != 0) {
        return row(kName, "wrong", folder + ": " + strerror(errno),
                   "Panel processes of this user cannot keep anything: change the folder's owner or rights.");
    }
    struct statvfs room = {};
    const bool known = statvfs(folder.c_str(), &room) == 0;
    const unsigned long long bytes = known ? 1ULL * room.f_bavail * room.f_frsize : 0;
    const std::string found = folder + ", " + std::to_string(bytes / 1024 / 1024) + " MiB free";
    return known && bytes < kLittleRoom ? row(kName, "wrong", found, "Make room on this disk.")
                                        : row(kName, "ok", found);
}

Json database() {
    const std::string file = platform::databaseFile();
    if (access(file.c_str(), F_OK) != 0) {
        return row("database", "note", file + " is not there", "The first panel process makes it.");
    }
    std::vector<platform::Setting> settings;
    const int code = platform::listSettings(settings);
    if (code == 0) {
        return row("database", "ok", file);
    }
    const char *advice = code == platform::kCorrupt
                             ? "Stop the panel's processes and move the file away: they make a new one."
                         : code == platform::kWrongVersion ? "Use the release that wrote it, or a newer one."
                                                           : "Check its owner, its rights and the disk.";
    return row("database", "wrong", file + ": " + platform::codeText(code), advice);
}

struct RunningProcesses {
    int code = 0; // why they are not known
    std::vector<platform::LoggedProcess> list;
};

RunningProcesses listRunning() {
    RunningProcesses running;
    if (access(platform::databaseFile().c_str(), F_OK) == 0) {
        running.code = platform::listProcesses(running.list);
        std::erase_if(running.list, [](const auto &one) { return !one.running; });
    }
    return running;
}

Json processes(const RunningProcesses &running) {
    return running.code == 0
               ? row("processes", "ok", std::to_string(running.list.size()) + " running")
               : row("processes", "wrong", platform::codeText(running.code), "See the row of the database.");
}

Json record(const RunningProcesses &running) {
    std::string holders;
    for (const auto &one : running.list) {
        if (platform::usesRemovedSegment(one.pid)) {
            holders += (holders.empty() ? "" : ", ") + one.process;
        }
    }
    if (!holders.empty()) {
        return row("shared record", "wrong", "its file was removed under " + holders,
                   "Start these processes again: they and those started since do not share anything.");
    }
    const PanelSharedState *state = nullptr;
    std::string why;
    const int code = platform::attachState(state, why);
    if (code == 0) {
        return row("shared record", "ok", "attached");
    }
    std::string file;
    const bool absent = platform::segmentFile(file) == platform::kNotFound;
    return absent ? row("shared record", "note", "there is none yet", "The first panel process makes it.")
                  : row("shared record", "wrong", why,
                        "Stop the panel's processes and remove " + file + ", or use one release throughout.");
}

Json broker() {
    try {
        Timeline timeline(0);
        const BusListener bus(timeline, {"ozuctl/doctor"});
        return row("broker", "ok", "answers on 127.0.0.1:1883");
    } catch (const CommandError &error) {
        return row("broker", "wrong", error.what(),
                   "Start it (mosquitto), or work in a panel box: 'ozuctl box shell'.");
    }
}

Json clockCheck() {
    const std::int64_t now = nowMilliseconds();
    const std::string found = isoTimeMilliseconds(now);
    return now < kEarliestMs
               ? row("clock", "wrong", found, "Set the clock: this is before the panel was built.")
           : now > kLatestMs
               ? row("clock", "wrong", found, "Set the clock: the panel's times end in January 2038.")
               : row("clock", "ok", found);
}

// The effective capabilities of this process.
std::optional<unsigned long long> capabilities() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("CapEff:")) {
            return strtoull(line.c_str() + 7, nullptr, 16);
        }
    }
    return std::nullopt;
}

Json rights() {
    const auto held = capabilities();
    if (!held) {
        return row("kernel rights", "note", "/proc/self/status cannot be read", "Mount /proc.");
    }
    std::string missing;
    if ((*held >> kNetAdmin & 1) == 0) {
        missing = "routes (CAP_NET_ADMIN)";
    }
    if ((*held >> kSyslog & 1) == 0) {
        missing += std::string(missing.empty() ? "" : ", ") + "the kernel log (CAP_SYSLOG)";
    }
    return missing.empty() ? row("kernel rights", "ok", "routes, kernel log")
                           : row("kernel rights", "note", "not for " + missing,
                                 "Run as root what needs them; in a panel box routes are yours to change.");
}

} // namespace

Json diagnosis() {
    const RunningProcesses running = listRunning();
    return Json::array({versions(), dataFolder(), database(), record(running), processes(running), broker(),
                        clockCheck(), rights()});
}

bool isSound(const Json &rows) {
    for (const Json &one : rows) {
        if (one["state"] == "wrong") {
            return false;
        }
    }
    return true;
}

} // namespace ozuctl

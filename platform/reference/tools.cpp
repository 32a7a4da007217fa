// What tools may ask of the platform, see include/ozu_platform_tools.h.

#include <ozu_platform_tools.h>

#include "data_folder.h"
#include "errors.h"
#include "in_flight.h"
#include "settings.h"
#include "severity.h"
#include "shared_segment.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <memory>

namespace ozu::platform {

namespace {

template <class Rows, class Read>
int filled(const char *function, Rows &out, Read &&read) {
    return guarded(function, [&]() -> int {
        out = read();
        return 0;
    });
}

// Running processes read severities and settings again.
void announceChange() {
    if (Segment *segment = trySharedSegment()) {
        segment->header.settingsChanges.fetch_add(1);
    }
}

// Rows for the database where the change touched persistent state.
LastingState lastingChanges(const PanelSharedState &before, const PanelSharedState &after) {
    LastingState rows;
    for (int zone = 0; zone < OZUDB_ZONES; ++zone) {
        const auto &was = before.zones[zone].bypass[0];
        const auto &is = after.zones[zone].bypass[0];
        if (was.bypassed != is.bypassed || was.bypassExpiry != is.bypassExpiry) {
            rows.bypass.push_back({zone, is.bypassed, is.bypassExpiry});
        }
    }
    for (int modem = 0; modem < OZUDB_MODEMS; ++modem) {
        const auto &was = before.modemStatistics[statisticsPosition(modem)];
        const auto &is = after.modemStatistics[statisticsPosition(modem)];
        if (std::memcmp(&was, &is, sizeof(was)) != 0) {
            auto &row = rows.statistics.emplace_back();
            row.modem = modem;
            std::memcpy(row.counter.data(), is.counter, sizeof(is.counter));
        }
    }
    return rows;
}

} // namespace

std::string dataFolder() {
    try {
        return folderPath();
    } catch (const Error &) {
        return {};
    }
}

std::string databaseFile() {
    return databasePath(dataFolder());
}

std::string logFolder() {
    return dataFolder() + "/log";
}

std::string logFile(const std::string &process) {
    return logFolder() + "/" + process + ".log";
}

int segmentFile(std::string &out) {
    return guarded(__func__, [&]() -> int {
        const std::string identity = identityForReading(folderPath());
        const std::string path = identity.empty() ? std::string() : segmentPath(identity);
        struct stat found {};
        if (path.empty() || stat(path.c_str(), &found) != 0) {
            return kNotFound;
        }
        out = path;
        return 0;
    });
}

bool usesRemovedSegment(int pid) {
    const std::string anySegment = segmentPath({});
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.ends_with(" (deleted)") && line.find(anySegment) != std::string::npos) {
            return true;
        }
    }
    return false;
}

int listSeverities(std::vector<ProcessSeverity> &out) {
    return filled(__func__, out, allSeverities);
}

bool canHaveSeverity(const std::string &process) noexcept {
    return process == kAnyProcess || usableProcessName(process.c_str());
}

int setSeverity(const std::string &process, const std::string &severity) {
    return guarded(__func__, [&]() -> int {
        if (!canHaveSeverity(process) || !levelOfSeverity(severity)) {
            return kInvalidArgument;
        }
        storeSeverity(process, severity);
        announceChange();
        return 0;
    });
}

int removeSeverity(const std::string &process) {
    return guarded(__func__, [&]() -> int {
        if (!dropSeverity(process)) {
            return kNotFound;
        }
        announceChange();
        return 0;
    });
}

int listProcesses(std::vector<LoggedProcess> &out) {
    return filled(__func__, out, allProcesses);
}

int readEvents(std::int64_t afterId, int limit, std::vector<SystemEvent> &out) {
    return filled(__func__, out, [&] { return eventsAfter(afterId, limit); });
}

int listSettings(std::vector<Setting> &out) {
    return filled(__func__, out, allSettings);
}

int setSetting(const std::string &name, const std::string &value) {
    return guarded(__func__, [&]() -> int {
        if (name.empty()) {
            return kInvalidArgument;
        }
        storeSetting(name, value);
        announceChange();
        return 0;
    });
}

int readRebootReasons(std::optional<int> &next, std::optional<int> &last) {
    return guarded(__func__, [&]() -> int {
        std::tie(next, last) = rebootReasons();
        return 0;
    });
}

int attachState(const PanelSharedState *&out, std::string &why) {
    const Segment *segment = mapReadOnly(why);
    if (segment == nullptr) {
        return kNoSharedRecord;
    }
    out = &segment->state;
    return 0;
}

int updateState(const std::function<void(PanelSharedState &)> &change) {
    return guarded(__func__, [&]() -> int {
        if (!change) {
            return kInvalidArgument;
        }
        Segment &segment = sharedSegment();
        const WriterLock lock(segment);
        changeRecord(segment, [&](PanelSharedState &state) {
            change(state);
            const LastingState rows = lastingChanges(segment.header.shadow, state);
            if (!rows.bypass.empty() || !rows.statistics.empty()) {
                storeLasting(rows);
            }
        });
        return 0;
    });
}

int readInFlight(std::vector<InFlightSlot> &out) {
    return guarded(__func__, [&]() -> int {
        Segment &segment = sharedSegment();
        out.clear();
        for (auto &slot : segment.header.inFlight) {
            if (slot.used.load(std::memory_order_acquire) != 0 && ownerLives(slot)) {
                out.push_back({std::string(slot.process.data()), slot.pid, slot.unacknowledged.load(),
                               slot.lostAt.load() == 0, stillCounts(slot)});
            }
        }
        return 0;
    });
}

} // namespace ozu::platform

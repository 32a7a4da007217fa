// ozudb.h: the shared record and the persistent state.

#include <ozudb.h>

#include "device_kinds.h"
#include "errors.h"
#include "in_flight.h"
#include "settings.h"
#include "severity.h"
#include "shared_segment.h"

#include <algorithm>
#include <array>
#include <cstring>

using namespace ozu::platform;

namespace {

int isOfKind(int deviceIndex, DeviceKind kind) noexcept {
    if (deviceIndex < 1 || deviceIndex >= OZUDB_DEVICES) {
        return 0;
    }
    const Segment *segment = trySharedSegment();
    return segment != nullptr && deviceKind(segment->state.devices[deviceIndex].deviceType) == kind ? 1 : 0;
}

} // namespace

extern "C" {

PanelSharedState *ozudb_getSharedMemory(int /*reserved*/) {
    Segment *segment = trySharedSegment();
    return segment != nullptr ? &segment->state : nullptr;
}

int ozudb_getSeverityNameByProcName(char *out, int outSize, const char *processName) {
    return guarded(__func__, [&]() -> int {
        if (out == nullptr || outSize <= 0 || !usableProcessName(processName)) {
            return kInvalidArgument;
        }
        const auto severity = configuredSeverity(processName);
        if (!severity) {
            return kNotFound;
        }
        const auto room = static_cast<std::size_t>(outSize);
        std::memset(out, 0, room);
        std::memcpy(out, severity->data(), std::min(room, severity->size()));
        return 0;
    });
}

int ozudb_addProc2Log(const char *processName, const char *severityName, pid_t pid) {
    return guarded(__func__, [&]() -> int {
        if (!usableProcessName(processName) || severityName == nullptr || !levelOfSeverity(severityName) ||
            pid <= 0) {
            return kInvalidArgument;
        }
        registerProcess(processName, severityName, pid);
        if (Segment *segment = mappedSegment()) {
            segment->header.settingsChanges.fetch_add(1);
        }
        return 0;
    });
}

int ozudb_updatePanelRebootReason(int reason) {
    return guarded(__func__, [&]() -> int {
        storeRebootReason(reason);
        return 0;
    });
}

int ozudb_isInFlightData(unsigned char *inFlight) {
    return guarded(__func__, [&]() -> int {
        if (inFlight == nullptr) {
            return kInvalidArgument;
        }
        *inFlight = 0;
        Segment *segment = trySharedSegment();
        if (segment == nullptr) {
            return kNoSharedRecord;
        }
        *inFlight = anyInFlight(*segment) ? 1 : 0;
        return 0;
    });
}

int ozudb_ModifyModemStatistics(uint16_t c1, uint16_t c2, uint16_t c3, uint16_t c4, uint16_t c5, uint16_t c6,
                                uint16_t c7, uint16_t c8, int modemIndex) {
    return guarded(__func__, [&]() -> int {
        if (modemIndex != 0 && modemIndex != 1) {
            return kInvalidArgument;
        }
        const LastingStatistics row{modemIndex, {c1, c2, c3, c4, c5, c6, c7, c8}};
        Segment &segment = sharedSegment();
        const WriterLock lock(segment);
        storeStatistics({row});
        auto &record = segment.state.modemStatistics[statisticsPosition(modemIndex)];
        std::memcpy(record.counter, row.counter.data(), sizeof(record.counter));
        return 0;
    });
}

int ozudb_ModifyBypassExpiry(int zoneIndex, int bypassed, int expiry) {
    return guarded(__func__, [&]() -> int {
        if (zoneIndex < 0 || zoneIndex >= OZUDB_ZONES || (bypassed != 0 && bypassed != 1)) {
            return kInvalidArgument;
        }
        const LastingBypass row{zoneIndex, bypassed, static_cast<std::uint32_t>(expiry)};
        Segment &segment = sharedSegment();
        const WriterLock lock(segment);
        storeBypass({row});
        auto &bypass = segment.state.zones[zoneIndex].bypass[0];
        // A reader between the two stores sees the zone as not bypassed rather than with the other's expiry.
        std::atomic_ref(bypass.bypassed).store(0, std::memory_order_relaxed);
        std::atomic_ref(bypass.bypassExpiry).store(row.expiry, std::memory_order_release);
        std::atomic_ref(bypass.bypassed)
            .store(static_cast<std::uint8_t>(bypassed), std::memory_order_release);
        return 0;
    });
}

int ozudb_isTagReader(int deviceIndex) {
    return isOfKind(deviceIndex, DeviceKind::TagReader);
}

int ozudb_isRfInput(int deviceIndex) {
    return isOfKind(deviceIndex, DeviceKind::RfInput);
}

int ozudb_isRfDetector(int deviceIndex) {
    return isOfKind(deviceIndex, DeviceKind::RfDetector);
}

} // extern "C"

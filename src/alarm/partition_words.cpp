// Partitions in the words of the Lum interface, and back.

#include <utils_ozu/partitions.h>

#include <base/log.h>
#include <base/panel_state.h>

#include <utils_ozu/results.h>

#include <cstdint>
#include <cstring>
#include <iterator>

namespace {

constexpr char kMain[] = "main";
constexpr char kPerimeter[] = "perimeter";
constexpr char kSafety[] = "safety";
constexpr char kPanic[] = "panic";
constexpr char kFull[] = "full";
constexpr char kFindArmType[] = "FIND_ARM_TYPE";

// Zones and arm types as numbers.
constexpr std::uint32_t kZoneMain = 0;
constexpr std::uint32_t kZonePerimeter = 1;
constexpr std::uint32_t kZoneSafety = 2;
constexpr std::uint32_t kZonePanic = 3;
constexpr std::uint32_t kArmFull = 0;
constexpr std::uint32_t kArmPartial1 = 1;
constexpr std::uint32_t kArmPartial2 = 2;

bool same(const char *word, const char *known) noexcept {
    return std::strcmp(word, known) == 0;
}

int latestDisarming(const PanelSharedState &state, std::uint32_t *time) noexcept {
    std::int32_t latest = 0;
    static_assert(PARTITION_FULL == 0 && PARTITION_DAY == 1 && PARTITION_NIGHT == 2);
    for (unsigned int partition = PARTITION_FULL; partition <= PARTITION_NIGHT; ++partition) {
        const std::int32_t disarmed = ozu::readOnce(state.partitions[partition].disarmTime);
        latest = disarmed > latest ? disarmed : latest;
    }
    *time = static_cast<std::uint32_t>(latest);
    return 0;
}

int disarmingOf(const PanelSharedState &state, sec_partition partition, std::uint32_t *time) noexcept {
    *time = static_cast<std::uint32_t>(ozu::readOnce(state.partitions[partition].disarmTime));
    return 0;
}

// The first of the partitions first to last that is not disarmed.
int findArmed(sec_partition first, sec_partition last, std::uint32_t *partition) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return OZU_RESULT_INVALID;
    }
    for (std::uint32_t candidate = first; candidate <= static_cast<std::uint32_t>(last); ++candidate) {
        if (ozu::readOnce(state->partitions[candidate].partitionState) != PANEL_PARTITION_DISARMED) {
            *partition = candidate;
            return 0;
        }
    }
    return OZU_RESULT_INVALID;
}

} // namespace

int ozuutils_getDisarmTimestamp(const char *zone, std::uint32_t *time) noexcept {
    const bool main = same(zone, kMain);
    const bool perimeter = same(zone, kPerimeter);
    if (!main && !perimeter && !same(zone, kSafety)) {
        OZU_LOG_TEXT(OZULOG_WARNING,
                     "Disarm timestamp currently supported only in zones: main, perimeter, safety");
        return OZU_RESULT_INVALID;
    }
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return OZU_RESULT_INVALID;
    }
    if (main) {
        return latestDisarming(*state, time);
    }
    return disarmingOf(*state, perimeter ? PARTITION_PERIMETER : PARTITION_SAFETY, time);
}

int ozuutils_getSecPartition(const char *zone, const char *armType, std::uint32_t *partition) noexcept {
    if (same(zone, kMain)) {
        if (same(armType, kFindArmType)) {
            return findArmed(PARTITION_FULL, PARTITION_NIGHT, partition);
        }
        if (same(armType, kFull)) {
            *partition = PARTITION_FULL;
        } else if (same(armType, "partial1")) {
            *partition = PARTITION_DAY;
        } else if (same(armType, "partial2")) {
            *partition = PARTITION_NIGHT;
        } else {
            OZU_LOG(OZULOG_ERROR, "bad arm_type %s for zone main", armType);
            return OZU_RESULT_INVALID;
        }
        return 0;
    }
    if (same(zone, kPerimeter) && same(armType, kFull)) {
        *partition = PARTITION_PERIMETER;
        return 0;
    }
    if (same(zone, kPerimeter) && same(armType, kFindArmType)) {
        return findArmed(PARTITION_PERIMETER, PARTITION_PERIMETER, partition);
    }
    if (same(zone, kSafety)) {
        *partition = PARTITION_SAFETY;
        return 0;
    }
    if (same(zone, kPanic)) {
        *partition = PARTITION_PANIC;
        return 0;
    }
    OZU_LOG(OZULOG_ERROR, "bad zone (%s - %s)", zone, armType);
    return OZU_RESULT_INVALID;
}

int ozuutils_getLumPartition(unsigned int partition, std::uint32_t *zone, std::uint32_t *armType) noexcept {
    const auto is = [zone, armType](std::uint32_t zoneNumber, std::uint32_t armNumber) {
        *zone = zoneNumber;
        *armType = armNumber;
        return 0;
    };
    switch (partition) {
    case PARTITION_FULL:
        return is(kZoneMain, kArmFull);
    case PARTITION_DAY:
        return is(kZoneMain, kArmPartial1);
    case PARTITION_NIGHT:
        return is(kZoneMain, kArmPartial2);
    case PARTITION_PERIMETER:
        return is(kZonePerimeter, kArmFull);
    case PARTITION_SAFETY:
        return is(kZoneSafety, kArmFull);
    case PARTITION_PANIC:
        return is(kZonePanic, kArmFull);
    default:
        OZU_LOG(OZULOG_ERROR, "bad partition id %d", static_cast<int>(partition));
        return OZU_RESULT_INVALID;
    }
}

int ozuutils_getLumAlarmType(const char *word, std::uint32_t *alarmType) noexcept {
    // By number; 0, "none", is what no alarm is reported as and translates to nothing.
    static constexpr char kWords[][10] = {"none",      "flood", "smoke",  "gas",
                                          "intrusion", "panic", "duress", "shock"};
    for (std::uint32_t type = 1; type < std::size(kWords); ++type) {
        if (same(kWords[type], word)) {
            *alarmType = type;
            return 0;
        }
    }
    OZU_LOG(OZULOG_ERROR, "bad alarm type '%s'", word);
    return OZU_RESULT_INVALID;
}

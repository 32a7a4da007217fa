// Questions about the panel's partitions: alarm, arming, entry time.

#include <utils_ozu/state.h>

#include <base/panel_state.h>

#include <inc_ozu/security_ozu.h>

#include <array>
#include <cstdint>
#include <span>

namespace {

constexpr unsigned int kBurglaryPartitions = PARTITION_ANNEX + 1; // those that the user arms and disarms

constexpr std::uint32_t kMillisecondsPerSecond = 1000;

constexpr unsigned int bit(unsigned int number) noexcept {
    return 1U << number;
}

// In alarm and the three armed states.
constexpr unsigned int kArmedStates = bit(PANEL_PARTITION_ALARM) | bit(PANEL_PARTITION_ARMED_2) |
                                      bit(PANEL_PARTITION_ARMED_3) | bit(PANEL_PARTITION_ARMED_4);

bool isArmed(std::uint32_t partitionState) noexcept {
    return partitionState < 32 && (kArmedStates & bit(partitionState)) != 0;
}

// Arm types by what outranks the rest of FULL, DAY and NIGHT (rows: none, FULL, NIGHT, DAY) and by what joins
// it (columns: none, PERIMETER, ANNEX, both).
constexpr PanelArmType kArmTypes[4][4] = {
    {PANEL_ARM_NONE, PANEL_ARM_PERIMETER, PANEL_ARM_ANNEX, PANEL_ARM_PERIMETER_ANNEX},
    {PANEL_ARM_FULL, PANEL_ARM_FULL_PERIMETER, PANEL_ARM_FULL_ANNEX, PANEL_ARM_FULL_PERIMETER_ANNEX},
    {PANEL_ARM_NIGHT, PANEL_ARM_NIGHT_PERIMETER, PANEL_ARM_NIGHT_ANNEX, PANEL_ARM_NIGHT_PERIMETER_ANNEX},
    {PANEL_ARM_DAY, PANEL_ARM_DAY_PERIMETER, PANEL_ARM_DAY_ANNEX, PANEL_ARM_DAY_PERIMETER_ANNEX},
};

// The same by the set of armed partitions, one bit for each of the five.
constexpr auto kArmTypeOfSet = [] {
    std::array<std::uint8_t, bit(kBurglaryPartitions)> types{};
    for (unsigned int armed = 0; armed < types.size(); ++armed) {
        const auto has = [armed](sec_partition partition) { return (armed & bit(partition)) != 0; };
        const unsigned int row = has(PARTITION_DAY)     ? 3U
                                 : has(PARTITION_NIGHT) ? 2U
                                 : has(PARTITION_FULL)  ? 1U
                                                        : 0U;
        const unsigned int column = (has(PARTITION_PERIMETER) ? 1U : 0U) + (has(PARTITION_ANNEX) ? 2U : 0U);
        types[armed] = static_cast<std::uint8_t>(kArmTypes[row][column]);
    }
    return types;
}();

// Empty without a shared record, so that no scan finds anything.
[[gnu::always_inline]] inline std::span<const PanelPartition> partitions() noexcept {
    const PanelSharedState *state = ozu::panelState();
    return state == nullptr ? std::span<const PanelPartition>() : std::span(state->partitions);
}

std::uint32_t stateOf(const PanelPartition &partition) noexcept {
    return ozu::readOnce(partition.partitionState);
}

// Of the first partition that is in alarm or armed after one, leaving out those in the set: its armAfterAlarm
// value, or 1 when it is in alarm.
int alarmOrArmAfterAlarm(unsigned int leftOut) noexcept {
    unsigned int number = 0;
    for (const PanelPartition &partition : partitions()) {
        if ((leftOut & bit(number++)) != 0) {
            continue;
        }
        if (const std::uint8_t armAfterAlarm = ozu::readOnce(partition.armAfterAlarm); armAfterAlarm != 0) {
            return armAfterAlarm;
        }
        if (stateOf(partition) == PANEL_PARTITION_ALARM) {
            return 1;
        }
    }
    return 0;
}

} // namespace

int IsPanelInAlarm() noexcept {
    for (const PanelPartition &partition : partitions()) {
        if (stateOf(partition) == PANEL_PARTITION_ALARM) {
            return 1;
        }
    }
    return 0;
}

int IsPanelInAlarmOrArmAfterAlarm() noexcept {
    return alarmOrArmAfterAlarm(0);
}

int IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic() noexcept {
    return alarmOrArmAfterAlarm(bit(PARTITION_ANNEX) | bit(PARTITION_PANIC));
}

int IsPanelInAlarmOrArmAfterAlarmExceptPanic() noexcept {
    return alarmOrArmAfterAlarm(bit(PARTITION_PANIC)) != 0 ? 1 : 0;
}

int IsPanelInDisarmNotEmergemcyPartitions() noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return 0;
    }
    for (unsigned int number = 0; number < kBurglaryPartitions; ++number) {
        if (stateOf(state->partitions[number]) != PANEL_PARTITION_DISARMED) {
            return 0;
        }
    }
    return 1;
}

PanelArmType getCurArmType() noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return PANEL_ARM_FULL; // when in doubt, protected
    }
    unsigned int armed = 0;
    for (unsigned int number = 0; number < kBurglaryPartitions; ++number) {
        armed |= isArmed(stateOf(state->partitions[number])) ? bit(number) : 0U;
    }
    return static_cast<PanelArmType>(kArmTypeOfSet[armed]);
}

int getCurArmForced() noexcept {
    int forced = PANEL_FORCED_ARM_NONE;
    for (const PanelPartition &partition : partitions()) {
        const std::uint32_t forcedArm = ozu::readOnce(partition.forcedArm);
        if (forcedArm == PANEL_FORCED_ARM_STRONGER) {
            return PANEL_FORCED_ARM_STRONGER;
        }
        if (forcedArm == PANEL_FORCED_ARM) {
            forced = PANEL_FORCED_ARM;
        }
    }
    return forced;
}

std::uint32_t getAu1tPartitionEntryTime(std::uint32_t partition) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return 0;
    }
    const bool isShort =
        partition == PARTITION_DAY || partition == PARTITION_NIGHT || partition == PARTITION_ANNEX;
    return ozu::readOnce(isShort ? state->au1tEntryDelayShort : state->au1tEntryDelayFull) *
           kMillisecondsPerSecond;
}

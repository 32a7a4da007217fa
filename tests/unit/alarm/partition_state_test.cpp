#include <utils_ozu/state.h>

#include "state_test.h"

#include <cstring>

namespace {

constexpr int kPartitions = OZUDB_PARTITIONS;

class PartitionState : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        setAll(1);
    }
    static PanelPartition &partition(int number) { return platform().state.partitions[number]; }
    static void setAll(std::uint32_t partitionState) {
        for (PanelPartition &each : platform().state.partitions) {
            each.partitionState = partitionState;
        }
    }
};

// ---- Independent models, straight from the words ----

int alarmModel(const PanelSharedState &state) {
    int inAlarm = 0;
    for (int p = 0; p < kPartitions; ++p) {
        inAlarm |= state.partitions[p].partitionState == 0 ? 1 : 0;
    }
    return inAlarm;
}

int alarmOrAfterModel(const PanelSharedState &state, std::initializer_list<int> looked) {
    for (const int p : looked) {
        if (state.partitions[p].armAfterAlarm != 0) {
            return state.partitions[p].armAfterAlarm;
        }
        if (state.partitions[p].partitionState == 0) {
            return 1;
        }
    }
    return 0;
}

int armTypeModel(const PanelSharedState &state) {
    const auto armed = [&](int p) {
        switch (state.partitions[p].partitionState) {
        case 0:
        case 2:
        case 3:
        case 4:
            return true;
        default:
            return false;
        }
    };
    const bool perimeter = armed(3);
    const bool annex = armed(4);
    int value = 5;
    if (perimeter && annex) {
        value = 15;
    } else if (perimeter) {
        value = 3;
    } else if (annex) {
        value = 4;
    }
    if (armed(1)) {
        value = perimeter && annex ? 13 : perimeter ? 7 : annex ? 10 : 1;
    } else if (armed(2)) {
        value = perimeter && annex ? 14 : perimeter ? 8 : annex ? 11 : 2;
    } else if (armed(0)) {
        value = perimeter && annex ? 12 : perimeter ? 6 : annex ? 9 : 0;
    }
    return value;
}

int forcedModel(const PanelSharedState &state) {
    bool one = false;
    bool two = false;
    for (const PanelPartition &partition : state.partitions) {
        one = one || partition.forcedArm == 1;
        two = two || partition.forcedArm == 2;
    }
    return two ? 2 : one ? 1 : 0;
}

int disarmedModel(const PanelSharedState &state) {
    bool all = true;
    for (int p = 0; p <= 4; ++p) {
        all = all && state.partitions[p].partitionState == 1;
    }
    return all ? 1 : 0;
}

void expectAllAsModelled() {
    const PanelSharedState &state = platform().state;
    ASSERT_EQ(IsPanelInAlarm(), alarmModel(state));
    ASSERT_EQ(IsPanelInAlarmOrArmAfterAlarm(), alarmOrAfterModel(state, {0, 1, 2, 3, 4, 5, 6, 7}));
    ASSERT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptPanic(),
              alarmOrAfterModel(state, {0, 1, 2, 3, 4, 5, 6}) != 0 ? 1 : 0);
    ASSERT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(), alarmOrAfterModel(state, {0, 1, 2, 3, 5, 6}));
    ASSERT_EQ(IsPanelInDisarmNotEmergemcyPartitions(), disarmedModel(state));
    ASSERT_EQ(static_cast<int>(getCurArmType()), armTypeModel(state));
    ASSERT_EQ(getCurArmForced(), forcedModel(state));
    for (const std::uint32_t number : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 255U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        const bool isShort = number == 1 || number == 2 || number == 4;
        ASSERT_EQ(getAu1tPartitionEntryTime(number),
                  (isShort ? state.au1tEntryDelayShort : state.au1tEntryDelayFull) * 1000U);
    }
}

} // namespace

TEST_F(PartitionState, everythingDisarmed) {
    EXPECT_EQ(IsPanelInAlarm(), 0);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarm(), 0);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptPanic(), 0);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(), 0);
    EXPECT_EQ(IsPanelInDisarmNotEmergemcyPartitions(), 1);
    EXPECT_EQ(getCurArmType(), PANEL_ARM_NONE);
    EXPECT_EQ(static_cast<int>(PANEL_ARM_NONE), 5);
    EXPECT_EQ(getCurArmForced(), 0);
}

TEST_F(PartitionState, onlyPanicInAlarm) {
    partition(7).partitionState = 0;
    EXPECT_EQ(IsPanelInAlarm(), 1);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarm(), 1);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptPanic(), 0);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(), 0);
    EXPECT_EQ(IsPanelInDisarmNotEmergemcyPartitions(), 1);
}

TEST_F(PartitionState, onlyAnnexInAlarm) {
    partition(4).partitionState = 0;
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarm(), 1);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptPanic(), 1);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(), 0);
    EXPECT_EQ(IsPanelInDisarmNotEmergemcyPartitions(), 0);
}

TEST_F(PartitionState, armAfterAlarmIsHandedBackByTwoOfThree) {
    partition(2).armAfterAlarm = 5;
    EXPECT_EQ(IsPanelInAlarm(), 0);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarm(), 5);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(), 5);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptPanic(), 1);
    partition(2).armAfterAlarm = 255;
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarm(), 255);
    partition(2).partitionState = 0; // the byte comes first
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarm(), 255);
}

TEST_F(PartitionState, theFirstPartitionAnswers) {
    partition(1).partitionState = 0;
    partition(2).armAfterAlarm = 5;
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarm(), 1);
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(), 1);
    partition(0).armAfterAlarm = 9;
    EXPECT_EQ(IsPanelInAlarmOrArmAfterAlarm(), 9);
}

TEST_F(PartitionState, emergencyPartitionsDoNotCountAsArmed) {
    for (const int emergency : {5, 6, 7}) {
        setAll(1);
        partition(emergency).partitionState = 2;
        EXPECT_EQ(IsPanelInDisarmNotEmergemcyPartitions(), 1);
        EXPECT_EQ(getCurArmType(), PANEL_ARM_NONE);
    }
}

TEST_F(PartitionState, unknownStateIsNeitherArmedNorDisarmed) {
    for (const std::uint32_t unknown : {5U, 7U, 32U, 33U, 34U, 0x100U, 0x80000000U, 0xFFFFFFFFU}) {
        setAll(1);
        partition(0).partitionState = unknown;
        EXPECT_EQ(getCurArmType(), PANEL_ARM_NONE) << unknown;
        EXPECT_EQ(IsPanelInDisarmNotEmergemcyPartitions(), 0) << unknown;
        EXPECT_EQ(IsPanelInAlarm(), 0) << unknown;
    }
}

TEST_F(PartitionState, dayOutranksNightOutranksFull) {
    partition(0).partitionState = 2;
    EXPECT_EQ(getCurArmType(), PANEL_ARM_FULL);
    partition(2).partitionState = 3;
    EXPECT_EQ(getCurArmType(), PANEL_ARM_NIGHT);
    partition(1).partitionState = 4;
    EXPECT_EQ(getCurArmType(), PANEL_ARM_DAY);
}

TEST_F(PartitionState, armTypeOfEveryCombinationOfStates) {
    // 0 to 4, and two values that count as not armed, in each of the five partitions.
    constexpr std::uint32_t kStates[] = {0, 1, 2, 3, 4, 5, 0xFFFFFFFF};
    constexpr int kCount = 7 * 7 * 7 * 7 * 7;
    for (int combination = 0; combination < kCount; ++combination) {
        for (int p = 0, rest = combination; p < 5; ++p, rest /= 7) {
            partition(p).partitionState = kStates[rest % 7];
        }
        ASSERT_EQ(static_cast<int>(getCurArmType()), armTypeModel(platform().state)) << combination;
        ASSERT_EQ(IsPanelInDisarmNotEmergemcyPartitions(), disarmedModel(platform().state)) << combination;
        platform().journal.clear();
    }
}

TEST_F(PartitionState, strongerForceWins) {
    partition(7).forcedArm = 1;
    EXPECT_EQ(getCurArmForced(), 1);
    partition(0).forcedArm = 3;
    EXPECT_EQ(getCurArmForced(), 1);
    partition(6).forcedArm = 2;
    EXPECT_EQ(getCurArmForced(), 2);
    partition(6).forcedArm = 0;
    partition(7).forcedArm = 0x101;
    EXPECT_EQ(getCurArmForced(), 0);
}

TEST_F(PartitionState, entryTimeInMilliseconds) {
    platform().state.au1tEntryDelayFull = 65535;
    platform().state.au1tEntryDelayShort = 30;
    EXPECT_EQ(getAu1tPartitionEntryTime(0), 65535000U);
    EXPECT_EQ(getAu1tPartitionEntryTime(1), 30000U);
    EXPECT_EQ(getAu1tPartitionEntryTime(2), 30000U);
    EXPECT_EQ(getAu1tPartitionEntryTime(3), 65535000U);
    EXPECT_EQ(getAu1tPartitionEntryTime(4), 30000U);
    EXPECT_EQ(getAu1tPartitionEntryTime(0xFFFFFFFF), 65535000U);
}

TEST_F(PartitionState, recordsOfAnyContentAnswerAsModelled) {
    ozu::test::Random random(3);
    std::memset(&platform().state, 0x00, sizeof(platform().state));
    expectAllAsModelled();
    std::memset(&platform().state, 0xFF, sizeof(platform().state));
    expectAllAsModelled();
    for (int round = 0; round < 2000; ++round) {
        auto *bytes = reinterpret_cast<unsigned char *>(&platform().state);
        random.fill(bytes, sizeof(platform().state.partitions));
        for (PanelPartition &each : platform().state.partitions) {
            // Random bytes hardly ever hit the values with a meaning.
            each.partitionState = random() % 3 == 0 ? each.partitionState : random() % 6;
            each.forcedArm = random() % 3 == 0 ? each.forcedArm : random() % 4;
            each.armAfterAlarm = random() % 2 == 0 ? each.armAfterAlarm : 0;
        }
        platform().state.au1tEntryDelayFull = static_cast<std::uint16_t>(random());
        platform().state.au1tEntryDelayShort = static_cast<std::uint16_t>(random());
        expectAllAsModelled();
        platform().journal.clear();
    }
}

struct PartitionQuery {
    const char *name;
    int (*ask)();
};

void PrintTo(const PartitionQuery &query, std::ostream *out) {
    *out << query.name;
}

class PartitionQueries : public PartitionState, public testing::WithParamInterface<PartitionQuery> {};

TEST_P(PartitionQueries, fetchTheRecordOnceAndWriteNothing) {
    const PanelSharedState before = platform().state;
    GetParam().ask();
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));
    EXPECT_EQ(std::memcmp(&before, &platform().state, sizeof(before)), 0);
}

TEST_P(PartitionQueries, answerZeroWithoutARecord) {
    setAll(0); // would answer something else
    platform().stateMissing = true;
    EXPECT_EQ(GetParam().ask(), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));
}

INSTANTIATE_TEST_SUITE_P(
    All, PartitionQueries,
    testing::Values(PartitionQuery{"IsPanelInAlarm", [] { return IsPanelInAlarm(); }},
                    PartitionQuery{"IsPanelInAlarmOrArmAfterAlarm",
                                   [] { return IsPanelInAlarmOrArmAfterAlarm(); }},
                    PartitionQuery{"IsPanelInAlarmOrArmAfterAlarmExceptPanic",
                                   [] { return IsPanelInAlarmOrArmAfterAlarmExceptPanic(); }},
                    PartitionQuery{"IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic",
                                   [] { return IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(); }},
                    PartitionQuery{"IsPanelInDisarmNotEmergemcyPartitions",
                                   [] { return IsPanelInDisarmNotEmergemcyPartitions(); }},
                    PartitionQuery{"getCurArmType", [] { return static_cast<int>(getCurArmType()); }},
                    PartitionQuery{"getCurArmForced", [] { return getCurArmForced(); }},
                    PartitionQuery{"getAu1tPartitionEntryTime",
                                   [] { return static_cast<int>(getAu1tPartitionEntryTime(1)); }}),
    [](const auto &instance) { return std::string(instance.param.name); });

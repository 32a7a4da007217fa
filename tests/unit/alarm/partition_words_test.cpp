#include <utils_ozu/partitions.h>

#include "fake_platform.h"

#include <climits>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t kUntouched = 0xA5A5A5A5;
constexpr const char *kOnlyZones =
    "Disarm timestamp currently supported only in zones: main, perimeter, safety";

class PartitionWords : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        for (auto &partition : platform().state.partitions) {
            partition.partitionState = 1;
        }
    }
    static PanelPartition &partition(int number) { return platform().state.partitions[number]; }
};

// Disarm time stamps.

TEST_F(PartitionWords, mainWasDisarmedWhenItsLatestPartitionWas) {
    const int times[][3] = {{0, 0, 0},         {5, 3, 1},   {1, 5, 3},      {3, 1, 5},
                            {-7, -1, INT_MIN}, {-7, 2, -1}, {0, 0, INT_MAX}};
    const std::uint32_t latest[] = {0, 5, 5, 5, 0, 2, INT_MAX};
    for (std::size_t i = 0; i < std::size(times); ++i) {
        for (int p = 0; p < 3; ++p) {
            partition(p).disarmTime = times[i][p];
        }
        for (int p = 3; p < 8; ++p) {
            partition(p).disarmTime = INT_MAX; // of no concern
        }
        std::uint32_t time = kUntouched;
        EXPECT_EQ(ozuutils_getDisarmTimestamp("main", &time), 0);
        EXPECT_EQ(time, latest[i]) << i;
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(PartitionWords, perimeterAndSafetyHaveOnePartitionEach) {
    for (int p = 0; p < 8; ++p) {
        partition(p).disarmTime = 100 + p;
    }
    std::uint32_t time = kUntouched;
    EXPECT_EQ(ozuutils_getDisarmTimestamp("perimeter", &time), 0);
    EXPECT_EQ(time, 103u);
    EXPECT_EQ(ozuutils_getDisarmTimestamp("safety", &time), 0);
    EXPECT_EQ(time, 106u);
    partition(6).disarmTime = -1;
    EXPECT_EQ(ozuutils_getDisarmTimestamp("safety", &time), 0);
    EXPECT_EQ(time, 0xFFFFFFFFu);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(PartitionWords, otherZonesHaveNoDisarmTime) {
    for (const char *zone : {"panic", "annex", "Main", "main ", "mai", "", "safety2"}) {
        platform().log.clear();
        std::uint32_t time = kUntouched;
        EXPECT_EQ(ozuutils_getDisarmTimestamp(zone, &time), 4) << zone;
        EXPECT_EQ(time, kUntouched);
        EXPECT_THAT(platform().log, ElementsAre(extended(50000, kOnlyZones, "ozuutils_getDisarmTimestamp")));
        EXPECT_EQ(platform().log.at(0).format, "%s");
    }
}

TEST_F(PartitionWords, noDisarmTimeWithoutState) {
    platform().stateMissing = true;
    for (const char *zone : {"main", "perimeter", "safety"}) {
        std::uint32_t time = kUntouched;
        EXPECT_EQ(ozuutils_getDisarmTimestamp(zone, &time), 4);
        EXPECT_EQ(time, kUntouched);
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

// Zone and arm type to partition.

struct Words {
    const char *zone;
    const char *armType;
    std::uint32_t partition;
};

TEST_F(PartitionWords, zoneAndArmTypeGiveThePartition) {
    const Words table[] = {
        {"main", "full", 0},     {"main", "partial1", 1},
        {"main", "partial2", 2}, {"perimeter", "full", 3},
        {"safety", "full", 6},   {"safety", "nonsense", 6},
        {"safety", "", 6},       {"safety", nullptr, 6},
        {"panic", "full", 7},    {"panic", "FIND_ARM_TYPE", 7},
        {"panic", nullptr, 7},
    };
    for (const auto &words : table) {
        std::uint32_t partition = kUntouched;
        EXPECT_EQ(ozuutils_getSecPartition(words.zone, words.armType, &partition), 0);
        EXPECT_EQ(partition, words.partition) << words.zone;
    }
    EXPECT_THAT(platform().journal, IsEmpty()) << "words alone need no state";
}

TEST_F(PartitionWords, findsTheFirstPartitionOfMainThatIsNotDisarmed) {
    for (unsigned int armed = 0; armed < 8; ++armed) {
        for (const std::uint32_t state : {0u, 2u, 3u, 4u, 7u, UINT_MAX}) {
            int first = -1;
            for (int p = 2; p >= 0; --p) {
                const bool set = (armed >> p & 1U) != 0;
                partition(p).partitionState = set ? state : 1;
                first = set ? p : first;
            }
            std::uint32_t found = kUntouched;
            EXPECT_EQ(ozuutils_getSecPartition("main", "FIND_ARM_TYPE", &found), first < 0 ? 4 : 0);
            EXPECT_EQ(found, first < 0 ? kUntouched : static_cast<std::uint32_t>(first)) << armed;
        }
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(PartitionWords, findsThePerimeterUnlessDisarmed) {
    partition(0).partitionState = 2;
    std::uint32_t found = kUntouched;
    EXPECT_EQ(ozuutils_getSecPartition("perimeter", "FIND_ARM_TYPE", &found), 4);
    EXPECT_EQ(found, kUntouched);
    for (const std::uint32_t state : {0u, 2u, 3u, 4u, 5u}) {
        partition(3).partitionState = state;
        found = kUntouched;
        EXPECT_EQ(ozuutils_getSecPartition("perimeter", "FIND_ARM_TYPE", &found), 0);
        EXPECT_EQ(found, 3u);
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(PartitionWords, findsNothingWithoutState) {
    platform().stateMissing = true;
    for (const char *zone : {"main", "perimeter"}) {
        std::uint32_t found = kUntouched;
        EXPECT_EQ(ozuutils_getSecPartition(zone, "FIND_ARM_TYPE", &found), 4);
        EXPECT_EQ(found, kUntouched);
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(PartitionWords, badArmTypeOfMain) {
    for (const char *armType : {"Full", "partial3", "", "FIND_ARM", "full "}) {
        platform().log.clear();
        std::uint32_t partition = kUntouched;
        EXPECT_EQ(ozuutils_getSecPartition("main", armType, &partition), 4);
        EXPECT_EQ(partition, kUntouched);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, "bad arm_type " + std::string(armType) + " for zone main",
                                         "ozuutils_getSecPartition")));
        EXPECT_EQ(platform().log.at(0).format, "bad arm_type %s for zone main");
    }
}

TEST_F(PartitionWords, badZone) {
    const Words table[] = {{"perimeter", "partial1", 0}, {"perimeter", "", 0},     {"Main", "full", 0},
                           {"annex", "full", 0},         {"", "FIND_ARM_TYPE", 0}, {"Safety", "x", 0}};
    for (const auto &words : table) {
        platform().log.clear();
        std::uint32_t partition = kUntouched;
        EXPECT_EQ(ozuutils_getSecPartition(words.zone, words.armType, &partition), 4);
        EXPECT_EQ(partition, kUntouched);
        EXPECT_THAT(
            platform().log,
            ElementsAre(extended(70000, "bad zone (" + std::string(words.zone) + " - " + words.armType + ")",
                                 "ozuutils_getSecPartition")));
        EXPECT_EQ(platform().log.at(0).format, "bad zone (%s - %s)");
    }
}

// Partition to zone and arm type.

TEST_F(PartitionWords, partitionGivesZoneAndArmType) {
    const unsigned int table[][3] = {{0, 0, 0}, {1, 0, 1}, {2, 0, 2}, {3, 1, 0}, {6, 2, 0}, {7, 3, 0}};
    for (const auto &row : table) {
        std::uint32_t zone = kUntouched;
        std::uint32_t armType = kUntouched;
        EXPECT_EQ(ozuutils_getLumPartition(row[0], &zone, &armType), 0);
        EXPECT_EQ(zone, row[1]) << row[0];
        EXPECT_EQ(armType, row[2]) << row[0];
    }
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(PartitionWords, partitionsThatAreNoZone) {
    for (const unsigned int number : {4u, 5u, 8u, 9u, 10u, 255u, 256u, 65536u, 0x80000000u, UINT_MAX}) {
        platform().log.clear();
        std::uint32_t zone = kUntouched;
        std::uint32_t armType = kUntouched;
        EXPECT_EQ(ozuutils_getLumPartition(number, &zone, &armType), 4);
        EXPECT_EQ(zone, kUntouched);
        EXPECT_EQ(armType, kUntouched);
        EXPECT_THAT(platform().log, ElementsAre(extended(
                                        70000, "bad partition id " + std::to_string(static_cast<int>(number)),
                                        "ozuutils_getLumPartition")));
        EXPECT_EQ(platform().log.at(0).format, "bad partition id %d");
    }
}

// Alarm words.

TEST_F(PartitionWords, alarmWordsHaveNumbers) {
    const char *const words[] = {"flood", "smoke", "gas", "intrusion", "panic", "duress", "shock"};
    for (std::uint32_t i = 0; i < std::size(words); ++i) {
        std::uint32_t type = kUntouched;
        EXPECT_EQ(ozuutils_getLumAlarmType(words[i], &type), 0);
        EXPECT_EQ(type, i + 1);
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(PartitionWords, noneIsNoAlarmWord) {
    for (const char *word : {"none", "", "Flood", "gas ", "shocks", "intrusio"}) {
        platform().log.clear();
        std::uint32_t type = kUntouched;
        EXPECT_EQ(ozuutils_getLumAlarmType(word, &type), 4);
        EXPECT_EQ(type, kUntouched);
        EXPECT_THAT(platform().log, ElementsAre(extended(70000, "bad alarm type '" + std::string(word) + "'",
                                                         "ozuutils_getLumAlarmType")));
        EXPECT_EQ(platform().log.at(0).format, "bad alarm type '%s'");
    }
}

} // namespace

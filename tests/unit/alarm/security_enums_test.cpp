#include <inc_ozu/security_ozu.h>

#include "fake_platform.h"

#include <climits>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

extern "C" const char *commandNameFromC(unsigned int command);
extern "C" const char *partitionNameFromC(unsigned int partition);

namespace {

#define ENUMERATOR(name)                                                                                     \
    { name, #name }

struct Enumerator {
    unsigned int value;
    const char *name;
};

const std::vector<Enumerator> kCommands = {
    ENUMERATOR(SEC_CMD_ARM_PARTITION),
    ENUMERATOR(SEC_CMD_ARM_PARTITION_IMMEDIATE),
    ENUMERATOR(SEC_CMD_FORCE_ARM_PARTITION),
    ENUMERATOR(SEC_CMD_FORCE_ARM_PARTITION_IMMEDIATE),
    ENUMERATOR(SEC_CMD_DISARM_PARTITION),
    ENUMERATOR(SEC_CMD_DISARM),
    ENUMERATOR(SEC_DETECTION_WITH_ENTRY_TIME_EVENT),
    ENUMERATOR(SEC_DETECTION_WALK_THROUGH_EVENT),
    ENUMERATOR(SEC_DETECTION_IMMEDIATE_EVENT),
    ENUMERATOR(SEC_TAMPER_EVENT),
    ENUMERATOR(SEC_DETECTION_24_HOURS_EVENT),
    ENUMERATOR(SEC_DETECTION_JAMMING_EVENT),
    ENUMERATOR(SEC_PANIC_EVENT),
    ENUMERATOR(SEC_SAFETY_FLOOD_EVENT),
    ENUMERATOR(SEC_SAFETY_FLOOD_SUBSIDED_EVENT),
    ENUMERATOR(SEC_SAFETY_SMOKE_EVENT),
    ENUMERATOR(SEC_SAFETY_SMOKE_SUBSIDED_EVENT),
    ENUMERATOR(SEC_SAFETY_GAS_EVENT),
    ENUMERATOR(SEC_SAFETY_GAS_SUBSIDED_EVENT),
    ENUMERATOR(MAX_SEC_CMD),
};

const std::vector<Enumerator> kPartitions = {
    ENUMERATOR(PARTITION_FULL),      ENUMERATOR(PARTITION_DAY),   ENUMERATOR(PARTITION_NIGHT),
    ENUMERATOR(PARTITION_PERIMETER), ENUMERATOR(PARTITION_ANNEX), ENUMERATOR(PARTITION_24_HOURS),
    ENUMERATOR(PARTITION_SAFETY),    ENUMERATOR(PARTITION_PANIC), ENUMERATOR(PARTITION_FDN),
    ENUMERATOR(MAX_PARTITION_ID),
};

using NameOf = const char *(*)(unsigned int);
using SecurityEnums = ozu::test::PlatformTest;

TEST_F(SecurityEnums, everyCommandHasItsEnumeratorsName) {
    ASSERT_EQ(kCommands.size(), 20u);
    for (unsigned int value = 0; value < kCommands.size(); ++value) {
        EXPECT_EQ(kCommands[value].value, value);
        EXPECT_STREQ(stringFromSec_cmd(value), kCommands[value].name);
        EXPECT_STREQ(commandNameFromC(value), kCommands[value].name);
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(SecurityEnums, everyPartitionHasItsEnumeratorsName) {
    ASSERT_EQ(kPartitions.size(), 10u);
    for (unsigned int value = 0; value < kPartitions.size(); ++value) {
        EXPECT_EQ(kPartitions[value].value, value);
        EXPECT_STREQ(stringFromSec_partition(value), kPartitions[value].name);
        EXPECT_STREQ(partitionNameFromC(value), kPartitions[value].name);
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(SecurityEnums, takesTheEnumerationsThemselves) {
    EXPECT_STREQ(stringFromSec_cmd(static_cast<sec_cmd>(20)), "ERR ENUM");
    EXPECT_STREQ(stringFromSec_cmd(SEC_TAMPER_EVENT), "SEC_TAMPER_EVENT");
    EXPECT_STREQ(stringFromSec_partition(PARTITION_FDN), "PARTITION_FDN");
}

TEST_F(SecurityEnums, valuesAboveTheBoundAreReported) {
    for (const NameOf nameOf : {NameOf{stringFromSec_cmd}, NameOf{commandNameFromC}}) {
        platform().log.clear();
        EXPECT_STREQ(nameOf(20), "ERR ENUM");
        EXPECT_STREQ(nameOf(UINT_MAX), "ERR ENUM");
        EXPECT_THAT(platform().log, ElementsAre(extended(80000, "20 is not a valid sec_cmd",
                                                         "stringFromSec_cmd", "inc_ozu/security_ozu"),
                                                extended(80000, "-1 is not a valid sec_cmd",
                                                         "stringFromSec_cmd", "inc_ozu/security_ozu")));
        EXPECT_EQ(platform().log[0].format, "%d is not a valid sec_cmd");
    }
    for (const NameOf nameOf : {NameOf{stringFromSec_partition}, NameOf{partitionNameFromC}}) {
        platform().log.clear();
        EXPECT_STREQ(nameOf(10), "ERR ENUM");
        EXPECT_STREQ(nameOf(256), "ERR ENUM");
        EXPECT_THAT(platform().log, ElementsAre(extended(80000, "10 is not a valid sec_partition",
                                                         "stringFromSec_partition", "inc_ozu/security_ozu"),
                                                extended(80000, "256 is not a valid sec_partition",
                                                         "stringFromSec_partition", "inc_ozu/security_ozu")));
        EXPECT_EQ(platform().log[0].format, "%d is not a valid sec_partition");
    }
}

} // namespace

// Unit tests of alarm_core: what it takes from the bus, and what it refuses.

#include <ozu_fake_platform.h>

#include <gtest/gtest.h>

#include <utils_ozu.h>

#include <csignal>

// alarm_core.c's main() under another name; see CMakeLists.txt.
extern "C" int alarm_core_main();

namespace {

constexpr unsigned char kFull = PARTITION_FULL;

class AlarmCore : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(testing::UnitTest::GetInstance()->test_to_run_count(), 1) << "run these tests with ctest";
        ozu_fake_reset();
        ozu_fake_clock_start(1'700'000'000);
        for (PanelPartition &partition : ozu_fake_state()->partitions) {
            partition.partitionState = PANEL_PARTITION_ARMED_3;
        }
    }

    void TearDown() override {
        if (HasFailure()) {
            ozu_fake_print(stderr);
        }
        ozu_fake_reset();
    }

    // Runs the process until it has said that it is up, and delivers one message then.
    static int runWith(const char *topic, int command) {
        static struct {
            const char *topic;
            int command;
            bool done;
        } message;
        message = {topic, command, false};
        ozu_fake_hook(
            [](OzuFakeEntry *, void *) {
                if (message.done || ozu_fake_logged(OZULOG_NOTICE, "alarm core is up") == 0) {
                    return;
                }
                message.done = true;
                EXPECT_EQ(ozu_fake_deliver(message.topic, "KEYPAD", 1, message.command, &kFull, sizeof kFull),
                          0);
                std::raise(SIGTERM);
            },
            nullptr);
        return alarm_core_main();
    }

    static unsigned int state() { return ozu_fake_state()->partitions[PARTITION_FULL].partitionState; }
};

TEST_F(AlarmCore, armsOnRequest) {
    EXPECT_EQ(runWith("Process/ALARM_CORE", SEC_CMD_ARM_PARTITION), 0);
    EXPECT_EQ(state(), PANEL_PARTITION_ARMED_2);
}

TEST_F(AlarmCore, disarmsOnRequest) {
    EXPECT_EQ(runWith("Process/ALARM_CORE", SEC_CMD_DISARM_PARTITION), 0);
    EXPECT_EQ(state(), PANEL_PARTITION_DISARMED);
}

TEST_F(AlarmCore, doesNotDisarmOnAnyOtherCommand) {
    EXPECT_EQ(runWith("Process/ALARM_CORE", SEC_TAMPER_EVENT), 0);
    EXPECT_EQ(state(), PANEL_PARTITION_ARMED_3);
    EXPECT_EQ(ozu_fake_logged(OZULOG_WARNING, "command 9: request for partition 0 refused"), 1U);
}

TEST_F(AlarmCore, takesNoRequestFromAnotherTopic) {
    EXPECT_EQ(runWith(OZU_TOPIC_SYSLOG_APPENDER_STATE, SEC_CMD_DISARM_PARTITION), 0);
    EXPECT_EQ(state(), PANEL_PARTITION_ARMED_3);
}

TEST_F(AlarmCore, takesNoRequestWithoutARecord) {
    ozu_fake_use_state(nullptr);
    EXPECT_EQ(runWith("Process/ALARM_CORE", SEC_CMD_DISARM_PARTITION), 0);
    EXPECT_EQ(ozu_fake_logged(OZULOG_WARNING, "refused"), 1U);
}

TEST_F(AlarmCore, doesNotStartWhereNoRequestReachesIt) {
    ozu_fake_fail("ozumqttc_topicSubscribe", 2, 22); // the first is the library's
    EXPECT_EQ(runWith("Process/ALARM_CORE", SEC_CMD_ARM_PARTITION), 1);
}

} // namespace

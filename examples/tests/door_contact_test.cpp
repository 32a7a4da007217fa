// A unit test of door_contact, without a panel: the fake platform answers it, records what it says, and moves
// its clock, so that hours pass in milliseconds.
//
// A panel process starts once, so each test runs in a process of its own: with ctest, or one by one with
// --gtest_filter.

#include <ozu_fake_platform.h>

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <map>

// door_contact.cpp's main() under another name; see CMakeLists.txt.
int door_contact_main(int argc, char **argv);

namespace {

constexpr int kDevice = 2;

class DoorContact : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(testing::UnitTest::GetInstance()->test_to_run_count(), 1) << "run these tests with ctest";
        ozu_fake_reset();
        ozu_fake_clock_start(1'700'000'000);
        PanelDevice &device = ozu_fake_state()->devices[kDevice];
        device.deviceType = PANEL_DEVICE_W3;
        device.active = 1;
        device.tableIndex = kDevice;
        ozu_fake_state()->zones[kDevice].firstInputEnabled = 1;
        ozu_fake_device_kind(kDevice, OZU_FAKE_RF_DETECTOR);
    }

    void TearDown() override {
        if (HasFailure()) {
            ozu_fake_print(stderr);
        }
        ozu_fake_reset();
    }

    // What happens so many seconds after the start. The process is told to end at the last of them.
    void after(double seconds, std::function<void()> event) { plan_[start_ + seconds] = std::move(event); }

    int run(double seconds) {
        after(seconds, [] { std::raise(SIGTERM); });
        // The process looks at the record again and again; that is where things happen.
        ozu_fake_hook(
            [](OzuFakeEntry *, void *user) {
                auto &plan = *static_cast<std::map<double, std::function<void()>> *>(user);
                while (!plan.empty() && plan.begin()->first <= ozu_fake_clock_now()) {
                    const auto event = plan.extract(plan.begin());
                    event.mapped()();
                }
            },
            &plan_);
        char name[] = "door_contact";
        char index[] = "2";
        char *arguments[] = {name, index, nullptr};
        return door_contact_main(2, arguments);
    }

  private:
    double start_ = 1'700'000'000;
    std::map<double, std::function<void()>> plan_;
};

TEST_F(DoorContact, tellsWhenTheContactOpensAndCloses) {
    after(10, [] { ozu_fake_state()->devices[kDevice].openState = 1; });
    after(20, [] { ozu_fake_state()->devices[kDevice].openState = 0; });
    EXPECT_EQ(run(30), 0);
    EXPECT_EQ(ozu_fake_logged(OZULOG_NOTICE, "device 2: contact open"), 1U);
    EXPECT_EQ(ozu_fake_logged(OZULOG_NOTICE, "device 2: contact closed"), 1U);
}

TEST_F(DoorContact, saysNothingOfADoorThatStaysClosed) {
    EXPECT_EQ(run(3600), 0);
    EXPECT_EQ(ozu_fake_logged(OZULOG_NOTICE, ""), 0U);
}

// [bypass]
TEST_F(DoorContact, endsABypassWhenItsTimeIsUp) {
    PanelBypass &bypass = ozu_fake_state()->zones[kDevice].bypass[0];
    bypass.bypassed = 1;
    bypass.bypassExpiry = 1'700'000'000 + 300;
    after(299, [] { EXPECT_EQ(ozu_fake_calls("ozudb_ModifyBypassExpiry"), 0U); });
    EXPECT_EQ(run(302), 0);
    ASSERT_GE(ozu_fake_calls("ozudb_ModifyBypassExpiry"), 1U);
    EXPECT_STREQ(ozu_fake_call("ozudb_ModifyBypassExpiry", 0)->arguments, "2, 0, -1");
}
// [end]

TEST_F(DoorContact, doesNotStartWithoutABus) {
    ozu_fake_result("mqttc_connect", 111);
    EXPECT_EQ(run(1), 1);
    EXPECT_EQ(ozu_fake_logged(OZULOG_CRITICAL, "mqttc_connect returned: 111"), 1U);
}

} // namespace

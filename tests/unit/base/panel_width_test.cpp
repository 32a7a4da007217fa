#include <base/panel_width.h>

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t kMaxPanelLong = 2147483647;
constexpr std::int64_t kSmallest = -2147483648;

} // namespace

TEST(PanelWidth, secondsBeyondThePanelAreMinusOne) {
    EXPECT_EQ(ozu::panelTime(0), 0);
    EXPECT_EQ(ozu::panelTime(-2), -2);
    EXPECT_EQ(ozu::panelTime(kMaxPanelLong), kMaxPanelLong);
    EXPECT_EQ(ozu::panelTime(kMaxPanelLong + 1), -1);
    EXPECT_EQ(ozu::panelTime(kSmallest), kSmallest);
    EXPECT_EQ(ozu::panelTime(kSmallest - 1), -1);
    EXPECT_EQ(ozu::panelTime(INT64_MAX), -1);
    EXPECT_EQ(ozu::panelTime(INT64_MIN), -1);
}

TEST(PanelWidth, numbersBeyondThePanelSaturate) {
    EXPECT_EQ(ozu::panelLong(0), 0);
    EXPECT_EQ(ozu::panelLong(-1), -1);
    EXPECT_EQ(ozu::panelLong(kMaxPanelLong), kMaxPanelLong);
    EXPECT_EQ(ozu::panelLong(kMaxPanelLong + 1), kMaxPanelLong);
    EXPECT_EQ(ozu::panelLong(kSmallest), kSmallest);
    EXPECT_EQ(ozu::panelLong(kSmallest - 1), kSmallest);
    EXPECT_EQ(ozu::panelLong(INT64_MAX), kMaxPanelLong);
    EXPECT_EQ(ozu::panelLong(INT64_MIN), kSmallest);
}

#include <base/panel_width.h>

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t kLargest = 2147483647;
constexpr std::int64_t kSmallest = -2147483648;

} // namespace

TEST(PanelWidth, secondsBeyondThePanelAreMinusOne) {
    EXPECT_EQ(ozu::panelTime(0), 0);
    EXPECT_EQ(ozu::panelTime(-2), -2);
    EXPECT_EQ(ozu::panelTime(kLargest), kLargest);
    EXPECT_EQ(ozu::panelTime(kLargest + 1), -1);
    EXPECT_EQ(ozu::panelTime(kSmallest), kSmallest);
    EXPECT_EQ(ozu::panelTime(kSmallest - 1), -1);
    EXPECT_EQ(ozu::panelTime(INT64_MAX), -1);
    EXPECT_EQ(ozu::panelTime(INT64_MIN), -1);
}

TEST(PanelWidth, numbersBeyondThePanelSaturate) {
    EXPECT_EQ(ozu::panelLong(0), 0);
    EXPECT_EQ(ozu::panelLong(-1), -1);
    EXPECT_EQ(ozu::panelLong(kLargest), kLargest);
    EXPECT_EQ(ozu::panelLong(kLargest + 1), kLargest);
    EXPECT_EQ(ozu::panelLong(kSmallest), kSmallest);
    EXPECT_EQ(ozu::panelLong(kSmallest - 1), kSmallest);
    EXPECT_EQ(ozu::panelLong(INT64_MAX), kLargest);
    EXPECT_EQ(ozu::panelLong(INT64_MIN), kSmallest);
}

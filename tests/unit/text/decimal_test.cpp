#include "text_test.h"

#include <cerrno>
#include <climits>

namespace {

// The numbers where a count of digits changes, and random ones of all lengths.
std::vector<unsigned int> numbersOfAllLengths() {
    std::vector<unsigned int> all = {0, 0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, 12345};
    for (unsigned int power = 1; power <= 1000000000; power *= 10) {
        all.insert(all.end(), {power - 1, power, power + 1, 9 * power});
        if (power == 1000000000) {
            break;
        }
    }
    return ozu::test::withRandomNumbers(all, 21, 2000);
}

} // namespace

// ---- safe_atoi, safe_atoll ----

TEST(SafeAtoi, convertsTheStartOfAText) {
    EXPECT_EQ(safe_atoi(nullptr), 0);
    EXPECT_EQ(safe_atoi(""), 0);
    EXPECT_EQ(safe_atoi("x"), 0);
    EXPECT_EQ(safe_atoi("42"), 42);
    EXPECT_EQ(safe_atoi(" \t\n\v\f\r+42x7"), 42);
    EXPECT_EQ(safe_atoi("-42"), -42);
    EXPECT_EQ(safe_atoi("- 42"), 0);
    EXPECT_EQ(safe_atoi("--42"), 0);
    EXPECT_EQ(safe_atoi("0x10"), 0);
    EXPECT_EQ(safe_atoi("010"), 10);
    EXPECT_EQ(safe_atoi("1.9"), 1);
    EXPECT_EQ(safe_atoi("\xB2"), 0);
}

TEST(SafeAtoi, saturatesAt32Bits) {
    EXPECT_EQ(safe_atoi("2147483647"), INT_MAX);
    EXPECT_EQ(safe_atoi("2147483648"), INT_MAX);
    EXPECT_EQ(safe_atoi("4294967296"), INT_MAX);
    EXPECT_EQ(safe_atoi("4294967297"), INT_MAX);
    EXPECT_EQ(safe_atoi("9223372036854775807"), INT_MAX);
    EXPECT_EQ(safe_atoi("9223372036854775808"), INT_MAX);
    EXPECT_EQ(safe_atoi("99999999999999999999999999"), INT_MAX);
    EXPECT_EQ(safe_atoi("-2147483648"), INT_MIN);
    EXPECT_EQ(safe_atoi("-2147483649"), INT_MIN);
    EXPECT_EQ(safe_atoi("-4294967297"), INT_MIN);
    EXPECT_EQ(safe_atoi("-99999999999999999999999999"), INT_MIN);
}

TEST(SafeAtoll, convertsAndSaturatesAt64Bits) {
    EXPECT_EQ(safe_atoll(nullptr), 0);
    EXPECT_EQ(safe_atoll(""), 0);
    EXPECT_EQ(safe_atoll(" -1x"), -1);
    EXPECT_EQ(safe_atoll("4294967297"), 4294967297LL);
    EXPECT_EQ(safe_atoll("9223372036854775807"), LLONG_MAX);
    EXPECT_EQ(safe_atoll("9223372036854775808"), LLONG_MAX);
    EXPECT_EQ(safe_atoll("-9223372036854775808"), LLONG_MIN);
    EXPECT_EQ(safe_atoll("-9223372036854775809"), LLONG_MIN);
}

TEST(SafeAtoi, agreesWithItsModel) {
    Random random(22);
    for (int round = 0; round < 5000; ++round) {
        const auto value = static_cast<std::int64_t>(
            (static_cast<std::uint64_t>(random()) << 32 | random()) >> random.below(64));
        const std::string text = std::to_string(value) + random.text(random.below(2), "x -+.");
        ASSERT_EQ(safe_atoll(text.c_str()), value);
        const std::int64_t saturated =
            std::min<std::int64_t>(std::max<std::int64_t>(value, INT_MIN), INT_MAX);
        ASSERT_EQ(safe_atoi(text.c_str()), saturated);
    }
}

// ---- ozuutils_num2decstr ----

TEST(FixedDecimal, padsAndDrops) {
    char text[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(ozuutils_num2decstr(7, text, 3), 3);
    EXPECT_EQ(std::string(text, 4), "007x");
    EXPECT_EQ(ozuutils_num2decstr(12345, text, 3), 3);
    EXPECT_EQ(std::string(text, 4), "345x");
    EXPECT_EQ(ozuutils_num2decstr(12345, text, 0), 0);
    EXPECT_EQ(std::string(text, 4), "345x");
}

TEST(FixedDecimal, agreesWithItsModelAtEveryWidth) {
    for (const unsigned int number : numbersOfAllLengths()) {
        const std::string padded = std::string(14, '0') + std::to_string(number);
        for (unsigned int width = 0; width <= 14; ++width) {
            const GuardedBuffer dst(width, kEdges[width % 2]);
            ASSERT_EQ(ozuutils_num2decstr(number, dst.chars(), width), width);
            ASSERT_EQ(dst.view(), padded.substr(padded.size() - width)) << number;
        }
    }
}

TEST(FixedDecimal, resultIsCutTo16Bits) {
    const GuardedBuffer dst(65537);
    EXPECT_EQ(ozuutils_num2decstr(4294967295U, dst.chars(), 65537), 1);
    EXPECT_EQ(dst.view(), std::string(65527, '0') + "4294967295");
    EXPECT_EQ(ozuutils_num2decstr(1, dst.chars(), 65535), 65535);
}

// ---- ozuutils_Num2MinimalDecStr ----

TEST(MinimalDecimal, writesNoMoreThanItsDigits) {
    char text[12] = "xxxxxxxxxxx";
    EXPECT_EQ(ozuutils_Num2MinimalDecStr(0, text, 0), 0);
    EXPECT_EQ(ozuutils_Num2MinimalDecStr(123, text, 0), 0);
    EXPECT_STREQ(text, "xxxxxxxxxxx");
    EXPECT_EQ(ozuutils_Num2MinimalDecStr(0, text, 1), 1);
    EXPECT_STREQ(text, "0xxxxxxxxxx");
    EXPECT_EQ(ozuutils_Num2MinimalDecStr(4294967295U, text, 10), 10);
    EXPECT_STREQ(text, "4294967295x");
}

TEST(MinimalDecimal, agreesWithItsModelAtEveryLength) {
    for (const unsigned int number : numbersOfAllLengths()) {
        const std::string digits = std::to_string(number);
        for (unsigned int maxLen = 1; maxLen <= 12; ++maxLen) {
            const bool fits = digits.size() <= maxLen;
            const std::size_t written = fits ? digits.size() : maxLen + 1;
            const GuardedBuffer dst(written, kEdges[maxLen % 2]);
            ASSERT_EQ(ozuutils_Num2MinimalDecStr(number, dst.chars(), maxLen), written) << number;
            if (fits) {
                ASSERT_EQ(dst.view(), digits);
            } else {
                // The first of them has no meaning.
                ASSERT_EQ(dst.view().substr(1), digits.substr(digits.size() - maxLen));
            }
        }
        char text[11] = "xxxxxxxxxx";
        ASSERT_EQ(ozuutils_Num2MinimalDecStr(number, text, UINT_MAX), digits.size());
        ASSERT_EQ(std::string(text, digits.size()), digits);
    }
}

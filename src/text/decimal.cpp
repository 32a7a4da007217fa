// Decimal numbers.

#include <text/digits.h>

#include <utils_ozu/text.h>

#include <base/panel_width.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr unsigned int kMostDigits = 10; // of a 32-bit number

constexpr auto kDecimalPairs = ozu::text::digitPairs<100, 10>();

// A division by 100; the panel's processor has no instruction for it.
constexpr unsigned int hundredsOf(unsigned int num) noexcept {
    return static_cast<unsigned int>((std::uint64_t{num} * 0x51EB851FU) >> 37U);
}

// The digits of a number, right-aligned, rendered two at a time.
struct Decimal {
    explicit Decimal(unsigned int num) noexcept {
        char *end = digits + kMostDigits;
        while (num >= 100) {
            end -= 2;
            const unsigned int hundreds = hundredsOf(num);
            ozu::text::putPair(end, kDecimalPairs, num - hundreds * 100);
            num = hundreds;
        }
        if (num >= 10) {
            end -= 2;
            ozu::text::putPair(end, kDecimalPairs, num);
        } else {
            *--end = ozu::text::kHexDigits[num];
        }
        count = static_cast<unsigned int>(digits + kMostDigits - end);
    }
    // The last digits, at most count of them.
    [[nodiscard]] const char *last(unsigned int wanted) const noexcept {
        return digits + kMostDigits - wanted;
    }

    char digits[kMostDigits];
    unsigned int count;
};

} // namespace

int safe_atoi(const char *s) noexcept {
    return s == nullptr ? 0 : ozu::panelLong(strtol(s, nullptr, 10));
}

long long safe_atoll(const char *s) noexcept {
    return s == nullptr ? 0 : strtoll(s, nullptr, 10);
}

unsigned short ozuutils_num2decstr(unsigned int num, char *dst, unsigned int width) noexcept {
    const Decimal decimal(num);
    const unsigned int shown = std::min(width, decimal.count);
    memset(dst, '0', width - shown);
    memcpy(dst + (width - shown), decimal.last(shown), shown);
    return static_cast<unsigned short>(width);
}

unsigned short ozuutils_Num2MinimalDecStr(unsigned int num, char *dst, unsigned int maxLen) noexcept {
    if (maxLen == 0) {
        return 0;
    }
    const Decimal decimal(num);
    if (decimal.count <= maxLen) {
        memcpy(dst, decimal.last(decimal.count), decimal.count);
        return static_cast<unsigned short>(decimal.count);
    }
    // Too long: one filler in front of the digits that are kept.
    dst[0] = '0';
    memcpy(dst + 1, decimal.last(maxLen), maxLen);
    return static_cast<unsigned short>(maxLen + 1);
}

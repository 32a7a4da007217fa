// Decimal numbers.

#include <text/digits.h>

#include <utils_ozu/text.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>

namespace {

constexpr unsigned int kMaxDigits = 10; // of a 32-bit number

constexpr auto kDecimalPairs = ozu::text::digitPairs<100, 10>();

// Reads like strtol(): white space, a sign, digits up to the first other character; saturates.
template <typename Number>
Number readDecimal(const char *s) noexcept {
    while (*s == ' ' || (*s >= '\t' && *s <= '\r')) {
        ++s;
    }
    const bool negative = *s == '-';
    if (negative || *s == '+') {
        ++s;
    }
    Number value = 0;
    for (; *s >= '0' && *s <= '9'; ++s) {
        const int digit = *s - '0';
        if (__builtin_mul_overflow(value, 10, &value) ||
            __builtin_add_overflow(value, negative ? -digit : digit, &value)) {
            return negative ? std::numeric_limits<Number>::min() : std::numeric_limits<Number>::max();
        }
    }
    return value;
}

} // namespace

int safe_atoi(const char *s) noexcept {
    return s == nullptr ? 0 : readDecimal<std::int32_t>(s);
}

long long safe_atoll(const char *s) noexcept {
    return s == nullptr ? 0 : readDecimal<long long>(s);
}

unsigned short ozuutils_num2decstr(unsigned int num, char *dst, unsigned int width) noexcept {
    unsigned int left = width;
    for (; left >= 2; left -= 2, num /= 100) {
        ozu::text::putPair(dst + left - 2, kDecimalPairs, num % 100);
    }
    if (left == 1) {
        dst[0] = ozu::text::kHexDigits[num % 10];
    }
    return static_cast<unsigned short>(width);
}

unsigned short ozuutils_Num2MinimalDecStr(unsigned int num, char *dst, unsigned int maxLen) noexcept {
    if (maxLen == 0) {
        return 0;
    }
    const auto [end, error] = std::to_chars(dst, dst + std::min(maxLen, kMaxDigits), num);
    if (error == std::errc()) {
        return static_cast<unsigned short>(end - dst);
    }
    // Too long: one filler in front of the digits that are kept.
    dst[0] = '0';
    ozuutils_num2decstr(num, dst + 1, maxLen);
    return static_cast<unsigned short>(maxLen + 1);
}

// Digits and numbers of any radix.

#include <text/digits.h>

#include <utils_ozu/text.h>

#include <algorithm>
#include <cstdint>

namespace {

// As many digits as the number has bits are looked at, the most it can hold in the smallest radix.
template <typename Number>
Number readNumber(const char *s, unsigned int maxDigits, unsigned int radix) noexcept {
    if (s == nullptr) {
        return 0;
    }
    const unsigned int limit = std::min<unsigned int>(maxDigits, sizeof(Number) * 8);
    Number value = 0;
    for (unsigned int i = 0; i < limit; ++i) {
        const int digit = ozu::text::digitValue(s[i]);
        if (digit < 0) {
            break;
        }
        value = value * radix + static_cast<Number>(digit);
    }
    return value;
}

} // namespace

signed char ozuutils_Ascii2Digit(char c) noexcept {
    return static_cast<signed char>(ozu::text::digitValue(c));
}

char ozuutils_Digit2Ascii(unsigned char d) noexcept {
    return d < ozu::text::kHexDigits.size() ? ozu::text::kHexDigits[d] : '\0';
}

int ozuutils_StringToNum(const char *s, unsigned int maxDigits, unsigned int radix) noexcept {
    return static_cast<int>(readNumber<std::uint32_t>(s, maxDigits, radix));
}

std::uint64_t ozuutils_StringToLongNum(const char *s, unsigned int maxDigits, unsigned int radix) noexcept {
    return readNumber<std::uint64_t>(s, maxDigits, radix);
}

unsigned char ozuutils_bcd2num(unsigned char bcd) noexcept {
    char text[2];
    ozuutils_num2hexstr(bcd, text, 2);
    return static_cast<unsigned char>(ozuutils_StringToNum(text, 2, 10));
}

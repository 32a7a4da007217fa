// Hexadecimal text.

#include <text/digits.h>

#include <utils_ozu/text.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

using ozu::text::digitValue;
using ozu::text::hexPairValue;
using ozu::text::hexValue;
using ozu::text::kNoHexDigit;

constexpr auto kHexPairs = ozu::text::digitPairs<256, 16>();

void putHexPair(char *dst, std::uint8_t byte) noexcept {
    ozu::text::putPair(dst, kHexPairs, byte);
}

void putHexPairs(char *dst, const unsigned char *data, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        putHexPair(dst + 2 * i, data[i]);
    }
}

// scanf's view of a pair that is not two digits.
[[gnu::cold, gnu::noinline]] void scanHexPair(const char *pair, unsigned char &byte) noexcept {
    static_cast<void>(sscanf(pair, "%02hhx", &byte));
}

// Reads pairs to out[0], out[Step], ...
template <std::ptrdiff_t Step>
void readHexPairs(const char *hex, std::size_t count, unsigned char *out) noexcept {
#pragma GCC unroll 4
    for (std::size_t i = 0; i < count; ++i, hex += 2, out += Step) {
        const unsigned int value = hexPairValue(hex);
        if (value < kNoHexDigit) {
            *out = static_cast<unsigned char>(value);
        } else {
            scanHexPair(hex, *out);
        }
    }
}

} // namespace

void ozuutils_String2Ascii(char *dst, const unsigned char *src, unsigned short n) noexcept {
    putHexPairs(dst, src, n);
}

void ozuutils_Ascii2String(unsigned char *dst, const char *src, unsigned short n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        dst[i] = static_cast<unsigned char>(digitValue(src[2 * i]) * 16 + digitValue(src[2 * i + 1]));
    }
}

unsigned short ozuutils_num2hexstr(std::uint64_t num, char *dst, int width) noexcept {
    int left = width;
    for (; left >= 2; left -= 2, num >>= 8) {
        putHexPair(dst + left - 2, static_cast<std::uint8_t>(num));
    }
    if (left == 1) {
        dst[0] = ozu::text::kHexDigits[num & 0xF];
    }
    return static_cast<unsigned short>(width);
}

unsigned int ozuutils_hexstr2numRetLen(const char *s, unsigned int maxLen, unsigned char *outLen) noexcept {
    std::uint32_t value = 0;
    unsigned int count = 0;
    for (; count < maxLen && hexValue(s[count]) < kNoHexDigit; ++count) {
        value = value << 4U | hexValue(s[count]);
    }
    if (outLen != nullptr) {
        *outLen = static_cast<unsigned char>(count);
    }
    return value;
}

char *ozuutils_data2hexstr(const unsigned char *data, unsigned int len, char *dst, unsigned int dstSize,
                           const char *sep) noexcept {
    if (dst == nullptr) {
        return nullptr;
    }
    const std::size_t sepLength = sep == nullptr ? 0 : strlen(sep);
    const std::size_t step = sepLength + 2;
    const std::size_t count = std::min<std::size_t>((dstSize - 1) / step, len);
    if (sepLength == 0) {
        putHexPairs(dst, data, count);
        dst[2 * count] = '\0';
        return dst;
    }
    char *end = dst;
    for (std::size_t i = 0; i < count; ++i, end += 2) {
        if (i > 0 && sepLength == 1) {
            *end++ = *sep;
        } else if (i > 0) {
            end = static_cast<char *>(mempcpy(end, sep, sepLength));
        }
        putHexPair(end, data[i]);
    }
    *end = '\0';
    return dst;
}

int ozuutils_hexStringToBinary(const char *hex, unsigned char *out, unsigned int outSize,
                               int reverse) noexcept {
    const std::size_t length = strlen(hex);
    if (length % 2 != 0) {
        return -1;
    }
    const std::size_t count = length / 2;
    if (count > outSize) {
        return -2;
    }
    if (reverse == 0) {
        readHexPairs<1>(hex, count, out);
    } else if (count > 0) {
        readHexPairs<-1>(hex, count, out + count - 1);
    }
    return static_cast<int>(count);
}

// Hexadecimal text.

#include <text/digits.h>

#include <utils_ozu/text.h>

#include <cstdint>
#include <cstdio>

namespace {

using ozu::text::digitValue;
using ozu::text::isHexDigit;

constexpr auto kHexPairs = ozu::text::digitPairs<256, 16>();

void putHexPair(char *dst, std::uint8_t byte) noexcept {
    ozu::text::putPair(dst, kHexPairs, byte);
}

// One byte from the text's first two characters; scanf's view of them decides where they are not two digits.
void readHexPair(const char *pair, unsigned char &byte) noexcept {
    if (isHexDigit(pair[0]) && isHexDigit(pair[1])) {
        byte = static_cast<unsigned char>(digitValue(pair[0]) * 16 + digitValue(pair[1]));
        return;
    }
    static_cast<void>(sscanf(pair, "%02hhx", &byte));
}

} // namespace

void ozuutils_String2Ascii(char *dst, const unsigned char *src, unsigned short n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        putHexPair(dst + 2 * i, src[i]);
    }
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
    for (; count < maxLen && isHexDigit(s[count]); ++count) {
        value = value << 4 | static_cast<std::uint32_t>(digitValue(s[count]));
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
    const unsigned int sepLength = sep == nullptr ? 0 : static_cast<unsigned int>(strlen(sep));
    const unsigned int step = sepLength + 2;
    unsigned int room = dstSize - 1;
    char *end = dst;
    for (unsigned int i = 0; i < len && room >= step; ++i, room -= step) {
        if (i > 0 && sepLength > 0) {
            memcpy(end, sep, sepLength);
            end += sepLength;
        }
        putHexPair(end, data[i]);
        end += 2;
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
    for (std::size_t i = 0; i < count; ++i) {
        readHexPair(hex + 2 * i, out[reverse != 0 ? count - 1 - i : i]);
    }
    return static_cast<int>(count);
}

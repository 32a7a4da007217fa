// Bits and byte order.

#include <utils_ozu/text.h>

#include <bit>
#include <cstdint>
#include <cstring>

namespace {

constexpr unsigned int kBits = 32;

} // namespace

void swap_ptr32(void *p) noexcept {
    std::uint32_t word = 0;
    memcpy(&word, p, sizeof(word));
    word = __builtin_bswap32(word);
    memcpy(p, &word, sizeof(word));
}

unsigned int countSetBits(unsigned int v) noexcept {
    return static_cast<unsigned int>(std::popcount(v));
}

unsigned int SetBit(unsigned int v, unsigned int bit) noexcept {
    return bit < kBits ? v | 1U << bit : v;
}

unsigned int ClearBit(unsigned int v, unsigned int bit) noexcept {
    return bit < kBits ? v & ~(1U << bit) : v;
}

unsigned char msbSetBitNumber(unsigned int v) noexcept {
    return v == 0 ? 0 : static_cast<unsigned char>(std::bit_width(v) - 1);
}

// The digits that all converters read and write.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace ozu::text {

inline constexpr std::string_view kHexDigits = "0123456789ABCDEF";

// The two digits of every number below Count, one pair after the other.
template <std::size_t Count, std::size_t Radix>
constexpr std::array<char, 2 * Count> digitPairs() noexcept {
    std::array<char, 2 * Count> pairs{};
    for (std::size_t number = 0; number < Count; ++number) {
        pairs[2 * number] = kHexDigits[number / Radix];
        pairs[2 * number + 1] = kHexDigits[number % Radix];
    }
    return pairs;
}

template <std::size_t Size>
void putPair(char *dst, const std::array<char, Size> &pairs, unsigned int number) noexcept {
    std::memcpy(dst, &pairs[2 * static_cast<std::size_t>(number)], 2);
}

// The last letter that counts as a digit is 'Y'.
inline constexpr unsigned int kDigitLetters = 'Y' - 'A' + 1;

constexpr std::array<std::int8_t, 256> digitValues() noexcept {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (unsigned int digit = 0; digit < 10; ++digit) {
        values['0' + digit] = static_cast<std::int8_t>(digit);
    }
    for (unsigned int letter = 0; letter < kDigitLetters; ++letter) {
        values['A' + letter] = static_cast<std::int8_t>(10 + letter);
        values['a' + letter] = static_cast<std::int8_t>(10 + letter);
    }
    return values;
}

inline constexpr auto kDigitValues = digitValues();

// 0 to 34, or -1 for what is no digit in any radix.
constexpr int digitValue(char c) noexcept {
    return kDigitValues[static_cast<unsigned char>(c)];
}

constexpr bool isHexDigit(char c) noexcept {
    // -1 becomes the largest number.
    return static_cast<unsigned int>(digitValue(c)) < kHexDigits.size();
}

} // namespace ozu::text

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

// A character that is no hexadecimal digit, wherever it stands in a pair: more than two digits make.
inline constexpr unsigned int kNoHexDigit = 0x100;

constexpr std::array<std::uint16_t, 256> hexValues(unsigned int shift) noexcept {
    std::array<std::uint16_t, 256> values{};
    for (std::size_t c = 0; c < values.size(); ++c) {
        const auto digit = static_cast<unsigned char>(kDigitValues[c]); // -1 becomes the largest number
        values[c] = static_cast<std::uint16_t>(
            digit < kHexDigits.size() ? static_cast<unsigned int>(digit) << shift : kNoHexDigit);
    }
    return values;
}

inline constexpr auto kHexHighValues = hexValues(4);
inline constexpr auto kHexLowValues = hexValues(0);

// 0 to 15, or kNoHexDigit.
constexpr unsigned int hexValue(char c) noexcept {
    return kHexLowValues[static_cast<unsigned char>(c)];
}

// The byte of two digits, or at least kNoHexDigit.
constexpr unsigned int hexPairValue(const char *pair) noexcept {
    return kHexHighValues[static_cast<unsigned char>(pair[0])] | hexValue(pair[1]);
}

} // namespace ozu::text

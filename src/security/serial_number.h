// The board's serial number in a kernel command line.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

namespace ozu {

struct SerialParameter {
    bool present = false;   // the parameter's name and its '=' are there
    std::string_view value; // empty when nothing but spaces follows
};

// What comes before the first such character; all of it when there is none. Unlike substr() it needs nothing
// of the C++ library.
constexpr std::string_view textBefore(std::string_view text, char end) noexcept {
    return {text.data(), std::min(text.find(end), text.size())};
}

// The text ends at its first zero byte. The value is the first word after the '=', even when spaces come
// before it.
constexpr SerialParameter findSerialNumber(std::string_view line) noexcept {
    constexpr std::string_view kName = "androidboot.serialno=";
    line = textBefore(line, '\0');
    const auto name = line.find(kName);
    if (name == std::string_view::npos) {
        return {};
    }
    const auto start = line.find_first_not_of(' ', name + kName.size());
    if (start == std::string_view::npos) {
        return {true, {}};
    }
    line.remove_prefix(start);
    return {true, textBefore(line, ' ')};
}

// The value of a hexadecimal digit, 16 for any other character.
constexpr unsigned hexadecimalDigit(char c) noexcept {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a') + 10U : 16U;
}

// Scans like "%lX" on the 32-bit panel: white space, a sign, a 0x prefix, digits up to the first other
// character; too large a number gives all ones, no digits at all give 0.
constexpr std::uint32_t scanHexadecimal(std::string_view text) noexcept {
    constexpr std::uint64_t kAllOnes = std::numeric_limits<std::uint32_t>::max();
    const auto start = text.find_first_not_of(" \t\n\v\f\r");
    text.remove_prefix(start == std::string_view::npos ? text.size() : start);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
    }
    std::uint64_t number = 0;
    for (const char c : text) {
        const unsigned digit = hexadecimalDigit(c);
        if (digit > 15) {
            break;
        }
        number = number * 16 + digit;
        if (number > kAllOnes) {
            return static_cast<std::uint32_t>(kAllOnes);
        }
    }
    const auto value = static_cast<std::uint32_t>(number);
    return negative ? 0U - value : value;
}

} // namespace ozu

#include "numbers.h"

#include "context.h"
#include "suggest.h"
#include "text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace ozuctl {

namespace {

constexpr double kMaxSeconds = 366.0 * 24 * 3600;

[[noreturn]] void refuse(std::string_view what, const std::string &wanted, std::string_view text,
                         const std::string &advice = {}) {
    throw CommandError(kUsage, std::string(what) + " must be " + wanted + ", not " + inQuotes(text) + advice);
}

} // namespace

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);
    std::uint64_t magnitude = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
    constexpr auto kMaxMagnitude = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (text.empty() || error != std::errc() || stop != end || magnitude > kMaxMagnitude) {
        return std::nullopt;
    }
    const auto value = static_cast<std::int64_t>(magnitude);
    return negative ? -value : value;
}

std::string rangeWords(std::int64_t low, std::int64_t high) {
    return "a number from " + std::to_string(low) + " to " + std::to_string(high);
}

std::int64_t requireNumber(std::string_view what, std::string_view text, std::int64_t low,
                           std::int64_t high) {
    const auto value = wholeNumber(text);
    if (!value || *value < low || *value > high) {
        refuse(what, rangeWords(low, high), text);
    }
    return *value;
}

double requireSeconds(std::string_view what, std::string_view text) {
    double value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    if (text.empty() || error != std::errc() || stop != end || !std::isfinite(value) || value <= 0 ||
        value > kMaxSeconds) {
        refuse(what, "a number of seconds above 0, at most a year", text, "; leave it out for no limit");
    }
    return value;
}

std::string requireWord(std::string_view what, std::string_view text, const std::vector<std::string> &words) {
    if (std::ranges::find(words, text) == words.end()) {
        refuse(what, listed(words), text, didYouMean(text, words));
    }
    return std::string(text);
}

std::vector<unsigned char> requireBytes(std::string_view what, std::string_view hex) {
    std::vector<unsigned char> bytes(hex.size() / 2);
    bool right = hex.size() % 2 == 0;
    for (std::size_t i = 0; right && i < bytes.size(); ++i) {
        const char *digits = hex.data() + 2 * i;
        right = std::from_chars(digits, digits + 2, bytes[i], 16).ptr == digits + 2;
    }
    if (!right) {
        refuse(what, "hexadecimal, two digits a byte", hex);
    }
    return bytes;
}

} // namespace ozuctl

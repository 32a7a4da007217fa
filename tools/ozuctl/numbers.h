// Numbers from the command line: read in full and checked against their range, or refused.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ozuctl {

// A whole number: decimal, or hexadecimal with 0x, with a minus sign where it is negative; nothing else.
// Nothing for any other text, and for what 64 bits do not hold.
std::optional<std::int64_t> wholeNumber(std::string_view text);

// The number, from low to high. Throws CommandError(kUsage): "--class must be a number from 0 to 255, not
// '300'".
std::int64_t requireNumber(std::string_view what, std::string_view text, std::int64_t low, std::int64_t high);

// Seconds above 0, with decimals if need be, at most a year. Throws CommandError(kUsage).
double requireSeconds(std::string_view what, std::string_view text);

// Bytes given as two hexadecimal digits each. Throws CommandError(kUsage).
std::vector<unsigned char> requireBytes(std::string_view what, std::string_view hex);

// One of a few words. Throws CommandError(kUsage) and names them.
std::string requireWord(std::string_view what, std::string_view text, const std::vector<std::string> &words);

// "a number from 0 to 255".
std::string rangeWords(std::int64_t low, std::int64_t high);

} // namespace ozuctl

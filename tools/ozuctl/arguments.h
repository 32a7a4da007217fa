// Arguments and options of commands, checked before anything is done.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>

namespace ozuctl {

// Takes a text in; throws CommandError(kUsage) when it does not fit.
using TakeText = std::function<void(const std::string &what, const std::string &text)>;

// An argument (PORT) or option (--port) whose text is taken by a function.
CLI::Option *addChecked(CLI::App &command, const std::string &name, const std::string &type, TakeText take,
                        const std::string &help);

CLI::Option *addNumberTaker(CLI::App &command, const std::string &name, std::int64_t low, std::int64_t high,
                            std::function<void(std::int64_t)> take, const std::string &help);

// A whole number of a range, decimal or hexadecimal with 0x.
template <class Number>
CLI::Option *addNumber(CLI::App &command, const std::string &name, Number &target, std::int64_t low,
                       std::int64_t high, const std::string &help = "") {
    return addNumberTaker(
        command, name, low, high, [&target](std::int64_t value) { target = static_cast<Number>(value); },
        help);
}
template <class Number>
CLI::Option *addNumber(CLI::App &command, const std::string &name, std::optional<Number> &target,
                       std::int64_t low, std::int64_t high, const std::string &help = "") {
    return addNumberTaker(
        command, name, low, high, [&target](std::int64_t value) { target = static_cast<Number>(value); },
        help);
}

// The option's text must not be empty: an empty word is a variable that was not set, not a wish for all.
void refuseEmpty(CLI::Option *option);

constexpr std::int64_t kLeastInt = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kMaxInt = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kMaxUnsigned = std::numeric_limits<std::uint32_t>::max();

// Seconds above 0, with decimals if need be.
CLI::Option *addSeconds(CLI::App &command, const std::string &name, double &target, const std::string &help);

} // namespace ozuctl

#include "arguments.h"

#include "context.h"
#include "numbers.h"

#include <utility>

namespace ozuctl {

namespace {

// Of "-n,--last": "--last".
std::string longName(const std::string &names) {
    const std::size_t comma = names.rfind(',');
    return comma == std::string::npos ? names : names.substr(comma + 1);
}

std::string rangeType(std::int64_t low, std::int64_t high) {
    return high <= 99999 ? std::to_string(low) + ".." + std::to_string(high) : "N";
}

} // namespace

CLI::Option *addChecked(CLI::App &command, const std::string &name, const std::string &type, TakeText take,
                        const std::string &help) {
    const std::string what = longName(name);
    CLI::Option *option = command.add_option(
        name,
        [what, take = std::move(take)](const CLI::results_t &texts) {
            for (const std::string &text : texts) {
                take(what, text);
            }
            return true;
        },
        help);
    return option->type_name(type)->expected(1);
}

void refuseEmpty(CLI::Option *option) {
    option->check([what = longName(option->get_name())](const std::string &text) {
        if (text.empty()) {
            throw CommandError(kUsage, what + " is empty");
        }
        return std::string();
    });
}

CLI::Option *addNumberTaker(CLI::App &command, const std::string &name, std::int64_t low, std::int64_t high,
                            std::function<void(std::int64_t)> take, const std::string &help) {
    return addChecked(
        command, name, rangeType(low, high),
        [low, high, take = std::move(take)](const std::string &what, const std::string &text) {
            take(requireNumber(what, text, low, high));
        },
        help);
}

CLI::Option *addSeconds(CLI::App &command, const std::string &name, double &target, const std::string &help) {
    return addChecked(
        command, name, "SECONDS",
        [&target](const std::string &what, const std::string &text) { target = requireSeconds(what, text); },
        help);
}

} // namespace ozuctl

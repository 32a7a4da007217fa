// ozuctl error: words for the codes of the library, the platform and ozuctl itself.

#include "arguments.h"
#include "codes.h"
#include "commands/commands.h"

#include <memory>

namespace ozuctl {

namespace {

struct Source {
    const char *name;
    const std::vector<CodeWords> &(*codes)();
};

constexpr Source kSources[] = {
    {"library", libraryCodes}, {"platform", platformCodes}, {"exit status", exitCodes}};

ExitCode words(const Context &context, const std::optional<int> &code) {
    Json rows = Json::array();
    for (const Source &source : kSources) {
        for (const CodeWords &row : source.codes()) {
            if (!code || *code == row.code) {
                rows.push_back({{"code", row.code}, {"of", source.name}, {"words", row.words}});
            }
        }
    }
    if (rows.empty() && !context.json) {
        throw CommandError(kNo, "no code has the number " + std::to_string(*code),
                           "'ozuctl error' lists all codes.");
    }
    print(context, rows);
    return rows.empty() ? kNo : kDone;
}

} // namespace

void registerError(CLI::App &app, Context &context) {
    auto code = std::make_shared<std::optional<int>>();
    CLI::App *command = app.add_subcommand(
        "error",
        "The meaning of a code of the library or the platform, or of an exit status; alone lists all");
    addNumber(*command, "CODE", *code, kLeastInt, kMaxInt, "As in a message or a log line, e.g. 21");
    command->callback(
        [code, &context] { context.command = [code, &context] { return words(context, *code); }; });
}

} // namespace ozuctl

#include "command_line.h"

#include "help.h"
#include "output.h"
#include "suggest.h"
#include "text.h"

#include <sstream>

namespace ozuctl {

namespace {

// The command that the words lead to.
const CLI::App &reached(const CLI::App &app) {
    const CLI::App *command = &app;
    for (auto below = command->get_subcommands(); !below.empty(); below = command->get_subcommands()) {
        command = below.back();
    }
    return *command;
}

std::vector<std::string> namesOf(const std::vector<const CLI::App *> &commands) {
    std::vector<std::string> names;
    names.reserve(commands.size());
    for (const CLI::App *command : commands) {
        names.push_back(command->get_name());
    }
    return names;
}

// Where a word is a command elsewhere: "state get" for "get".
void findPaths(const CLI::App &app, const std::string &word, std::vector<std::string> &found) {
    for (const CLI::App *command : commandsOf(app)) {
        if (command->get_name() == word) {
            found.push_back("'" + pathOf(*command) + "'");
        }
        findPaths(*command, word, found);
    }
}

[[noreturn]] void unknownCommand(const CLI::App &app, const CLI::App &group, const std::string &word) {
    const auto names = namesOf(commandsOf(group));
    std::string advice = didYouMean(word, names);
    std::vector<std::string> elsewhere;
    findPaths(app, word, elsewhere);
    if (!elsewhere.empty()) {
        advice = "; there is " + listed(elsewhere);
    }
    const bool top = group.get_parent() == nullptr;
    throw CommandError(kUsage,
                       (top ? "there is no command " + inQuotes(word)
                            : "'" + pathOf(group) + "' has no command " + inQuotes(word)) +
                           advice,
                       top ? "'ozuctl --help' lists the commands." : "It has: " + listed(names) + ".");
}

[[noreturn]] void unknownOption(const CLI::App &app, const CLI::App &command, const std::string &word) {
    std::vector<std::string> names;
    for (const CLI::App *one : {&command, &app}) {
        for (const CLI::Option *option : optionsOf(*one)) {
            for (const std::string &name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    }
    const std::string typed = word.substr(0, word.find('='));
    throw CommandError(
        kUsage, "'" + pathOf(command) + "' has no option " + inQuotes(typed) + didYouMean(typed, names),
        "Type '" + pathOf(command) + " --help'; give words that begin with '-' after '--'.");
}

// Words that nothing has taken.
std::vector<std::string> leftOver(const CLI::App &app) {
    std::vector<std::string> rest = app.remaining(true);
    std::erase(rest, "--");
    return rest;
}

// Help for a command that there is not would be help for another.
void requireKnownCommand(const CLI::App &app) {
    const auto rest = leftOver(app);
    const CLI::App &command = reached(app);
    if (!rest.empty() && !rest.front().starts_with('-') && !commandsOf(command).empty()) {
        unknownCommand(app, command, rest.front());
    }
}

[[noreturn]] void refuse(const CLI::App &app, const CLI::ParseError &error) {
    const CLI::App &command = reached(app);
    const auto rest = leftOver(app);
    const std::string hint = "Type '" + pathOf(command) + " --help' for what it takes.";
    const auto below = commandsOf(command);
    if (!rest.empty() && rest.front().size() > 1 && rest.front()[0] == '-') {
        unknownOption(app, command, rest.front());
    }
    if (!rest.empty() && !below.empty()) {
        unknownCommand(app, command, rest.front());
    }
    if (!rest.empty()) {
        throw CommandError(
            kUsage, inQuotes(rest.front()) + " is one argument too many for '" + pathOf(command) + "'", hint);
    }
    if (command.get_require_subcommand_min() > 0 && command.get_subcommands().empty()) {
        throw CommandError(kUsage, "'" + pathOf(command) + "' needs a command: " + listed(namesOf(below)),
                           hint);
    }
    throw CommandError(kUsage, visible(error.what()), hint);
}

} // namespace

bool parseCommandLine(CLI::App &app, int argc, char **argv) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::Success &wanted) {
        requireKnownCommand(app);
        std::ostringstream text;
        std::ostringstream ignored;
        app.exit(wanted, text, ignored);
        writeLines(text.str());
        return false;
    } catch (const CLI::ParseError &error) {
        refuse(app, error);
    }
}

} // namespace ozuctl

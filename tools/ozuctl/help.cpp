#include "help.h"

#include <algorithm>
#include <sstream>
#include <vector>

namespace ozuctl {

namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kMaxIndent = 28;

// Words in lines; a line that goes on is indented. Line feeds of the text stay.
std::string wrapped(const std::string &text, std::size_t indent, std::size_t used) {
    std::string result;
    std::size_t column = used;
    std::istringstream lines(text);
    bool first = true;
    for (std::string line; std::getline(lines, line);) {
        if (!first) {
            result += "\n" + std::string(indent, ' ');
            column = indent;
        }
        first = false;
        std::istringstream words(line);
        bool atStart = true;
        for (std::string word; words >> word;) {
            if (!atStart && column + 1 + word.size() > kColumns - 1) {
                result += "\n" + std::string(indent, ' ');
                column = indent;
                atStart = true;
            }
            result += (atStart ? "" : " ") + word;
            column += word.size() + (atStart ? 0 : 1);
            atStart = false;
        }
    }
    return result;
}

// A description as one paragraph.
std::string flowing(std::string text) {
    std::ranges::replace(text, '\n', ' ');
    return text;
}

struct Entry {
    std::string name;
    std::string help;
};

std::string listOf(const std::string &title, const std::vector<Entry> &entries) {
    if (entries.empty()) {
        return {};
    }
    std::size_t widest = 0;
    for (const Entry &entry : entries) {
        widest = std::max(widest, entry.name.size());
    }
    const std::size_t indent = std::min(widest + 4, kMaxIndent);
    std::string text = "\n" + title + ":\n";
    for (const Entry &entry : entries) {
        text += "  " + entry.name;
        std::size_t used = entry.name.size() + 2;
        if (!entry.help.empty()) {
            // At least two spaces, else a line of its own.
            if (used + 2 > indent) {
                text += "\n" + std::string(indent, ' ');
            } else {
                text.append(indent - used, ' ');
            }
            used = indent;
            text += wrapped(entry.help, indent, used);
        }
        text += '\n';
    }
    return text;
}

bool isPositional(const CLI::Option &option) {
    return option.get_positional() && !option.nonpositional();
}

bool takesMany(const CLI::Option &option) {
    return option.get_expected_max() > 1;
}

std::string optionName(const CLI::Option &option) {
    std::string name = option.get_name(false, true);
    if (option.get_expected_min() != 0) { // a flag takes nothing
        const std::string type = option.get_type_name();
        name += " " + (type.empty() ? std::string("TEXT") : type) + (takesMany(option) ? "..." : "");
    }
    return name;
}

// As the list of arguments has it: "LEVEL 0..255".
std::string argumentName(const CLI::Option &option) {
    const std::string type = option.get_type_name();
    const std::string name = option.get_name(true);
    return type.empty() || type == "TEXT" ? name : name + " " + type;
}

std::string positionalName(const CLI::Option &option) {
    const std::string name = option.get_name(true) + (takesMany(option) ? "..." : "");
    return option.get_required() ? name : "[" + name + "]";
}

std::string usageOf(const CLI::App &app) {
    std::string text = "Usage: " + pathOf(app) + " [OPTIONS]";
    for (const CLI::Option *option : optionsOf(app)) {
        text += isPositional(*option) ? " " + positionalName(*option) : "";
    }
    if (!commandsOf(app).empty()) {
        text += app.get_require_subcommand_min() > 0 ? " SUBCOMMAND" : " [SUBCOMMAND]";
    }
    return wrapped(text, 7, 0) + "\n";
}

} // namespace

std::string pathOf(const CLI::App &command) {
    const CLI::App *parent = command.get_parent();
    return parent == nullptr            ? "ozuctl"
           : command.get_name().empty() ? pathOf(*parent)
                                        : pathOf(*parent) + " " + command.get_name();
}

std::vector<const CLI::App *> commandsOf(const CLI::App &app) {
    auto found = app.get_subcommands([](const CLI::App *one) { return !one->get_name().empty(); });
    return {found.begin(), found.end()};
}

std::vector<const CLI::Option *> optionsOf(const CLI::App &app) {
    auto found = app.get_options({});
    std::vector<const CLI::Option *> options(found.begin(), found.end());
    for (const CLI::App *group :
         app.get_subcommands([](const CLI::App *one) { return one->get_name().empty(); })) {
        const auto more = optionsOf(*group);
        options.insert(options.end(), more.begin(), more.end());
    }
    // Every group has a help option of its own.
    std::vector<const CLI::Option *> once;
    std::ranges::copy_if(options, std::back_inserter(once), [&once](const CLI::Option *one) {
        return std::ranges::none_of(once, [one](const CLI::Option *other) {
            return other->get_name(false, true) == one->get_name(false, true);
        });
    });
    return once;
}

std::string HelpFormatter::make_help(const CLI::App *app, std::string /*name*/,
                                     CLI::AppFormatMode /*mode*/) const {
    std::string text = wrapped(flowing(app->get_description()), 0, 0) + "\n" + usageOf(*app);
    std::vector<Entry> positionals;
    std::vector<Entry> options;
    for (const CLI::Option *option : optionsOf(*app)) {
        if (isPositional(*option)) {
            positionals.push_back({argumentName(*option), option->get_description()});
        } else {
            options.push_back({optionName(*option), option->get_description()});
        }
    }
    text += listOf("Positionals", positionals) + listOf("Options", options);
    // Commands of one heading follow each other.
    std::string heading;
    std::vector<Entry> commands;
    for (const CLI::App *command : commandsOf(*app)) {
        if (command->get_group() != heading) {
            text += listOf(heading, commands);
            commands.clear();
            heading = command->get_group();
        }
        commands.push_back({command->get_name(), flowing(command->get_description())});
    }
    text += listOf(heading, commands);
    if (app->get_parent() == nullptr && !app->get_footer().empty()) {
        text += "\n" + wrapped(app->get_footer(), 0, 0) + "\n";
    }
    return text;
}

} // namespace ozuctl

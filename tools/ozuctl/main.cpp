// ozuctl: asks the panel and its library, and shows what happens on the panel.

#include "arguments.h"
#include "codes.h"
#include "colours.h"
#include "command_line.h"
#include "commands/commands.h"
#include "help.h"
#include "numbers.h"

#ifdef OZUCTL_REFERENCE_PLATFORM
#include <ozu_platform_tools.h>
#endif

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace {

using namespace ozuctl;

struct CommandGroup {
    const char *heading; // in the help, which lists the commands in this order
    std::vector<void (*)(CLI::App &, Context &)> registers;
};

// clang-format off
const std::vector<CommandGroup> &commandGroups() {
    static const std::vector<CommandGroup> groups = {
        {"Subcommands that look at the panel", {
            registerStatus,
            registerState,
#ifdef OZUCTL_REFERENCE_PLATFORM
            registerMonitor,
            registerWaitFor,
            registerLog,
            registerEvents,
            registerProcesses,
#endif
        }},
        {"Subcommands that drive the panel", {
            registerBus,
#ifdef OZUCTL_REFERENCE_PLATFORM
            registerSettings,
            registerSeverity,
#endif
            registerNxp,
            registerGpio,
            registerModem,
            registerSystem,
            registerTime,
        }},
        {"Subcommands for tests", {
            registerBox,
#ifdef OZUCTL_REFERENCE_PLATFORM
            registerScenario,
            registerReplay,
            registerDraw,
#endif
        }},
        {"Subcommands that find faults", {
#ifdef OZUCTL_REFERENCE_PLATFORM
            registerDoctor,
            registerReport,
#endif
            registerError,
        }},
        {"Subcommands for the library's functions", {
            registerNet,
            registerNames,
            registerDeviceType,
            registerPartition,
            registerIdentity,
            registerImsi,
            registerRsu,
            registerCrypt,
            registerMedia,
            registerCall,
        }},
#ifdef OZUCTL_REFERENCE_PLATFORM
        {"Subcommands for the shell", {
            registerCompletion,
        }},
#endif
    };
    return groups;
}
// clang-format on

std::string exitStatusText() {
    std::string text = "Exit status:";
    for (const CodeWords &row : exitCodes()) {
        text += "\n" + std::to_string(row.code) + " " + row.words;
    }
    return text;
}

// Whether the words before "--" say so; read before the command line is, as its faults are told as JSON, too.
bool wantsJson(int argc, char **argv) {
    for (int i = 1; i < argc && strcmp(argv[i], "--") != 0; ++i) {
        if (strcmp(argv[i], "--json") == 0) {
            return true;
        }
    }
    return false;
}

ExitCode run(Context &context, int argc, char **argv) {
    if (argc > 0) {
        becomeBoxIfAsked(argv + 1);
    }
    chooseColours("auto");
    CLI::App app{"Asks the panel and its library, and shows what happens on the panel."};
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_version_flag("--version", "ozuctl " OZUCTL_VERSION, "Print the version");
    app.set_help_flag("-h,--help", "Print this help");
    app.add_flag("--json", context.json, "Print JSON (streams: one document a line)");
    app.add_flag("--yes", context.yes, "Do it outside of a panel box, too");
    addChecked(
        app, "--color", "auto|always|never",
        [](const std::string &what, const std::string &text) {
            chooseColours(requireWord(what, text, {"auto", "always", "never"}));
        },
        "Colours: on terminals without NO_COLOR (auto), or as told");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(exitStatusText());
    for (const CommandGroup &group : commandGroups()) {
        const std::size_t before = commandsOf(app).size();
        for (const auto &registerCommands : group.registers) {
            registerCommands(app, context);
        }
        const auto all = app.get_subcommands({});
        for (CLI::App *command : std::span(all).subspan(before)) {
            command->group(group.heading);
        }
    }
    std::vector<char *> words(argv, argv + argc);
    std::string helpOption = "--help";
    // "help state set", as other tools have it.
    const auto first = std::find_if(words.begin() + std::min(argc, 1), words.end(),
                                    [](const char *word) { return *word != '-'; });
    if (first != words.end() && strcmp(*first, "help") == 0) {
        words.erase(first);
        words.push_back(helpOption.data());
    }
    if (!parseCommandLine(app, static_cast<int>(words.size()), words.data())) {
        return kDone;
    }
    return context.command ? context.command() : kUsage;
}

// Runs the command; whatever ends it becomes a message and an exit status.
int guardedRun(int argc, char **argv) {
    Context context;
    context.json = wantsJson(argc, argv);
    try {
        try {
            return run(context, argc, argv);
        } catch (const CommandError &error) {
            printFailure(context, error);
            return error.code;
        } catch (const std::exception &error) {
            printFailure(context, CommandError(kLibraryFailed, error.what()));
            return kLibraryFailed;
        }
    } catch (...) { // not even the message had room
        return kLibraryFailed;
    }
}

} // namespace

int main(int argc, char **argv) {
    ozuctl::prepareStreams();
#ifdef OZUCTL_REFERENCE_PLATFORM
    ozu::platform::openOnly(true);
#endif
    return guardedRun(argc, argv);
}

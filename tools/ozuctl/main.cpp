// ozuctl: asks the panel and its library, and shows what happens on the panel.

#include "commands/commands.h"

#include <exception>
#include <iostream>

namespace {

using namespace ozuctl;

// clang-format off
constexpr void (*kGroups[])(CLI::App &, Context &) = {
    registerStatus,
    registerState,
    registerBus,
    registerCrypt,
    registerMedia,
#ifdef OZUCTL_REFERENCE_PLATFORM
    registerMonitor,
    registerEvents,
    registerProcesses,
    registerSeverity,
#endif
    registerNet,
    registerNames,
    registerDeviceType,
    registerPartition,
    registerIdentity,
    registerNxp,
    registerGpio,
    registerModem,
    registerImsi,
    registerRsu,
    registerSystem,
    registerTime,
    registerBox,
};
// clang-format on

ExitCode run(int argc, char **argv) {
    if (argc > 0) {
        becomeBoxIfAsked(argv + 1);
    }
    Context context;
    CLI::App app{"Asks the panel and its library, and shows what happens on the panel."};
    app.set_version_flag("--version", "ozuctl " OZUCTL_VERSION);
    app.add_flag("--json", context.json, "Print JSON (streams: one document a line)");
    app.add_flag("--yes", context.yes, "Do it outside of a panel box, too");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(
        "Exit status: 0 done or yes, 1 no or not found, 2 usage, 3 platform not reachable, 4 the library "
        "reported failure, 5 refused as unsafe, 124 timed out.");
    for (const auto &registerGroup : kGroups) {
        registerGroup(app, context);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    return context.command ? context.command() : kUsage;
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const ozuctl::CommandError &error) {
        std::cerr << "ozuctl: " << error.what() << '\n';
        return error.code;
    } catch (const std::exception &error) {
        std::cerr << "ozuctl: " << error.what() << '\n';
        return ozuctl::kLibraryFailed;
    }
}

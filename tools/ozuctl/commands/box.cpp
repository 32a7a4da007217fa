// ozuctl box: panel boxes, run by the panel-box script.

#include "commands/commands.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

namespace ozuctl {

namespace {

// The script beside an installed ozuctl, or the one of the source tree this build came from.
std::string boxScript() {
    const auto own = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const auto &candidate :
         {own / "../libexec/ozu/panel-box", std::filesystem::path(OZUCTL_SOURCE_BOX)}) {
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    throw CommandError(kUnreachable, "the panel-box script is not installed beside ozuctl");
}

// The script takes the arguments as they are and becomes this process, so its exit status is ours.
[[noreturn]] void becomeBox(const std::string &verb, const std::vector<std::string> &arguments) {
    const std::string script = boxScript();
    std::vector<char *> words = {const_cast<char *>(script.c_str()), const_cast<char *>(verb.c_str())};
    for (const auto &argument : arguments) {
        words.push_back(const_cast<char *>(argument.c_str()));
    }
    words.push_back(nullptr);
    execv(script.c_str(), words.data());
    throw CommandError(kUnreachable, "cannot run " + script + ": " + strerror(errno));
}

void addVerb(CLI::App &box, Context &context, const std::string &verb, const std::string &description) {
    CLI::App *command = box.add_subcommand(verb, description);
    command->prefix_command();
    command->callback([command, verb, &context] {
        context.command = [command, verb]() -> ExitCode { becomeBox(verb, command->remaining()); };
    });
}

} // namespace

void registerBox(CLI::App &app, Context &context) {
    CLI::App *box = app.add_subcommand("box", "Panel boxes: a panel of your own in private namespaces");
    box->require_subcommand(1);
    addVerb(*box, context, "start", "Boot a box in the background and print its folder");
    addVerb(*box, context, "shell", "Boot a box and open a shell in it");
    addVerb(*box, context, "run", "Boot a box, run a command in it, end the box");
    addVerb(*box, context, "exec", "Run a command in a box that 'start' booted");
    addVerb(*box, context, "status", "Tell whether a box runs, how often it booted, its reboots");
    addVerb(*box, context, "stop", "End a box that 'start' booted");
}

} // namespace ozuctl

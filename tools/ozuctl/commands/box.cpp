// ozuctl box: panel boxes, run by the panel-box script.

#include "commands/commands.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace ozuctl {

namespace {

struct Verb {
    const char *name;
    const char *description;
};

constexpr Verb kVerbs[] = {
    {"start", "Boot a box in the background and print its folder"},
    {"shell", "Boot a box and open a shell in it"},
    {"run", "Boot a box, run a command in it, end the box"},
    {"exec", "Run a command in a box that 'start' booted"},
    {"status", "Tell whether a box runs, how often it booted, its reboots"},
    {"list", "The boxes that run, and what killed ones left behind"},
    {"sweep", "Remove what killed boxes left behind"},
    {"stop", "End a box that 'start' booted"},
    {"check", "Say whether boxes are possible on this machine"},
};

std::filesystem::path ownFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

// The script as it stands beside an installed ozuctl; a build folder has a link in its place.
std::string boxScript() {
    const auto script = ownFolder() / "../libexec/ozu/panel-box";
    if (access(script.c_str(), X_OK) != 0) {
        throw CommandError(kUnreachable, "the panel-box script is not installed beside ozuctl");
    }
    return script;
}

} // namespace

void becomeBoxIfAsked(char **arguments) {
    bool json = false;
    for (; arguments[0] != nullptr && arguments[0][0] == '-'; ++arguments) {
        if (strcmp(arguments[0], "--json") == 0) {
            json = true;
        } else if (strcmp(arguments[0], "--yes") != 0) {
            return;
        }
    }
    if (arguments[0] == nullptr || strcmp(arguments[0], "box") != 0 || arguments[1] == nullptr ||
        std::ranges::none_of(kVerbs,
                             [&](const Verb &verb) { return strcmp(arguments[1], verb.name) == 0; })) {
        return;
    }
    const std::string script = boxScript();
    std::vector<char *> words = {const_cast<char *>(script.c_str()), arguments[1]};
    if (json && (strcmp(arguments[1], "status") == 0 || strcmp(arguments[1], "list") == 0)) {
        words.push_back(const_cast<char *>("--json"));
    }
    for (arguments += 2; *arguments != nullptr; ++arguments) {
        words.push_back(*arguments);
    }
    words.push_back(nullptr);
    // Programs that were built or installed together are found in the box.
    setenv("PANEL_BOX_PATH", ownFolder().c_str(), 1);
    execv(script.c_str(), words.data());
    throw CommandError(kUnreachable, "cannot run " + script + ": " + strerror(errno));
}

void registerBox(CLI::App &app, Context & /*context*/) {
    CLI::App *box = app.add_subcommand("box", "Panel boxes: a panel of your own in private namespaces");
    box->require_subcommand(1);
    for (const Verb &verb : kVerbs) {
        box->add_subcommand(verb.name, verb.description)->callback([] {
            throw CommandError(kUsage, "'box' must be the first word: ozuctl box VERB ...");
        });
    }
}

} // namespace ozuctl

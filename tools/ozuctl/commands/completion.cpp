// ozuctl completion: what the shell offers behind a half-typed command line, made from the commands
// themselves.

#include "arguments.h"
#include "commands/commands.h"
#include "help.h"
#include "numbers.h"

#include <memory>

namespace ozuctl {

namespace {

// "--json --yes -h" and the like.
std::string optionWords(const CLI::App &app) {
    std::string words;
    for (const CLI::Option *option : optionsOf(app)) {
        for (const std::string &name : option->get_lnames()) {
            words += " --" + name;
        }
        for (const std::string &name : option->get_snames()) {
            words += " -" + name;
        }
    }
    return words.empty() ? words : words.substr(1);
}

std::string commandWords(const CLI::App &app) {
    std::string words;
    for (const CLI::App *command : commandsOf(app)) {
        words += (words.empty() ? "" : " ") + command->get_name();
    }
    return words;
}

// A line for each command: its path below ozuctl, and what may follow. Both shells read the same table.
void addTable(std::string &text, const CLI::App &app, const std::string &path) {
    text +=
        "    '" + (path.empty() ? "-" : path) + "' '" + commandWords(app) + "|" + optionWords(app) + "'\n";
    for (const CLI::App *command : commandsOf(app)) {
        addTable(text, *command, path.empty() ? command->get_name() : path + " " + command->get_name());
    }
}

constexpr const char *kBashHead = R"(# Completion of ozuctl for bash: source <(ozuctl completion bash)
declare -A _ozuctl_words
_ozuctl_take() {
    while [ $# -gt 1 ]; do
        _ozuctl_words[$1]=$2
        shift 2
    done
}
_ozuctl_take \
)";

constexpr const char *kBashTail = R"(
_ozuctl() {
    local current=${COMP_WORDS[COMP_CWORD]} path=- word i offered
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        case " ${_ozuctl_words[$path]%%|*} " in
        *" $word "*) if [ "$path" = - ]; then path=$word; else path="$path $word"; fi ;;
        esac
    done
    offered="${_ozuctl_words[$path]%%|*} ${_ozuctl_words[$path]#*|} ${_ozuctl_words[-]#*|}"
    COMPREPLY=($(compgen -W "$offered" -- "$current"))
}
complete -o default -F _ozuctl ozuctl
)";

constexpr const char *kZshHead = R"(#compdef ozuctl
# Completion of ozuctl for zsh: source <(ozuctl completion zsh)
typeset -gA _ozuctl_words
_ozuctl_words=( \
)";

constexpr const char *kZshTail = R"()
_ozuctl() {
    local reached=- word
    for word in ${words[2,CURRENT-1]}; do
        if [[ " ${_ozuctl_words[$reached]%%|*} " == *" $word "* ]]; then
            if [[ $reached == - ]]; then reached=$word; else reached="$reached $word"; fi
        fi
    done
    compadd -- ${=_ozuctl_words[$reached]%%|*} ${=_ozuctl_words[$reached]#*|} ${=_ozuctl_words[-]#*|}
    _files
}
if [[ -n $functions[compdef] ]]; then compdef _ozuctl ozuctl; fi
)";

// Each row of the table goes on the same command line.
std::string continued(std::string table) {
    for (std::size_t end = table.find('\n'); end != std::string::npos; end = table.find('\n', end + 3)) {
        table.replace(end, 1, " \\\n");
    }
    return table;
}

} // namespace

void registerCompletion(CLI::App &app, Context &context) {
    auto shell = std::make_shared<std::string>();
    CLI::App *command =
        app.add_subcommand("completion", "Print completion for a shell: source <(ozuctl completion bash)");
    addChecked(
        *command, "SHELL", "bash|zsh",
        [shell](const std::string &what, const std::string &text) {
            *shell = requireWord(what, text, {"bash", "zsh"});
        },
        "bash or zsh")
        ->required();
    command->callback([shell, &app, &context] {
        context.command = [shell, &app] {
            std::string table;
            addTable(table, app, "");
            writeOut(*shell == "bash" ? kBashHead + continued(table) + kBashTail
                                      : kZshHead + continued(table) + kZshTail);
            return kDone;
        };
    });
}

} // namespace ozuctl

// ozuctl severity, processes: which log lines of a process are kept; which processes there are.

#include "arguments.h"
#include "commands/commands.h"
#include "commands/processes.h"
#include "platform_errors.h"
#include "suggest.h"
#include "text.h"

#include <ozu_platform_tools.h>

#include <algorithm>
#include <memory>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

void require(int code, const std::string &doing) {
    if (code != 0) {
        throw platformFailure(doing, code);
    }
}

Json levelOf(const std::string &severity) {
    const auto level = platform::severityLevel(severity);
    return level ? Json(*level) : Json(nullptr);
}

ExitCode listSeverities(const Context &context) {
    std::vector<platform::ProcessSeverity> severities;
    require(platform::listSeverities(severities), "cannot read the severities");
    Json rows = Json::array();
    for (const auto &one : severities) {
        rows.push_back(
            {{"process", one.process}, {"severity", one.severity}, {"level", levelOf(one.severity)}});
    }
    print(context, rows);
    return kDone;
}

ExitCode showSeverity(const Context &context, const std::string &process) {
    char severity[9] = {};
    require(ozudb_getSeverityNameByProcName(severity, 8, process.c_str()),
            "cannot tell the severity of " + inQuotes(process));
    print(context, {{"process", process}, {"severity", severity}, {"level", levelOf(severity)}});
    return kDone;
}

// A severity may be set before its process first runs; more often the name is misspelt. The change is made,
// so a list that cannot be read is no failure.
void tellIfUnknown(const std::string &process) {
    std::vector<platform::LoggedProcess> known;
    std::vector<std::string> names = {"*"};
    if (platform::listProcesses(known) != 0) {
        return;
    }
    for (const auto &one : known) {
        names.push_back(one.process);
    }
    if (std::ranges::find(names, process) == names.end()) {
        tell("ozuctl: no process " + inQuotes(process) + " has run here yet" + didYouMean(process, names) +
             "; the severity is kept for it");
    }
}

ExitCode changeSeverity(const Context &context, const std::string &process, const std::string &severity) {
    if (!platform::severityLevel(severity)) {
        const auto &names = platform::severityNames();
        throw CommandError(kUsage, "there is no severity " + inQuotes(severity) + didYouMean(severity, names),
                           "The severities are " + listed(names) + ".");
    }
    context.requireConsent("changes which log lines a panel process keeps");
    require(platform::setSeverity(process, severity), "cannot change the severity of " + inQuotes(process));
    printChanged(context, "the severity of " + process);
    tellIfUnknown(process);
    return kDone;
}

// Looked up before anything is changed, so that nothing is made where nothing is.
bool hasSeverity(const std::string &process) {
    std::vector<platform::ProcessSeverity> severities;
    require(platform::listSeverities(severities), "cannot read the severities");
    return std::ranges::any_of(severities, [&](const auto &one) { return one.process == process; });
}

ExitCode unset(const Context &context, const std::string &process) {
    if (!hasSeverity(process)) {
        throw CommandError(kNo, inQuotes(process) + " has no severity of its own");
    }
    context.requireConsent("changes which log lines a panel process keeps");
    require(platform::removeSeverity(process), "cannot take away the severity of " + inQuotes(process));
    printChanged(context, "the severity of " + process);
    return kDone;
}

struct SeverityWords {
    std::string process;
    std::string severity;
    bool unset = false;
};

ExitCode runSeverity(const Context &context, const SeverityWords &words) {
    if (words.unset && (words.process.empty() || !words.severity.empty())) {
        throw CommandError(kUsage, "--unset takes a process and no severity");
    }
    if (!words.process.empty() && !platform::canHaveSeverity(words.process)) {
        throw CommandError(
            kUsage, inQuotes(words.process) + " is no name of a process",
            "A name has at most 64 bytes, no '/' and no control character, and does not begin with '.'; "
            "* stands for every process without its own severity.");
    }
    if (words.unset) {
        return unset(context, words.process);
    }
    return words.process.empty()    ? listSeverities(context)
           : words.severity.empty() ? showSeverity(context, words.process)
                                    : changeSeverity(context, words.process, words.severity);
}

} // namespace

Json runningProcesses() {
    std::vector<platform::LoggedProcess> processes;
    require(platform::listProcesses(processes), "cannot read the list of processes");
    Json rows = Json::array();
    for (const auto &one : processes) {
        if (one.running) {
            rows.push_back({{"process", one.process},
                            {"pid", one.pid},
                            {"severity", one.severity},
                            {"since", isoTimeMilliseconds(one.sinceMs)}});
        }
    }
    return rows;
}

void registerProcesses(CLI::App &app, Context &context) {
    CLI::App *command = app.add_subcommand("processes", "The running panel processes");
    command->callback([&context] {
        context.command = [&context] {
            print(context, runningProcesses());
            return kDone;
        };
    });
}

void registerSeverity(CLI::App &app, Context &context) {
    auto words = std::make_shared<SeverityWords>();
    CLI::App *command =
        app.add_subcommand("severity", "The log severity of a process; with NAME sets it, at once for "
                                       "a running process, too; alone lists all");
    refuseEmpty(command->add_option("PROCESS", words->process,
                                    "Registered name, or * for every process without its own"));
    refuseEmpty(command->add_option("NAME", words->severity,
                                    "TRACE, DEBUG, INFO, NOTICE, WARNING, REMOTE, ERROR, CRITICAL or OFF"));
    command->add_flag("--unset", words->unset, "Take its own severity away: that of * holds again");
    command->callback(
        [words, &context] { context.command = [words, &context] { return runSeverity(context, *words); }; });
}

} // namespace ozuctl

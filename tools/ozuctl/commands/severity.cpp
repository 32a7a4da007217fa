// ozuctl severity, processes: which log lines of a process are kept; which processes there are.

#include "commands/commands.h"
#include "commands/processes.h"

#include <ozu_platform_tools.h>

#include <algorithm>
#include <memory>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

void require(int code, const std::string &doing) {
    if (code == 0) {
        return;
    }
    const ExitCode status = code == platform::kInvalidArgument                             ? kUsage
                            : code == platform::kNotFound                                  ? kNo
                            : code == platform::kCannotOpen || code == platform::kReadOnly ? kUnreachable
                                                                                           : kLibraryFailed;
    throw CommandError(status, doing + ": " + platform::codeText(code) + " (code " + std::to_string(code) +
                                   ", data folder " + platform::dataFolder() + ")");
}

Json levelOf(const std::string &severity) {
    const auto level = platform::severityLevel(severity);
    return level ? Json(*level) : Json(nullptr);
}

ExitCode list(const Context &context) {
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

ExitCode show(const Context &context, const std::string &process) {
    char severity[9] = {};
    require(ozudb_getSeverityNameByProcName(severity, 8, process.c_str()),
            "cannot tell the severity of " + process);
    print(context, {{"process", process}, {"severity", severity}, {"level", levelOf(severity)}});
    return kDone;
}

ExitCode change(const std::string &process, const std::string &severity) {
    if (!platform::severityLevel(severity)) {
        std::string names;
        for (const auto &name : platform::severityNames()) {
            names += " " + name;
        }
        throw CommandError(kUsage, "there is no severity '" + severity + "'; the severities are:" + names);
    }
    require(platform::setSeverity(process, severity), "cannot change the severity of " + process);
    return kDone;
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
    auto words = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App *command =
        app.add_subcommand("severity", "The log severity of a process; with NAME sets it, at once for "
                                       "a running process, too; alone lists all");
    command->add_option("PROCESS", words->first, "Registered name, or * for every process without its own");
    command->add_option("NAME", words->second, "TRACE DEBUG INFO NOTICE WARNING REMOTE ERROR CRITICAL OFF");
    command->callback([words, &context] {
        context.command = [words, &context] {
            const auto &[process, severity] = *words;
            return process.empty()    ? list(context)
                   : severity.empty() ? show(context, process)
                                      : change(process, severity);
        };
    });
}

} // namespace ozuctl

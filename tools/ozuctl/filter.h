// Which happenings a command shows.
#pragma once

#include "output.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace ozuctl {

// Each filter narrows the kinds of happenings that it applies to; the others pass. Several values of one
// filter are alternatives.
struct Filter {
    std::vector<std::string> processes; // log lines, events, starts and ends; messages by their label
    std::optional<int> level;           // log lines of this level and above
    std::vector<std::string> topics;    // messages, with wildcards
    std::vector<std::string> fields;    // changes of the record: these fields and all below them
    std::string text;                   // log lines and events that contain it

    [[nodiscard]] bool passes(const Json &record) const;
    [[nodiscard]] bool passesField(const std::string &path) const;
    [[nodiscard]] bool passesProcess(const Json &process) const;
};

// --process, --level and --text, which reading the log and watching it share.
void addLogFilters(CLI::App &command, Filter &filter);

// A level as a number, or a severity's name.
int requireLevel(const std::string &what, const std::string &text);

// A point in time: 2026-03-01T12:00:00Z, or so many seconds ago ("90", "5m", "2h", "1d"). Throws
// CommandError(kUsage). UTC milliseconds.
std::int64_t requireSince(const std::string &what, const std::string &text);

} // namespace ozuctl

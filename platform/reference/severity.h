// Severity names and the levels they keep.
#pragma once

#include <ozulog.h>

#include <optional>
#include <string>
#include <string_view>

namespace ozu::platform {

struct SeverityRow {
    int level;             // lowest level kept
    std::string_view name; // at most 8 bytes
    char letter;           // of lines of this level
};

// The row for a level: the last one that is not above it; the first one for levels below all.
const SeverityRow &severityRow(int level) noexcept;
std::optional<int> levelOfSeverity(std::string_view name) noexcept;

// The severity of a new data folder.
inline constexpr const char *kDefaultSeverity = "INFO";
inline constexpr int kDefaultLevel = OZULOG_INFO;
// Stands for every process without a row of its own.
inline constexpr const char *kAnyProcess = "*";

// A name that may be a file's name and a bus session's name: 1 to 64 bytes, no '/', no control bytes, no
// leading dot.
bool usableProcessName(const char *name) noexcept;

} // namespace ozu::platform

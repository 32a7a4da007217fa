// One log line as text.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

namespace ozu::platform {

// A line is written with one write of at most this many bytes, its line feed included: a pipe takes that much
// in one piece.
inline constexpr std::size_t kMaxLine = 4096;

struct LinePosition {
    const char *source = nullptr; // null: a line without position
    const char *function = nullptr;
    int line = 0;
};

// The formatted text of a call; cut where it would not fit a line.
std::string formatText(const char *format, std::va_list arguments) __attribute__((format(printf, 1, 0)));

// Text in one line of printable UTF-8: the bytes of control and other unprintable characters, and those that
// are not UTF-8, become \n, \t, \r or \xNN, a backslash becomes two. Truncated to at most the given bytes,
// which then end in "...".
std::string escaped(std::string_view text, std::size_t most);

// Everything after the time: "level letter process[pid] source function:line text".
std::string lineBody(int level, const std::string &process, int pid, const LinePosition &position,
                     std::string_view text);

} // namespace ozu::platform

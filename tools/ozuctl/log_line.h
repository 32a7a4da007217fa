// The lines of the platform's log, taken apart.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ozuctl {

// "TIME LEVEL LETTER PROCESS[PID] SOURCE FUNCTION:LINE TEXT", with "- -" for a line without position.
struct LogLine {
    std::int64_t timeMs = 0; // UTC
    int level = 0;
    std::string letter;
    std::string process;
    int pid = 0;
    bool placed = false; // source, function and line are there
    std::string source;
    std::string function;
    int line = 0;
    std::string text;
};

// Nothing for a line that is none of the log's.
std::optional<LogLine> splitLogLine(std::string_view line);

// Takes bytes as they come and hands over complete lines, without their line feeds. What has no line feed
// within 64 KiB is handed over in pieces: nobody fills our memory with one line.
class LineSplitter {
  public:
    explicit LineSplitter(std::function<void(std::string_view)> receiver) : receiver_(std::move(receiver)) {}
    void add(std::string_view bytes);
    // Hands over a last line without line feed.
    void end();

  private:
    std::function<void(std::string_view)> receiver_;
    std::string rest_; // the beginning of an unfinished line
};

// UTC milliseconds of 2026-03-01T12:00:00Z or 2026-03-01T12:00:00.123Z; nothing for any other text.
std::optional<std::int64_t> millisecondsOf(std::string_view iso);

} // namespace ozuctl

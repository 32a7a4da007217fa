#include "log_tap.h"

#include "context.h"
#include "log_line.h"
#include "output.h"
#include "text.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

namespace ozuctl {

namespace {

std::optional<LoggedLine> parse(std::string_view line) {
    auto parts = splitLogLine(line);
    if (!parts) {
        return std::nullopt;
    }
    LoggedLine logged{parts->level, std::move(parts->function), std::move(parts->text)};
    // Line feeds at the end come escaped.
    while (logged.text.size() >= 2 && logged.text.compare(logged.text.size() - 2, 2, "\\n") == 0) {
        logged.text.resize(logged.text.size() - 2);
    }
    return logged;
}

} // namespace

LogTap::LogTap(Receiver receiver)
    : receiver_(std::move(receiver)), standardError_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    std::array<int, 2> ends{};
    if (standardError_ < 0 || pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw CommandError(kLibraryFailed, std::string("standard error cannot be read: ") + strerror(errno));
    }
    pipe_ = ends[0];
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    reader_ = std::thread(&LogTap::read, this);
}

LogTap::~LogTap() {
    dup2(standardError_, STDERR_FILENO); // closes the last writing end, which ends the reader
    reader_.join();
    close(pipe_);
    close(standardError_);
}

void LogTap::read() {
    LineSplitter lines([this](std::string_view line) { handOn(line); });
    std::array<char, 4096> bytes{};
    for (;;) {
        const ssize_t count = ::read(pipe_, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        lines.add({bytes.data(), static_cast<std::size_t>(count)});
    }
    lines.end();
}

void LogTap::handOn(std::string_view line) const {
    const auto logged = parse(line);
    const std::string shown = logged ? receiver_(*logged) : std::string(line);
    if (!shown.empty()) {
        static_cast<void>(writeAll(standardError_, visible(shown) + '\n'));
    }
}

std::vector<LoggedLine> linesOf(const std::function<void()> &call) {
    std::vector<LoggedLine> lines;
    {
        const LogTap tap([&lines](const LoggedLine &line) {
            lines.push_back(line);
            return std::string();
        });
        call();
    }
    return lines;
}

} // namespace ozuctl

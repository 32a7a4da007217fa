#include "log_files.h"

#include "sources.h"
#include "text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace ozuctl {

namespace {

struct File {
    std::filesystem::path path;
    std::string process;
    int age = 0; // 0 for the one that is written now
};

// PROCESS.log, PROCESS.log.1, ...
std::optional<File> logFileOf(const std::filesystem::path &path) {
    const std::string name = path.filename();
    const std::size_t end = name.rfind(".log");
    if (end == std::string::npos || end == 0) {
        return std::nullopt;
    }
    const std::string rest = name.substr(end + 4);
    const bool rotated = rest.size() > 1 && rest.size() < 6 && rest[0] == '.' &&
                         rest.find_first_not_of("0123456789", 1) == std::string::npos;
    if (!rest.empty() && !rotated) {
        return std::nullopt;
    }
    return File{path, name.substr(0, end), rotated ? std::stoi(rest.substr(1)) : 0};
}

std::vector<File> logFiles() {
    std::error_code error;
    std::vector<File> files;
    const std::string folder = ozu::platform::logFolder();
    for (const auto &entry : std::filesystem::directory_iterator(folder, error)) {
        if (auto file = logFileOf(entry.path()); file && entry.is_regular_file(error)) {
            files.push_back(std::move(*file));
        }
    }
    if (error) {
        throw CommandError(
            kUnreachable, "the log folder " + inQuotes(folder) + " cannot be read: " + error.message(),
            "OZU_PLATFORM_DIR names the platform's data folder; 'ozuctl box shell' gives you a panel "
            "of your own.");
    }
    std::ranges::sort(files, [](const File &one, const File &other) { return one.age > other.age; });
    return files;
}

void readLines(const File &file, const std::function<void(std::string_view)> &receiver) {
    const int descriptor = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        if (errno == ENOENT) {
            return; // rotated away meanwhile
        }
        throw CommandError(kUnreachable,
                           "cannot read " + inQuotes(file.path.string()) + ": " + strerror(errno));
    }
    LineSplitter lines(receiver);
    char piece[65536];
    ssize_t count = 0;
    while ((count = read(descriptor, piece, sizeof piece)) > 0) {
        lines.add({piece, static_cast<std::size_t>(count)});
    }
    close(descriptor);
}

} // namespace

std::deque<Happening> pastLogLines(const Filter &filter, std::int64_t sinceMs, std::size_t most) {
    std::deque<Happening> lines;
    const auto byTime = [](const Happening &one, const Happening &other) {
        return one.timeMs < other.timeMs;
    };
    for (const File &file : logFiles()) {
        readLines(file, [&](std::string_view line) {
            const auto parts = splitLogLine(line);
            Happening one = logHappening(file.process, std::string(line));
            // A line that is none of the log's has no time; it belongs to the one before.
            one.timeMs = parts ? parts->timeMs : lines.empty() ? 0 : lines.back().timeMs;
            if (one.timeMs >= sinceMs && filter.passes(one.record)) {
                lines.push_back(std::move(one));
            }
        });
        // Memory stays in bounds whatever the files hold.
        if (most != 0 && lines.size() > 2 * most + 10000) {
            std::ranges::stable_sort(lines, byTime);
            lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
        }
    }
    std::ranges::stable_sort(lines, byTime);
    if (most != 0 && lines.size() > most) {
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
    }
    return lines;
}

} // namespace ozuctl

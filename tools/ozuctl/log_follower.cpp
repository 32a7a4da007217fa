#include "log_follower.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace ozuctl {

namespace {

// The file that is written now; rotated ones end in a number.
bool isCurrentLog(const std::filesystem::path &path) {
    return path.extension() == ".log";
}

} // namespace

LogFollower::LogFollower(std::string folder, Sink sink) : folder_(std::move(folder)), sink_(std::move(sink)) {
    scan(true);
}

LogFollower::~LogFollower() {
    for (const auto &[name, file] : files_) {
        close(file.descriptor);
    }
}

void LogFollower::look() {
    for (auto &[name, file] : files_) {
        drain(file);
    }
    scan(false);
}

void LogFollower::scan(bool atEnd) {
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder_, error)) {
        if (!isCurrentLog(entry.path())) {
            continue;
        }
        const std::string name = entry.path().stem();
        struct stat now = {};
        const auto known = files_.find(name);
        if (known != files_.end() && stat(entry.path().c_str(), &now) == 0 &&
            now.st_ino == known->second.inode) {
            continue;
        }
        if (known != files_.end()) {
            // Rotated: what was still written to the old file comes first.
            drain(known->second);
            close(known->second.descriptor);
            files_.erase(known);
        }
        open(name, atEnd);
    }
}

void LogFollower::open(const std::string &name, bool atEnd) {
    // A pipe in a log's place would have no end, or none to wait for.
    const int descriptor = ::open((folder_ + "/" + name + ".log").c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat now = {};
    if (descriptor < 0) {
        return;
    }
    if (fstat(descriptor, &now) != 0 || !S_ISREG(now.st_mode)) {
        close(descriptor);
        return;
    }
    if (atEnd) {
        lseek(descriptor, 0, SEEK_END);
    }
    LineSplitter lines([this, name](std::string_view line) { sink_(name, std::string(line)); });
    drain(files_.insert_or_assign(name, File{descriptor, now.st_ino, std::move(lines)}).first->second);
}

void LogFollower::drain(File &file) {
    char piece[8192];
    ssize_t count = 0;
    while ((count = read(file.descriptor, piece, sizeof piece)) > 0) {
        file.lines.add({piece, static_cast<std::size_t>(count)});
    }
}

} // namespace ozuctl

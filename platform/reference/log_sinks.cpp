#include "log_sinks.h"

#include "errors.h"
#include "own_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace ozu::platform {

FileSink::FileSink(std::string path, std::size_t largest, int olderFiles)
    : path_(std::move(path)), largest_(largest), olderFiles_(olderFiles), file_(open()) {}

Descriptor FileSink::open() const {
    const std::string folder = path_.substr(0, path_.rfind('/'));
    if (!makeOwnFolder(folder)) { // it may have been removed meanwhile
        throw Error(codeOfErrno(errno), "log folder " + folder + ": " + std::strerror(errno));
    }
    requireOwnFolder(folder);
    Descriptor file = openOwnFile(path_, O_WRONLY | O_APPEND | O_CREAT);
    closeToOthers(file.get());
    return file;
}

// The file that is there now; the one of before when that cannot be opened.
void FileSink::reopen() {
    try {
        file_ = open();
        cutLine_ = false;
    } catch (const Error &) {
        // Standard error has the lines, too.
    }
}

// Several processes may write to one file, and any of them may rotate it: each line looks first where the
// file is now. A line that is under way while another process rotates ends in the file that was just moved.
void FileSink::followOrRotate() {
    struct stat current {};
    struct stat ours {};
    const bool exists = lstat(path_.c_str(), &current) == 0;
    if (!exists || !file_ || fstat(file_.get(), &ours) != 0 || current.st_ino != ours.st_ino ||
        current.st_dev != ours.st_dev) {
        reopen();
        return;
    }
    if (static_cast<std::size_t>(current.st_size) >= largest_) {
        rotate();
    }
}

void FileSink::rotate() {
    try {
        // The lock is that of the file to be moved. Whoever is late, or finds it taken, only follows.
        const Descriptor lock = open();
        struct stat locked {};
        struct stat current {};
        if (flock(lock.get(), LOCK_EX | LOCK_NB) == 0 && fstat(lock.get(), &locked) == 0 &&
            lstat(path_.c_str(), &current) == 0 && locked.st_ino == current.st_ino &&
            locked.st_dev == current.st_dev && static_cast<std::size_t>(current.st_size) >= largest_) {
            moveAway();
        }
    } catch (const Error &) {
        return;
    }
    reopen();
}

// Older files move on by one; whatever else has the name of one is left where it is.
void FileSink::moveAway() const {
    std::vector<std::string> names{path_};
    for (int number = 1; number <= olderFiles_; ++number) {
        const std::string name = path_ + "." + std::to_string(number);
        struct stat found {};
        if (lstat(name.c_str(), &found) != 0 || S_ISREG(found.st_mode)) {
            names.push_back(name);
        }
    }
    for (std::size_t older = names.size() - 1; older > 0; --older) {
        static_cast<void>(std::rename(names[older - 1].c_str(), names[older].c_str()));
    }
    if (names.size() == 1) {
        static_cast<void>(::unlink(path_.c_str()));
    }
}

void FileSink::sink_it_(const spdlog::details::log_msg &message) {
    followOrRotate();
    if (!file_) {
        return;
    }
    spdlog::memory_buf_t line;
    if (cutLine_) {
        line.push_back('\n');
    }
    spdlog::memory_buf_t text;
    formatter_->format(message, text);
    line.append(text.data(), text.data() + text.size());
    const ssize_t written = ::write(file_.get(), line.data(), line.size());
    if (written > 0) {
        cutLine_ = static_cast<std::size_t>(written) < line.size();
    }
}

void StandardErrorSink::sink_it_(const spdlog::details::log_msg &message) {
    pollfd target{STDERR_FILENO, POLLOUT, 0};
    if (poll(&target, 1, 0) != 1 || (target.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        return;
    }
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    // A stopped terminal has room, but perhaps not for a line: it is reopened, not to wait for it.
    const Descriptor terminal(isatty(STDERR_FILENO) == 1
                                  ? ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)
                                  : -1);
    static_cast<void>(!::write(terminal ? terminal.get() : STDERR_FILENO, line.data(), line.size()));
}

} // namespace ozu::platform

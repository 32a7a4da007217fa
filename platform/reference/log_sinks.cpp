#include "log_sinks.h"

#include "errors.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace ozu::platform {

FileSink::FileSink(std::string path, std::size_t largest, int olderFiles)
    : path_(std::move(path)), largest_(largest), olderFiles_(olderFiles) {
    open();
    if (!file_) {
        throw Error(codeOfErrno(errno), "log file " + path_ + ": " + std::strerror(errno));
    }
}

void FileSink::open() {
    file_ = openFile(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
}

// Several processes may write to one file, and any of them may rotate it: each line looks first where the
// file is now. A line that is under way while another process rotates ends in the file that was just moved.
void FileSink::followOrRotate() {
    struct stat current {};
    struct stat ours {};
    const bool exists = stat(path_.c_str(), &current) == 0;
    if (!exists || !file_ || fstat(file_.get(), &ours) != 0 || current.st_ino != ours.st_ino ||
        current.st_dev != ours.st_dev) {
        open();
        cutLine_ = false;
        return;
    }
    if (static_cast<std::size_t>(current.st_size) >= largest_) {
        rotate();
    }
}

void FileSink::rotate() {
    const std::string lockPath = path_.substr(0, path_.rfind('/')) + "/.rotate";
    const Descriptor lock = openFile(lockPath.c_str(), O_RDWR | O_CREAT, 0600);
    // Whoever is late finds the file rotated already and only follows.
    if (!lock || flock(lock.get(), LOCK_EX) != 0) {
        return;
    }
    struct stat current {};
    if (stat(path_.c_str(), &current) == 0 && static_cast<std::size_t>(current.st_size) >= largest_) {
        for (int number = olderFiles_; number > 0; --number) {
            const std::string newer = number == 1 ? path_ : path_ + "." + std::to_string(number - 1);
            static_cast<void>(std::rename(newer.c_str(), (path_ + "." + std::to_string(number)).c_str()));
        }
        if (olderFiles_ == 0) {
            static_cast<void>(::unlink(path_.c_str()));
        }
    }
    open();
    cutLine_ = false;
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
    static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

} // namespace ozu::platform

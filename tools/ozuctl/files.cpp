#include "files.h"

#include "context.h"
#include "text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace ozuctl {

namespace {

[[noreturn]] void refuse(const std::string &path, int error) {
    if (error == ENOENT || error == ENOTDIR) {
        throw CommandError(kNo, "there is no file " + inQuotes(path));
    }
    throw CommandError(kLibraryFailed, "the file " + inQuotes(path) + " cannot be read: " + strerror(error));
}

// Standard input by its name may be a socket, as over ssh, or another user's: neither can be reopened. A
// FIFO that nobody writes to is empty, rather than something to wait for.
int openForReading(const std::string &path) {
    if (path == "/dev/stdin") {
        return fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    }
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd >= 0) {
        fcntl(fd, F_SETFL, 0);
    }
    return fd;
}

// An open descriptor that ends with its block.
class Opened {
  public:
    explicit Opened(const std::string &path) : fd_(openForReading(path)) {
        struct stat found = {};
        if (fd_ < 0) {
            refuse(path, errno);
        }
        if (fstat(fd_, &found) != 0 || S_ISDIR(found.st_mode)) {
            close(fd_);
            refuse(path, EISDIR);
        }
    }
    ~Opened() { close(fd_); }
    Opened(const Opened &) = delete;
    Opened &operator=(const Opened &) = delete;
    [[nodiscard]] int fd() const { return fd_; }

  private:
    int fd_;
};

} // namespace

void requireReadable(const std::string &path) {
    const Opened file(path);
}

void requirePlain(const std::string &path) {
    const Opened file(path);
    struct stat found = {};
    if (fstat(file.fd(), &found) != 0 || !S_ISREG(found.st_mode)) {
        throw CommandError(kLibraryFailed, inQuotes(path) + " is no plain file");
    }
}

std::string contentOf(const std::string &path, std::uint64_t most) {
    const Opened file(path);
    std::string content;
    std::array<char, 65536> bytes; // NOLINT: filled by read
    for (;;) {
        const ssize_t count = read(file.fd(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            refuse(path, errno);
        }
        if (count == 0) {
            return content;
        }
        content.append(bytes.data(), static_cast<std::size_t>(count));
        if (content.size() > most) {
            throw CommandError(kLibraryFailed, "the file " + inQuotes(path) + " is larger than " +
                                                   std::to_string(most) + " bytes");
        }
    }
}

} // namespace ozuctl

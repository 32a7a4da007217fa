// A descriptor that closes itself.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace ozu::platform {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) {
            reset(std::exchange(other.fd_, -1));
        }
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    void reset(int fd = -1) noexcept {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

// Opens a file close-on-exec, never as one of the descriptors 0 to 2: a process that was started with these
// closed must not write its messages into our files. Never follows a link, never waits for a FIFO's other
// end.
inline Descriptor openFile(const char *path, int flags, unsigned mode = 0) noexcept {
    constexpr int kFirstOwn = 3;
    Descriptor file(::open(path, flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, mode));
    if (file && file.get() < kFirstOwn) {
        return Descriptor(::fcntl(file.get(), F_DUPFD_CLOEXEC, kFirstOwn));
    }
    return file;
}

} // namespace ozu::platform

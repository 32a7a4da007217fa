// Sockets of this room: owned, and not inherited by the programs that a process starts meanwhile.
#pragma once

#include <base/unique_fd.h>

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>

namespace ozu {

// Keeps a socket from the programs that the process starts from now on; errno stays as it was.
inline void keepToProcess(const UniqueFd &fd) noexcept {
    const int before = errno;
    static_cast<void>(fcntl(fd.get(), F_SETFD, FD_CLOEXEC));
    errno = before;
}

// socket() with these arguments, kept to the process; not valid when it failed, with errno telling why.
inline UniqueFd openSocket(int family, int type, int protocol) noexcept {
    UniqueFd fd(socket(family, type, protocol));
    if (fd.valid()) {
        keepToProcess(fd);
    }
    return fd;
}

} // namespace ozu

// Sockets of this room: owned, and not inherited by the programs that a process starts meanwhile.
#pragma once

#include <base/unique_fd.h>

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>

namespace ozu {

// socket() with these arguments; not valid when it failed, with errno telling why.
inline UniqueFd openSocket(int family, int type, int protocol) noexcept {
    UniqueFd fd(socket(family, type, protocol));
    if (fd.valid()) {
        const int before = errno;
        static_cast<void>(fcntl(fd.get(), F_SETFD, FD_CLOEXEC));
        errno = before;
    }
    return fd;
}

} // namespace ozu

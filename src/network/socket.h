// Sockets of this module: owned, and closed in the programs that the process starts.
#pragma once

#include <base/unique_fd.h>

#include <sys/socket.h>

namespace ozu {

// socket() with these arguments; not valid when it failed, with errno telling why.
inline UniqueFd openSocket(int family, int type, int protocol) noexcept {
    return UniqueFd(socket(family, type | SOCK_CLOEXEC, protocol));
}

} // namespace ozu

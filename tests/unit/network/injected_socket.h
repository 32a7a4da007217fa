// socket() as a call that can be made to fail, for tests that wrap it.
#pragma once

#include "injected_calls.h"

#include <sys/socket.h>

extern "C" {

int __real_socket(int family, int type, int protocol);

[[gnu::used]] inline int __wrap_socket(int family, int type, int protocol) {
    EXPECT_EQ(type & ~0xF, SOCK_CLOEXEC) << "a program that the process starts would inherit the socket";
    const std::string call = "socket(" + std::to_string(family) + ", " +
                             std::to_string(type & ~SOCK_CLOEXEC) + ", " + std::to_string(protocol) + ")";
    return ozu::test::injected().enter("socket", call) ? -1 : __real_socket(family, type, protocol);
}

} // extern "C"

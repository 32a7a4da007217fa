// socket() as a call that can be made to fail, for tests that wrap it.
#pragma once

#include "injected_calls.h"

extern "C" {

int __real_socket(int family, int type, int protocol);

[[gnu::used]] inline int __wrap_socket(int family, int type, int protocol) {
    const std::string call = "socket(" + std::to_string(family) + ", " + std::to_string(type) + ", " +
                             std::to_string(protocol) + ")";
    return ozu::test::injected().enter("socket", call) ? -1 : __real_socket(family, type, protocol);
}

} // extern "C"

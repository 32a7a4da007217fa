// A c-ares that answers every question in the first pass, unless it has to fail.
#include "injection.h"

#include <ares.h>
#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>

#include <array>

using ozu::test::Failure;
using ozu::test::injection;
using ozu::test::orFail;

namespace {

constexpr int kSocket = 70;

struct Lookup {
    ares_host_callback callback = nullptr;
    void *argument = nullptr;
};
Lookup lookup;

void finish(int status, int family = AF_INET) {
    std::array<unsigned char, 16> address = {10, 9, 8, 7};
    std::array<char *, 2> list = {reinterpret_cast<char *>(address.data()), nullptr};
    hostent host = {};
    host.h_addrtype = family;
    host.h_addr_list = list.data();
    const Lookup ended = lookup;
    lookup = Lookup();
    ended.callback(ended.argument, status, 0, status == ARES_SUCCESS ? &host : nullptr);
}

} // namespace

extern "C" {

int __wrap_ares_library_init(int) {
    return orFail("ares_library_init", [] { return static_cast<int>(ARES_SUCCESS); });
}

void __wrap_ares_library_cleanup() {}

int __wrap_ares_init_options(ares_channel *channel, ares_options *, int) {
    return orFail("ares_init_options", [channel]() -> int {
        *channel = reinterpret_cast<ares_channel>(&lookup);
        ++injection().channels;
        return ARES_SUCCESS;
    });
}

void __wrap_ares_set_local_dev(ares_channel, const char *) {}

int __wrap_ares_set_servers(ares_channel, ares_addr_node *) {
    return orFail("ares_set_servers", [] { return static_cast<int>(ARES_SUCCESS); });
}

void __wrap_ares_gethostbyname(ares_channel, const char *, int, ares_host_callback callback, void *argument) {
    lookup = {callback, argument};
}

int __wrap_ares_getsock(ares_channel, ares_socket_t *sockets, int) {
    sockets[0] = kSocket;
    return orFail("ares_getsock", [] { return 1; });
}

timeval *__wrap_ares_timeout(ares_channel, timeval *, timeval *next) {
    *next = {5, 0};
    return next;
}

int __wrap_ppoll(pollfd *sockets, nfds_t, const timespec *, const sigset_t *) {
    return orFail("ppoll", [sockets] {
        sockets[0].revents = POLLIN;
        return 1;
    });
}

void __wrap_ares_process_fd(ares_channel, ares_socket_t readable, ares_socket_t) {
    if (readable == ARES_SOCKET_BAD || lookup.callback == nullptr) {
        return;
    }
    const Failure *failure = injection().enter("answer");
    if (failure == nullptr) {
        finish(ARES_SUCCESS);
    } else if (failure->value == -2) {
        finish(ARES_SUCCESS, AF_INET6);
    } else if (failure->value != -1) {
        finish(static_cast<int>(failure->value));
    }
}

void __wrap_ares_cancel(ares_channel) {
    if (lookup.callback != nullptr) {
        finish(ARES_ECANCELLED);
    }
}

void __wrap_ares_destroy(ares_channel) {
    --injection().channels;
}

} // extern "C"

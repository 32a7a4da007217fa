#include "fake_cares.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace ozu::test {

FakeCares &cares() {
    static FakeCares instance;
    return instance;
}

void FakeCares::answer(const std::vector<std::string> &addresses, int family) {
    std::vector<std::array<unsigned char, 16>> bytes(addresses.size());
    std::vector<char *> list;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        inet_pton(family, addresses[i].c_str(), bytes[i].data());
        list.push_back(reinterpret_cast<char *>(bytes[i].data()));
    }
    list.push_back(nullptr);
    hostent host{};
    host.h_addrtype = family;
    host.h_addr_list = list.data();
    lookupUnderWay = false;
    callback(argument, ARES_SUCCESS, 0, &host);
}

void FakeCares::failLookup(int status, int internalTimeouts) {
    lookupUnderWay = false;
    callback(argument, status, internalTimeouts, nullptr);
}

namespace {

void enter(const std::string &call) {
    platform().journal.push_back(call);
}

std::string socketName(ares_socket_t fd) {
    return fd == ARES_SOCKET_BAD ? "bad" : std::to_string(fd);
}

} // namespace

} // namespace ozu::test

using ozu::test::cares;
using ozu::test::enter;

extern "C" {

int __wrap_ares_library_init(int flags) {
    enter("ares_library_init(" + std::to_string(flags) + ")");
    return cares().libraryStatus;
}

void __wrap_ares_library_cleanup() {
    enter("ares_library_cleanup()");
}

int __wrap_ares_init_options(ares_channel *channel, ares_options *options, int mask) {
    enter("ares_init_options(" + std::to_string(options->timeout) + ", " + std::to_string(mask) + ")");
    cares().timeouts.push_back(options->timeout);
    if (cares().initStatus == ARES_SUCCESS) {
        ++cares().channels;
        *channel = reinterpret_cast<ares_channel>(&cares());
    }
    return cares().initStatus;
}

void __wrap_ares_set_local_dev(ares_channel, const char *device) {
    enter(std::string("ares_set_local_dev(") + device + ")");
    cares().devices.emplace_back(device);
}

int __wrap_ares_set_servers(ares_channel, ares_addr_node *servers) {
    std::string list;
    for (const ares_addr_node *node = servers; node != nullptr; node = node->next) {
        EXPECT_EQ(node->family, AF_INET);
        list += (list.empty() ? "" : " ") + std::string(inet_ntoa(node->addr.addr4));
    }
    enter("ares_set_servers(" + list + ")");
    cares().servers.push_back(list);
    return cares().serversStatus;
}

void __wrap_ares_gethostbyname(ares_channel, const char *name, int family, ares_host_callback callback,
                               void *argument) {
    enter(std::string("ares_gethostbyname(") + name + ", " + std::to_string(family) + ")");
    cares().callback = callback;
    cares().argument = argument;
    cares().lookupUnderWay = true;
    if (cares().onLookup) {
        cares().onLookup();
    }
}

int __wrap_ares_getsock(ares_channel, ares_socket_t *sockets, int count) {
    enter("ares_getsock(" + std::to_string(count) + ")");
    auto &fake = cares();
    fake.pass = {};
    fake.passProcessed = false;
    if (!fake.passes.empty()) {
        fake.pass = fake.passes.front();
        fake.passes.pop_front();
    }
    unsigned int wanted = 0;
    for (std::size_t i = 0; i < fake.pass.sockets.size(); ++i) {
        sockets[i] = fake.pass.sockets[i].fd;
        wanted |= fake.pass.sockets[i].readable ? 1u << i : 0u;
        wanted |= fake.pass.sockets[i].writable ? 1u << (i + ARES_GETSOCK_MAXNUM) : 0u;
    }
    return static_cast<int>(wanted);
}

timeval *__wrap_ares_timeout(ares_channel, timeval *longest, timeval *next) {
    enter("ares_timeout(" + std::to_string(longest->tv_sec) + "." + std::to_string(longest->tv_usec) + ")");
    if (cares().pass.timeout.tv_sec > longest->tv_sec) {
        return longest;
    }
    *next = cares().pass.timeout;
    return next;
}

int __wrap_ppoll(pollfd *sockets, nfds_t count, const timespec *limit, const sigset_t *mask) {
    EXPECT_EQ(mask, nullptr);
    enter("ppoll(" + std::to_string(count) + ", " + std::to_string(limit->tv_sec) + "." +
          std::to_string(limit->tv_nsec) + ")");
    auto &fake = cares();
    fake.polled.assign(sockets, sockets + count);
    fake.lastWait = *limit;
    for (std::size_t i = 0; i < fake.pass.events.size(); ++i) {
        sockets[i].revents = fake.pass.events[i];
    }
    errno = fake.pass.error;
    return fake.pass.ready;
}

void __wrap_ares_process_fd(ares_channel, ares_socket_t readable, ares_socket_t writable) {
    enter("ares_process_fd(" + ozu::test::socketName(readable) + ", " + ozu::test::socketName(writable) +
          ")");
    auto &fake = cares();
    if (!fake.passProcessed && fake.pass.processing) {
        fake.pass.processing();
    }
    fake.passProcessed = true;
}

void __wrap_ares_cancel(ares_channel) {
    enter("ares_cancel()");
    if (cares().lookupUnderWay) {
        cares().failLookup(ARES_ECANCELLED);
    }
}

void __wrap_ares_destroy(ares_channel) {
    enter("ares_destroy()");
    --cares().channels;
}

} // extern "C"

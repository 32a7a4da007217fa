// A c-ares of scripted answers: it records every call and runs its callback when the script says so.
#pragma once

#include "fake_platform.h"

#include <ares.h>
#include <poll.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ozu::test {

// What one pass of waiting meets.
struct Pass {
    // Sockets that c-ares asks for: descriptor, readable wanted, writable wanted.
    struct Socket {
        int fd;
        bool readable;
        bool writable;
    };
    std::vector<Socket> sockets = {{70, true, false}};
    timeval timeout = {5, 0};
    int ready = 0;                    // result of ppoll()
    int error = 0;                    // its errno
    std::vector<short> events = {};   // that ppoll() returns, socket by socket
    std::function<void()> processing; // runs with the pass's first ares_process_fd()
};

struct FakeCares {
    std::deque<Pass> passes; // an empty queue is a pass that times out
    Pass pass;               // the one under way
    bool passProcessed = false;

    int libraryStatus = ARES_SUCCESS;
    int initStatus = ARES_SUCCESS;
    int serversStatus = ARES_SUCCESS;
    std::function<void()> onLookup; // runs inside ares_gethostbyname()

    int channels = 0; // open
    bool lookupUnderWay = false;
    ares_host_callback callback = nullptr;
    void *argument = nullptr;
    std::vector<int> timeouts;        // of the options, channel by channel
    std::vector<std::string> servers; // "a b", channel by channel
    std::vector<std::string> devices;
    std::vector<pollfd> polled; // of the last ppoll()
    timespec lastWait = {};     // of the last ppoll()

    // Ends the lookup under way.
    void answer(const std::vector<std::string> &addresses, int family = AF_INET);
    void failLookup(int status, int internalTimeouts = 0);
};

FakeCares &cares();

} // namespace ozu::test

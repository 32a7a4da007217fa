#define OZU_LOG_SOURCE "src/ares_dns"

#include <ares_dns/attempt.h>

#include <base/error_text.h>
#include <base/log.h>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <span>

namespace ozu::ares {

namespace {

constexpr int kTimeoutMs = 5000;
constexpr int kShortTimeoutMs = 1000;
constexpr int kShortAttempt = 1;
constexpr std::size_t kAddressText = 16;
constexpr long kMaxWaitSeconds = 20;
constexpr long kNanosecondsPerMicrosecond = 1000;
constexpr short kReadable = POLLIN | POLLRDNORM;
constexpr short kWritable = POLLOUT | POLLWRNORM;

using PollTable = std::array<pollfd, ARES_GETSOCK_MAXNUM>;

// Fills the table with the channel's sockets and returns how many there are.
std::size_t collectSockets(ares_channel channel, PollTable &table) noexcept {
    std::array<ares_socket_t, ARES_GETSOCK_MAXNUM> sockets = {};
    const auto wanted =
        static_cast<unsigned int>(ares_getsock(channel, sockets.data(), static_cast<int>(sockets.size())));
    std::size_t count = 0;
    for (; count < sockets.size(); ++count) {
        const auto slot = static_cast<unsigned int>(count);
        short events = 0;
        if ((ARES_GETSOCK_READABLE(wanted, slot)) != 0) {
            events |= kReadable;
        }
        if ((ARES_GETSOCK_WRITABLE(wanted, slot)) != 0) {
            events |= kWritable;
        }
        if (events == 0) {
            break;
        }
        table[count] = {sockets[count], events, 0};
    }
    return count;
}

void processSockets(ares_channel channel, std::span<const pollfd> sockets) noexcept {
    for (const pollfd &socket : sockets) {
        const bool readable = (socket.revents & kReadable) != 0;
        const bool writable = (socket.revents & kWritable) != 0;
        ares_process_fd(channel, readable ? socket.fd : ARES_SOCKET_BAD,
                        writable ? socket.fd : ARES_SOCKET_BAD);
    }
}

} // namespace

void callback(void *arg, int status, int timeouts, hostent *host) noexcept {
    if (status != ARES_SUCCESS || host == nullptr) {
        OZU_LOG(OZULOG_ERROR, "DNS server could not find the host, status [%s], internal timeouts [%d]",
                ares_strerror(status), timeouts);
        return;
    }
    if (arg == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "Invalid parameter");
        return;
    }
    auto *text = static_cast<char *>(arg);
    memset(text, 0, kAddressText);
    if (host->h_addrtype != AF_INET) {
        return;
    }
    for (char **address = host->h_addr_list; *address != nullptr; ++address) {
        if (inet_ntop(AF_INET, *address, text, kAddressText) != nullptr) {
            return;
        }
    }
}

int Init_Ares_Channel(ares_channel *channel, ares_options *options, ares_addr_node *servers,
                      const char *iface, int attempt) noexcept {
    *channel = nullptr;
    options->timeout = attempt == kShortAttempt ? kShortTimeoutMs : kTimeoutMs;
    int status = ares_init_options(channel, options, ARES_OPT_TIMEOUTMS);
    if (status != ARES_SUCCESS) {
        OZU_LOG(OZULOG_ERROR, "ares_init_options error: %s", ares_strerror(status));
        *channel = nullptr;
        return -1;
    }
    if (iface != nullptr && iface[0] != '\0') {
        ares_set_local_dev(*channel, iface);
    }
    status = ares_set_servers(*channel, servers);
    if (status != ARES_SUCCESS) {
        OZU_LOG(OZULOG_ERROR, "ares_set_servers error: %s", ares_strerror(status));
        return -1;
    }
    return 0;
}

int Wait_Ares(ares_channel channel) noexcept {
    PollTable table = {};
    const std::size_t count = collectSockets(channel, table);

    timeval longest = {kMaxWaitSeconds, 0};
    timeval next = {};
    timeval wait = *ares_timeout(channel, &longest, &next);
    if (wait.tv_sec == 0) {
        wait.tv_sec = 1;
        OZU_LOG_TEXT(OZULOG_WARNING, "make ppoll to wait at least 1 second");
    }
    if (count == 0) {
        OZU_LOG_TEXT(OZULOG_WARNING, "no events to wait for");
        ares_process_fd(channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
        return -1;
    }
    const timespec limit = {wait.tv_sec, static_cast<long>(wait.tv_usec) * kNanosecondsPerMicrosecond};
    const int ready = ppoll(table.data(), count, &limit, nullptr);
    if (ready > 0) {
        processSockets(channel, std::span(table).first(count));
        return 0;
    }
    if (ready < 0) {
        // The text has no place for the error; panel logs are searched for it as it is.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"
        OZU_LOG(OZULOG_ERROR, "poll error", ozu::errorText());
#pragma GCC diagnostic pop
    } else {
        OZU_LOG_TEXT(OZULOG_WARNING, "ppoll timeout");
    }
    // Lets c-ares see which of its own timeouts have passed.
    ares_process_fd(channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    return -1;
}

} // namespace ozu::ares

// Lookups in time, against a DNS server of one process on 127.0.0.1:53.
//
// Every round measures each way once, in turn, so that whatever else the machine does falls on all of them; a
// ratio is the median of the rounds' ratios. Prints one line a comparison, and exits with 1 when a limit is
// not met. usage: network_bench [ROUNDS [CALLS-PER-ROUND]]

#include <utils_ozu/raw_dns.h>
#include <utils_ozu/resolver.h>

#include <ozulog.h>

#include <ares.h>
#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <netdb.h>
#include <poll.h>
#include <resolv.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// A process whose log keeps none of these lines.
int ozulog_printf(int /*level*/, const char * /*format*/, ...) {
    return 0;
}
int ozulog_printf_extend(int /*level*/, const char * /*format*/, const char * /*sourceFile*/,
                         const char * /*functionName*/, int /*line*/, ...) {
    return 0;
}
int ozulog_printf_mqtt_transmission(int /*level*/, const char * /*format*/, ...) {
    return 0;
}

namespace {

constexpr const char *kHost = "panel.example";
constexpr const char *kServer = "127.0.0.1";
constexpr int kMaxRounds = 2000;
constexpr std::array<unsigned char, 31> kQuery = {0,   1,   1,   0,   0,   1,   0,   0, 0,   0,   0,
                                                  0,   5,   'p', 'a', 'n', 'e', 'l', 7, 'e', 'x', 'a',
                                                  'm', 'p', 'l', 'e', 0,   0,   1,   0, 1};
constexpr std::array<unsigned char, 16> kAnswer = {0xC0, 12, 0, 1, 0, 1, 0, 0, 0, 60, 0, 4, 10, 77, 0, 1};

[[noreturn]] void fail(const char *what) {
    perror(what);
    exit(2);
}

sockaddr_in serverAddress() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = inet_addr(kServer);
    return address;
}

sockaddr *generic(sockaddr_in &address) {
    return reinterpret_cast<sockaddr *>(&address);
}

// Answers every query with one address.
[[noreturn]] void serve(int fd) {
    std::array<unsigned char, 512> message = {};
    for (;;) {
        sockaddr_in from = {};
        socklen_t length = sizeof from;
        const ssize_t received =
            recvfrom(fd, message.data(), message.size() - kAnswer.size(), 0, generic(from), &length);
        if (received < 12) {
            continue;
        }
        message[2] = 0x81;
        message[3] = 0x80;
        message[7] = 1;
        memcpy(message.data() + received, kAnswer.data(), kAnswer.size());
        sendto(fd, message.data(), static_cast<std::size_t>(received) + kAnswer.size(), 0, generic(from),
               length);
    }
}

pid_t startServer() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address = serverAddress();
    if (fd < 0 || bind(fd, generic(address), sizeof address) < 0) {
        fail("port 53 of 127.0.0.1");
    }
    const pid_t server = fork();
    if (server == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve(fd);
    }
    close(fd);
    return server;
}

void require(bool holds, const char *what) {
    if (!holds) {
        fprintf(stderr, "%s did not resolve\n", what);
        exit(2);
    }
}

void bareExchange() {
    const int fd = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    sockaddr_in address = serverAddress();
    const timeval limit = {20, 0};
    std::array<unsigned char, 512> reply; // not cleared: only what is received counts
    sendto(fd, kQuery.data(), kQuery.size(), 0, generic(address), sizeof address);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const ssize_t received = recvfrom(fd, reply.data(), reply.size(), 0, nullptr, nullptr);
    close(fd);
    require(received == static_cast<ssize_t>(kQuery.size() + kAnswer.size()), "the bare exchange");
}

void rawClient() {
    std::array<char, 16> address = {};
    NgetHostByName(kHost, 1, kServer, strlen(kServer), address.data(), address.size());
    require(address[0] == '1', "NgetHostByName");
}

// The C library's resolver, initialised once; it opens and closes a socket for each query as well.
void systemQuery() {
    static struct __res_state state = [] {
        struct __res_state fresh = {};
        if (res_ninit(&fresh) != 0) {
            fail("res_ninit");
        }
        fresh.nscount = 1;
        fresh.nsaddr_list[0] = serverAddress();
        return fresh;
    }();
    std::array<unsigned char, 512> reply;
    require(res_nquery(&state, kHost, ns_c_in, ns_t_a, reply.data(), static_cast<int>(reply.size())) > 0,
            "res_nquery");
}

void aresClient() {
    std::array<char, 16> address = {};
    require(nslookup_ares(kHost, nullptr, kServer, nullptr, address.data()) == 0, "nslookup_ares");
}

void bareAresAnswer(void *argument, int status, int /*timeouts*/, hostent *host) {
    if (status == ARES_SUCCESS) {
        inet_ntop(AF_INET, host->h_addr_list[0], static_cast<char *>(argument), 16);
    }
}

void bareAres() {
    std::array<char, 16> address = {};
    ares_channel channel = nullptr;
    ares_options options = {};
    options.timeout = 5000;
    ares_addr_node server = {};
    server.family = AF_INET;
    server.addr.addr4 = serverAddress().sin_addr;
    if (ares_init_options(&channel, &options, ARES_OPT_TIMEOUTMS) != ARES_SUCCESS) {
        fail("ares_init_options");
    }
    ares_set_servers(channel, &server);
    ares_gethostbyname(channel, kHost, AF_INET, bareAresAnswer, address.data());
    for (;;) {
        std::array<ares_socket_t, ARES_GETSOCK_MAXNUM> sockets = {};
        const auto wanted = static_cast<unsigned int>(
            ares_getsock(channel, sockets.data(), static_cast<int>(sockets.size())));
        if (wanted == 0) {
            break;
        }
        pollfd waiting = {sockets[0], POLLIN, 0};
        timeval longest = {20, 0};
        timeval next = {};
        const timeval *wait = ares_timeout(channel, &longest, &next);
        const timespec limit = {wait->tv_sec, wait->tv_usec * 1000L};
        const bool ready = ppoll(&waiting, 1, &limit, nullptr) > 0;
        ares_process_fd(channel, ready ? sockets[0] : ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    }
    ares_destroy(channel);
    require(address[0] == '1', "bare c-ares");
}

struct Way {
    const char *name;
    void (*look)();
    std::array<double, kMaxRounds> microseconds = {};
};

double timeOf(void (*look)(), int calls) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) {
        look();
    }
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count() /
           calls;
}

double median(std::array<double, kMaxRounds> values, std::size_t count) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(count / 2);
    std::nth_element(values.begin(), middle, values.begin() + static_cast<std::ptrdiff_t>(count));
    return *middle;
}

// True when the limit is met.
bool compare(const Way &ours, const Way &other, double limit, std::size_t rounds) {
    std::array<double, kMaxRounds> ratios = {};
    for (std::size_t i = 0; i < rounds; ++i) {
        ratios[i] = ours.microseconds[i] / other.microseconds[i];
    }
    const double ratio = median(ratios, rounds);
    printf("%-15s %8.2f us   %-15s %8.2f us   ratio %.3f   limit %.2f   %s\n", ours.name,
           median(ours.microseconds, rounds), other.name, median(other.microseconds, rounds), ratio, limit,
           ratio <= limit ? "met" : "NOT MET");
    return ratio <= limit;
}

} // namespace

int main(int argc, char **argv) {
    const int rounds = argc > 1 ? std::clamp(atoi(argv[1]), 1, kMaxRounds) : 400;
    const int calls = argc > 2 ? std::max(1, atoi(argv[2])) : 50;
    const pid_t server = startServer();
    ares_global_library_init("bench");
    static Way bare = {"bare exchange", bareExchange};
    static Way raw = {"NgetHostByName", rawClient};
    static Way query = {"res_nquery", systemQuery};
    static Way plainAres = {"bare c-ares", bareAres};
    static Way ares = {"nslookup_ares", aresClient};
    Way *const ways[] = {&bare, &raw, &query, &plainAres, &ares};
    for (int round = -5; round < rounds; ++round) { // the first few warm up
        for (std::size_t i = 0; i < std::size(ways); ++i) {
            // Another one goes first each round.
            Way &way = *ways[(i + static_cast<std::size_t>(round + 5)) % std::size(ways)];
            const double time = timeOf(way.look, calls);
            if (round >= 0) {
                way.microseconds[static_cast<std::size_t>(round)] = time;
            }
        }
    }
    const auto count = static_cast<std::size_t>(rounds);
    const bool exchange = compare(raw, bare, 1.05, count);
    const bool faster = compare(raw, query, 1.0, count);
    const bool channel = compare(ares, plainAres, 1.03, count);
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
    return exchange && faster && channel ? 0 : 1;
}

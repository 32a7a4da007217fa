#include "broker.h"

#include "panel_folder.h"

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ozu::test {

namespace {

constexpr const char *kPrograms[] = {"/usr/sbin/mosquitto", "/usr/bin/mosquitto",
                                     "/usr/local/sbin/mosquitto"};

const char *program() {
    for (const char *path : kPrograms) {
        if (access(path, X_OK) == 0) {
            return path;
        }
    }
    return nullptr;
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool accepts(int port) {
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool accepted =
        connect(connection, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(connection);
    return accepted;
}

} // namespace

int freePort() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    bind(listener, reinterpret_cast<const sockaddr *>(&address), size);
    getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
    close(listener);
    return ntohs(address.sin_port);
}

namespace {

// Reads one packet; empty at the end of the connection.
std::string readPacket(int connection) {
    unsigned char head[2] = {}; // its packets are short: one byte of length
    if (recv(connection, head, 2, MSG_WAITALL) != 2) {
        return {};
    }
    std::string packet(head[1], '\0');
    if (head[1] != 0 && recv(connection, packet.data(), packet.size(), MSG_WAITALL) != head[1]) {
        return {};
    }
    return static_cast<char>(head[0]) + packet;
}

} // namespace

void answerOnce(int listener, const std::string &answer) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    readPacket(connection);
    static_cast<void>(!send(connection, answer.data(), answer.size(), MSG_NOSIGNAL));
    close(connection);
}

int serveRefusingSubscriptions(int listener) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    int refused = 0;
    for (std::string packet; !(packet = readPacket(connection)).empty();) {
        const int kind = static_cast<unsigned char>(packet[0]) >> 4;
        std::string answer;
        if (kind == 1) { // CONNECT
            answer = std::string("\x20\x03\0\0\0", 5);
        } else if (kind == 8) { // SUBSCRIBE: not authorised
            answer = std::string("\x90\x04", 2) + packet.substr(1, 2) + std::string("\0\x87", 2);
            ++refused;
        }
        static_cast<void>(!send(connection, answer.data(), answer.size(), MSG_NOSIGNAL));
    }
    close(connection);
    return refused;
}

std::set<std::string> serveUnableToBear(int listener, const std::string &payload,
                                        const std::atomic<bool> &over, const std::string &protest) {
    std::set<std::string> acknowledged;
    while (!over) {
        pollfd wait{listener, POLLIN, 0};
        if (poll(&wait, 1, 50) != 1) {
            continue;
        }
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        for (std::string packet; !(packet = readPacket(connection)).empty();) {
            const int kind = static_cast<unsigned char>(packet[0]) >> 4;
            std::string answer;
            if (kind == 1) { // CONNECT
                answer = std::string("\x20\x03\0\0\0", 5);
            } else if (kind == 3) { // PUBLISH: topic, number, properties, payload
                const auto at = [&](std::size_t i) { return static_cast<unsigned char>(packet[i]); };
                const std::size_t number = 3 + (at(1) * 256U + at(2));
                const std::string content = packet.substr(number + 3 + at(number + 2));
                if (content != payload) {
                    acknowledged.insert(content);
                    answer = std::string("\x40\x02", 2) + packet.substr(number, 2);
                } else if (protest.empty()) {
                    break;
                } else {
                    answer = protest;
                }
            } else if (kind == 8) { // SUBSCRIBE: number, properties, topic; a message comes with the grant
                if (packet.find(payload) != std::string::npos) {
                    break;
                }
                answer = std::string("\x90\x04", 2) + packet.substr(1, 2) + std::string("\0\x01", 2) +
                         std::string("\x30\x06\0\x03"
                                     "a/b\0",
                                     8);
            } else if (kind == 14) { // DISCONNECT
                break;
            }
            static_cast<void>(!send(connection, answer.data(), answer.size(), MSG_NOSIGNAL));
        }
        close(connection);
    }
    return acknowledged;
}

std::vector<std::chrono::steady_clock::time_point> turnAway(int listener, std::size_t connections) {
    std::vector<std::chrono::steady_clock::time_point> times;
    while (times.size() < connections) {
        close(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        times.push_back(std::chrono::steady_clock::now());
    }
    return times;
}

int listenSilently(int port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    const sockaddr_in address = loopback(port);
    if (bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listener, 8) != 0) {
        ADD_FAILURE() << "cannot listen on port " << port;
    }
    return listener;
}

bool Broker::available() {
    return program() != nullptr;
}

Broker::Broker(std::string folder, const std::string &configuration)
    : folder_(std::move(folder)), port_(freePort()) {
    std::string text = "listener " + std::to_string(port_) + " 127.0.0.1\n";
    text += "persistence_location " + folder_ + "/\n";
    if (getuid() == 0) {
        text += "user root\n";
    }
    if (configuration.find("allow_anonymous") == std::string::npos) {
        text += "allow_anonymous true\n";
    }
    rewriteFile(folder_ + "/mosquitto.conf", text + configuration);
    start();
}

Broker::~Broker() {
    stop(SIGTERM);
}

void Broker::start() {
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int log = open((folder_ + "/mosquitto.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        execl(program(), "mosquitto", "-c", (folder_ + "/mosquitto.conf").c_str(), "-v",
              static_cast<char *>(nullptr));
        _exit(127);
    }
    EXPECT_TRUE(eventually([this] { return accepts(port_); })) << contentOf(folder_ + "/mosquitto.log");
}

void Broker::stop(int signal) {
    if (process_ > 0) {
        kill(process_, signal);
        waitpid(process_, nullptr, 0);
        process_ = 0;
    }
}

void Broker::freeze() {
    kill(process_, SIGSTOP);
}

void Broker::thaw() {
    kill(process_, SIGCONT);
}

} // namespace ozu::test

// Calls the network functions in a panel box and prints the result: one JSON line per call with the
// result, the outputs, the log lines, the time it took and the descriptors it left.
//
// usage: network_probe COMMAND [ARGUMENT...]; "batch SERVER" reads host names from standard input.

#include <ozudb.h>
#include <ozulog.h>
#include <utils_ozu/host_names.h>
#include <utils_ozu/interfaces.h>
#include <utils_ozu/raw_dns.h>
#include <utils_ozu/resolver.h>
#include <utils_ozu/routes.h>

#include "resource_count.h"

#include <arpa/inet.h>
#include <sys/time.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

PanelSharedState state;
std::string logLines; // JSON, comma-separated
Clock::time_point callBegan;

// A JSON text; bytes above 127 as the characters of that number.
std::string quoted(const std::string &text) {
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte > 0x7E || c == '"' || c == '\\') {
            std::array<char, 8> escape{};
            snprintf(escape.data(), escape.size(), "\\u%04x", byte);
            result += escape.data();
        } else {
            result += c;
        }
    }
    return result + '"';
}

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::mutex logMutex;

__attribute__((format(printf, 4, 0))) int record(int level, const std::string &source,
                                                 const std::string &function, const char *format,
                                                 va_list arguments) {
    std::array<char, 4096> text{};
    vsnprintf(text.data(), text.size(), format, arguments);
    const std::lock_guard guard(logMutex);
    logLines += (logLines.empty() ? "" : ", ") + std::string("{\"level\": ") + std::to_string(level) +
                ", \"source\": " + quoted(source) + ", \"function\": " + quoted(function) +
                ", \"text\": " + quoted(text.data()) +
                ", \"after\": " + std::to_string(secondsSince(callBegan)) + "}";
    return 0;
}

// An output buffer whose every byte is known before the call.
struct Output {
    Output() { bytes.fill('#'); }
    char *data() { return bytes.data(); }
    [[nodiscard]] std::string json() const {
        if (bytes[0] == '#') {
            return "null";
        }
        return quoted(std::string(bytes.data(), strnlen(bytes.data(), bytes.size())));
    }
    std::array<char, 32> bytes{};
};

struct Answer {
    int result = 0;
    std::string outputs; // JSON members, each with a comma in front
};

void call(const std::string &subject, const std::function<Answer()> &function) {
    const int descriptors = ozu::test::openDescriptors();
    logLines.clear();
    callBegan = Clock::now();
    const double cpuBefore = cpuSeconds();
    const Answer answer = function();
    const double cpu = cpuSeconds() - cpuBefore;
    const double seconds = secondsSince(callBegan);
    std::cout << "{\"subject\": " << quoted(subject) << ", \"result\": " << answer.result << answer.outputs
              << ", \"seconds\": " << seconds << ", \"cpu\": " << cpu
              << ", \"descriptors\": " << ozu::test::openDescriptors() - descriptors << ", \"log\": ["
              << logLines << "]}" << std::endl;
}

using Arguments = std::vector<std::string>;

// "-" is a null pointer.
const char *orNull(const std::string &text) {
    return text == "-" ? nullptr : text.c_str();
}

Answer addresses(const Arguments &arguments) {
    sockaddr_in address{};
    sockaddr_in broadcast{};
    memset(&address, '#', sizeof address);
    memset(&broadcast, '#', sizeof broadcast);
    const bool both = arguments.size() > 1;
    Answer answer;
    answer.result =
        ozuutils_gethostIPv4byIfname(&address, both ? &broadcast : nullptr, arguments.at(0).c_str());
    answer.outputs = ", \"family\": " + std::to_string(address.sin_family) +
                     ", \"address\": " + quoted(inet_ntoa(address.sin_addr)) +
                     ", \"broadcast\": " + quoted(inet_ntoa(broadcast.sin_addr));
    return answer;
}

Answer device(const Arguments &arguments) {
    Output text;
    const int result = get_device_ip(arguments.at(0).c_str(), text.data());
    return {result, ", \"address\": " + text.json()};
}

int changeRoute(int (*change)(const char *, const char *, const char *, const char *, int, int) noexcept,
                const Arguments &arguments) {
    return change(arguments.at(0).c_str(), orNull(arguments.at(1)), arguments.at(2).c_str(),
                  orNull(arguments.at(3)), std::stoi(arguments.at(4)),
                  std::stoi(arguments.at(5), nullptr, 0));
}

Answer addRoute(const Arguments &arguments) {
    return {changeRoute(checkRouteAndAdd, arguments), ""};
}

Answer deleteRoute(const Arguments &arguments) {
    return {changeRoute(checkRouteAndDel, arguments), ""};
}

Answer gateway(const Arguments &arguments) {
    Output text;
    const int result = retrieveDefGateway(0, text.data(), arguments.at(0).c_str());
    return {result, ", \"gateway\": " + text.json()};
}

Answer ask(const std::string &host, const std::string &server) {
    Output text;
    NgetHostByName(host.c_str(), 1, server.c_str(), server.size(), text.data(), 16);
    return {0, ", \"address\": " + text.json()};
}

Answer raw(const Arguments &arguments) {
    return ask(arguments.at(0), arguments.at(1));
}

Answer rawPair(const Arguments &arguments) {
    Output text;
    text.bytes[0] = '\0';
    const int result = nslookup_ozu(arguments.at(0).c_str(), arguments.at(1).c_str(), arguments.at(2).c_str(),
                                    text.data(), 16);
    return {result, ", \"address\": " + text.json()};
}

Answer host(const Arguments &arguments) {
    Output text;
    const int result = ozuutils_resolve_hostname(arguments.at(0).c_str(), text.data());
    return {result, ", \"address\": " + text.json()};
}

// HOST INTERFACE PRIMARY SECONDARY [TRIES]
Answer ares(const Arguments &arguments) {
    Output text;
    const int tries = arguments.size() > 4 ? std::stoi(arguments[4]) : 1;
    const int result =
        nslookup_ares_n(arguments.at(0).c_str(), orNull(arguments.at(1)), orNull(arguments.at(2)),
                        orNull(arguments.at(3)), text.data(), 0, tries);
    return {result, ", \"address\": " + text.json()};
}

// HOST PRIMARY THREADS CALLS: how many of the calls, made side by side, found an address.
Answer aresThreads(const Arguments &arguments) {
    std::atomic<int> found{0};
    std::vector<std::thread> threads;
    ares_global_library_init("threads");
    for (int i = std::stoi(arguments.at(2)); i > 0; --i) {
        threads.emplace_back([&] {
            for (int call = std::stoi(arguments.at(3)); call > 0; --call) {
                Output text;
                const int result =
                    nslookup_ares(arguments[0].c_str(), nullptr, arguments[1].c_str(), nullptr, text.data());
                found += result == 0 && strcmp(text.data(), "10.77.0.1") == 0 ? 1 : 0;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    return {found.load(), ""};
}

// Up to six texts: primary and secondary of each record.
Answer dnsFile(const Arguments &arguments) {
    for (std::size_t i = 0; i < arguments.size() && i < 6; ++i) {
        auto &pair = state.dnsServerPairs[i / 2];
        snprintf(i % 2 == 0 ? pair.primary : pair.secondary, OZUDB_DNS_TEXT, "%s", arguments[i].c_str());
    }
    return {write_permanent_dns(), ""};
}

const std::map<std::string, Answer (*)(const Arguments &)> kCommands = {
    {"addresses", addresses},
    {"device", device},
    {"add", addRoute},
    {"del", deleteRoute},
    {"gateway", gateway},
    {"raw", raw},
    {"pair", rawPair},
    {"host", host},
    {"ares", ares},
    {"dns-file", dnsFile},
    {"ares-threads", aresThreads},
};

} // namespace

extern "C" {

PanelSharedState *ozudb_getSharedMemory(int /*reserved*/) {
    return &state;
}

int ozulog_printf(int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = record(level, "", "", format, arguments);
    va_end(arguments);
    return result;
}

int ozulog_printf_extend(int level, const char *format, const char *sourceFile, const char *functionName,
                         int line, ...) {
    va_list arguments;
    va_start(arguments, line);
    const int result = record(level, sourceFile, functionName, format, arguments);
    va_end(arguments);
    return result;
}

int ozulog_printf_mqtt_transmission(int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = record(level, "remote", "", format, arguments);
    va_end(arguments);
    return result;
}

} // extern "C"

// Has a signal handler run after so many milliseconds and over and over, one that restarts what it can.
static void disturb(int milliseconds) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    const timeval every = {milliseconds / 1000, milliseconds % 1000 * 1000};
    const itimerval timer = {every, every};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

int main(int argc, char **argv) {
    Arguments arguments(argv + 1, argv + argc);
    if (arguments.empty()) {
        std::cerr << "usage: network_probe COMMAND [ARGUMENT...]\n";
        return 2;
    }
    const std::string command = arguments.front();
    arguments.erase(arguments.begin());
    if (command == "batch") {
        for (std::string name; std::getline(std::cin, name);) {
            call(name, [&] { return ask(name, arguments.at(0)); });
        }
        return 0;
    }
    const auto found = kCommands.find(command);
    if (found == kCommands.end()) {
        std::cerr << "network_probe: no command '" << command << "'\n";
        return 2;
    }
    if (const char *every = std::getenv("PROBE_DISTURBED")) {
        disturb(std::atoi(every));
    }
    // Loading and starting may take a while (emulation); who acts on the call's own time waits for this file.
    if (const char *mark = std::getenv("PROBE_STARTS")) {
        std::fclose(std::fopen(mark, "w"));
    }
    call(command, [&] { return found->second(arguments); });
    return 0;
}

// ozuctl net: addresses, routes, names and the DNS file.

#include "arguments.h"
#include "codes.h"
#include "commands/commands.h"
#include "log_tap.h"
#include "numbers.h"
#include "text.h"

#include <utils_ozu/host_names.h>
#include <utils_ozu/interfaces.h>
#include <utils_ozu/raw_dns.h>
#include <utils_ozu/resolver.h>
#include <utils_ozu/routes.h>

#include <arpa/inet.h>
#include <net/route.h>
#include <ozulog.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>

namespace ozuctl {

namespace {

constexpr const char *kDnsFile = "/data/permanent-dns.conf";
constexpr int kShownLevel = OZULOG_DEBUG; // finer lines repeat what the command line says
constexpr std::size_t kAddressText = 16;
using AddressText = std::array<char, kAddressText>;

std::string dotted(const sockaddr_in &address) {
    AddressText text = {};
    inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    return text.data();
}

// For calls on whose failure the command itself reports.
std::string silence(const LoggedLine & /*line*/) {
    return {};
}

ExitCode address(const Context &context, const std::string &interface) {
    sockaddr_in own = {};
    sockaddr_in broadcast = {};
    int code = 0;
    {
        const LogTap tap(silence);
        code = ozuutils_gethostIPv4byIfname(&own, &broadcast, interface.c_str());
    }
    if (code == 7) {
        throw CommandError(kLibraryFailed, "no socket could be opened (" + libraryCode(7) + ")");
    }
    if (own.sin_family != AF_INET) {
        throw CommandError(kNo,
                           "the interface " + inQuotes(interface) + " does not exist or has no IPv4 address",
                           "'ip -4 addr' lists the interfaces.");
    }
    Json document = {{"interface", interface}, {"address", dotted(own)}};
    document["broadcast"] = code == 0 ? Json(dotted(broadcast)) : Json(nullptr);
    print(context, document);
    return kDone;
}

ExitCode gateway(const Context &context, const std::string &interface) {
    AddressText text = {};
    const int code = [&] {
        const LogTap tap(silence);
        return retrieveDefGateway(0, text.data(), interface.c_str());
    }();
    if (code != 0) {
        throw CommandError(kNo, "no route of the main table has a gateway through " + inQuotes(interface));
    }
    print(context, {{"interface", interface}, {"gateway", text.data()}});
    return kDone;
}

struct RouteWords {
    std::string destination;
    std::string mask;
    std::string gateway;
    std::string device;
    int metric = 0;
};

// "10.2.0.0/16" as destination and mask; without either the mask of a single host.
void splitPrefix(RouteWords &route) {
    const std::size_t slash = route.destination.find('/');
    int prefix = 32;
    if (slash != std::string::npos) {
        prefix = static_cast<int>(
            requireNumber("the prefix", std::string_view(route.destination).substr(slash + 1), 0, 32));
        route.destination.erase(slash);
    } else if (!route.mask.empty()) {
        return;
    }
    sockaddr_in mask = {};
    mask.sin_addr.s_addr = prefix == 0 ? 0 : htonl(0xFFFFFFFFu << (32 - prefix));
    route.mask = dotted(mask);
}

void requireAddress(const std::string &what, const std::string &text) {
    in_addr ignored = {};
    if (inet_pton(AF_INET, text.c_str(), &ignored) != 1) {
        throw CommandError(kUsage, what + " must be a dotted IPv4 address, not " + inQuotes(text));
    }
}

ExitCode changeRoute(const Context &context, RouteWords route, bool add) {
    splitPrefix(route);
    requireAddress("the destination", route.destination);
    requireAddress("the mask", route.mask);
    int flags = RTF_UP;
    if (!route.gateway.empty()) {
        requireAddress("the gateway", route.gateway);
        flags |= RTF_GATEWAY;
    }
    if (route.mask == "255.255.255.255") {
        flags |= RTF_HOST;
    }
    context.requireConsent(add ? "adds a route to this machine" : "removes a route from this machine");
    std::string refusal;
    int code = 0;
    {
        const LogTap tap([&refusal](const LoggedLine &line) {
            // Removal tells of a refusal in a fine line only.
            if (line.text.rfind("SIOC", 0) == 0 || line.text.rfind("socket:", 0) == 0) {
                refusal = line.text;
            }
            return std::string();
        });
        code = (add ? checkRouteAndAdd : checkRouteAndDel)(
            route.destination.c_str(), route.gateway.empty() ? nullptr : route.gateway.c_str(),
            route.mask.c_str(), route.device.empty() ? nullptr : route.device.c_str(), route.metric, flags);
    }
    if (code != 0 || (!add && !refusal.empty())) {
        throw CommandError(code != 0 ? kLibraryFailed : kNo,
                           std::string(add ? "the route was not confirmed" : "the route was not removed") +
                               (refusal.empty() ? "" : ": " + refusal));
    }
    printChanged(context, "the routes");
    return kDone;
}

ExitCode valid(const Context &context, const std::string &text) {
    int a = 0;
    int b = 0;
    int c = 0;
    int d = 0;
    std::string reason;
    bool accepted = false;
    {
        const LogTap tap([&reason](const LoggedLine &line) {
            reason = line.text;
            return std::string();
        });
        accepted = is_valid_ip(text.c_str(), &a, &b, &c, &d) != 0;
    }
    Json document = {{"text", text}, {"valid", accepted}};
    document["reason"] = accepted ? Json(nullptr) : Json(reason);
    document["anyAddress"] = isValidIpAddress(text.c_str()) != 0;
    print(context, document, accepted ? "yes" : "no: " + reason);
    return accepted ? kDone : kNo;
}

ExitCode hostOf(const Context &context, std::string url) {
    std::string host(url.size() + 1, '\0');
    const int found = parse_host(url.data(), host.data(), static_cast<unsigned int>(host.size()));
    host.resize(host.find('\0'));
    if (found == 0) {
        throw CommandError(kNo, "there is no host in " + inQuotes(url));
    }
    print(context, {{"url", url}, {"host", host}}, host);
    return kDone;
}

struct ResolveWords {
    std::string host;
    std::string server;
    std::string second;
    std::string interface;
    std::string via;
    int tries = 1;
};

// The call's lines with their times: what it tried, and how long it waited for it.
class Steps {
  public:
    explicit Steps(bool quiet) : quiet_(quiet) {}
    // Takes a line up and returns it as people read it.
    std::string add(const LoggedLine &line) {
        const double now = elapsed();
        if (line.level < kShownLevel) {
            return {};
        }
        const double waited = now - last_;
        last_ = now;
        const std::string text = line.text.substr(0, line.text.find_last_not_of(' ') + 1);
        steps_.push_back({{"after", rounded(now)},
                          {"waited", rounded(waited)},
                          {"level", line.level},
                          {"function", line.function},
                          {"text", text}});
        if (quiet_) {
            return {};
        }
        std::array<char, 48> times{};
        snprintf(times.data(), times.size(), "%8.3f s  %+8.3f s  ", now, waited);
        return times.data() + text;
    }
    [[nodiscard]] double elapsed() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - began_).count();
    }
    [[nodiscard]] const Json &json() const { return steps_; }
    static double rounded(double seconds) {
        return static_cast<double>(static_cast<long>(seconds * 1e6)) / 1e6;
    }

  private:
    std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
    double last_ = 0;
    bool quiet_;
    Json steps_ = Json::array();
};

int callResolver(const ResolveWords &words, AddressText &text) {
    if (words.via == "ares") {
        return nslookup_ares_n(words.host.c_str(), words.interface.c_str(), words.server.c_str(),
                               words.second.c_str(), text.data(), 0, words.tries);
    }
    if (words.via == "raw") {
        return nslookup_ozu(words.host.c_str(), words.server.c_str(), words.second.c_str(), text.data(),
                            text.size());
    }
    return ozuutils_resolve_hostname(words.host.c_str(), text.data());
}

ExitCode resolve(const Context &context, ResolveWords words) {
    if (words.via.empty()) {
        words.via = words.server.empty() && words.second.empty() ? "system" : "ares";
    }
    if (words.via == "ares" && words.server.empty() && words.second.empty()) {
        throw CommandError(kUsage, "--via ares needs --server or --second");
    }
    if (words.via != "ares" && !words.interface.empty()) {
        throw CommandError(kUsage, "only --via ares can bind to an interface");
    }
    for (const std::string &server : {words.server, words.second}) {
        if (!server.empty()) {
            requireAddress("a server", server);
        }
    }
    Steps steps(context.json);
    AddressText text = {};
    int code = 0;
    {
        const LogTap tap([&steps](const LoggedLine &line) { return steps.add(line); });
        code = callResolver(words, text);
    }
    const double seconds = Steps::rounded(steps.elapsed());
    if (context.json) {
        Json document = {{"host", words.host}, {"via", words.via}};
        document["address"] = code == 0 ? Json(text.data()) : Json(nullptr);
        document["code"] = code;
        document["seconds"] = seconds;
        document["steps"] = steps.json();
        print(context, document);
    } else if (code == 0) {
        print(context, Json(text.data()));
    } else {
        throw CommandError(kNo, inQuotes(words.host) + " was not resolved in " + Json(seconds).dump() +
                                    " s (" + libraryCode(code) + ")");
    }
    return code == 0 ? kDone : kNo;
}

ExitCode writeDnsFile(const Context &context) {
    static_cast<void>(Context::state());
    context.requireConsent(std::string("rewrites ") + kDnsFile);
    if (const int code = write_permanent_dns(); code != 0) {
        throw CommandError(kLibraryFailed,
                           std::string(kDnsFile) + " was not written (" + libraryCode(code) + ")");
    }
    // A file that cannot be opened is no failure for the library; here it is.
    std::ifstream file(kDnsFile);
    if (!file.is_open()) {
        throw CommandError(kLibraryFailed, std::string(kDnsFile) + " cannot be opened");
    }
    Json servers = Json::array();
    for (std::string word, server; file >> word >> server;) {
        servers.push_back(server);
    }
    print(context, {{"file", kDnsFile}, {"servers", servers}});
    return kDone;
}

void addRouteCommands(CLI::App &net, Context &context) {
    CLI::App *route = net.add_subcommand("route", "Add or remove a static route");
    route->require_subcommand(1);
    for (const bool add : {true, false}) {
        auto words = std::make_shared<RouteWords>();
        CLI::App *command = add ? route->add_subcommand("add", "Add a route and confirm it (1 to 4 seconds)")
                                : route->add_subcommand("del", "Remove a route");
        command->add_option("DESTINATION", words->destination, "Address, or address/prefix")->required();
        command->add_option("--gateway", words->gateway, "Address of the gateway");
        command->add_option("--mask", words->mask, "Network mask, instead of a prefix");
        command->add_option("--dev", words->device, "Network interface");
        addNumber(*command, "--metric", words->metric, 0, 32766, "Metric");
        command->callback([words, add, &context] {
            context.command = [words, add, &context] { return changeRoute(context, *words, add); };
        });
    }
}

void addResolveCommand(CLI::App &net, Context &context) {
    auto words = std::make_shared<ResolveWords>();
    CLI::App *command = net.add_subcommand("resolve", "Resolve a host; tells attempts and waits");
    command->add_option("HOST", words->host, "Host name")->required();
    command->add_option("--server", words->server, "Primary DNS server, dotted");
    command->add_option("--second", words->second, "Secondary DNS server, dotted");
    command->add_option("--iface", words->interface, "Network interface the queries leave through (ares)");
    addChecked(
        *command, "--via", "WAY",
        [words](const std::string &what, const std::string &text) {
            words->via = requireWord(what, text, {"ares", "raw", "system"});
        },
        "ares (with servers), raw (one datagram each), system (without servers)");
    addNumber(*command, "--tries", words->tries, 1, 100, "Calls to make at most (ares)");
    command->callback(
        [words, &context] { context.command = [words, &context] { return resolve(context, *words); }; });
}

// A command with one word.
void addWordCommand(CLI::App &net, Context &context, const char *name, const char *word, const char *meaning,
                    const char *description, ExitCode (*run)(const Context &, const std::string &)) {
    auto value = std::make_shared<std::string>();
    CLI::App *command = net.add_subcommand(name, description);
    command->add_option(word, *value, meaning)->required();
    command->callback([value, run, &context] {
        context.command = [value, run, &context] { return run(context, *value); };
    });
}

} // namespace

void registerNet(CLI::App &app, Context &context) {
    CLI::App *net = app.add_subcommand("net", "Addresses, routes, names, DNS file");
    net->require_subcommand(1);
    addWordCommand(*net, context, "address", "IF", "Network interface",
                   "IPv4 and broadcast address of an interface", address);
    addWordCommand(*net, context, "gateway", "IF", "Part of its name",
                   "Gateway of the first route through an interface with this in its name", gateway);
    addRouteCommands(*net, context);
    addWordCommand(*net, context, "valid", "TEXT", "A text",
                   "Is it an address that a host of the panel's may have?", valid);
    addWordCommand(*net, context, "host-of", "URL", "With or without scheme, user, port and path",
                   "The host in a URL",
                   [](const Context &where, const std::string &url) { return hostOf(where, url); });
    addResolveCommand(*net, context);
    CLI::App *file = net->add_subcommand("dns-file", "The file of the DNS servers the panel knows");
    file->require_subcommand(1);
    file->add_subcommand("write", "Write /data/permanent-dns.conf")->callback([&context] {
        context.command = [&context] { return writeDnsFile(context); };
    });
}

} // namespace ozuctl

#include "scenarios.h"

#include <utils_ozu/host_names.h>
#include <utils_ozu/interfaces.h>
#include <utils_ozu/raw_dns.h>
#include <utils_ozu/resolver.h>
#include <utils_ozu/routes.h>

#include "fake_platform.h"

#include <arpa/inet.h>
#include <net/route.h>

#include <array>
#include <cstring>

namespace ozu::test {

namespace {

using AddressText = std::array<char, 16>;

AddressText untouchedText() {
    AddressText text;
    text.fill('#');
    text.back() = '\0';
    return text;
}

sockaddr_in untouchedAddress() {
    sockaddr_in address;
    memset(&address, 1, sizeof address);
    return address;
}

std::string shown(const sockaddr_in &address) {
    const sockaddr_in untouched = untouchedAddress();
    if (memcmp(&address, &untouched, sizeof address) == 0) {
        return "untouched";
    }
    const std::string text = inet_ntoa(address.sin_addr);
    return address.sin_family == AF_INET ? text : text + " of family " + std::to_string(address.sin_family);
}

void setServers() {
    for (auto &pair : platform().state.dnsServerPairs) {
        strcpy(pair.primary, "10.0.0.1");
        strcpy(pair.secondary, "10.0.0.2");
    }
}

} // namespace

std::vector<Scenario> networkScenarios() {
    return {
        {"ozuutils_gethostIPv4byIfname",
         [] {
             sockaddr_in address = untouchedAddress();
             sockaddr_in broadcast = untouchedAddress();
             const int result = ozuutils_gethostIPv4byIfname(&address, &broadcast, "eth0");
             return told(returns(result), "address " + shown(address), "broadcast " + shown(broadcast));
         }},
        {"get_device_ip",
         [] {
             auto text = untouchedText();
             const int result = get_device_ip("eth0", text.data());
             return told(returns(result), output("address", text.data()));
         }},
        {"checkRouteAndAdd",
         [] {
             return returns(
                 checkRouteAndAdd("10.2.0.0", "192.168.7.1", "255.255.0.0", "eth0", 1, RTF_UP | RTF_GATEWAY));
         }},
        {"checkRouteAndDel",
         [] {
             return returns(
                 checkRouteAndDel("10.2.0.0", "192.168.7.1", "255.255.0.0", "eth0", 1, RTF_UP | RTF_GATEWAY));
         }},
        {"retrieveDefGateway",
         [] {
             auto text = untouchedText();
             const int result = retrieveDefGateway(0, text.data(), "eth0");
             return told(returns(result), output("address", text.data()));
         }},
        {"nslookup_ozu",
         [] {
             AddressText text = {};
             const int result = nslookup_ozu("a.b", "10.0.0.53", "10.0.0.54", text.data(), text.size());
             return told(returns(result), output("address", text.data()));
         }},
        {"NgetHostByName",
         [] {
             auto text = untouchedText();
             NgetHostByName("a.b", 1, "10.0.0.53", 9, text.data(), text.size());
             return output("address", text.data());
         }},
        {"ozuutils_resolve_hostname",
         [] {
             auto text = untouchedText();
             const int result = ozuutils_resolve_hostname("host.test", text.data());
             return told(returns(result), output("address", text.data()));
         }},
        {"write_permanent_dns",
         [] {
             setServers();
             return returns(write_permanent_dns());
         }},
        {"nslookup_ares",
         [] {
             auto text = untouchedText();
             const int result = nslookup_ares("host.test", "eth0", "10.0.0.53", "10.0.0.54", text.data());
             ares_global_library_deinit();
             return told(returns(result), output("address", text.data()));
         }},
        {"nslookup_ares_n with one server",
         [] {
             auto text = untouchedText();
             const int result =
                 nslookup_ares_n("host.test", nullptr, "10.0.0.53", nullptr, text.data(), 0, 2);
             ares_global_library_deinit();
             return told(returns(result), output("address", text.data()));
         }},
    };
}

} // namespace ozu::test

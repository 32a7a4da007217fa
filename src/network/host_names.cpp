// Host names through the system resolver.

#include <utils_ozu/host_names.h>

#include <utils_ozu/interfaces.h>
#include <utils_ozu/results.h>

#include <base/log.h>

#include <arpa/inet.h>
#include <netdb.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kAddressText = 16;

} // namespace

int ozuutils_resolve_hostname(const char *name, char *ipText) noexcept {
    if (name == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "Unable to continue with NULL pointer.");
        return OZU_RESULT_MISSING;
    }
    int a = 0;
    int b = 0;
    int c = 0;
    int d = 0;
    if (is_valid_ip(name, &a, &b, &c, &d) != 0) {
        OZU_LOG(OZULOG_INFO, "Received valid IPv4 %s -> %d.%d.%d.%d.", name, a, b, c, d);
        snprintf(ipText, kAddressText, "%d.%d.%d.%d", a, b, c, d);
        return 0;
    }
    OZU_LOG_SHORT(OZULOG_TRACE, "Received host name %s.", name);
    const hostent *found = gethostbyname(name);
    if (found == nullptr) {
        OZU_LOG(OZULOG_ERROR, "Unable to resolve %s: %d.", name, h_errno);
        return OZU_RESULT_NOT_RESOLVED;
    }
    if (found->h_addr_list[0] == nullptr) {
        OZU_LOG(OZULOG_ERROR, "There is an error on resolving %s.", name);
        return OZU_RESULT_NOT_RESOLVED;
    }
    in_addr address = {};
    memcpy(&address, found->h_addr_list[0], sizeof address);
    strncpy(ipText, inet_ntoa(address), kAddressText);
    return 0;
}

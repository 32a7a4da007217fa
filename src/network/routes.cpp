// Static routes of the kernel's routing table.

#include <utils_ozu/routes.h>

#include <base/error_text.h>
#include <base/log.h>
#include <network/socket.h>

#include <arpa/inet.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int kAttempts = 4;
constexpr unsigned int kPauseSeconds = 1;

void setAddress(sockaddr &field, const char *text) noexcept {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(text);
    memcpy(&field, &address, sizeof address);
}

rtentry routeRequest(const char *dest, const char *gw, const char *mask, const char *dev, int metric,
                     int flags) noexcept {
    rtentry route = {};
    setAddress(route.rt_dst, dest);
    setAddress(route.rt_genmask, mask);
    if ((flags & RTF_GATEWAY) != 0 && gw != nullptr) {
        setAddress(route.rt_gateway, gw);
    }
    route.rt_flags = static_cast<unsigned short>(flags);
    // The kernel takes one off again: 0 stands for "not given" there.
    route.rt_metric = static_cast<short>(static_cast<unsigned int>(metric) + 1);
    // The kernel only reads the name.
    route.rt_dev = const_cast<char *>(dev); // NOLINT(cppcoreguidelines-pro-type-const-cast)
    return route;
}

} // namespace

int checkRouteAndAdd(const char *dest, const char *gw, const char *mask, const char *dev, int metric,
                     int flags) noexcept {
    OZU_LOG(OZULOG_INFO, "dest = %s, gw = %s, mask = %s, ifr = %s, metric = %d, flags = 0x%02x", dest, gw,
            mask, dev, metric, static_cast<unsigned int>(flags));
    int result = 0;
    for (int left = kAttempts; left > 0; --left) {
        ozu::UniqueFd fd = ozu::openSocket(AF_INET, SOCK_DGRAM, 0);
        if (!fd.valid()) {
            OZU_LOG(OZULOG_ERROR, "socket:[%s]", ozu::errorText());
            result = -1;
            continue;
        }
        rtentry route = routeRequest(dest, gw, mask, dev, metric, flags);
        const bool failed = ioctl(fd.get(), SIOCADDRT, &route) < 0;
        const int error = errno;
        if (failed) {
            OZU_LOG_SHORT(OZULOG_TRACE, "SIOCADDRT:[%s]", strerror(error));
        }
        fd.reset();
        const bool exists = failed && error == EEXIST;
        if (failed && !exists) {
            OZU_LOG(OZULOG_ERROR, "SIOCADDRT:[%s]", strerror(error));
            result = -1;
        }
        sleep(kPauseSeconds);
        if (exists) {
            if (left == 1) {
                OZU_LOG_TEXT(OZULOG_WARNING,
                             "Cannot add route to routing table, reach maximum validation attempts");
                return -1;
            }
            break;
        }
    }
    return result;
}

int checkRouteAndDel(const char *dest, const char *gw, const char *mask, const char *dev, int metric,
                     int flags) noexcept {
    const ozu::UniqueFd fd = ozu::openSocket(AF_INET, SOCK_DGRAM, 0);
    if (!fd.valid()) {
        OZU_LOG(OZULOG_ERROR, "socket:[%s]", ozu::errorText());
        return -1;
    }
    rtentry route = routeRequest(dest, gw, mask, dev, metric, flags);
    if (ioctl(fd.get(), SIOCDELRT, &route) < 0) {
        OZU_LOG_SHORT(OZULOG_TRACE, "SIOCDELRT:[%s]", ozu::errorText());
    }
    return 0;
}

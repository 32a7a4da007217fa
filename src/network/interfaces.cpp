// Addresses of network interfaces.

#include <utils_ozu/interfaces.h>

#include <utils_ozu/results.h>
#include <utils_ozu/text.h>

#include <base/error_text.h>
#include <base/log.h>
#include <network/socket.h>

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cstring>

namespace {

constexpr std::size_t kAddressText = 16;

// The address as the kernel returned it, in whichever member of the union it came.
void takeAddress(const ifreq &request, sockaddr_in &address) noexcept {
    memcpy(&address, &request.ifr_addr, sizeof address);
    address.sin_family = AF_INET;
}

} // namespace

int ozuutils_gethostIPv4byIfname(struct sockaddr_in *addr, struct sockaddr_in *bcast,
                                 const char *ifname) noexcept {
    const ozu::UniqueFd fd = ozu::openSocket(AF_INET, SOCK_DGRAM, 0);
    if (!fd.valid()) {
        return OZU_RESULT_NO_SOCKET;
    }
    ifreq request = {};
    ozuutils_strlcpy(request.ifr_name, ifname, sizeof request.ifr_name);
    *addr = {};
    if (ioctl(fd.get(), SIOCGIFADDR, &request) < 0) {
        OZU_LOG(OZULOG_ERROR, "ioctl: %s\n", ozu::errorText());
        return OZU_RESULT_IO_FAILED;
    }
    takeAddress(request, *addr);
    OZU_LOG(OZULOG_INFO, "interface %s: family=%d  %s\n", ifname, AF_INET, inet_ntoa(addr->sin_addr));
    if (bcast == nullptr) {
        return 0;
    }
    *bcast = {};
    if (ioctl(fd.get(), SIOCGIFBRDADDR, &request) < 0) {
        OZU_LOG(OZULOG_ERROR, "ioctl: %s\n", ozu::errorText());
        return OZU_RESULT_IO_FAILED;
    }
    takeAddress(request, *bcast);
    OZU_LOG(OZULOG_INFO, "bcast interface %s: family=%d  %s\n", ifname, AF_INET, inet_ntoa(bcast->sin_addr));
    return 0;
}

int get_device_ip(const char *ifname, char *ipText) noexcept {
    if (ifname == nullptr || ipText == nullptr) {
        return -1;
    }
    const ozu::UniqueFd fd = ozu::openSocket(AF_INET, SOCK_DGRAM, 0);
    if (!fd.valid()) {
        OZU_LOG(OZULOG_WARNING, "socket [%s]", ozu::errorText());
        return -1;
    }
    ifreq request = {};
    request.ifr_addr.sa_family = AF_INET;
    strncpy(request.ifr_name, ifname, sizeof request.ifr_name - 1);
    const int result = ioctl(fd.get(), SIOCGIFADDR, &request);
    if (result < 0) {
        OZU_LOG(OZULOG_WARNING, "ioctl [%s]", ozu::errorText());
        return result;
    }
    sockaddr_in address = {};
    takeAddress(request, address);
    // The text's own buffer is larger than sixteen bytes, so what follows a short address comes along.
    memcpy(ipText, inet_ntoa(address.sin_addr), kAddressText);
    return result;
}

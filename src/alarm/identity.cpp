// The panel's identity, from its hardware address.

#include <utils_ozu/identity.h>

#include <base/log.h>
#include <base/unique_fd.h>

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <span>

namespace {

// Interfaces that are looked at, on machines with records of 32 and of 40 bytes alike.
constexpr std::size_t kInterfaces = 32;
constexpr std::size_t kIdentity = 8;
constexpr std::size_t kAddress = 6;

bool isHardwareOf(int socket, const ifreq &listed, std::span<std::uint8_t, kAddress> address) noexcept {
    ifreq request = {};
    std::memcpy(request.ifr_name, listed.ifr_name, sizeof request.ifr_name);
    if (ioctl(socket, SIOCGIFFLAGS, &request) != 0 ||
        (static_cast<unsigned int>(request.ifr_flags) & static_cast<unsigned int>(IFF_LOOPBACK)) != 0) {
        return false;
    }
    if (ioctl(socket, SIOCGIFHWADDR, &request) != 0) {
        return false;
    }
    std::memcpy(address.data(), request.ifr_hwaddr.sa_data, address.size());
    return true;
}

bool firstHardwareAddress(int socket, std::span<std::uint8_t, kAddress> address) noexcept {
    ifreq records[kInterfaces] = {};
    ifconf list = {};
    list.ifc_len = sizeof records;
    list.ifc_req = records;
    if (ioctl(socket, SIOCGIFCONF, &list) != 0 || list.ifc_len < 0) {
        return false;
    }
    const std::size_t count =
        std::min(static_cast<std::size_t>(list.ifc_len) / sizeof(ifreq), std::size(records));
    for (const ifreq &listed : std::span(records).first(count)) {
        if (isHardwareOf(socket, listed, address)) {
            return true;
        }
    }
    return false;
}

} // namespace

int calcConfigUniqueId(char *out, int decimal) noexcept {
    ozu::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.valid()) {
        OZU_LOG_TEXT(OZULOG_WARNING, "Cannot create socket to get HW address");
        return 0;
    }
    std::uint8_t m[kAddress] = {};
    const bool found = firstHardwareAddress(socket.get(), m);
    socket.reset();
    if (!found) {
        OZU_LOG_TEXT(OZULOG_WARNING, "Cannot get valid HW address");
        return 0;
    }
    char text[kIdentity + 1] = {};
    if (decimal != 0) {
        // Eight digits: of a third byte of 100 or more, the last two.
        static_cast<void>(snprintf(text, sizeof text, "%02u%03u%03u", m[3] % 100U, m[4], m[5]));
        text[0] = text[0] == '0' ? '1' : text[0];
    } else {
        static_cast<void>(snprintf(text, sizeof text, "%02x%02x%02x%02x", m[2], m[3], m[4], m[5]));
    }
    std::memcpy(out, text, kIdentity);
    return 1;
}

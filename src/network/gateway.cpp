// The gateway of the route that leaves through an interface.

#include <utils_ozu/routes.h>

#include <base/bounded_reader.h>
#include <base/error_text.h>
#include <base/log.h>
#include <base/uninitialized.h>
#include <network/route_dump.h>
#include <network/socket.h>

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ozu {

namespace {

// Process ids above this one are not looked up.
constexpr unsigned int kHighestPid = 32768;
// The request carries 0, so this one never comes back and a reply is read to its end.
constexpr unsigned int kExpectedSequence = 1;
constexpr std::size_t kAlignment = 4;

struct RouteRequest {
    nlmsghdr header;
    rtmsg route;
};
static_assert(sizeof(RouteRequest) == 28);

struct Attribute {
    unsigned short type;
    std::span<const std::uint8_t> value;
};

// The next attribute; false when what is left is not a whole one.
bool nextAttribute(BoundedReader &reader, Attribute &attribute) noexcept {
    const auto header = reader.record<rtattr>();
    if (!reader.ok() || header.rta_len < sizeof header) {
        return false;
    }
    attribute.type = header.rta_type;
    attribute.value = reader.bytes(header.rta_len - sizeof header);
    if (!reader.ok()) {
        return false;
    }
    reader.skipPadding(kAlignment);
    return true;
}

// A 32-bit field; false when the attribute is too short to hold one.
bool fieldOf(const Attribute &attribute, std::uint32_t &field) noexcept {
    BoundedReader reader(attribute.value);
    const auto value = reader.record<std::uint32_t>();
    if (reader.ok()) {
        field = value;
    }
    return reader.ok();
}

// The next message, header included; false at the end or when what is left is not a whole one.
bool nextMessage(BoundedReader &reader, std::span<const std::uint8_t> &message) noexcept {
    BoundedReader ahead = reader;
    const auto header = ahead.record<nlmsghdr>();
    if (!ahead.ok() || header.nlmsg_len < sizeof header) {
        return false;
    }
    message = reader.bytes(header.nlmsg_len);
    if (!reader.ok()) {
        return false;
    }
    reader.skipPadding(kAlignment);
    return true;
}

bool sendDumpRequest(int sock, RouteDump &buffer, unsigned int pid) noexcept {
    buffer.fill(0);
    RouteRequest request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_pid = pid;
    memcpy(buffer.data(), &request, sizeof request);
    return send(sock, buffer.data(), sizeof request, 0) >= 0;
}

} // namespace

int readNlSock(int sock, RouteDump &buffer, unsigned int sequence, unsigned int pid) noexcept {
    if (pid > kHighestPid) {
        return 0;
    }
    std::size_t total = 0;
    for (;;) {
        const ssize_t received = recv(sock, buffer.data() + total, buffer.size() - total, 0);
        if (received < 0) {
            OZU_LOG(OZULOG_ERROR, "socket read:[%s]", ozu::errorText());
            return -1;
        }
        const auto length = static_cast<std::size_t>(received);
        BoundedReader reader(std::span<const std::uint8_t>{buffer}.subspan(total, length));
        const auto first = reader.record<nlmsghdr>();
        if (!reader.ok() || first.nlmsg_len < sizeof first || first.nlmsg_len > length ||
            first.nlmsg_type == NLMSG_ERROR) {
            OZU_LOG(OZULOG_ERROR, "Error in recieved packet:[%s]", ozu::errorText());
            return -1;
        }
        if (first.nlmsg_type == NLMSG_DONE) {
            return static_cast<int>(total);
        }
        total += length;
        const bool multiPart = (first.nlmsg_flags & NLM_F_MULTI) != 0;
        if (!multiPart || (first.nlmsg_seq == sequence && first.nlmsg_pid == pid)) {
            return static_cast<int>(total);
        }
    }
}

bool parseRouteMessage(std::span<const std::uint8_t> message, RouteRecord &record) noexcept {
    record = {};
    BoundedReader reader(message);
    reader.skip(sizeof(nlmsghdr));
    const auto route = reader.record<rtmsg>();
    if (!reader.ok() || route.rtm_family != AF_INET || route.rtm_table != RT_TABLE_MAIN) {
        return false;
    }
    bool hasGateway = false;
    bool hasInterface = false;
    for (Attribute attribute = {}; nextAttribute(reader, attribute);) {
        std::uint32_t index = 0;
        switch (attribute.type) {
        case RTA_DST:
            fieldOf(attribute, record.destination.s_addr);
            break;
        case RTA_PREFSRC:
            fieldOf(attribute, record.source.s_addr);
            break;
        case RTA_GATEWAY:
            hasGateway = fieldOf(attribute, record.gateway.s_addr) || hasGateway;
            break;
        case RTA_OIF:
            if (fieldOf(attribute, index)) {
                hasInterface = true;
                if_indextoname(index, record.interfaceName.data());
            }
            break;
        default:
            break;
        }
    }
    return hasGateway && hasInterface;
}

bool findGateway(std::span<const std::uint8_t> dump, const char *ifname, RouteRecord &record) noexcept {
    BoundedReader reader(dump);
    for (std::span<const std::uint8_t> message; nextMessage(reader, message);) {
        if (parseRouteMessage(message, record) && strstr(record.interfaceName.data(), ifname) != nullptr) {
            return true;
        }
    }
    return false;
}

} // namespace ozu

int retrieveDefGateway(int /*reserved*/, char *gateway, const char *ifname) noexcept {
    if (gateway == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "null argument");
        return -1;
    }
    const ozu::UniqueFd fd = ozu::openSocket(AF_NETLINK, SOCK_DGRAM, NETLINK_ROUTE);
    if (!fd.valid()) {
        OZU_LOG(OZULOG_ERROR, "Error in socket Creation:[%s]", ozu::errorText());
        return -1;
    }
    OZU_UNINITIALIZED ozu::RouteDump buffer;
    const auto pid = static_cast<unsigned int>(getpid());
    if (!ozu::sendDumpRequest(fd.get(), buffer, pid)) {
        OZU_LOG(OZULOG_ERROR, "send failed[%s]", ozu::errorText());
        return -1;
    }
    const int length = ozu::readNlSock(fd.get(), buffer, ozu::kExpectedSequence, pid);
    if (length < 0) {
        OZU_LOG(OZULOG_ERROR, "readNlSock failed[%s]", ozu::errorText());
        return -1;
    }
    ozu::RouteRecord route = {};
    if (ifname == nullptr ||
        !ozu::findGateway(std::span(buffer).first(static_cast<std::size_t>(length)), ifname, route)) {
        return -1;
    }
    const char *text = inet_ntoa(route.gateway);
    memcpy(gateway, text, strlen(text) + 1);
    return 0;
}

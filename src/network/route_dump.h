// The kernel's routes as a netlink dump shows them.
#pragma once

#include <net/if.h>
#include <netinet/in.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ozu {

inline constexpr std::size_t kRouteDumpSize = 8192;
using RouteDump = std::array<std::uint8_t, kRouteDumpSize>;

// What one route message tells.
struct RouteRecord {
    in_addr destination;
    in_addr source;
    in_addr gateway;
    std::array<char, IF_NAMESIZE> interfaceName;
};

// Collects a multi-part reply in the buffer: the number of bytes, or -1 after a failure, which is logged.
int readNlSock(int sock, RouteDump &buffer, unsigned int sequence, unsigned int pid) noexcept;

// Reads one route message, header included; true when it is a usable route: IPv4, of the main table, with a
// gateway and an output interface.
bool parseRouteMessage(std::span<const std::uint8_t> message, RouteRecord &record) noexcept;

// The first usable route of the dump whose interface name contains this text.
bool findGateway(std::span<const std::uint8_t> dump, const char *ifname, RouteRecord &record) noexcept;

} // namespace ozu

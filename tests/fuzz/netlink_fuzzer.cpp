// The walk over the kernel's routes, alone and behind a request.
//
// The input is a row of datagrams, each after its length (16 bits, big-endian). The first one is also walked
// where it lies, with nothing behind it.

#include <base/bounded_reader.h>
#include <network/route_dump.h>
#include <utils_ozu/routes.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

std::vector<std::vector<std::uint8_t>> datagrams;
std::size_t nextDatagram;

// Ends the run: the walk broke one of its promises.
void require(bool holds) {
    if (!holds) {
        abort();
    }
}

void splitInput(std::span<const std::uint8_t> input) {
    datagrams.clear();
    nextDatagram = 0;
    ozu::BoundedReader reader(input);
    while (reader.remaining() > 2) {
        const std::size_t announced = reader.u16be();
        const auto bytes = reader.bytes(std::min(announced, reader.remaining()));
        datagrams.emplace_back(bytes.begin(), bytes.end());
    }
}

void walkAlone(const char *interface) {
    if (datagrams.empty()) {
        return;
    }
    const std::vector<std::uint8_t> exact(datagrams[0]);
    ozu::RouteRecord record = {};
    if (ozu::findGateway(exact, interface, record)) {
        require(strstr(record.interfaceName.data(), interface) != nullptr);
    }
    ozu::parseRouteMessage(exact, record);
}

void walkBehindARequest(const char *interface) {
    std::array<char, 18> gateway;
    gateway.fill('#');
    const int result = retrieveDefGateway(0, gateway.data() + 1, interface);
    require(result == 0 || result == -1);
    require(gateway[0] == '#' && gateway[17] == '#');
    require((gateway[1] == '#') == (result == -1));
}

} // namespace

extern "C" {

ssize_t __wrap_send(int fd, const void *message, std::size_t length, int flags);
ssize_t __wrap_recv(int fd, void *buffer, std::size_t size, int flags);
char *__wrap_if_indextoname(unsigned int index, char *name);
int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

ssize_t __wrap_send(int, const void *, std::size_t length, int) {
    return static_cast<ssize_t>(length);
}

ssize_t __wrap_recv(int, void *buffer, std::size_t size, int) {
    if (nextDatagram == datagrams.size()) {
        errno = ENOBUFS;
        return -1;
    }
    const auto &datagram = datagrams[nextDatagram++];
    const std::size_t length = std::min(size, datagram.size());
    if (length != 0) {
        memcpy(buffer, datagram.data(), length);
    }
    return static_cast<ssize_t>(length);
}

char *__wrap_if_indextoname(unsigned int index, char *name) {
    constexpr std::array<const char *, 4> kNames = {"lo", "eth0", "wlan0", "fifteen_letters"};
    if (index >= kNames.size()) {
        errno = ENXIO;
        return nullptr;
    }
    return strcpy(name, kNames[index]);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    for (const char *interface : {"eth", ""}) {
        splitInput({data, size});
        walkAlone(interface);
        walkBehindARequest(interface);
    }
    return 0;
}

} // extern "C"

// The reader of DNS replies, alone and behind a query.
//
// The input is the reply. The first rounds read it where it lies, with nothing behind it; then a query is
// answered with it.

#include <network/dns_message.h>
#include <utils_ozu/raw_dns.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

std::span<const std::uint8_t> reply;

// Ends the run: the reader broke one of its promises.
void require(bool holds) {
    if (!holds) {
        abort();
    }
}

bool isTerminated(const ozu::dns::NameText &name) {
    return memchr(name.data(), '\0', name.size()) != nullptr;
}

void checkSection(const ozu::dns::Section &section, std::size_t announced, bool holdsAddresses) {
    require(section.count == std::min(announced, ozu::dns::kRecordsKept));
    for (const auto &record : section.kept()) {
        require((holdsAddresses && record.type == ozu::dns::kTypeA) || isTerminated(record.name));
    }
}

void readAlone() {
    ozu::dns::Header header = {};
    if (!ozu::dns::readHeader(reply, header)) {
        require(reply.size() < ozu::dns::kHeaderSize);
        return;
    }
    ozu::dns::NameText lastName = {};
    const auto records = std::make_unique<ozu::dns::Reply>();
    if (ozu::dns::readRecords(reply, header, *records, lastName)) {
        checkSection(records->answers, header.answers, true);
        checkSection(records->authorities, header.authorities, false);
        checkSection(records->additionals, header.additionals, true);
    }
    require(isTerminated(lastName));
}

void readBehindAQuery(std::size_t outputSize) {
    std::array<char, 18> output;
    output.fill('#');
    NgetHostByName("panel.example", 1, "127.0.0.1", 9, output.data() + 1, outputSize);
    require(output[0] == '#');
    require(std::all_of(output.begin() + 1 + static_cast<std::ptrdiff_t>(outputSize), output.end(),
                        [](char c) { return c == '#'; }));
}

} // namespace

extern "C" {

ssize_t __wrap_sendto(int fd, const void *message, std::size_t length, int flags, const sockaddr *to,
                      socklen_t toLength);
ssize_t __wrap_recvfrom(int fd, void *buffer, std::size_t size, int flags, sockaddr *from,
                        socklen_t *fromLength);
int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

ssize_t __wrap_sendto(int, const void *, std::size_t length, int, const sockaddr *, socklen_t) {
    return static_cast<ssize_t>(length);
}

ssize_t __wrap_recvfrom(int, void *buffer, std::size_t size, int, sockaddr *, socklen_t *) {
    const std::size_t length = std::min(size, reply.size());
    if (length != 0) {
        memcpy(buffer, reply.data(), length);
    }
    return static_cast<ssize_t>(length);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    reply = {data, size};
    readAlone();
    readBehindAQuery(16);
    readBehindAQuery(size % 16);
    return 0;
}

} // extern "C"

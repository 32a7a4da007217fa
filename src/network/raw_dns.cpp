// Name resolution through a given server: one query, one reply.

#include <utils_ozu/raw_dns.h>

#include <base/error_text.h>
#include <base/log.h>
#include <base/uninitialized.h>
#include <network/dns_message.h>
#include <network/socket.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace {

using ozu::dns::Header;
using ozu::dns::NameText;
using ozu::dns::Reply;
using ozu::dns::Section;

constexpr std::size_t kMessageSize = 65536;
constexpr std::size_t kHostSize = 100;
constexpr std::uint16_t kDnsPort = 53;
constexpr timeval kReceiveTimeout = {20, 0};
constexpr std::size_t kAddressText = INET_ADDRSTRLEN;

using Message = std::array<std::uint8_t, kMessageSize>;
using HostText = std::array<char, kHostSize>;

// The name that was decoded last; the log shows it as the name of every record.
NameText lastName;

// A copy of the host name that ends in "."; the name leaves room for that. Returns what was copied.
std::string_view copyWithDot(HostText &work, std::string_view host) noexcept {
    std::size_t length = host.size();
    memcpy(work.data(), host.data(), length);
    if (host.empty() || host.back() != '.') {
        work[length++] = '.';
    }
    work[length] = '\0';
    return {work.data(), length};
}

sockaddr_in serverAddress(const char *dnsServer) noexcept {
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_port = htons(kDnsPort);
    server.sin_addr.s_addr = inet_addr(dnsServer);
    return server;
}

const sockaddr *socketAddress(const sockaddr_in *address) noexcept {
    return reinterpret_cast<const sockaddr *>(address);
}

// Sends the query and receives one reply into the same buffer: its length, or -1 after a failure, which is
// logged under the caller's name. The socket stays unconnected: whoever answers is heard, and a refusal by
// the server's machine does not cut the wait short.
ssize_t exchange(const char *caller, const char *dnsServer, Message &message, std::size_t length) noexcept {
    const ozu::UniqueFd fd = ozu::openSocket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (!fd.valid()) {
        OZU_LOG_AS(caller, OZULOG_ERROR, "sendto failed [%s]", ozu::errorText());
        return -1;
    }
    const sockaddr_in server = serverAddress(dnsServer);
    if (sendto(fd.get(), message.data(), length, 0, socketAddress(&server), sizeof server) < 0) {
        OZU_LOG_AS(caller, OZULOG_ERROR, "sendto failed [%s]", ozu::errorText());
        return -1;
    }
    if (setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &kReceiveTimeout, sizeof kReceiveTimeout) < 0) {
        OZU_LOG_AS(caller, OZULOG_ERROR, "setsockopt failed [%s]", ozu::errorText());
        return -1;
    }
    const ssize_t received = recvfrom(fd.get(), message.data(), message.size(), 0, nullptr, nullptr);
    if (received < 0) {
        OZU_LOG_AS(caller, OZULOG_ERROR, "recvfrom failed [%s]", ozu::errorText());
    }
    return received;
}

void logCounts(const char *caller, const Header &header) noexcept {
    OZU_LOG_TEXT_AS(caller, OZULOG_DEBUG, "The response contains: ");
    OZU_LOG_AS(caller, OZULOG_DEBUG, "[%d] Questions.", header.questions);
    OZU_LOG_AS(caller, OZULOG_DEBUG, "[%d] Answers.", header.answers);
    OZU_LOG_AS(caller, OZULOG_DEBUG, "[%d] Authoritative Servers.", header.authorities);
    OZU_LOG_AS(caller, OZULOG_DEBUG, "[%d] Additional records.\n\n", header.additionals);
}

// Every address goes into ipOut, so the last one stays there.
void takeAnswers(const char *caller, const Header &header, const Section &answers, char *ipOut,
                 std::size_t ipOutSize) noexcept {
    OZU_LOG_AS(caller, OZULOG_DEBUG, "answer Records: [%d]", header.answers);
    for (const auto &record : answers.kept()) {
        OZU_LOG_AS(caller, OZULOG_DEBUG, "name: [%s] ", lastName.data());
        if (record.type == ozu::dns::kTypeA) {
            const char *address = inet_ntoa(record.address);
            strncpy(ipOut, address, ipOutSize);
            // A small buffer holds no terminator; the line shows what fitted.
            std::array<char, kAddressText> shown = {};
            strncpy(shown.data(), address, std::min(ipOutSize, shown.size() - 1));
            OZU_LOG_AS(caller, OZULOG_DEBUG, "found ipv4 address:[%s] [%s]", address, shown.data());
        } else if (record.type == ozu::dns::kTypeCname) {
            OZU_LOG_AS(caller, OZULOG_DEBUG, "alias name:[%.400s]", record.name.data());
        }
    }
}

void logAuthorities(const char *caller, const Header &header, const Section &authorities) noexcept {
    OZU_LOG_AS(caller, OZULOG_DEBUG, "authorities records:[%d]", header.authorities);
    for (const auto &record : authorities.kept()) {
        OZU_LOG_AS(caller, OZULOG_DEBUG, "Name : %s ", lastName.data());
        if (record.type == ozu::dns::kTypeNs) {
            OZU_LOG_AS(caller, OZULOG_DEBUG, "has nameserver : %.400s", record.name.data());
        }
    }
}

void logAdditionals(const char *caller, const Header &header, const Section &additionals) noexcept {
    OZU_LOG_AS(caller, OZULOG_DEBUG, "additional Records: [%d]", header.additionals);
    for (const auto &record : additionals.kept()) {
        OZU_LOG_AS(caller, OZULOG_DEBUG, "Name : %s ", lastName.data());
        if (record.type == ozu::dns::kTypeA) {
            OZU_LOG_AS(caller, OZULOG_DEBUG, "has IPv4 address : %s", inet_ntoa(record.address));
        }
    }
}

// Reads a reply as a whole before anything of it counts.
void takeReply(const char *caller, std::span<const std::uint8_t> message, char *ipOut,
               std::size_t ipOutSize) noexcept {
    Header header = {};
    if (!ozu::dns::readHeader(message, header)) {
        OZU_LOG_TEXT_AS(caller, OZULOG_ERROR, "malformed reply");
        return;
    }
    logCounts(caller, header);
    OZU_UNINITIALIZED Reply reply;
    if (!ozu::dns::readRecords(message, header, reply, lastName)) {
        OZU_LOG_TEXT_AS(caller, OZULOG_ERROR, "malformed reply");
        return;
    }
    takeAnswers(caller, header, reply.answers, ipOut, ipOutSize);
    logAuthorities(caller, header, reply.authorities);
    logAdditionals(caller, header, reply.additionals);
}

// Every address of the system resolver goes into ipOut, so the last one stays there.
void copyAddresses(const hostent &found, char *ipOut, std::size_t ipOutSize) noexcept {
    for (char **entry = found.h_addr_list; *entry != nullptr; ++entry) {
        in_addr address = {};
        memcpy(&address, *entry, sizeof address);
        strncpy(ipOut, inet_ntoa(address), ipOutSize);
        ipOut[ipOutSize - 1] = '\0';
    }
}

} // namespace

void NgetHostByName(const char *host, int queryType, const char *dnsServer, size_t dnsServerLen, char *ipOut,
                    size_t ipOutSize) noexcept {
    if (host == nullptr || dnsServer == nullptr || dnsServerLen == 0 || ipOut == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "bad arguments");
        return;
    }
    const std::string_view hostText = host;
    if (hostText.size() + 2 > kHostSize) {
        OZU_LOG_TEXT(OZULOG_ERROR, "invalid hostname");
        return;
    }
    OZU_UNINITIALIZED HostText work;
    const std::string_view name = copyWithDot(work, hostText);
    // Neither the 64 KiB nor the tables of the reply are worth clearing for a few dozen bytes.
    OZU_UNINITIALIZED Message message;
    const std::size_t length = ozu::dns::writeQuery(message, static_cast<std::uint16_t>(getpid()), name,
                                                    static_cast<std::uint16_t>(queryType));
    OZU_LOG(OZULOG_DEBUG, "resolving [%s] using name server[%s]", work.data(), dnsServer);
    const ssize_t received = exchange(__func__, dnsServer, message, length);
    if (received >= 0) {
        takeReply(__func__, std::span(message).first(static_cast<std::size_t>(received)), ipOut, ipOutSize);
    }
}

int nslookup_ozu(const char *host, const char *dns1, const char *dns2, char *ipOut,
                 size_t ipOutSize) noexcept {
    if (host == nullptr || dns1 == nullptr || dns2 == nullptr || ipOut == nullptr || ipOutSize == 0) {
        OZU_LOG_TEXT(OZULOG_ERROR, "bad arguments");
        return -1;
    }
    if (dns1[0] != '\0') {
        NgetHostByName(host, ozu::dns::kTypeA, dns1, strlen(dns1), ipOut, ipOutSize);
    }
    if (dns2[0] != '\0' && ipOut[0] == '\0') {
        NgetHostByName(host, ozu::dns::kTypeA, dns2, strlen(dns2), ipOut, ipOutSize);
    }
    if (ipOut[0] == '\0') {
        const hostent *found = gethostbyname(host);
        if (found == nullptr) {
            OZU_LOG_TEXT(OZULOG_ERROR, "gethostbyname");
            return -1;
        }
        copyAddresses(*found, ipOut, ipOutSize);
    }
    return ipOut[0] != '\0' ? 0 : -1;
}

#include <utils_ozu/partitions.h>

#include "fake_platform.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <climits>
#include <cstring>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *kHeader = "inc_ozu/security_ozu";

// The resolver that the tests see.
struct Resolver {
    sockaddr_in peer = {};
    int peerResult = 0;
    int socket = -1;
    socklen_t peerLength = 0;
    std::string askedAddress;
    int askedFamily = -1;
    hostent *answer = nullptr;
} resolver;

class EventLines : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        resolver = Resolver();
        resolver.peer.sin_family = AF_INET;
        resolver.peer.sin_port = htons(80);
        resolver.peer.sin_addr.s_addr = htonl(0xC0000207);
    }
};

} // namespace

extern "C" int __wrap_getpeername(int socket, sockaddr *address, socklen_t *length) {
    platform().journal.emplace_back("getpeername()");
    resolver.socket = socket;
    resolver.peerLength = *length;
    if (resolver.peerResult == 0) {
        memcpy(address, &resolver.peer, sizeof resolver.peer);
    }
    return resolver.peerResult;
}

extern "C" hostent *__wrap_gethostbyaddr(const void *address, socklen_t length, int family) {
    platform().journal.emplace_back("gethostbyaddr()");
    resolver.askedAddress.assign(static_cast<const char *>(address), length);
    resolver.askedFamily = family;
    static_cast<void>(inet_ntoa(in_addr{0})); // what the resolver may do
    return resolver.answer;
}

namespace {

// Which call a command's line goes to.
std::string commandCall(unsigned int command, const std::string &line) {
    if (command <= 2) {
        return "limited_log_system_event(11, 1, \"" + line + "\")";
    }
    if (command == 4 || command == 5) {
        return "limited_log_system_event(12, 1, \"" + line + "\")";
    }
    return "LOG_system_event(1, \"" + line + "\")";
}

TEST_F(EventLines, everyCommandInEveryPartition) {
    for (unsigned int command = 0; command <= 19; ++command) {
        for (unsigned int partition = 0; partition <= 9; ++partition) {
            platform().journal.clear();
            platform().results["LOG_system_event"] = 31;
            platform().results["limited_log_system_event"] = 32;
            const std::string line = std::string("Command:=") + stringFromSec_cmd(command) +
                                     ", Partition:=" + stringFromSec_partition(partition) +
                                     ", Media:=keypad 3";
            const bool limited = command <= 5 && command != 3;
            EXPECT_EQ(writeSecurityCmdToSystemLog(command, partition, "keypad 3"), limited ? 32 : 31);
            EXPECT_THAT(platform().journal, ElementsAre(commandCall(command, line)));
        }
    }
}

TEST_F(EventLines, everyEventInEveryPartition) {
    for (unsigned int command = 0; command <= 19; ++command) {
        for (unsigned int partition = 0; partition <= 9; ++partition) {
            platform().journal.clear();
            platform().results["LOG_system_event"] = -31;
            platform().results["limited_log_system_event"] = -32;
            const std::string line = std::string("SECURITY EVENT: Type [ ") + stringFromSec_cmd(command) +
                                     " ] Partition [ " + stringFromSec_partition(partition) +
                                     " ] Media [ app ]";
            const bool limited = command == 12 && partition == 7;
            EXPECT_EQ(writeSecurityEventToSystemLog(command, partition, "app"), limited ? -32 : -31);
            EXPECT_THAT(platform().journal, ElementsAre((limited ? "limited_log_system_event(8, 6, \""
                                                                 : "LOG_system_event(1, \"") +
                                                        line + "\")"));
        }
    }
}

TEST_F(EventLines, badNumbersAreWrittenAsSuch) {
    writeSecurityCmdToSystemLog(20, 10, "m");
    EXPECT_THAT(platform().journal,
                ElementsAre("log 80000 20 is not a valid sec_cmd",
                            "log 80000 10 is not a valid sec_partition",
                            "LOG_system_event(1, \"Command:=ERR ENUM, Partition:=ERR ENUM, Media:=m\")"));
    EXPECT_THAT(
        platform().log,
        ElementsAre(extended(80000, "20 is not a valid sec_cmd", "stringFromSec_cmd", kHeader),
                    extended(80000, "10 is not a valid sec_partition", "stringFromSec_partition", kHeader)));
    platform().journal.clear();
    writeSecurityEventToSystemLog(UINT_MAX, 256, "m");
    EXPECT_THAT(platform().journal,
                ElementsAre("log 80000 -1 is not a valid sec_cmd",
                            "log 80000 256 is not a valid sec_partition",
                            "LOG_system_event(1, \"SECURITY EVENT: Type [ ERR ENUM ] Partition [ ERR ENUM ] "
                            "Media [ m ]\")"));
    platform().journal.clear();
    writeSecurityEventToSystemLog(12, 7 + 256, "m"); // not the panic partition
    EXPECT_EQ(platform().callCount("LOG_system_event"), 1);
    platform().journal.clear();
    writeSecurityCmdToSystemLog(256, 0, "m"); // not command 0
    EXPECT_EQ(platform().callCount("LOG_system_event"), 1);
}

TEST_F(EventLines, linesAreCutTo199Characters) {
    const std::string head = "Command:=SEC_TAMPER_EVENT, Partition:=PARTITION_FDN, Media:=";
    const std::string eventHead =
        "SECURITY EVENT: Type [ SEC_TAMPER_EVENT ] Partition [ PARTITION_FDN ] Media [ ";
    for (std::size_t length = 0; length <= 1024; length += length < 100 || length > 200 ? 31 : 1) {
        const std::string media(length, 'm');
        platform().journal.clear();
        writeSecurityCmdToSystemLog(9, 8, media.c_str());
        writeSecurityEventToSystemLog(9, 8, media.c_str());
        EXPECT_THAT(
            platform().journal,
            ElementsAre("LOG_system_event(1, \"" + (head + media).substr(0, 199) + "\")",
                        "LOG_system_event(1, \"" + (eventHead + media + " ]").substr(0, 199) + "\")"));
    }
}

TEST_F(EventLines, mediaIsNoFormat) {
    writeSecurityCmdToSystemLog(5, 0, "%s%n");
    EXPECT_THAT(platform().journal, ElementsAre("limited_log_system_event(12, 1, \"Command:=SEC_CMD_DISARM, "
                                                "Partition:=PARTITION_FULL, Media:=%s%n\")"));
}

// Sockets.

TEST_F(EventLines, socketWithoutName) {
    platform().results["LOG_system_event"] = 9;
    EXPECT_EQ(ozuutils_sysLogSocketPrinter(77, 1), 0);
    EXPECT_THAT(platform().journal,
                ElementsAre("getpeername()", "gethostbyaddr()",
                            "LOG_system_event(14, \"SOCKET OPEN: Server [ 192.0.2.7 ] Port [ " +
                                std::to_string(htons(80)) + " ] Name [ NONAME ]\")"));
    EXPECT_EQ(resolver.socket, 77);
    EXPECT_EQ(resolver.peerLength, 16u);
    EXPECT_EQ(resolver.askedFamily, AF_INET);
    EXPECT_EQ(resolver.askedAddress,
              std::string(reinterpret_cast<const char *>(&resolver.peer), sizeof resolver.peer));
    EXPECT_EQ(resolver.askedAddress.size(), 16u);
}

TEST_F(EventLines, portStaysInNetworkByteOrder) {
    for (const int port : {0, 1, 80, 255, 256, 443, 20480, 65535}) {
        resolver.peer.sin_port = htons(static_cast<std::uint16_t>(port));
        platform().journal.clear();
        ozuutils_sysLogSocketPrinter(3, 1);
        EXPECT_THAT(platform().calls().back(),
                    testing::HasSubstr(" Port [ " + std::to_string((port & 255) * 256 + port / 256) + " ] "));
    }
}

TEST_F(EventLines, socketWithName) {
    char name[300];
    hostent host = {};
    host.h_name = name;
    resolver.answer = &host;
    for (const std::size_t length : {0u, 1u, 100u, 131u, 132u, 133u, 255u}) {
        const std::string text(length, 'n');
        strcpy(name, text.c_str());
        for (const int opened : {0, 1, -1, 256}) {
            platform().journal.clear();
            EXPECT_EQ(ozuutils_sysLogSocketPrinter(3, opened), 0);
            const std::string line = std::string("SOCKET ") + (opened != 0 ? "OPEN" : "CLOSE") +
                                     ": Server [ 192.0.2.7 ] Port [ 20480 ] Name [ " + text + " ]";
            EXPECT_EQ(platform().calls().back(), "LOG_system_event(14, \"" + line.substr(0, 199) + "\")");
        }
    }
}

TEST_F(EventLines, socketWithoutPeer) {
    resolver.peerResult = -1;
    EXPECT_EQ(ozuutils_sysLogSocketPrinter(-1, 0), 0);
    EXPECT_EQ(platform().calls().back(),
              "LOG_system_event(14, \"SOCKET CLOSE: Server [ 0.0.0.0 ] Port [ 0 ] Name [ NONAME ]\")");
}

// HTTP requests.

TEST_F(EventLines, httpResults) {
    const std::pair<int, std::string> table[] = {{INT_MIN, "CURL (-2147483648)"},
                                                 {-1, "CURL (-1)"},
                                                 {0, "CURL (0)"},
                                                 {99, "CURL (99)"},
                                                 {100, "HTTP Status Code (100)"},
                                                 {200, "HTTP Status Code (200)"},
                                                 {INT_MAX, "HTTP Status Code (2147483647)"}};
    for (const auto &[result, text] : table) {
        platform().journal.clear();
        platform().results["LOG_system_event"] = 5;
        EXPECT_EQ(ozuutils_sysLogHTTPSPrinter("GET", "host.example", "eth0", result), 5);
        EXPECT_THAT(
            platform().journal,
            ElementsAre("LOG_system_event(14, \"HTTP: Action [ GET ] Server [ host.example ] Iface [ eth0 ] "
                        "Result [ " +
                        text + " ]\")"));
    }
}

TEST_F(EventLines, emptyInterfaceIsAutomatic) {
    ozuutils_sysLogHTTPSPrinter("PUT", "s", "", 7);
    EXPECT_THAT(
        platform().journal,
        ElementsAre("LOG_system_event(14, \"HTTP: Action [ PUT ] Server [ s ] Iface [ <auto> ] Result [ CURL "
                    "(7) ]\")"));
}

TEST_F(EventLines, httpLinesAreCutTo229Characters) {
    for (std::size_t length = 140; length <= 1024; length += length > 200 ? 91 : 1) {
        const std::string server(length, 's');
        platform().journal.clear();
        ozuutils_sysLogHTTPSPrinter("A", server.c_str(), "i", 404);
        const std::string line =
            "HTTP: Action [ A ] Server [ " + server + " ] Iface [ i ] Result [ HTTP Status Code (404) ]";
        EXPECT_THAT(platform().journal, ElementsAre("LOG_system_event(14, \"" + line.substr(0, 229) + "\")"));
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

} // namespace

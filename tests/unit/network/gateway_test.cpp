#include <network/route_dump.h>
#include <utils_ozu/routes.h>

#include "injected_socket.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <deque>

using ozu::test::extended;
using ozu::test::injected;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<std::uint8_t>;

std::deque<Bytes> datagrams;      // what recv() hands out
std::vector<std::size_t> offered; // sizes of the buffers that recv() was given
Bytes sent;
// Machines give out process IDs beyond the highest that is looked up.
constexpr pid_t kProcess = 4711;
pid_t pretendedPid = kProcess;

template <typename Record>
void append(Bytes &bytes, const Record &record) {
    const auto *first = reinterpret_cast<const std::uint8_t *>(&record);
    bytes.insert(bytes.end(), first, first + sizeof record);
}

Bytes attribute(unsigned short type, const Bytes &value) {
    Bytes bytes;
    append(bytes, rtattr{static_cast<unsigned short>(sizeof(rtattr) + value.size()), type});
    bytes.insert(bytes.end(), value.begin(), value.end());
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

Bytes address(const char *text) {
    Bytes bytes;
    append(bytes, inet_addr(text));
    return bytes;
}

Bytes gatewayIs(const char *text) {
    return attribute(RTA_GATEWAY, address(text));
}

Bytes leavesThrough(std::uint32_t index) {
    Bytes bytes;
    append(bytes, index);
    return attribute(RTA_OIF, bytes);
}

struct Route {
    std::vector<Bytes> attributes;
    unsigned char family = AF_INET;
    unsigned char table = RT_TABLE_MAIN;
    unsigned short flags = NLM_F_MULTI;
    unsigned int sequence = 0;
    unsigned short type = RTM_NEWROUTE;
};

Bytes message(const Route &route) {
    rtmsg body{};
    body.rtm_family = route.family;
    body.rtm_table = route.table;
    Bytes bytes(sizeof(nlmsghdr));
    append(bytes, body);
    for (const Bytes &entry : route.attributes) {
        bytes.insert(bytes.end(), entry.begin(), entry.end());
    }
    const nlmsghdr header{static_cast<std::uint32_t>(bytes.size()), route.type, route.flags, route.sequence,
                          static_cast<std::uint32_t>(getpid())};
    memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

Bytes bare(unsigned short type, unsigned short flags = NLM_F_MULTI) {
    Bytes bytes;
    append(bytes, nlmsghdr{20, type, flags, 0, static_cast<std::uint32_t>(getpid())});
    bytes.resize(20);
    return bytes;
}

Bytes done() {
    return bare(NLMSG_DONE);
}

Bytes joined(const std::vector<Bytes> &parts) {
    Bytes all;
    for (const Bytes &part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

class Gateway : public ozu::test::InjectedTest {
  protected:
    void SetUp() override {
        InjectedTest::SetUp();
        datagrams.clear();
        offered.clear();
        sent.clear();
        pretendedPid = kProcess;
        gateway.fill('#');
    }
    int look(const char *interface = "eth0") { return retrieveDefGateway(0, gateway.data(), interface); }
    [[nodiscard]] bool untouched() const { return gateway == std::array<char, 17>(filled()); }

    std::array<char, 17> gateway{};

  private:
    static std::array<char, 17> filled() {
        std::array<char, 17> all{};
        all.fill('#');
        return all;
    }
};

} // namespace

extern "C" {

pid_t __wrap_getpid() {
    return pretendedPid;
}

ssize_t __wrap_send(int, const void *data, std::size_t length, int flags) {
    const auto *first = static_cast<const std::uint8_t *>(data);
    sent.assign(first, first + length);
    return injected().enter("send", "send(" + std::to_string(length) + ", " + std::to_string(flags) + ")")
               ? -1
               : static_cast<ssize_t>(length);
}

ssize_t __wrap_recv(int, void *buffer, std::size_t size, int) {
    offered.push_back(size);
    if (injected().enter("recv", "recv()")) {
        return -1;
    }
    if (datagrams.empty()) {
        ADD_FAILURE() << "reads on where it would block";
        errno = EAGAIN;
        return -1;
    }
    const Bytes datagram = datagrams.front();
    datagrams.pop_front();
    const std::size_t length = std::min(size, datagram.size());
    if (length != 0) {
        memcpy(buffer, datagram.data(), length);
    }
    return static_cast<ssize_t>(length);
}

char *__wrap_if_indextoname(unsigned int index, char *name) {
    if (index == 0 || index > 3) {
        errno = ENXIO;
        return nullptr;
    }
    return strcpy(name, std::array<const char *, 3>{"eth0", "eth1", "wlan0"}[index - 1]);
}

} // extern "C"

TEST_F(Gateway, asksForADumpOfAllRoutes) {
    datagrams = {done()};
    EXPECT_EQ(look(), -1);
    Bytes expected;
    append(expected, nlmsghdr{28, RTM_GETROUTE, 0x301, 0, static_cast<std::uint32_t>(getpid())});
    append(expected, rtmsg{});
    EXPECT_EQ(sent, expected);
    EXPECT_THAT(platform().journal, ElementsAre("socket(16, 2, 0)", "send(28, 0)", "recv()"));
    EXPECT_THAT(offered, ElementsAre(8192));
    EXPECT_TRUE(untouched());
}

TEST_F(Gateway, isFound) {
    datagrams = {message({{gatewayIs("192.168.7.1"), leavesThrough(1)}}), done()};
    EXPECT_EQ(look(), 0);
    EXPECT_STREQ(gateway.data(), "192.168.7.1");
    EXPECT_EQ(gateway[12], '#');
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Gateway, partOfTheInterfaceNameIsEnoughAndTheFirstWins) {
    const Bytes first = message({{gatewayIs("10.0.0.1"), leavesThrough(2)}});
    const Bytes second = message({{gatewayIs("10.0.0.2"), leavesThrough(1)}});
    for (const auto &[text, expected] : std::vector<std::pair<const char *, const char *>>{
             {"eth", "10.0.0.1"}, {"eth0", "10.0.0.2"}, {"th1", "10.0.0.1"}, {"", "10.0.0.1"}}) {
        datagrams = {joined({first, second}), done()};
        EXPECT_EQ(look(text), 0);
        EXPECT_STREQ(gateway.data(), expected);
    }
    datagrams = {joined({first, second}), done()};
    gateway.fill('#');
    EXPECT_EQ(look("eth0:1"), -1);
    datagrams = {joined({first, second}), done()};
    EXPECT_EQ(look(nullptr), -1);
    EXPECT_TRUE(untouched());
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Gateway, unusableRoutesArePassedOver) {
    const Bytes gw = gatewayIs("10.9.9.9");
    datagrams = {joined({
                     message({{gw, leavesThrough(1)}, AF_INET6}),
                     message({{gw, leavesThrough(1)}, AF_INET, RT_TABLE_LOCAL}),
                     message({{gw, leavesThrough(1)}, AF_INET, 100}),
                     message({{gw}}),
                     message({{leavesThrough(1)}}),
                     message({{attribute(RTA_DST, address("10.0.0.0")), leavesThrough(1)}}),
                     message({{gw, leavesThrough(9)}}), // an interface that is gone
                     message({{attribute(RTA_GATEWAY, {10, 0}), leavesThrough(1)}}),
                     message({{gw, attribute(RTA_OIF, {1, 0})}}),
                     message({{gatewayIs("10.0.0.1"), leavesThrough(1)}}),
                 }),
                 done()};
    EXPECT_EQ(look(), 0);
    EXPECT_STREQ(gateway.data(), "10.0.0.1");
}

TEST_F(Gateway, recordHoldsAllFourFields) {
    ozu::RouteRecord record{};
    memset(&record, 0x5A, sizeof record);
    const Bytes bytes =
        message({{attribute(RTA_DST, address("10.2.0.0")), attribute(RTA_PREFSRC, address("10.1.1.9")),
                  gatewayIs("10.1.1.1"), attribute(RTA_PRIORITY, address("0.0.0.7")), leavesThrough(3)}});
    ASSERT_TRUE(ozu::parseRouteMessage(bytes, record));
    EXPECT_EQ(record.destination.s_addr, inet_addr("10.2.0.0"));
    EXPECT_EQ(record.source.s_addr, inet_addr("10.1.1.9"));
    EXPECT_EQ(record.gateway.s_addr, inet_addr("10.1.1.1"));
    EXPECT_STREQ(record.interfaceName.data(), "wlan0");
    EXPECT_FALSE(ozu::parseRouteMessage(message({{leavesThrough(3)}}), record));
    EXPECT_EQ(record.gateway.s_addr, 0u) << "cleared for each message";
}

TEST_F(Gateway, interfaceMayFollowBeforeTheGateway) {
    datagrams = {message({{leavesThrough(1), gatewayIs("10.0.0.1")}}), done()};
    EXPECT_EQ(look(), 0);
}

TEST_F(Gateway, collectsSeveralDatagrams) {
    const Bytes other = message({{attribute(RTA_DST, address("10.0.0.0")), leavesThrough(1)}});
    datagrams = {other, other, message({{gatewayIs("10.0.0.1"), leavesThrough(1)}}), done()};
    EXPECT_EQ(look(), 0);
    EXPECT_THAT(offered,
                ElementsAre(8192, 8192 - other.size(), 8192 - 2 * other.size(), 8192 - 3 * other.size()));
    EXPECT_STREQ(gateway.data(), "10.0.0.1");
}

TEST_F(Gateway, messageOfASinglePartEndsTheReply) {
    Route route{{gatewayIs("10.0.0.1"), leavesThrough(1)}};
    route.flags = 0;
    datagrams = {message(route), message(route)};
    EXPECT_EQ(look(), 0);
    EXPECT_EQ(datagrams.size(), 1u);
}

TEST_F(Gateway, dumpBeyondTheBufferFails) {
    const Bytes filler = message({{Bytes(8192 - 28 - 4)}});
    datagrams = {joined({message({{gatewayIs("10.0.0.1"), leavesThrough(1)}}), Bytes(filler)}), filler,
                 done()};
    EXPECT_EQ(look(), -1);
    EXPECT_THAT(offered, ElementsAre(8192, 0));
    ASSERT_EQ(platform().log.size(), 2u);
    EXPECT_THAT(platform().log[0].text, testing::StartsWith("Error in recieved packet:["));
    EXPECT_EQ(platform().log[0].function, "readNlSock");
    EXPECT_THAT(platform().log[1].text, testing::StartsWith("readNlSock failed["));
    EXPECT_TRUE(untouched());
}

TEST_F(Gateway, needsAnOutput) {
    EXPECT_EQ(retrieveDefGateway(1, nullptr, "eth0"), -1);
    EXPECT_THAT(platform().log, ElementsAre(extended(70000, "null argument", "retrieveDefGateway")));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_EQ(injected().count("socket"), 0);
}

TEST_F(Gateway, highProcessIdsFindNothing) {
    pretendedPid = 32769;
    EXPECT_EQ(look(), -1);
    EXPECT_EQ(injected().count("send"), 1);
    EXPECT_EQ(injected().count("recv"), 0);
    EXPECT_THAT(platform().log, IsEmpty());
    pretendedPid = 32768;
    datagrams = {message({{gatewayIs("10.0.0.1"), leavesThrough(1)}}), done()};
    EXPECT_EQ(look(), 0);
}

TEST_F(Gateway, withoutSocket) {
    injected().fail("socket", EPROTONOSUPPORT);
    EXPECT_EQ(look(), -1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(
                    70000, std::string("Error in socket Creation:[") + strerror(EPROTONOSUPPORT) + "]",
                    "retrieveDefGateway")));
    EXPECT_TRUE(untouched());
}

TEST_F(Gateway, requestNotSent) {
    injected().fail("send", ENOBUFS);
    EXPECT_EQ(look(), -1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(70000, std::string("send failed[") + strerror(ENOBUFS) + "]",
                                     "retrieveDefGateway")));
    EXPECT_EQ(injected().count("recv"), 0);
    EXPECT_TRUE(untouched());
}

TEST_F(Gateway, replyNotReceived) {
    for (const int call : {1, 2}) {
        SetUp();
        datagrams = {message({{gatewayIs("10.0.0.1"), leavesThrough(1)}}), done()};
        injected().fail("recv", EINTR, call);
        EXPECT_EQ(look(), -1);
        EXPECT_THAT(
            platform().log,
            ElementsAre(extended(70000, std::string("socket read:[") + strerror(EINTR) + "]", "readNlSock"),
                        extended(70000, std::string("readNlSock failed[") + strerror(EINTR) + "]",
                                 "retrieveDefGateway")));
        EXPECT_TRUE(untouched());
    }
}

// First messages that end the reading as damaged.
TEST_F(Gateway, damagedDatagrams) {
    Bytes tooShort = bare(RTM_NEWROUTE);
    tooShort[0] = 15;
    Bytes tooLong = bare(RTM_NEWROUTE);
    tooLong[0] = 21;
    Bytes huge = bare(RTM_NEWROUTE);
    huge[3] = 0xFF;
    Bytes zero = bare(RTM_NEWROUTE);
    zero[0] = 0;
    for (const Bytes &damaged :
         {Bytes{}, Bytes(15, 1), tooShort, tooLong, huge, zero, bare(NLMSG_ERROR), bare(NLMSG_ERROR, 0)}) {
        SetUp();
        datagrams = {damaged, done()};
        errno = EILSEQ;
        EXPECT_EQ(look(), -1);
        ASSERT_EQ(platform().log.size(), 2u);
        EXPECT_THAT(platform().log[0].text, testing::StartsWith("Error in recieved packet:["));
        EXPECT_EQ(platform().log[0].level, 70000);
        EXPECT_EQ(platform().log[0].function, "readNlSock");
        EXPECT_THAT(platform().log[1].text, testing::StartsWith("readNlSock failed["));
        EXPECT_EQ(platform().log[1].function, "retrieveDefGateway");
        EXPECT_TRUE(untouched());
    }
}

TEST_F(Gateway, readingEndsAtMatchingSequenceAndPort) {
    ozu::RouteDump buffer{};
    Route route{{leavesThrough(1)}};
    route.sequence = 5;
    const auto pid = static_cast<unsigned int>(getpid());
    const auto length = static_cast<int>(message(route).size());
    datagrams = {message(route), done()};
    EXPECT_EQ(ozu::readNlSock(-1, buffer, 5, pid), length);
    datagrams = {message(route), done()};
    EXPECT_EQ(ozu::readNlSock(-1, buffer, 4, pid), length);
    EXPECT_TRUE(datagrams.empty());
    datagrams = {message(route), done()};
    EXPECT_EQ(ozu::readNlSock(-1, buffer, 5, pid + 1), length);
    EXPECT_TRUE(datagrams.empty());
    datagrams = {done()};
    EXPECT_EQ(ozu::readNlSock(-1, buffer, 1, pid), 0);
    EXPECT_EQ(ozu::readNlSock(-1, buffer, 1, 32769), 0);
    EXPECT_EQ(ozu::readNlSock(-1, buffer, 1, 0xFFFFFFFFu), 0);
}

// The walk behind the first message, which reading has checked.
TEST_F(Gateway, walkStopsAtTheFirstDamagedMessage) {
    const Bytes good = message({{gatewayIs("10.0.0.1"), leavesThrough(1)}});
    for (const unsigned int length : {0u, 15u, 200u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        Bytes damaged = bare(RTM_NEWROUTE);
        memcpy(damaged.data(), &length, sizeof length);
        ozu::RouteRecord record{};
        EXPECT_FALSE(ozu::findGateway(joined({damaged, good}), "eth0", record)) << length;
        EXPECT_TRUE(ozu::findGateway(joined({good, damaged}), "eth0", record)) << length;
    }
}

TEST_F(Gateway, messageOfAHeaderAloneIsPassedOver) {
    Bytes header = bare(NLMSG_NOOP);
    header.resize(sizeof(nlmsghdr));
    const std::uint32_t length = sizeof(nlmsghdr);
    memcpy(header.data(), &length, sizeof length);
    ozu::RouteRecord record{};
    const Bytes good = message({{gatewayIs("10.0.0.1"), leavesThrough(1)}});
    EXPECT_TRUE(ozu::findGateway(joined({header, good}), "eth0", record));
}

TEST_F(Gateway, everyCutOfARouteStaysInside) {
    const Bytes good =
        message({{attribute(RTA_DST, address("10.2.0.0")), gatewayIs("10.0.0.1"), leavesThrough(1)}});
    ozu::RouteRecord record{};
    for (std::size_t length = 0; length < good.size(); ++length) {
        const Bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(ozu::findGateway(cut, "eth0", record));
        EXPECT_FALSE(ozu::parseRouteMessage(cut, record));
    }
    EXPECT_TRUE(ozu::findGateway(good, "eth0", record));
}

TEST_F(Gateway, secondFieldTooShortLeavesTheFirst) {
    ozu::RouteRecord record{};
    EXPECT_TRUE(ozu::parseRouteMessage(
        message({{gatewayIs("10.0.0.1"), attribute(RTA_GATEWAY, {10, 9}), leavesThrough(1)}}), record));
    EXPECT_EQ(record.gateway.s_addr, inet_addr("10.0.0.1"));
    EXPECT_TRUE(ozu::parseRouteMessage(
        message({{gatewayIs("10.0.0.1"), leavesThrough(2), attribute(RTA_OIF, {1, 0})}}), record));
    EXPECT_STREQ(record.interfaceName.data(), "eth1");
}

TEST_F(Gateway, lengthsAreRoundedUpToFour) {
    Bytes odd = message({{attribute(200, {1, 2, 3}), gatewayIs("10.0.0.1"), leavesThrough(1)}});
    ozu::RouteRecord record{};
    EXPECT_TRUE(ozu::parseRouteMessage(odd, record));

    // A message of an odd length, followed by one at the next multiple of four.
    Bytes first = message({{gatewayIs("10.0.0.1"), attribute(200, {1})}});
    const auto length = static_cast<std::uint32_t>(first.size() - 3);
    memcpy(first.data(), &length, sizeof length);
    EXPECT_TRUE(ozu::findGateway(joined({first, message({{gatewayIs("10.0.0.2"), leavesThrough(1)}})}),
                                 "eth0", record));
    EXPECT_EQ(record.gateway.s_addr, inet_addr("10.0.0.2"));
}

TEST_F(Gateway, damagedAttributesEndTheMessageOnly) {
    for (const unsigned short length :
         {static_cast<unsigned short>(0), static_cast<unsigned short>(3), static_cast<unsigned short>(200),
          static_cast<unsigned short>(0xFFFF)}) {
        Bytes attributes = attribute(RTA_TABLE, address("0.0.0.1"));
        memcpy(attributes.data(), &length, sizeof length);
        const Bytes damaged = message({{attributes, gatewayIs("10.9.9.9"), leavesThrough(1)}});
        const Bytes good = message({{gatewayIs("10.0.0.1"), leavesThrough(1)}});
        ozu::RouteRecord record{};
        ASSERT_TRUE(ozu::findGateway(joined({damaged, good}), "eth0", record));
        EXPECT_EQ(record.gateway.s_addr, inet_addr("10.0.0.1"));
    }
}

namespace {

// A route with fields that are there or not, and now and then a damaged byte.
Bytes anyRoute(ozu::test::Random &random) {
    Route route;
    const std::string name = "10.0.0." + std::to_string(random.below(200));
    for (std::uint32_t left = random.below(5); left > 0; --left) {
        const std::uint32_t kind = random.below(4);
        route.attributes.push_back(kind == 0   ? attribute(RTA_DST, address(name.c_str()))
                                   : kind == 1 ? attribute(RTA_PREFSRC, Bytes(random.below(6), 10))
                                   : kind == 2 ? gatewayIs(name.c_str())
                                               : leavesThrough(random.below(5)));
    }
    route.table = random.below(8) == 0 ? RT_TABLE_LOCAL : RT_TABLE_MAIN;
    Bytes bytes = message(route);
    if (random.below(8) == 0) {
        const std::uint32_t at = random.below(static_cast<std::uint32_t>(bytes.size()));
        bytes[at] = random.byte();
    }
    return bytes;
}

} // namespace

TEST_F(Gateway, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    int found = 0;
    for (int round = 0; round < 1000; ++round) {
        datagrams.clear();
        for (std::uint32_t left = random.below(4); left > 0; --left) {
            Bytes routes = anyRoute(random);
            const Bytes second = anyRoute(random);
            routes.insert(routes.end(), second.begin(), second.end());
            datagrams.push_back(routes);
        }
        datagrams.push_back(done());
        gateway.fill('#');
        errno = EILSEQ;
        const int result = look(round % 2 == 0 ? "eth" : "wlan0");
        found += result == 0 ? 1 : 0;
        digest.add(result, std::string_view(gateway.data(), gateway.size()));
    }
    EXPECT_GT(found, 100);
    digest.print("gateways");
}

#include <utils_ozu/routes.h>

#include "injected_socket.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <arpa/inet.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

using ozu::test::extended;
using ozu::test::injected;
using ozu::test::LogLine;
using ozu::test::platform;
using ozu::test::shortLine;
using testing::ElementsAre;

namespace {

std::vector<rtentry> requests;
std::vector<std::string> devices;
int leftBehind = 0; // errno before an ioctl() that succeeds

class Routes : public ozu::test::InjectedTest {
  protected:
    void SetUp() override {
        InjectedTest::SetUp();
        requests.clear();
        devices.clear();
        leftBehind = 0;
    }
};

sockaddr_in inet(const sockaddr &address) {
    sockaddr_in value{};
    memcpy(&value, &address, sizeof value);
    return value;
}

std::string dotted(const sockaddr &address) {
    return inet_ntoa(inet(address).sin_addr);
}

int add(int flags = 3, int metric = 7, const char *gateway = "192.168.7.1") {
    return checkRouteAndAdd("10.2.0.0", gateway, "255.255.0.0", "eth0", metric, flags);
}

int del(int flags = 3, int metric = 7, const char *gateway = "192.168.7.1") {
    return checkRouteAndDel("10.2.0.0", gateway, "255.255.0.0", "eth0", metric, flags);
}

std::string text(int error, const char *prefix) {
    return std::string(prefix) + ":[" + strerror(error) + "]";
}

const LogLine kArguments = extended(
    30000, "dest = 10.2.0.0, gw = 192.168.7.1, mask = 255.255.0.0, ifr = eth0, metric = 7, flags = 0x03",
    "checkRouteAndAdd");
const LogLine kMaximum = extended(
    50000, "Cannot add route to routing table, reach maximum validation attempts", "checkRouteAndAdd");

// The journal of one attempt whose ioctl ended with this error.
std::vector<std::string> attempt(int error) {
    std::vector<std::string> entries = {"socket(2, 2, 0)", "ioctl(SIOCADDRT)"};
    if (error != 0) {
        entries.push_back("log 10000 " + text(error, "SIOCADDRT"));
    }
    entries.emplace_back("close()");
    if (error != 0 && error != EEXIST) {
        entries.push_back("log 70000 " + text(error, "SIOCADDRT"));
    }
    entries.emplace_back("sleep(1)");
    return entries;
}

} // namespace

extern "C" {

int __real_close(int fd);

int __wrap_close(int fd) {
    injected().enter("close", "close()");
    errno = EBADF; // what a log line tells must have been kept before
    return __real_close(fd);
}

int __wrap_ioctl(int fd, unsigned long request, void *argument) {
    static_cast<void>(fd);
    const auto *route = static_cast<const rtentry *>(argument);
    requests.push_back(*route);
    devices.emplace_back(route->rt_dev == nullptr ? "null" : route->rt_dev);
    const char *name = request == SIOCADDRT   ? "ioctl(SIOCADDRT)"
                       : request == SIOCDELRT ? "ioctl(SIOCDELRT)"
                                              : "ioctl(other)";
    errno = leftBehind;
    return injected().enter("ioctl", name) ? -1 : 0;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    injected().enter("sleep", "sleep(" + std::to_string(seconds) + ")");
    return 0;
}

} // extern "C"

TEST_F(Routes, newRouteIsConfirmedByTheSecondAttempt) {
    injected().fail("ioctl", EEXIST, 2);
    EXPECT_EQ(add(), 0);
    std::vector<std::string> expected = {"log 30000 " + kArguments.text};
    for (const int error : {0, EEXIST}) {
        const auto entries = attempt(error);
        expected.insert(expected.end(), entries.begin(), entries.end());
    }
    EXPECT_EQ(platform().journal, expected);
    EXPECT_THAT(platform().log, ElementsAre(kArguments, shortLine(10000, text(EEXIST, "SIOCADDRT"))));
}

TEST_F(Routes, existingRouteTakesOneAttempt) {
    injected().fail("ioctl", EEXIST);
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(injected().count("ioctl"), 1);
    EXPECT_EQ(injected().count("sleep"), 1);
    EXPECT_THAT(platform().log, ElementsAre(kArguments, shortLine(10000, text(EEXIST, "SIOCADDRT"))));
}

// Every course of four attempts that may happen: accepted, confirmed, refused, without a socket.
TEST_F(Routes, everyCourseOfFourAttempts) {
    enum Outcome { Accepted, Confirmed, Refused, NoSocket, Outcomes };
    for (int course = 0; course < Outcomes * Outcomes * Outcomes * Outcomes; ++course) {
        SetUp();
        std::vector<std::string> expected = {"log 30000 " + kArguments.text};
        int result = 0;
        int ioctls = 0;
        for (int round = 0, rest = course; round < 4; ++round, rest /= Outcomes) {
            const auto outcome = static_cast<Outcome>(rest % Outcomes);
            if (outcome == NoSocket) {
                injected().fail("socket", EMFILE, round + 1);
                expected.emplace_back("socket(2, 2, 0)");
                expected.push_back("log 70000 " + text(EMFILE, "socket"));
                result = -1;
                continue;
            }
            const int error = outcome == Accepted ? 0 : outcome == Confirmed ? EEXIST : ENETUNREACH;
            ++ioctls;
            if (error != 0) {
                injected().fail("ioctl", error, ioctls);
            }
            const auto entries = attempt(error);
            expected.insert(expected.end(), entries.begin(), entries.end());
            if (outcome == Refused) {
                result = -1;
            }
            if (outcome == Confirmed) {
                if (round == 3) {
                    expected.push_back("log 50000 " + kMaximum.text);
                    result = -1;
                }
                break;
            }
        }
        ASSERT_EQ(add(), result) << course;
        ASSERT_EQ(platform().journal, expected) << course;
    }
}

// A caller's or a tool's ioctl() may leave no reason behind.
TEST_F(Routes, refusalWithoutAReasonIsAFailure) {
    injected().fail("ioctl", 0);
    EXPECT_EQ(add(), -1);
    const auto debug = shortLine(10000, text(0, "SIOCADDRT"));
    const auto failure = extended(70000, text(0, "SIOCADDRT"), "checkRouteAndAdd");
    EXPECT_THAT(platform().log,
                ElementsAre(kArguments, debug, failure, debug, failure, debug, failure, debug, failure));
}

TEST_F(Routes, errnoOfBeforeIsNoConfirmation) {
    leftBehind = EEXIST;
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(injected().count("ioctl"), 4);
    EXPECT_THAT(platform().log, ElementsAre(kArguments));
}

TEST_F(Routes, confirmationAtTheLastAttemptIsTooLate) {
    injected().fail("ioctl", ENODEV, 1);
    injected().fail("ioctl", ENODEV, 2);
    injected().fail("ioctl", ENODEV, 3);
    injected().fail("ioctl", EEXIST, 4);
    EXPECT_EQ(add(), -1);
    EXPECT_EQ(platform().log.back(), kMaximum);
    EXPECT_EQ(platform().log.back().format, "%s");
}

TEST_F(Routes, refusedFourTimesLogsNoMaximum) {
    injected().fail("ioctl", ENODEV);
    EXPECT_EQ(add(), -1);
    const auto debug = shortLine(10000, text(ENODEV, "SIOCADDRT"));
    const auto failure = extended(70000, text(ENODEV, "SIOCADDRT"), "checkRouteAndAdd");
    EXPECT_THAT(platform().log,
                ElementsAre(kArguments, debug, failure, debug, failure, debug, failure, debug, failure));
    EXPECT_EQ(injected().count("sleep"), 4);
}

TEST_F(Routes, neverConfirmedButAcceptedIsASuccess) {
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(injected().count("ioctl"), 4);
    EXPECT_EQ(injected().count("sleep"), 4);
    EXPECT_THAT(platform().log, ElementsAre(kArguments));
}

TEST_F(Routes, socketFailureSkipsThePause) {
    injected().fail("socket", EMFILE);
    EXPECT_EQ(add(), -1);
    const auto line = extended(70000, text(EMFILE, "socket"), "checkRouteAndAdd");
    EXPECT_THAT(platform().log, ElementsAre(kArguments, line, line, line, line));
    EXPECT_EQ(injected().count("sleep"), 0);
}

TEST_F(Routes, fillsTheRequest) {
    injected().fail("ioctl", EEXIST);
    EXPECT_EQ(add(), 0);
    ASSERT_EQ(requests.size(), 1u);
    const rtentry &route = requests[0];
    EXPECT_EQ(dotted(route.rt_dst), "10.2.0.0");
    EXPECT_EQ(dotted(route.rt_gateway), "192.168.7.1");
    EXPECT_EQ(dotted(route.rt_genmask), "255.255.0.0");
    for (const sockaddr *address : {&route.rt_dst, &route.rt_gateway, &route.rt_genmask}) {
        EXPECT_EQ(inet(*address).sin_family, AF_INET);
        EXPECT_EQ(inet(*address).sin_port, 0);
    }
    EXPECT_EQ(route.rt_flags, 3);
    EXPECT_EQ(route.rt_metric, 8);
    EXPECT_EQ(devices[0], "eth0");
}

TEST_F(Routes, gatewayNeedsItsFlag) {
    injected().fail("ioctl", EEXIST);
    const sockaddr none{};
    EXPECT_EQ(add(RTF_UP | RTF_HOST), 0);
    EXPECT_EQ(memcmp(&requests[0].rt_gateway, &none, sizeof none), 0);
    EXPECT_EQ(requests[0].rt_flags, 5);
    EXPECT_EQ(add(RTF_UP | RTF_GATEWAY, 7, nullptr), 0);
    EXPECT_EQ(memcmp(&requests[1].rt_gateway, &none, sizeof none), 0);
}

TEST_F(Routes, textThatIsNoAddressIsAllOnes) {
    injected().fail("ioctl", EEXIST);
    for (const char *text : {"", "nonsense", "256.0.0.0", "10.2.0.0x", "10.2.0.0.1", "255.255.255.255"}) {
        requests.clear();
        EXPECT_EQ(checkRouteAndAdd(text, text, text, nullptr, 0, RTF_UP | RTF_GATEWAY), 0);
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(dotted(requests[0].rt_dst), "255.255.255.255") << text;
        EXPECT_EQ(dotted(requests[0].rt_gateway), "255.255.255.255") << text;
        EXPECT_EQ(dotted(requests[0].rt_genmask), "255.255.255.255") << text;
        EXPECT_EQ(requests[0].rt_metric, 1);
        EXPECT_EQ(devices.back(), "null");
    }
}

TEST_F(Routes, flagsAndMetricTakeSixteenBits) {
    injected().fail("ioctl", EEXIST);
    add(0x12345, 65535);
    EXPECT_EQ(requests[0].rt_flags, 0x2345);
    EXPECT_EQ(requests[0].rt_metric, 0);
    EXPECT_NE(platform().log[0].text.find("flags = 0x12345"), std::string::npos);
    add(0, -1);
    EXPECT_EQ(requests[1].rt_metric, 0);
    EXPECT_NE(platform().log[2].text.find("metric = -1, flags = 0x00"), std::string::npos);
    add(1, 2147483647);
    EXPECT_EQ(requests[2].rt_metric, 0);
    add(1, 32766);
    EXPECT_EQ(requests[3].rt_metric, 32767);
}

TEST_F(Routes, removes) {
    EXPECT_EQ(del(), 0);
    EXPECT_THAT(platform().journal, ElementsAre("socket(2, 2, 0)", "ioctl(SIOCDELRT)", "close()"));
    EXPECT_EQ(dotted(requests[0].rt_dst), "10.2.0.0");
    EXPECT_EQ(dotted(requests[0].rt_gateway), "192.168.7.1");
    EXPECT_EQ(dotted(requests[0].rt_genmask), "255.255.0.0");
    EXPECT_EQ(requests[0].rt_metric, 8);
    EXPECT_EQ(devices[0], "eth0");
}

TEST_F(Routes, refusedRemovalIsADebugLine) {
    injected().fail("ioctl", ESRCH);
    EXPECT_EQ(del(), 0);
    EXPECT_THAT(platform().log, ElementsAre(shortLine(10000, text(ESRCH, "SIOCDELRT"))));
    EXPECT_THAT(platform().journal, ElementsAre("socket(2, 2, 0)", "ioctl(SIOCDELRT)",
                                                "log 10000 " + text(ESRCH, "SIOCDELRT"), "close()"));
}

TEST_F(Routes, removalWithoutSocket) {
    injected().fail("socket", ENFILE);
    EXPECT_EQ(del(), -1);
    EXPECT_THAT(platform().log, ElementsAre(extended(70000, text(ENFILE, "socket"), "checkRouteAndDel")));
}

TEST_F(Routes, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    constexpr int kErrors[] = {EEXIST, ENETUNREACH, EPERM};
    for (int round = 0; round < 500; ++round) {
        injected() = ozu::test::InjectedCalls();
        requests.clear();
        devices.clear();
        const int error = kErrors[random.below(3)];
        injected().fail("ioctl", error, static_cast<int>(random.below(5)));
        std::array<std::string, 3> texts;
        for (std::string &text : texts) {
            text = std::to_string(random.below(300)) + "." + std::to_string(round) + ".0.1";
        }
        const auto metric = static_cast<int>(random.ofAnyLength());
        const auto flags = static_cast<int>(random.below(8));
        const auto call = round % 4 == 0 ? checkRouteAndDel : checkRouteAndAdd;
        digest.add(
            call(texts[0].c_str(), texts[1].c_str(), texts[2].c_str(), texts[0].c_str(), metric, flags));
        for (const rtentry &request : requests) {
            digest.add(dotted(request.rt_dst), dotted(request.rt_gateway), dotted(request.rt_genmask),
                       request.rt_flags, request.rt_metric);
        }
        for (const std::string &device : devices) {
            digest.add(device);
        }
    }
    digest.print("route requests");
}

#include <utils_ozu/interfaces.h>

#include "injected_socket.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <optional>
#include <thread>

using ozu::test::extended;
using ozu::test::injected;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct FakeInterface {
    const char *address = "192.168.7.20";
    const char *broadcast = "192.168.7.255";
};

std::map<std::string, FakeInterface> interfaces;
std::string askedName; // all 16 bytes of the last request's name
int askedFamily = -1;

class Interfaces : public ozu::test::InjectedTest {
  protected:
    void SetUp() override {
        InjectedTest::SetUp();
        interfaces = {{"eth0", {}}};
        memset(&address, 0x5A, sizeof address);
        memset(&broadcast, 0x5A, sizeof broadcast);
    }
    sockaddr_in address{};
    sockaddr_in broadcast{};
};

sockaddr_in filled(int byte) {
    sockaddr_in value;
    memset(&value, byte, sizeof value);
    return value;
}

bool same(const sockaddr_in &a, const sockaddr_in &b) {
    return memcmp(&a, &b, sizeof a) == 0;
}

// What the kernel writes, with a family and a tail that the library has to deal with.
sockaddr_in kernelAddress(const char *text) {
    sockaddr_in value{};
    value.sin_family = AF_UNSPEC;
    value.sin_addr.s_addr = inet_addr(text);
    memset(value.sin_zero, 0x11, sizeof value.sin_zero);
    return value;
}

sockaddr_in expectedAddress(const char *text) {
    sockaddr_in value = kernelAddress(text);
    value.sin_family = AF_INET;
    return value;
}

const char *requestName(unsigned long request) {
    return request == SIOCGIFADDR ? "SIOCGIFADDR" : request == SIOCGIFBRDADDR ? "SIOCGIFBRDADDR" : "other";
}

std::string noSuchDevice(const char *prefix, const char *suffix) {
    return std::string(prefix) + strerror(ENODEV) + suffix;
}

} // namespace

extern "C" {

int __real_close(int fd);

int __wrap_close(int fd) {
    injected().enter("close", "close()");
    return __real_close(fd);
}

int __wrap_ioctl(int fd, unsigned long request, void *argument) {
    static_cast<void>(fd);
    auto *interface = static_cast<ifreq *>(argument);
    askedName.assign(interface->ifr_name, sizeof interface->ifr_name);
    askedFamily = interface->ifr_addr.sa_family;
    const std::string name(askedName.c_str());
    if (injected().enter("ioctl", std::string("ioctl(") + requestName(request) + ", " + name + ")")) {
        return -1;
    }
    const auto found = interfaces.find(name);
    if (found == interfaces.end()) {
        errno = ENODEV;
        return -1;
    }
    const auto answer =
        kernelAddress(request == SIOCGIFADDR ? found->second.address : found->second.broadcast);
    memcpy(&interface->ifr_addr, &answer, sizeof answer);
    return 0;
}

} // extern "C"

TEST_F(Interfaces, readsTheAddressOnly) {
    EXPECT_EQ(ozuutils_gethostIPv4byIfname(&address, nullptr, "eth0"), 0);
    EXPECT_TRUE(same(address, expectedAddress("192.168.7.20")));
    EXPECT_THAT(platform().journal,
                ElementsAre("socket(2, 2, 0)", "ioctl(SIOCGIFADDR, eth0)",
                            "log 30000 interface eth0: family=2  192.168.7.20\n", "close()"));
    EXPECT_THAT(platform().log, ElementsAre(extended(30000, "interface eth0: family=2  192.168.7.20\n",
                                                     "ozuutils_gethostIPv4byIfname")));
}

TEST_F(Interfaces, readsBothAddresses) {
    EXPECT_EQ(ozuutils_gethostIPv4byIfname(&address, &broadcast, "eth0"), 0);
    EXPECT_TRUE(same(address, expectedAddress("192.168.7.20")));
    EXPECT_TRUE(same(broadcast, expectedAddress("192.168.7.255")));
    EXPECT_THAT(platform().log, ElementsAre(extended(30000, "interface eth0: family=2  192.168.7.20\n",
                                                     "ozuutils_gethostIPv4byIfname"),
                                            extended(30000, "bcast interface eth0: family=2  192.168.7.255\n",
                                                     "ozuutils_gethostIPv4byIfname")));
    EXPECT_EQ(platform().journal.back(), "close()");
}

TEST_F(Interfaces, withoutSocketIsSilentAndTouchesNothing) {
    injected().fail("socket", EMFILE);
    EXPECT_EQ(ozuutils_gethostIPv4byIfname(&address, &broadcast, "eth0"), 7);
    EXPECT_TRUE(same(address, filled(0x5A)));
    EXPECT_TRUE(same(broadcast, filled(0x5A)));
    EXPECT_THAT(platform().journal, ElementsAre("socket(2, 2, 0)"));
}

TEST_F(Interfaces, unknownInterfaceClearsTheAddress) {
    EXPECT_EQ(ozuutils_gethostIPv4byIfname(&address, &broadcast, "eth9"), 8);
    EXPECT_TRUE(same(address, filled(0)));
    EXPECT_TRUE(same(broadcast, filled(0x5A)));
    EXPECT_THAT(platform().log,
                ElementsAre(extended(70000, noSuchDevice("ioctl: ", "\n"), "ozuutils_gethostIPv4byIfname")));
    EXPECT_EQ(platform().journal.back(), "close()");
}

TEST_F(Interfaces, failedBroadcastKeepsTheAddress) {
    injected().fail("ioctl", EACCES, 2);
    EXPECT_EQ(ozuutils_gethostIPv4byIfname(&address, &broadcast, "eth0"), 8);
    EXPECT_TRUE(same(address, expectedAddress("192.168.7.20")));
    EXPECT_TRUE(same(broadcast, filled(0)));
    EXPECT_THAT(platform().log, ElementsAre(extended(30000, "interface eth0: family=2  192.168.7.20\n",
                                                     "ozuutils_gethostIPv4byIfname"),
                                            extended(70000, std::string("ioctl: ") + strerror(EACCES) + "\n",
                                                     "ozuutils_gethostIPv4byIfname")));
    EXPECT_EQ(platform().journal.back(), "close()");
}

TEST_F(Interfaces, longNamesAreCutToFifteenCharacters) {
    for (std::size_t length = 0; length <= 64; ++length) {
        const std::string name(length, 'x');
        std::array<char, 16> text{};
        ozuutils_gethostIPv4byIfname(&address, nullptr, name.c_str());
        EXPECT_STREQ(askedName.c_str(), name.substr(0, 15).c_str());
        askedName.clear();
        get_device_ip(name.c_str(), text.data());
        EXPECT_EQ(askedName, name.substr(0, 15) + std::string(16 - std::min<std::size_t>(length, 15), '\0'));
    }
}

TEST_F(Interfaces, deviceAddressIsSixteenBytesOfText) {
    std::array<char, 18> text{};
    text.fill('#');
    EXPECT_EQ(get_device_ip("eth0", text.data()), 0);
    EXPECT_STREQ(text.data(), "192.168.7.20");
    EXPECT_EQ(text[16], '#');
    EXPECT_EQ(text[17], '#');
    EXPECT_EQ(askedFamily, AF_INET);
    EXPECT_THAT(platform().journal, ElementsAre("socket(2, 2, 0)", "ioctl(SIOCGIFADDR, eth0)", "close()"));
}

TEST_F(Interfaces, longestDeviceAddressFits) {
    interfaces["wlan0"] = {"255.255.255.254", "255.255.255.255"};
    std::array<char, 17> text{};
    text.fill('#');
    EXPECT_EQ(get_device_ip("wlan0", text.data()), 0);
    EXPECT_STREQ(text.data(), "255.255.255.254");
    EXPECT_EQ(text[16], '#');
}

TEST_F(Interfaces, deviceAddressNeedsBothArguments) {
    std::array<char, 16> text{};
    EXPECT_EQ(get_device_ip(nullptr, text.data()), -1);
    EXPECT_EQ(get_device_ip("eth0", nullptr), -1);
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Interfaces, deviceAddressWithoutSocket) {
    std::array<char, 16> text{};
    text.fill('#');
    injected().fail("socket", ENFILE);
    EXPECT_EQ(get_device_ip("eth0", text.data()), -1);
    EXPECT_EQ(text[0], '#');
    EXPECT_THAT(platform().log, ElementsAre(extended(50000, std::string("socket [") + strerror(ENFILE) + "]",
                                                     "get_device_ip")));
}

TEST_F(Interfaces, deviceAddressOfUnknownInterface) {
    std::array<char, 16> text{};
    text.fill('#');
    EXPECT_EQ(get_device_ip("eth9", text.data()), -1);
    EXPECT_EQ(text[0], '#');
    EXPECT_EQ(text[15], '#');
    EXPECT_THAT(platform().log, ElementsAre(extended(50000, noSuchDevice("ioctl [", "]"), "get_device_ip")));
    EXPECT_EQ(platform().journal.back(), "close()");
}

// Why the functions that write addresses as text may run concurrently.
TEST_F(Interfaces, everyThreadHasItsOwnTextOfAnAddress) {
    const char *mine = inet_ntoa({inet_addr("10.1.2.3")});
    const char *theirs = nullptr;
    std::thread other([&theirs] { theirs = inet_ntoa({inet_addr("10.9.8.7")}); });
    other.join();
    EXPECT_NE(mine, theirs);
    EXPECT_STREQ(mine, "10.1.2.3");
}

TEST_F(Interfaces, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    for (int round = 0; round < 500; ++round) {
        std::array<std::string, 2> addresses;
        for (std::string &text : addresses) {
            text = std::to_string(random.below(256)) + ".1.2.7";
        }
        const std::string name = random.text(random.below(20), "eth0");
        interfaces = {{name.substr(0, random.below(20)), {addresses[0].c_str(), addresses[1].c_str()}}};
        std::array<char, 17> text{};
        text.fill('#');
        digest.add(get_device_ip(name.c_str(), text.data()), std::string_view(text.data(), text.size()));
        memset(&address, 0x5A, sizeof address);
        memset(&broadcast, 0x5A, sizeof broadcast);
        digest.add(ozuutils_gethostIPv4byIfname(&address, &broadcast, name.c_str()));
        for (const sockaddr_in &answer : {address, broadcast}) {
            digest.add(std::string_view(reinterpret_cast<const char *>(&answer), sizeof answer));
        }
    }
    digest.print("addresses of interfaces");
}

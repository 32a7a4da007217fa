#include <utils_ozu/identity.h>

#include "fake_platform.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <iomanip>
#include <optional>
#include <set>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Address = std::array<std::uint8_t, 6>;
using Bytes = std::vector<std::uint8_t>;
constexpr int kSocket = 1000;
constexpr std::size_t kRoom = 32; // interfaces that fit the list, on every machine
const std::string kList = "SIOCGIFCONF " + std::to_string(kRoom * sizeof(ifreq));

struct Interface {
    std::string name;
    unsigned int flags = IFF_UP;
    Address address = {0x00, 0x11, 0x22, 0x0A, 0x0B, 0x0C};
    bool flagsFail = false;
    bool addressFails = false;
};

// The kernel that the tests see.
struct Kernel {
    std::vector<Interface> interfaces;
    int socket = kSocket;
    bool listFails = false;
    std::optional<int> listedBytes; // what SIOCGIFCONF claims instead of the truth
} kernel;

Interface *find(const ifreq &request) {
    for (auto &interface : kernel.interfaces) {
        if (strncmp(interface.name.c_str(), request.ifr_name, sizeof request.ifr_name) == 0) {
            return &interface;
        }
    }
    return nullptr;
}

int listInterfaces(ifconf &list) {
    platform().journal.push_back("SIOCGIFCONF " + std::to_string(list.ifc_len));
    if (kernel.listFails) {
        return -1;
    }
    const std::size_t room = static_cast<std::size_t>(list.ifc_len) / sizeof(ifreq);
    const std::size_t count = std::min(room, kernel.interfaces.size());
    for (std::size_t i = 0; i < count; ++i) {
        ifreq record = {};
        strncpy(record.ifr_name, kernel.interfaces[i].name.c_str(), sizeof record.ifr_name);
        memcpy(list.ifc_buf + i * sizeof(ifreq), &record, sizeof record);
    }
    list.ifc_len = kernel.listedBytes.value_or(static_cast<int>(count * sizeof(ifreq)));
    return 0;
}

int askInterface(const char *what, ifreq &request, bool Interface::*fails) {
    platform().journal.push_back(
        std::string(what) + " " +
        std::string(request.ifr_name, strnlen(request.ifr_name, sizeof request.ifr_name)));
    const Interface *interface = find(request);
    if (interface == nullptr || interface->*fails) {
        return -1;
    }
    if (strcmp(what, "SIOCGIFFLAGS") == 0) {
        request.ifr_flags = static_cast<short>(interface->flags);
    } else {
        memcpy(request.ifr_hwaddr.sa_data, interface->address.data(), interface->address.size());
    }
    return 0;
}

} // namespace

extern "C" int __wrap_socket(int domain, int type, int protocol) {
    EXPECT_EQ(domain, AF_INET);
    EXPECT_EQ(type, SOCK_DGRAM | SOCK_CLOEXEC);
    EXPECT_EQ(protocol, 0);
    platform().journal.emplace_back("socket");
    return kernel.socket;
}

extern "C" int __wrap_close(int fd) {
    EXPECT_EQ(fd, kSocket);
    platform().journal.emplace_back("close");
    return 0;
}

extern "C" int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    EXPECT_EQ(fd, kSocket);
    switch (request) {
    case SIOCGIFCONF:
        return listInterfaces(*static_cast<ifconf *>(argument));
    case SIOCGIFFLAGS:
        return askInterface("SIOCGIFFLAGS", *static_cast<ifreq *>(argument), &Interface::flagsFail);
    case SIOCGIFHWADDR:
        return askInterface("SIOCGIFHWADDR", *static_cast<ifreq *>(argument), &Interface::addressFails);
    default:
        ADD_FAILURE() << "request " << request;
        return -1;
    }
}

namespace {

class Identity : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        kernel = Kernel();
    }
    // The identity with its neighbour bytes, or the result when it failed.
    static std::string identity(int decimal) {
        char out[10];
        memset(out, '#', sizeof out);
        platform().journal.clear();
        platform().log.clear();
        if (const int result = calcConfigUniqueId(out + 1, decimal); result != 1) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(std::string(out, sizeof out), "##########");
            return "failed";
        }
        EXPECT_EQ(out[0], '#');
        EXPECT_EQ(out[9], '#');
        EXPECT_THAT(platform().log, IsEmpty());
        return std::string(out + 1, 8);
    }
    static void expectNoAddress() {
        EXPECT_EQ(identity(0), "failed");
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(50000, "Cannot get valid HW address", "calcConfigUniqueId")));
        EXPECT_EQ(platform().log.at(0).format, "%s");
        EXPECT_EQ(platform().journal.back(), "log 50000 Cannot get valid HW address");
        EXPECT_EQ(*(platform().journal.end() - 2), "close");
    }
    // Both forms for a hardware address, the decimal one digit by digit as it is described.
    static std::string decimalOf(const Address &m) {
        std::ostringstream text;
        text << std::setfill('0') << std::setw(2) << unsigned{m[3]} << std::setw(3) << unsigned{m[4]}
             << std::setw(3) << unsigned{m[5]};
        std::string last = text.str().substr(text.str().size() - 8);
        last[0] = last[0] == '0' ? '1' : last[0];
        return last;
    }
    static std::string hexadecimalOf(const Address &m) {
        std::ostringstream text;
        text << std::hex << std::setfill('0');
        for (std::size_t i = 2; i < m.size(); ++i) {
            text << std::setw(2) << unsigned{m[i]};
        }
        return text.str();
    }
};

TEST_F(Identity, comesFromTheHardwareAddress) {
    kernel.interfaces = {{"eth0"}};
    EXPECT_EQ(identity(0), "220a0b0c");
    EXPECT_THAT(platform().journal,
                ElementsAre("socket", kList, "SIOCGIFFLAGS eth0", "SIOCGIFHWADDR eth0", "close"));
    EXPECT_EQ(identity(1), "10011012");
    EXPECT_EQ(identity(-5), "10011012");
}

TEST_F(Identity, everyThirdByteInDecimal) {
    kernel.interfaces = {{"eth0"}};
    for (unsigned int m3 = 0; m3 < 256; ++m3) {
        for (const auto &[m4, m5] : {std::pair{0, 0}, {11, 12}, {99, 100}, {255, 255}}) {
            const Address address = {0x02,
                                     0x00,
                                     0xFF,
                                     static_cast<std::uint8_t>(m3),
                                     static_cast<std::uint8_t>(m4),
                                     static_cast<std::uint8_t>(m5)};
            kernel.interfaces[0].address = address;
            const std::string decimal = identity(1);
            EXPECT_EQ(decimal, decimalOf(address));
            EXPECT_NE(decimal[0], '0');
            EXPECT_EQ(identity(0), hexadecimalOf(address));
        }
    }
}

TEST_F(Identity, leadingZeroBecomesOne) {
    kernel.interfaces = {{"eth0"}};
    auto &address = kernel.interfaces[0].address;
    address = {0, 0, 0, 5, 11, 12};
    EXPECT_EQ(identity(1), "15011012");
    address = {0, 0, 0, 100, 11, 12};
    EXPECT_EQ(identity(1), "10011012");
    address = {0, 0, 0, 205, 11, 12};
    EXPECT_EQ(identity(1), "15011012");
    address = {0, 0, 0, 250, 11, 12};
    EXPECT_EQ(identity(1), "50011012");
    address = {0, 0, 0, 5, 11, 12};
    EXPECT_EQ(identity(0), "00050b0c") << "a hexadecimal zero stays";
}

// Panels whose addresses differ in what the forms leave out have the same identity.
TEST_F(Identity, isNotEveryPanelsOwn) {
    kernel.interfaces = {{"eth0"}};
    std::set<std::string> decimal;
    std::set<std::string> hexadecimal;
    for (const std::uint8_t third : Bytes{5, 15, 105, 115, 205, 215}) {
        kernel.interfaces[0].address = {0, 0, third, third, 7, 8};
        decimal.insert(identity(1));
        kernel.interfaces[0].address = {third, third, 1, 2, 3, 4};
        hexadecimal.insert(identity(0));
    }
    EXPECT_THAT(decimal, ElementsAre("15007008"));
    EXPECT_THAT(hexadecimal, ElementsAre("01020304"));
}

TEST_F(Identity, noSocket) {
    kernel.socket = -1;
    EXPECT_EQ(identity(1), "failed");
    EXPECT_THAT(platform().journal,
                ElementsAre("socket", "log 50000 Cannot create socket to get HW address"));
    EXPECT_THAT(platform().log,
                ElementsAre(extended(50000, "Cannot create socket to get HW address", "calcConfigUniqueId")));
    EXPECT_EQ(platform().log.at(0).format, "%s");
}

TEST_F(Identity, noInterface) {
    expectNoAddress();
    kernel.interfaces = {{"lo", IFF_UP | IFF_LOOPBACK}};
    expectNoAddress();
    EXPECT_THAT(platform().calls(), ElementsAre("socket", kList, "SIOCGIFFLAGS lo", "close"));
    kernel.listFails = true;
    kernel.interfaces = {{"eth0"}};
    expectNoAddress();
    EXPECT_THAT(platform().calls(), ElementsAre("socket", kList, "close"));
}

TEST_F(Identity, takesTheFirstInterfaceThatAnswers) {
    kernel.interfaces = {
        {"lo", IFF_LOOPBACK}, {"bad0"}, {"bad1"}, {"down0", 0, {0, 0, 1, 2, 3, 4}}, {"eth0"}};
    kernel.interfaces[1].flagsFail = true;
    kernel.interfaces[2].addressFails = true;
    EXPECT_EQ(identity(0), "01020304") << "an interface that is down counts";
    EXPECT_THAT(platform().journal,
                ElementsAre("socket", kList, "SIOCGIFFLAGS lo", "SIOCGIFFLAGS bad0", "SIOCGIFFLAGS bad1",
                            "SIOCGIFHWADDR bad1", "SIOCGIFFLAGS down0", "SIOCGIFHWADDR down0", "close"));
}

TEST_F(Identity, nameMayFillItsField) {
    kernel.interfaces = {{"interface-name-0"}};
    ASSERT_EQ(kernel.interfaces[0].name.size(), 16u);
    EXPECT_EQ(identity(0), "220a0b0c");
}

TEST_F(Identity, looksAtAsManyInterfacesAsTheListHolds) {
    for (std::size_t count = 0; count <= 40; ++count) {
        kernel.interfaces.clear();
        for (std::size_t i = 0; i < count; ++i) {
            kernel.interfaces.push_back({"lo" + std::to_string(i), IFF_LOOPBACK});
        }
        if (count > 0) {
            kernel.interfaces.back().flags = 0;
        }
        EXPECT_EQ(identity(0), count > 0 && count <= kRoom ? "220a0b0c" : "failed") << count;
    }
}

TEST_F(Identity, survivesAnyListLength) {
    kernel.interfaces = {{"lo", IFF_LOOPBACK}};
    for (const int bytes :
         {-2147483647 - 1, -1, 0, 1, static_cast<int>(sizeof(ifreq)) - 1, static_cast<int>(sizeof(ifreq)) + 1,
          static_cast<int>(kRoom * sizeof(ifreq)) + 1, 65536}) {
        kernel.listedBytes = bytes;
        expectNoAddress();
    }
}

} // namespace

TEST_F(Identity, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    for (int round = 0; round < 1000; ++round) {
        kernel = Kernel();
        for (std::uint32_t left = random.below(40); left > 0; --left) {
            Interface interface { "eth" + std::to_string(left) };
            interface.flags = random.below(4) != 0 ? IFF_LOOPBACK : IFF_UP;
            interface.addressFails = random.below(4) == 0;
            random.fill(interface.address.data(), interface.address.size());
            kernel.interfaces.push_back(interface);
        }
        std::array<char, 10> out{};
        out.fill('#');
        const int result = calcConfigUniqueId(out.data(), round % 2);
        platform().journal.clear(); // the list's size in bytes is the machine's own
        digest.add(result, std::string_view(out.data(), out.size()));
    }
    digest.print("identities");
}

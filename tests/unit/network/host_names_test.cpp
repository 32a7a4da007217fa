#include <utils_ozu/host_names.h>

#include "fake_platform.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <array>
#include <cstring>
#include <optional>

using ozu::test::extended;
using ozu::test::platform;
using ozu::test::shortLine;
using testing::ElementsAre;

namespace {

std::optional<std::vector<std::string>> answers; // of gethostbyname()

class HostNames : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        answers.reset();
        output.fill('#');
    }
    int resolve(const char *name) { return ozuutils_resolve_hostname(name, output.data()); }
    [[nodiscard]] std::string all() const { return {output.data(), output.size()}; }

    std::array<char, 18> output{};
};

const std::string kUntouched(18, '#');

} // namespace

extern "C" hostent *__wrap_gethostbyname(const char *name) {
    static std::vector<in_addr> addresses;
    static std::vector<char *> list;
    static hostent answer;
    platform().journal.push_back(std::string("gethostbyname(") + name + ")");
    if (!answers) {
        h_errno = HOST_NOT_FOUND;
        return nullptr;
    }
    addresses.clear();
    for (const std::string &text : *answers) {
        addresses.push_back({inet_addr(text.c_str())});
    }
    list.clear();
    for (in_addr &address : addresses) {
        list.push_back(reinterpret_cast<char *>(&address));
    }
    list.push_back(nullptr);
    answer = {};
    answer.h_addr_list = list.data();
    return &answer;
}

TEST_F(HostNames, addressIsWrittenBackInItsShortestForm) {
    EXPECT_EQ(resolve("010.001.002.003"), 0);
    EXPECT_EQ(all(), std::string("10.1.2.3") + '\0' + std::string(9, '#'));
    EXPECT_THAT(platform().log,
                ElementsAre(extended(30000, "Received valid IPv4 010.001.002.003 -> 10.1.2.3.",
                                     "ozuutils_resolve_hostname")));
    EXPECT_THAT(platform().calls(), testing::IsEmpty());
}

TEST_F(HostNames, whatFollowsTheFourthNumberIsDropped) {
    for (const char *text : {"1.2.3.4.5", "1.2.3.4.", "1.2.3.4...", "01.2.3.4.999999999999"}) {
        EXPECT_EQ(resolve(text), 0);
        EXPECT_STREQ(output.data(), "1.2.3.4") << text;
    }
}

TEST_F(HostNames, longestAddressFits) {
    EXPECT_EQ(resolve("255.255.255.255"), 0);
    EXPECT_EQ(all(), std::string("255.255.255.255") + '\0' + "##");
}

TEST_F(HostNames, nameGoesToTheSystem) {
    answers = {"10.0.0.1", "10.0.0.2"};
    EXPECT_EQ(resolve("panel.example"), 0);
    EXPECT_EQ(all(), std::string("10.0.0.1") + std::string(8, '\0') + "##");
    EXPECT_THAT(platform().journal,
                ElementsAre("log 10000 panel.example is a host name.",
                            "log 10000 Received host name panel.example.", "gethostbyname(panel.example)"));
    EXPECT_EQ(platform().log[1], shortLine(10000, "Received host name panel.example."));
}

TEST_F(HostNames, addressOutOfTheAcceptedRangeGoesToTheSystem) {
    answers = {"192.168.0.1"};
    EXPECT_EQ(resolve("192.168.0.1"), 0);
    EXPECT_STREQ(output.data(), "192.168.0.1");
    EXPECT_THAT(platform().log, ElementsAre(extended(70000, "192.168.0.1 has invalid range.", "is_valid_ip"),
                                            shortLine(10000, "Received host name 192.168.0.1.")));
}

TEST_F(HostNames, unresolvedName) {
    EXPECT_EQ(resolve("nobody.example"), 5);
    EXPECT_EQ(all(), kUntouched);
    EXPECT_EQ(platform().log.back(),
              extended(70000, "Unable to resolve nobody.example: " + std::to_string(HOST_NOT_FOUND) + ".",
                       "ozuutils_resolve_hostname"));
}

TEST_F(HostNames, emptyName) {
    EXPECT_EQ(resolve(""), 5);
    EXPECT_EQ(platform().log[0], extended(70000, "IP  has invalid content.", "is_valid_ip"));
    EXPECT_EQ(platform().log[1], shortLine(10000, "Received host name ."));
}

TEST_F(HostNames, answerWithoutAddresses) {
    answers.emplace();
    EXPECT_EQ(resolve("panel.example"), 5);
    EXPECT_EQ(all(), kUntouched);
    EXPECT_EQ(platform().log.back(),
              extended(70000, "There is an error on resolving panel.example.", "ozuutils_resolve_hostname"));
}

TEST_F(HostNames, noName) {
    EXPECT_EQ(resolve(nullptr), 2);
    EXPECT_EQ(all(), kUntouched);
    EXPECT_THAT(platform().log, ElementsAre(extended(70000, "Unable to continue with NULL pointer.",
                                                     "ozuutils_resolve_hostname")));
    EXPECT_EQ(platform().log[0].format, "%s");
}

TEST_F(HostNames, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    for (int round = 0; round < 500; ++round) {
        const std::string name = random.text(random.below(20), "ab.%\x1B\xFF");
        answers.reset();
        if (round % 4 != 0) {
            answers.emplace();
            for (std::uint32_t left = random.below(4); left > 0; --left) {
                answers->push_back("10." + std::to_string(random.below(256)) + ".3.4");
            }
        }
        output.fill('#');
        const int result = resolve(name.c_str());
        digest.add(result, all());
    }
    digest.print("resolved names");
}

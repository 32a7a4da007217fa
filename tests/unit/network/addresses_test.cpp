#include <utils_ozu/interfaces.h>

#include "fake_platform.h"

#include <array>
#include <random>
#include <string>
#include <vector>

using ozu::test::extended;
using ozu::test::platform;
using ozu::test::shortLine;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Addresses : public ozu::test::PlatformTest {};

constexpr int kUntouched = -77;

struct Numbers {
    int a = kUntouched;
    int b = kUntouched;
    int c = kUntouched;
    int d = kUntouched;

    int check(const std::string &text) { return is_valid_ip(text.c_str(), &a, &b, &c, &d); }
    [[nodiscard]] std::vector<int> all() const { return {a, b, c, d}; }
};

} // namespace

TEST_F(Addresses, acceptedLiterals) {
    for (const char *text : {"10.0.1.0", "192.168.1.1", "0.0.1.0", "255.255.255.255", "010.001.002.003",
                             "1.2.3.4.5", "1.2.3.4.", "1.2.3.0000000004"}) {
        EXPECT_EQ(is_valid_ip(text, nullptr, nullptr, nullptr, nullptr), 1) << text;
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Addresses, storesTheNumbers) {
    Numbers numbers;
    EXPECT_EQ(numbers.check("010.001.002.003"), 1);
    EXPECT_THAT(numbers.all(), ElementsAre(10, 1, 2, 3));
}

TEST_F(Addresses, storesNothingWithANullPointerAmongThem) {
    for (std::size_t missing = 0; missing < 4; ++missing) {
        std::array<int, 4> values = {kUntouched, kUntouched, kUntouched, kUntouched};
        std::array<int *, 4> pointers = {&values[0], &values[1], &values[2], &values[3]};
        pointers.at(missing) = nullptr;
        EXPECT_EQ(is_valid_ip("10.1.2.3", pointers[0], pointers[1], pointers[2], pointers[3]), 1);
        EXPECT_THAT(values, testing::Each(kUntouched));
    }
}

TEST_F(Addresses, thirdNumberMustNotBeZero) {
    for (const std::string text : {"10.0.0.1", "192.168.0.1"}) {
        platform().log.clear();
        Numbers numbers;
        EXPECT_EQ(numbers.check(text), 0);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, text + " has invalid range.", "is_valid_ip")));
        EXPECT_EQ(numbers.c, 0) << "stored although refused";
    }
}

TEST_F(Addresses, numbersOutOfRange) {
    for (const std::string text :
         {"256.1.1.1", "1.256.1.1", "1.1.256.1", "1.2.3.999", "1.2.3.2147483648", "4294967297.1.1.1",
          "1.4294967297.1.1", "1.1.1.18446744073709551617", "99999999999999999999.1.1.1"}) {
        platform().log.clear();
        EXPECT_EQ(is_valid_ip(text.c_str(), nullptr, nullptr, nullptr, nullptr), 0);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, text + " has invalid range.", "is_valid_ip")));
    }
}

TEST_F(Addresses, numbersSaturateAsOnThePanel) {
    Numbers numbers;
    EXPECT_EQ(numbers.check("4294967297.2147483648.2147483647.1"), 0);
    EXPECT_THAT(numbers.all(), ElementsAre(2147483647, 2147483647, 2147483647, 1));
}

TEST_F(Addresses, incompleteLiterals) {
    for (const std::string text : {"", "1", "1.2.3", "1.2.3.", "...", "1..2.3", "."}) {
        platform().log.clear();
        EXPECT_EQ(is_valid_ip(text.c_str(), nullptr, nullptr, nullptr, nullptr), 0);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, "IP " + text + " has invalid content.", "is_valid_ip")));
    }
}

TEST_F(Addresses, incompleteLiteralStoresWhatItHolds) {
    Numbers numbers;
    EXPECT_EQ(numbers.check("1.2.3"), 0);
    EXPECT_THAT(numbers.all(), ElementsAre(1, 2, 3, kUntouched));
    Numbers empty;
    EXPECT_EQ(empty.check(""), 0);
    EXPECT_THAT(empty.all(), ElementsAre(kUntouched, kUntouched, kUntouched, kUntouched));
}

TEST_F(Addresses, anythingElseIsAHostName) {
    for (const std::string text :
         {"a.b", "1.2.3.4 ", " 1.2.3.4", "-1.2.3.4", "1.2.3.4/24", "1.2.3.\xB2", "x"}) {
        platform().log.clear();
        Numbers numbers;
        EXPECT_EQ(numbers.check(text), 0);
        EXPECT_THAT(numbers.all(), testing::Each(kUntouched));
        EXPECT_THAT(platform().log, ElementsAre(shortLine(10000, text + " is a host name.")));
    }
}

// The rules again, written down another way, on random texts of digits and dots.
TEST_F(Addresses, agreesWithAPlainParser) {
    std::mt19937 random(20260101);
    for (int round = 0; round < 20000; ++round) {
        std::vector<long> numbers;
        std::string text;
        for (int i = 0; i < 4; ++i) {
            numbers.push_back(static_cast<long>(random() % 300) * static_cast<long>(random() % 4 != 0));
            text += (i == 0 ? "" : ".") + std::to_string(numbers.back());
        }
        const bool expected =
            numbers[0] < 256 && numbers[1] < 256 && numbers[2] > 0 && numbers[2] < 256 && numbers[3] < 256;
        ASSERT_EQ(is_valid_ip(text.c_str(), nullptr, nullptr, nullptr, nullptr), expected ? 1 : 0) << text;
    }
}

TEST_F(Addresses, plainAddressCheck) {
    for (const char *text : {"10.0.0.1", "0.0.0.0", "255.255.255.255"}) {
        EXPECT_EQ(isValidIpAddress(text), 1) << text;
    }
    for (const char *text : {"", "1.2.3", "1.2.3.256", "1.2.3.4.5", "host", "1.2.3.4 ", "::1", "01.2.3.4"}) {
        EXPECT_EQ(isValidIpAddress(text), 0) << text;
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

struct Url {
    const char *name;
    const char *url;
    const char *host;
};

void PrintTo(const Url &url, std::ostream *out) {
    *out << url.name;
}

class HostOfUrl : public Addresses, public testing::WithParamInterface<Url> {};

TEST_P(HostOfUrl, isCutOut) {
    std::string url = GetParam().url;
    std::array<char, 64> host{};
    host.fill('#');
    const std::string expected = GetParam().host;
    EXPECT_EQ(parse_host(url.data(), host.data(), host.size()), expected.empty() ? 0 : 1);
    EXPECT_STREQ(host.data(), expected.c_str());
    EXPECT_EQ(url, GetParam().url);
    EXPECT_EQ(host.at(expected.size() + 1), '#') << "written past the terminator";
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, HostOfUrl,
    testing::Values(Url{"whole", "scheme://user@host:8080/x", "host"},
                    Url{"noUser", "scheme://host:1/x", "host"}, Url{"noPort", "scheme://host/x", "host"},
                    Url{"noPath", "scheme://host", "host"}, Url{"bareHost", "host", "host"},
                    Url{"bareHostPort", "host:80", "host"}, Url{"emptyHost", "scheme:///x", ""},
                    Url{"emptyText", "", ""}, Url{"atLast", "user@", ""},
                    Url{"portBeatsPath", "host/a:b", "host/a"}, Url{"atBeforeScheme", "a@b://c", "b"},
                    Url{"atInPath", "scheme://host/x@y", "y"}, Url{"firstAt", "a@b@c", "b@c"},
                    Url{"schemeOnly", "scheme://", ""}, Url{"notAScheme", "scheme:/host", "scheme"},
                    Url{"secondScheme", "a://b://c", "b"}),
    [](const auto &instance) { return std::string(instance.param.name); });

TEST_F(Addresses, hostIsCutToTheBuffer) {
    std::string url = "host";
    for (unsigned int size = 1; size <= 6; ++size) {
        std::array<char, 8> host{};
        host.fill('#');
        const std::string expected = std::string("host").substr(0, size - 1);
        EXPECT_EQ(parse_host(url.data(), host.data(), size), size > 1 ? 1 : 0);
        EXPECT_STREQ(host.data(), expected.c_str());
        EXPECT_EQ(host.at(expected.size() + 1), '#');
    }
}

TEST_F(Addresses, hostNeedsItsArguments) {
    std::string url = "host";
    std::array<char, 8> host{};
    host.fill('#');
    EXPECT_EQ(parse_host(nullptr, host.data(), host.size()), 0);
    EXPECT_EQ(parse_host(url.data(), nullptr, 8), 0);
    EXPECT_EQ(parse_host(url.data(), host.data(), 0), 0);
    EXPECT_THAT(host, testing::Each('#'));
    EXPECT_THAT(platform().log, IsEmpty());
}

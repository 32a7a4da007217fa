#include <utils_ozu/raw_dns.h>

#include "dns_wire.h"
#include "injected_socket.h"
#include "small_stack.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <deque>
#include <optional>

using namespace ozu::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::deque<Bytes> replies; // what recvfrom() hands out
Bytes query;
std::vector<std::string> asked;                          // servers, in order
std::optional<std::vector<std::string>> systemAddresses; // what gethostbyname() answers

class RawDns : public InjectedTest {
  protected:
    void SetUp() override {
        InjectedTest::SetUp();
        replies.clear();
        query.clear();
        asked.clear();
        systemAddresses.reset();
        output.fill('#');
    }
    void ask(const char *host = "a.b", std::size_t size = 16) {
        NgetHostByName(host, 1, "10.0.0.53", 9, output.data(), size);
    }
    [[nodiscard]] bool untouched() const {
        return std::all_of(output.begin(), output.end(), [](char c) { return c == '#'; });
    }

    std::array<char, 20> output{};
};

LogLine line(int level, const std::string &text, const char *function = "NgetHostByName") {
    return extended(level, text, function);
}

std::vector<LogLine> head(unsigned int answers, unsigned int authorities, unsigned int additionals) {
    return {line(20000, "resolving [a.b.] using name server[10.0.0.53]"),
            line(20000, "The response contains: "),
            line(20000, "[1] Questions."),
            line(20000, "[" + std::to_string(answers) + "] Answers."),
            line(20000, "[" + std::to_string(authorities) + "] Authoritative Servers."),
            line(20000, "[" + std::to_string(additionals) + "] Additional records.\n\n")};
}

// The lines of a reply with these counts, ending with these.
std::vector<LogLine> lines(unsigned int answers, unsigned int authorities, unsigned int additionals,
                           const std::vector<std::string> &texts) {
    auto all = head(answers, authorities, additionals);
    for (const std::string &text : texts) {
        all.push_back(line(20000, text));
    }
    return all;
}

Bytes addressReply(std::uint8_t last) {
    return reply({1, 0, 0}, record(kQuestionOwner, 1, {10, 0, 0, last}));
}

} // namespace

extern "C" {

int __real_close(int fd);

int __wrap_close(int fd) {
    injected().enter("close", "close()");
    return __real_close(fd);
}

int __wrap_connect(int, const sockaddr *, socklen_t) {
    ADD_FAILURE() << "a connected socket does not hear other senders";
    return -1;
}

ssize_t __wrap_sendto(int, const void *message, std::size_t length, int flags, const sockaddr *to,
                      socklen_t toLength) {
    const auto *first = static_cast<const std::uint8_t *>(message);
    query.assign(first, first + length);
    sockaddr_in server{};
    EXPECT_EQ(toLength, sizeof server);
    memcpy(&server, to, sizeof server);
    EXPECT_EQ(server.sin_family, AF_INET);
    asked.push_back(std::string(inet_ntoa(server.sin_addr)) + ":" + std::to_string(ntohs(server.sin_port)));
    return injected().enter("sendto", "sendto(" + std::to_string(length) + ", " + std::to_string(flags) + ")")
               ? -1
               : static_cast<ssize_t>(length);
}

int __wrap_setsockopt(int, int level, int option, const void *value, socklen_t length) {
    timeval time{};
    EXPECT_EQ(length, sizeof time);
    memcpy(&time, value, sizeof time);
    EXPECT_EQ(level, SOL_SOCKET);
    EXPECT_EQ(option, SO_RCVTIMEO);
    return injected().enter("setsockopt", "setsockopt(" + std::to_string(time.tv_sec) + "." +
                                              std::to_string(time.tv_usec) + ")")
               ? -1
               : 0;
}

ssize_t __wrap_recvfrom(int, void *buffer, std::size_t size, int flags, sockaddr *, socklen_t *) {
    const bool fails =
        injected().enter("recvfrom", "recvfrom(" + std::to_string(size) + ", " + std::to_string(flags) + ")");
    if (fails || replies.empty()) {
        errno = fails ? errno : EAGAIN;
        return -1;
    }
    const Bytes datagram = replies.front();
    replies.pop_front();
    const std::size_t length = std::min(size, datagram.size());
    if (length != 0) {
        memcpy(buffer, datagram.data(), length);
    }
    return static_cast<ssize_t>(length);
}

hostent *__wrap_gethostbyname(const char *host) {
    static std::vector<in_addr> addresses;
    static std::vector<char *> list;
    static hostent answer;
    platform().journal.push_back(std::string("gethostbyname(") + host + ")");
    if (!systemAddresses) {
        return nullptr;
    }
    addresses.clear();
    for (const std::string &text : *systemAddresses) {
        addresses.push_back({inet_addr(text.c_str())});
    }
    list.clear();
    for (in_addr &address : addresses) {
        list.push_back(reinterpret_cast<char *>(&address));
    }
    list.push_back(nullptr);
    answer = {};
    answer.h_addrtype = AF_INET;
    answer.h_length = 4;
    answer.h_addr_list = list.data();
    return &answer;
}

} // extern "C"

TEST_F(RawDns, queryBytes) {
    ask();
    const auto id = static_cast<unsigned int>(getpid()) & 0xFFFF;
    EXPECT_EQ(query, u16(id) + (Bytes{1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1, 'a', 1, 'b', 0, 0, 1, 0, 1}));
    EXPECT_THAT(asked, ElementsAre("10.0.0.53:53"));
}

TEST_F(RawDns, queryTypeIsTheCallers) {
    NgetHostByName("a.b", 0x1F00F, "10.0.0.53", 9, output.data(), 16);
    EXPECT_EQ(Bytes(query.end() - 4, query.end()), (Bytes{0xF0, 0x0F, 0, 1}));
}

TEST_F(RawDns, finalDotIsNotDoubled) {
    ask("a.b");
    const Bytes without = query;
    ask("a.b.");
    EXPECT_EQ(query, without);
    EXPECT_EQ(platform().log.front(), platform().log.at(platform().log.size() / 2));
}

TEST_F(RawDns, callsInOrder) {
    replies = {addressReply(7)};
    ask();
    EXPECT_STREQ(output.data(), "10.0.0.7");
    EXPECT_THAT(platform().calls(), ElementsAre("socket(2, 2, 17)", "sendto(21, 0)", "setsockopt(20.0)",
                                                "recvfrom(65536, 0)", "close()"));
    EXPECT_EQ(platform().journal.front(), "log 20000 resolving [a.b.] using name server[10.0.0.53]");
}

TEST_F(RawDns, addressFillsTheOutput) {
    replies = {addressReply(7)};
    ask("a.b", 18);
    EXPECT_EQ(std::string(output.data(), output.size()),
              std::string("10.0.0.7") + std::string(10, '\0') + "##");
}

TEST_F(RawDns, outputOfAnySize) {
    for (std::size_t size = 0; size <= 16; ++size) {
        SetUp();
        replies = {reply({1, 0, 0}, record(kQuestionOwner, 1, {192, 168, 100, 200}))};
        ask("a.b", size);
        const std::string text = "192.168.100.200";
        const std::string fitting = text.substr(0, size);
        EXPECT_EQ(std::string(output.data(), size), (text + '\0').substr(0, size));
        EXPECT_EQ(output.at(size), '#');
        EXPECT_EQ(platform().log[8], line(20000, "found ipv4 address:[" + text + "] [" + fitting + "]"));
    }
}

TEST_F(RawDns, aliasThenAddress) {
    replies = {
        reply({2, 0, 0}, record(kQuestionOwner, 5, name("c.d")) + record(name("c.d"), 1, {10, 1, 2, 3}))};
    ask();
    EXPECT_STREQ(output.data(), "10.1.2.3");
    EXPECT_EQ(platform().log, (lines(2, 0, 0,
                                     {"answer Records: [2]", "name: [c.d] ", "alias name:[c.d]",
                                      "name: [c.d] ", "found ipv4 address:[10.1.2.3] [10.1.2.3]",
                                      "authorities records:[0]", "additional Records: [0]"})));
}

TEST_F(RawDns, everyNameShownIsTheOneDecodedLast) {
    replies = {
        reply({1, 2, 2}, record(name("own.er"), 1, {10, 1, 2, 3}) + record(name("e"), 2, name("ns.e")) +
                             record(name("e"), 28, Bytes(16, 0xFF)) + record(name("ns.e"), 1, {10, 9, 9, 9}) +
                             record(name("last"), 28, Bytes(16, 0xFF)))};
    ask();
    EXPECT_STREQ(output.data(), "10.1.2.3");
    EXPECT_EQ(
        platform().log,
        (lines(1, 2, 2,
               {"answer Records: [1]", "name: [last] ", "found ipv4 address:[10.1.2.3] [10.1.2.3]",
                "authorities records:[2]", "Name : last ", "has nameserver : ns.e", "Name : last ",
                "additional Records: [2]", "Name : last ", "has IPv4 address : 10.9.9.9", "Name : last "})));
}

// A server's own data, of a type that holds no name, is decoded like one, and shown when it is the last.
TEST_F(RawDns, dataOfAnyTypeMayBeTheNameShown) {
    const Bytes answer = record(name("own.er"), 1, {10, 1, 2, 3});
    const auto shown = [this](const Counts &counts, const Bytes &records) {
        SetUp();
        replies = {reply(counts, records)};
        ask();
        EXPECT_STREQ(output.data(), "10.1.2.3");
        return platform().log.at(7).text;
    };
    EXPECT_EQ(shown({1, 0, 0}, answer), "name: [own.er] ");
    EXPECT_EQ(shown({1, 1, 0}, answer + record(name("e"), 16, name("te.xt"))), "name: [te.xt] ");
    EXPECT_EQ(shown({1, 1, 0}, answer + record(name("e"), 16, label("cut"))), "name: [e] ");
    EXPECT_EQ(shown({1, 1, 0}, answer + record(name("e"), 1, {2, 'a', 'b', 0})), "name: [ab] ");
    EXPECT_EQ(shown({1, 1, 0}, answer + record(name("e"), 1, {1, 'a'})), "name: [e] ") << "short";
    EXPECT_EQ(shown({1, 0, 1}, answer + record(name("e"), 1, {2, 'a', 'b', 0})), "name: [e] ");
    EXPECT_EQ(shown({1, 0, 1}, answer + record({0}, 41, {})), "name: [] ") << "nothing behind it";
    EXPECT_EQ(shown({1, 0, 1}, answer + record(name("e"), 41, {}) + name("be.hind")), "name: [be.hind] ");
}

TEST_F(RawDns, lastAddressWins) {
    replies = {reply({3, 0, 0}, record(kQuestionOwner, 1, {10, 0, 0, 1}) +
                                    record(kQuestionOwner, 1, {10, 0, 0, 22}) +
                                    record(kQuestionOwner, 1, {10, 0, 0, 3}))};
    ask();
    EXPECT_STREQ(output.data(), "10.0.0.3");
}

TEST_F(RawDns, additionalAddressesDoNotCount) {
    replies = {reply({0, 0, 1}, record(kQuestionOwner, 1, {10, 0, 0, 1}))};
    ask();
    EXPECT_TRUE(untouched());
    EXPECT_EQ(platform().log,
              (lines(0, 0, 1,
                     {"answer Records: [0]", "authorities records:[0]", "additional Records: [1]",
                      "Name : a.b ", "has IPv4 address : 10.0.0.1"})));
}

TEST_F(RawDns, twentyRecordsOfASectionCount) {
    Bytes records;
    for (std::uint8_t i = 1; i <= 30; ++i) {
        records = std::move(records) + record(kQuestionOwner, 1, {10, 0, 0, i});
    }
    replies = {reply({30, 0, 0}, records)};
    ask();
    EXPECT_STREQ(output.data(), "10.0.0.20");
    EXPECT_EQ(platform().log[6], line(20000, "answer Records: [30]"));
    EXPECT_EQ(platform().log.size(), 6u + 1 + 2 * 20 + 2);
}

TEST_F(RawDns, rootNamesAreEmptyTexts) {
    replies = {reply({2, 0, 1}, record({0}, 5, {0}) + record({0}, 1, {10, 0, 0, 1}) + record({0}, 41, {}))};
    ask();
    EXPECT_STREQ(output.data(), "10.0.0.1");
    EXPECT_EQ(platform().log, (lines(2, 0, 1,
                                     {"answer Records: [2]", "name: [] ", "alias name:[]", "name: [] ",
                                      "found ipv4 address:[10.0.0.1] [10.0.0.1]", "authorities records:[0]",
                                      "additional Records: [1]", "Name :  "})));
}

TEST_F(RawDns, replyWithoutAnswersLeavesTheOutput) {
    for (const Bytes &answer : {reply({}, {}), Bytes(12)}) {
        SetUp();
        replies = {answer};
        ask();
        EXPECT_TRUE(untouched());
        EXPECT_EQ(platform().log.back(), line(20000, "additional Records: [0]"));
        EXPECT_EQ(platform().log.size(), 9u);
    }
}

TEST_F(RawDns, identifierSenderAndFlagsDoNotMatter) {
    Bytes foreign = addressReply(9);
    foreign[0] ^= 0xFF;
    foreign[2] = 0;    // a question, by its flags
    foreign[3] = 0x05; // refused, by its code
    replies = {foreign};
    ask();
    EXPECT_STREQ(output.data(), "10.0.0.9");
}

TEST_F(RawDns, malformedRepliesCountForNothing) {
    const Bytes address = record(kQuestionOwner, 1, {10, 0, 0, 1});
    const std::vector<Bytes> records = {
        address + record(kQuestionOwner, 1, {10, 0, 0}),
        address + record(pointer(4000), 1, {10, 0, 0, 2}),
        address + record(kQuestionOwner, 5, label("cut")),
        address + record(kQuestionOwner, 28, Bytes(16), 17),
        address,
    };
    for (const Bytes &data : records) {
        SetUp();
        replies = {reply({2, 0, 0}, data)};
        ask();
        EXPECT_TRUE(untouched());
        std::vector<LogLine> expected = head(2, 0, 0);
        expected.push_back(line(70000, "malformed reply"));
        EXPECT_EQ(platform().log, expected);
        EXPECT_EQ(platform().log.back().format, "%s");
    }
}

TEST_F(RawDns, datagramsShorterThanAHeader) {
    for (std::size_t length = 0; length < 12; ++length) {
        SetUp();
        replies = {Bytes(length, 0)};
        ask();
        EXPECT_TRUE(untouched());
        EXPECT_THAT(platform().log, ElementsAre(line(20000, "resolving [a.b.] using name server[10.0.0.53]"),
                                                line(70000, "malformed reply")));
    }
}

TEST_F(RawDns, hostNameLength) {
    const std::string longest(98, 'x');
    ask(longest.c_str());
    EXPECT_EQ(query.size(), 12u + 99 + 1 + 4);
    EXPECT_EQ(platform().log[0].text, "resolving [" + longest + ".] using name server[10.0.0.53]");
    SetUp();
    ask((longest + "x").c_str());
    EXPECT_THAT(platform().log, ElementsAre(line(70000, "invalid hostname")));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_THAT(platform().calls(), IsEmpty());
    SetUp();
    ask((std::string(97, 'x') + ".").c_str());
    EXPECT_EQ(query.size(), 12u + 98 + 1 + 4);
    SetUp();
    ask("");
    EXPECT_EQ(query.size(), 12u + 1 + 4);
    EXPECT_EQ(platform().log[0].text, "resolving [.] using name server[10.0.0.53]");
}

TEST_F(RawDns, badArguments) {
    char *out = output.data();
    const std::vector<std::function<void()>> calls = {
        [&] { NgetHostByName(nullptr, 1, "10.0.0.53", 9, out, 16); },
        [&] { NgetHostByName("a.b", 1, nullptr, 9, out, 16); },
        [&] { NgetHostByName("a.b", 1, "10.0.0.53", 0, out, 16); },
        [&] { NgetHostByName("a.b", 1, "10.0.0.53", 9, nullptr, 16); },
    };
    for (const auto &call : calls) {
        SetUp();
        call();
        EXPECT_THAT(platform().log, ElementsAre(line(70000, "bad arguments")));
        EXPECT_EQ(platform().log[0].format, "%s");
        EXPECT_THAT(platform().calls(), IsEmpty());
    }
}

struct Failure {
    const char *function;
    const char *text;
    std::vector<std::string> calls;
};

TEST_F(RawDns, failuresOfTheExchange) {
    const std::vector<Failure> failures = {
        {"socket", "sendto failed [", {"socket(2, 2, 17)"}},
        {"sendto", "sendto failed [", {"socket(2, 2, 17)", "sendto(21, 0)", "close()"}},
        {"setsockopt",
         "setsockopt failed [",
         {"socket(2, 2, 17)", "sendto(21, 0)", "setsockopt(20.0)", "close()"}},
        {"recvfrom",
         "recvfrom failed [",
         {"socket(2, 2, 17)", "sendto(21, 0)", "setsockopt(20.0)", "recvfrom(65536, 0)", "close()"}},
    };
    for (const Failure &failure : failures) {
        for (const int error : {EINTR, EAGAIN, ENOMEM, ECONNREFUSED}) {
            SetUp();
            replies = {addressReply(1)};
            injected().fail(failure.function, error);
            ask();
            EXPECT_TRUE(untouched());
            EXPECT_EQ(platform().calls(), failure.calls);
            EXPECT_THAT(platform().log,
                        ElementsAre(line(20000, "resolving [a.b.] using name server[10.0.0.53]"),
                                    line(70000, std::string(failure.text) + strerror(error) + "]")));
            TearDown();
        }
    }
}

TEST_F(RawDns, fitsASmallStack) {
    replies = {addressReply(1)};
    ozu::test::onSmallStack(128UL * 1024, [this] { ask(); });
    EXPECT_STREQ(output.data(), "10.0.0.1");
}

class NslookupOzu : public RawDns {
  protected:
    void SetUp() override {
        RawDns::SetUp();
        output.fill('\0');
        output[16] = '#';
    }
    int look(const char *dns1, const char *dns2, std::size_t size = 16) {
        return nslookup_ozu("a.b", dns1, dns2, output.data(), size);
    }
};

TEST_F(NslookupOzu, primaryAnswers) {
    replies = {addressReply(1), addressReply(2)};
    EXPECT_EQ(look("10.0.0.53", "10.0.0.54"), 0);
    EXPECT_STREQ(output.data(), "10.0.0.1");
    EXPECT_THAT(asked, ElementsAre("10.0.0.53:53"));
    EXPECT_EQ(Bytes(query.end() - 4, query.end()), (Bytes{0, 1, 0, 1}));
}

TEST_F(NslookupOzu, secondaryAnswers) {
    injected().fail("recvfrom", EAGAIN, 1);
    replies = {addressReply(2)};
    EXPECT_EQ(look("10.0.0.53", "10.0.0.54"), 0);
    EXPECT_STREQ(output.data(), "10.0.0.2");
    EXPECT_THAT(asked, ElementsAre("10.0.0.53:53", "10.0.0.54:53"));
    EXPECT_EQ(platform().callCount("gethostbyname"), 0);
}

TEST_F(NslookupOzu, systemResolverIsTheLastResort) {
    systemAddresses = {"10.0.0.8", "10.0.0.9"};
    EXPECT_EQ(look("10.0.0.53", "10.0.0.54"), 0);
    EXPECT_STREQ(output.data(), "10.0.0.9");
    EXPECT_THAT(asked, ElementsAre("10.0.0.53:53", "10.0.0.54:53"));
    EXPECT_EQ(platform().journal.back(), "gethostbyname(a.b)");
}

TEST_F(NslookupOzu, withoutServersOnlyTheSystemIsAsked) {
    systemAddresses = {"10.0.0.8"};
    EXPECT_EQ(look("", ""), 0);
    EXPECT_STREQ(output.data(), "10.0.0.8");
    EXPECT_THAT(platform().journal, ElementsAre("gethostbyname(a.b)"));
}

TEST_F(NslookupOzu, emptyPrimary) {
    replies = {addressReply(2)};
    EXPECT_EQ(look("", "10.0.0.54"), 0);
    EXPECT_THAT(asked, ElementsAre("10.0.0.54:53"));
}

TEST_F(NslookupOzu, nothingFound) {
    EXPECT_EQ(look("", ""), -1);
    EXPECT_THAT(platform().log, ElementsAre(line(70000, "gethostbyname", "nslookup_ozu")));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_EQ(output[0], '\0');
}

TEST_F(NslookupOzu, systemResolverWithoutAddresses) {
    systemAddresses.emplace();
    EXPECT_EQ(look("", ""), -1);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(NslookupOzu, systemAddressIsCutAndTerminated) {
    systemAddresses = {"192.168.100.200"};
    for (std::size_t size = 1; size <= 16; ++size) {
        SetUp();
        systemAddresses = {"192.168.100.200"};
        output[size] = '#';
        EXPECT_EQ(look("", "", size), size > 1 ? 0 : -1);
        EXPECT_EQ(std::string(output.data()), std::string("192.168.100.200").substr(0, size - 1));
        EXPECT_EQ(output.at(size), '#');
    }
}

TEST_F(NslookupOzu, textInTheOutputCountsAsAnswer) {
    output[0] = 'x';
    EXPECT_EQ(look("10.0.0.53", "10.0.0.54"), 0);
    EXPECT_THAT(asked, ElementsAre("10.0.0.53:53"));
    EXPECT_EQ(platform().callCount("gethostbyname"), 0);
}

TEST_F(NslookupOzu, badArguments) {
    char *out = output.data();
    const std::vector<std::function<int()>> calls = {
        [&] { return nslookup_ozu(nullptr, "", "", out, 16); },
        [&] { return nslookup_ozu("a.b", nullptr, "", out, 16); },
        [&] { return nslookup_ozu("a.b", "", nullptr, out, 16); },
        [&] { return nslookup_ozu("a.b", "", "", nullptr, 16); },
        [&] { return nslookup_ozu("a.b", "", "", out, 0); },
    };
    for (const auto &call : calls) {
        SetUp();
        EXPECT_EQ(call(), -1);
        EXPECT_THAT(platform().log, ElementsAre(line(70000, "bad arguments", "nslookup_ozu")));
        EXPECT_THAT(platform().calls(), IsEmpty());
    }
}

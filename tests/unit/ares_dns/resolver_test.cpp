#include <ares_dns/attempt.h>
#include <utils_ozu/resolver.h>

#include "fake_cares.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <arpa/inet.h>

#include <array>
#include <cerrno>
#include <cstring>

using ozu::test::cares;
using ozu::test::FakeCares;
using ozu::test::LogLine;
using ozu::test::Pass;
using ozu::test::platform;
using ozu::test::remote;
using ozu::test::shortLine;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

LogLine line(int level, const std::string &text, const char *function) {
    return ozu::test::extended(level, text, function, "src/ares_dns");
}

const LogLine kInitialised = line(30000, "ares_library_init(): successful", "ares_global_library_init");
const LogLine kTimeout = line(50000, "ppoll timeout", "Wait_Ares");
const LogLine kCancelled = line(70000,
                                std::string("DNS server could not find the host, status [") +
                                    ares_strerror(ARES_ECANCELLED) + "], internal timeouts [0]",
                                "callback");

LogLine firstFailed(int attempt) {
    return line(50000,
                "First dns server failed to resolve, waiting for the second dns server! (internal attempt " +
                    std::to_string(attempt) + ")",
                "nslookup_ares");
}

LogLine secondFailed(int attempt) {
    return line(50000,
                "Second dns server failed to resolve, (internal attempt " + std::to_string(attempt) + ")",
                "nslookup_ares");
}

int unwritable = 0; // so many addresses from now on have no text

class Resolver : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        cares() = FakeCares();
        ares_global_library_deinit();
        output.fill('#');
        platform().journal.clear();
    }
    void TearDown() override {
        EXPECT_EQ(cares().channels, 0) << "channels left open";
        PlatformTest::TearDown();
    }
    // Initialised before, so that its lines do not stand in the way.
    void initialise() {
        ares_global_library_init(nullptr);
        platform().journal.clear();
        platform().log.clear();
    }
    int look(const char *primary = "10.0.0.53", const char *secondary = "10.0.0.54",
             const char *iface = nullptr) {
        return nslookup_ares("a.b", iface, primary, secondary, output.data());
    }
    [[nodiscard]] bool untouched() const {
        return std::all_of(output.begin(), output.end(), [](char c) { return c == '#'; });
    }
    static Pass answering(const std::vector<std::string> &addresses) {
        Pass pass;
        pass.ready = 1;
        pass.events = {POLLIN};
        pass.processing = [addresses] { cares().answer(addresses); };
        return pass;
    }
    static Pass silent() { return {}; }

    std::array<char, 20> output{};
};

} // namespace

extern "C" {

const char *__real_inet_ntop(int family, const void *address, char *text, socklen_t size);

const char *__wrap_inet_ntop(int family, const void *address, char *text, socklen_t size) {
    EXPECT_EQ(family, AF_INET);
    EXPECT_EQ(size, 16u);
    if (unwritable > 0) {
        --unwritable;
        errno = ENOSPC;
        return nullptr;
    }
    return __real_inet_ntop(family, address, text, size);
}

} // extern "C"

TEST_F(Resolver, threeAttempts) {
    EXPECT_EQ(ARES_MAX_RETRY, 3);
}

TEST_F(Resolver, libraryIsInitialisedOnce) {
    EXPECT_EQ(ares_global_library_init("main"), 1);
    EXPECT_EQ(ares_global_library_init("again"), 1);
    EXPECT_THAT(platform().journal,
                ElementsAre("ares_library_init(" + std::to_string(ARES_LIB_INIT_ALL) + ")",
                            "log 30000 main ares_library_init(): successful"));
    EXPECT_THAT(platform().log,
                ElementsAre(line(30000, "main ares_library_init(): successful", "ares_global_library_init")));
    ares_global_library_deinit();
    ares_global_library_deinit();
    EXPECT_EQ(platform().callCount("ares_library_cleanup"), 1);
    EXPECT_EQ(ares_global_library_init(nullptr), 1);
    EXPECT_EQ(platform().callCount("ares_library_init"), 2);
}

TEST_F(Resolver, initialisationWithoutTag) {
    for (const char *tag : {static_cast<const char *>(nullptr), ""}) {
        ares_global_library_deinit();
        platform().log.clear();
        EXPECT_EQ(ares_global_library_init(tag), 1);
        EXPECT_THAT(platform().log, ElementsAre(kInitialised));
        EXPECT_EQ(platform().log[0].format, "%s");
    }
}

TEST_F(Resolver, failedInitialisationMayBeRepeated) {
    cares().libraryStatus = ARES_ENOMEM;
    EXPECT_EQ(ares_global_library_init("main"), 0);
    EXPECT_THAT(platform().log,
                ElementsAre(line(70000, std::string("ares_library_init: ") + ares_strerror(ARES_ENOMEM),
                                 "ares_global_library_init")));
    EXPECT_EQ(look(), -1);
    EXPECT_TRUE(untouched());
    EXPECT_EQ(platform().callCount("ares_init_options"), 0);
    ares_global_library_deinit();
    EXPECT_EQ(platform().callCount("ares_library_cleanup"), 0);
    cares().libraryStatus = ARES_SUCCESS;
    EXPECT_EQ(ares_global_library_init("main"), 1);
}

TEST_F(Resolver, firstServerAnswers) {
    cares().passes = {answering({"10.1.2.3"})};
    EXPECT_EQ(look(), 0);
    EXPECT_STREQ(output.data(), "10.1.2.3");
    EXPECT_EQ(output[16], '#');
    EXPECT_THAT(
        platform().journal,
        ElementsAre("ares_library_init(" + std::to_string(ARES_LIB_INIT_ALL) + ")",
                    "log 30000 ares_library_init(): successful", "log 10000 p_ns[10.0.0.53] s_ns[10.0.0.54]",
                    "ares_init_options(5000, " + std::to_string(ARES_OPT_TIMEOUTMS) + ")",
                    "ares_set_servers(10.0.0.53 10.0.0.54)", "ares_gethostbyname(a.b, 2)", "ares_getsock(16)",
                    "ares_timeout(20.0)", "ppoll(1, 5.0)", "ares_process_fd(70, bad)", "ares_cancel()",
                    "ares_destroy()", "log 20000 Resolved [a.b]"));
    EXPECT_EQ(platform().log[1], shortLine(10000, "p_ns[10.0.0.53] s_ns[10.0.0.54]"));
    EXPECT_EQ(platform().log[2], line(20000, "Resolved [a.b]", "nslookup_ares"));
}

TEST_F(Resolver, firstAddressOfTheAnswerWins) {
    cares().passes = {answering({"10.1.2.3", "10.1.2.4"})};
    EXPECT_EQ(look(), 0);
    EXPECT_STREQ(output.data(), "10.1.2.3");
}

TEST_F(Resolver, secondServerAnswers) {
    initialise();
    cares().passes = {silent(), answering({"10.1.2.3"})};
    EXPECT_EQ(look(), 0);
    EXPECT_STREQ(output.data(), "10.1.2.3");
    EXPECT_THAT(platform().log, ElementsAre(shortLine(10000, "p_ns[10.0.0.53] s_ns[10.0.0.54]"), kTimeout,
                                            firstFailed(1), line(20000, "Resolved [a.b]", "nslookup_ares")));
    EXPECT_EQ(platform().callCount("ares_init_options"), 1);
}

TEST_F(Resolver, attemptsUntilOneSucceeds) {
    initialise();
    cares().passes = {silent(), silent(), silent(), silent(), silent(), answering({"10.1.2.3"})};
    EXPECT_EQ(look(), 0);
    EXPECT_THAT(cares().timeouts, ElementsAre(5000, 1000, 5000));
    EXPECT_THAT(platform().log, ElementsAre(shortLine(10000, "p_ns[10.0.0.53] s_ns[10.0.0.54]"), kTimeout,
                                            firstFailed(1), kTimeout, secondFailed(1), kCancelled, kTimeout,
                                            firstFailed(2), kTimeout, secondFailed(2), kCancelled, kTimeout,
                                            firstFailed(3), line(20000, "Resolved [a.b]", "nslookup_ares")));
}

TEST_F(Resolver, bothServersSilent) {
    initialise();
    EXPECT_EQ(look("10.0.0.53", "10.0.0.54", "eth0"), -1);
    EXPECT_EQ(output[0], '\0');
    EXPECT_THAT(cares().timeouts, ElementsAre(5000, 1000, 5000));
    EXPECT_THAT(cares().devices, ElementsAre("eth0", "eth0", "eth0"));
    std::vector<LogLine> expected = {shortLine(10000, "p_ns[10.0.0.53] s_ns[10.0.0.54]")};
    for (const int attempt : {1, 2, 3}) {
        for (const LogLine &entry :
             {kTimeout, firstFailed(attempt), kTimeout, secondFailed(attempt), kCancelled}) {
            expected.push_back(entry);
        }
    }
    expected.push_back(remote(60000, "NETWORK: fail to retrieve host ip url[a.b], iface[eth0]"));
    expected.push_back(line(70000, "Could not resolve [a.b] ", "nslookup_ares"));
    EXPECT_EQ(platform().log, expected);
    EXPECT_EQ(platform().callCount("ares_cancel"), 3);
    EXPECT_EQ(platform().callCount("ares_destroy"), 3);
}

TEST_F(Resolver, singleServerHasNoSecondWait) {
    for (const bool primary : {true, false}) {
        SetUp();
        initialise();
        EXPECT_EQ(look(primary ? "10.0.0.53" : "", primary ? nullptr : "10.0.0.54"), -1);
        EXPECT_THAT(
            platform().log,
            ElementsAre(shortLine(10000, primary ? "p_ns[10.0.0.53] s_ns[null]" : "p_ns[] s_ns[10.0.0.54]"),
                        kTimeout, kCancelled, kTimeout, kCancelled, kTimeout, kCancelled,
                        remote(60000, "NETWORK: fail to retrieve host ip url[a.b]"),
                        line(70000, "Could not resolve [a.b] ", "nslookup_ares")));
        EXPECT_THAT(cares().servers, testing::Each(primary ? "10.0.0.53" : "10.0.0.54"));
    }
}

TEST_F(Resolver, emptyInterfaceIsNoDeviceButIsReported) {
    initialise();
    EXPECT_EQ(look("10.0.0.53", nullptr, ""), -1);
    EXPECT_THAT(cares().devices, IsEmpty());
    EXPECT_THAT(platform().log,
                Contains(remote(60000, "NETWORK: fail to retrieve host ip url[a.b], iface[]")));
}

TEST_F(Resolver, withoutServers) {
    for (const auto &[primary, secondary] : std::vector<std::pair<const char *, const char *>>{
             {"", ""}, {nullptr, nullptr}, {"", nullptr}, {nullptr, ""}}) {
        SetUp();
        initialise();
        EXPECT_EQ(look(primary, secondary), -1);
        EXPECT_THAT(platform().log, ElementsAre(line(80000, "bad arguments: no dns", "nslookup_ares")));
        EXPECT_EQ(platform().log[0].format, "%s");
        EXPECT_THAT(platform().calls(), IsEmpty());
        EXPECT_TRUE(untouched());
    }
}

TEST_F(Resolver, badArguments) {
    initialise();
    EXPECT_EQ(nslookup_ares(nullptr, nullptr, "10.0.0.53", nullptr, output.data()), -1);
    EXPECT_EQ(nslookup_ares("", nullptr, "10.0.0.53", nullptr, output.data()), -1);
    EXPECT_EQ(nslookup_ares("a.b", nullptr, "10.0.0.53", nullptr, nullptr), -1);
    const LogLine bad = line(80000, "Bad arguments", "nslookup_ares");
    EXPECT_THAT(platform().log, ElementsAre(bad, bad, bad));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_THAT(platform().calls(), IsEmpty());
    EXPECT_TRUE(untouched());
}

TEST_F(Resolver, invalidServerIsDropped) {
    initialise();
    cares().passes = {silent(), answering({"10.1.2.3"})};
    errno = EPIPE;
    EXPECT_EQ(look("abc", "10.0.0.54"), 0);
    EXPECT_THAT(cares().servers, ElementsAre("10.0.0.54", "10.0.0.54"));
    ASSERT_GE(platform().log.size(), 2u);
    EXPECT_EQ(platform().log[0], shortLine(10000, "p_ns[abc] s_ns[10.0.0.54]"));
    EXPECT_EQ(platform().log[1].format, "Invalid address family %s");
    EXPECT_EQ(platform().log[1].level, 70000);
    EXPECT_THAT(platform().log, Not(Contains(firstFailed(1))));
    SetUp();
    initialise();
    cares().passes = {answering({"10.1.2.3"})};
    EXPECT_EQ(look("10.0.0.53", "10.0.0.256"), 0);
    EXPECT_THAT(cares().servers, ElementsAre("10.0.0.53"));
}

TEST_F(Resolver, noValidServer) {
    initialise();
    EXPECT_EQ(look("abc", "1.2.3"), -1);
    ASSERT_EQ(platform().log.size(), 4u);
    EXPECT_EQ(platform().log[1].format, "Invalid address family %s");
    EXPECT_EQ(platform().log[2].format, "Invalid address family %s");
    EXPECT_EQ(platform().log[3], line(70000, "No valid dns servers provided", "nslookup_ares"));
    EXPECT_EQ(platform().log[3].format, "%s");
    EXPECT_TRUE(untouched());
    EXPECT_THAT(platform().calls(), IsEmpty());
}

TEST_F(Resolver, channelThatCannotBeOpened) {
    initialise();
    cares().initStatus = ARES_EFILE;
    EXPECT_EQ(look(), -1);
    const LogLine failed = line(70000, std::string("ares_init_options error: ") + ares_strerror(ARES_EFILE),
                                "Init_Ares_Channel");
    EXPECT_THAT(platform().log,
                ElementsAre(shortLine(10000, "p_ns[10.0.0.53] s_ns[10.0.0.54]"), failed, failed, failed,
                            remote(60000, "NETWORK: fail to retrieve host ip url[a.b]"),
                            line(70000, "Could not resolve [a.b] ", "nslookup_ares")));
    EXPECT_EQ(platform().callCount("ares_gethostbyname"), 0);
    EXPECT_EQ(platform().callCount("ares_destroy"), 0);
    EXPECT_EQ(output[0], '\0');
}

TEST_F(Resolver, serversThatCannotBeSet) {
    initialise();
    cares().serversStatus = ARES_ENOMEM;
    EXPECT_EQ(look("10.0.0.53", "10.0.0.54", "eth0"), -1);
    const LogLine failed = line(70000, std::string("ares_set_servers error: ") + ares_strerror(ARES_ENOMEM),
                                "Init_Ares_Channel");
    EXPECT_THAT(platform().log,
                ElementsAre(shortLine(10000, "p_ns[10.0.0.53] s_ns[10.0.0.54]"), failed, failed, failed,
                            remote(60000, "NETWORK: fail to retrieve host ip url[a.b], iface[eth0]"),
                            line(70000, "Could not resolve [a.b] ", "nslookup_ares")));
    EXPECT_EQ(platform().callCount("ares_gethostbyname"), 0);
    EXPECT_EQ(platform().callCount("ares_destroy"), 3) << "nothing of c-ares outlives a call";
}

TEST_F(Resolver, answerOfThePassedTimeOutDoesNotCount) {
    // The name is known without a server, so there is nothing to wait for: no attempt succeeds, yet the last
    // one leaves the address.
    initialise();
    cares().onLookup = [] { cares().answer({"127.0.0.1"}); };
    Pass nothing;
    nothing.sockets.clear();
    cares().passes = {nothing, nothing, nothing};
    EXPECT_EQ(look("10.0.0.53", ""), 0);
    EXPECT_STREQ(output.data(), "127.0.0.1");
    const LogLine idle = line(50000, "no events to wait for", "Wait_Ares");
    EXPECT_THAT(platform().log, ElementsAre(shortLine(10000, "p_ns[10.0.0.53] s_ns[]"), idle, idle, idle,
                                            remote(60000, "NETWORK: fail to retrieve host ip url[a.b]"),
                                            line(20000, "Resolved [a.b]", "nslookup_ares")));
    EXPECT_EQ(platform().callCount("ppoll"), 0);
    EXPECT_EQ(platform().callCount("ares_process_fd"), 3);
}

TEST_F(Resolver, traffickWithoutAddressGoesOn) {
    // The first server answers that there is no such host: the pass succeeds, the result stays empty.
    initialise();
    Pass refusing;
    refusing.ready = 1;
    refusing.events = {POLLIN};
    refusing.processing = [] { cares().failLookup(ARES_ENOTFOUND, 2); };
    cares().passes = {refusing, silent()};
    EXPECT_EQ(look("10.0.0.53", "10.0.0.54"), -1);
    EXPECT_EQ(platform().log[1], line(70000,
                                      std::string("DNS server could not find the host, status [") +
                                          ares_strerror(ARES_ENOTFOUND) + "], internal timeouts [2]",
                                      "callback"));
    EXPECT_EQ(platform().log[2], firstFailed(1));
}

TEST_F(Resolver, lateAnswersOfTheFirstWaitAreEmptiedByTheNextAttempt) {
    initialise();
    Pass late; // c-ares finds the answer although ppoll() timed out
    late.processing = [] { cares().answer({"10.1.2.3"}); };
    cares().passes = {late};
    EXPECT_EQ(look("10.0.0.53", nullptr), -1);
    EXPECT_EQ(output[0], '\0');
}

TEST_F(Resolver, repeatedCalls) {
    initialise();
    for (const auto &[tries, calls] :
         std::vector<std::pair<int, int>>{{-5, 1}, {0, 1}, {1, 1}, {2, 2}, {4, 4}}) {
        platform().journal.clear();
        EXPECT_EQ(nslookup_ares_n("a.b", "eth0", "10.0.0.53", nullptr, output.data(), 99, tries), -1);
        EXPECT_EQ(platform().callCount("ares_init_options"), 3 * calls);
    }
    platform().journal.clear();
    cares().passes = {silent(), silent(), silent(), answering({"10.1.2.3"})};
    EXPECT_EQ(nslookup_ares_n("a.b", "eth0", "10.0.0.53", nullptr, output.data(), 0, 5), 0);
    EXPECT_STREQ(output.data(), "10.1.2.3");
    EXPECT_EQ(platform().callCount("ares_init_options"), 4);
    EXPECT_EQ(cares().devices.back(), "eth0");
}

class WaitAres : public Resolver {
  protected:
    int wait(const Pass &pass) {
        platform().journal.clear();
        platform().log.clear();
        cares().passes = {pass};
        return ozu::ares::Wait_Ares(reinterpret_cast<ares_channel>(&cares()));
    }
};

TEST_F(WaitAres, eventsOfTheSockets) {
    Pass pass;
    pass.sockets = {{70, true, false}, {71, false, true}, {72, true, true}};
    pass.ready = 3;
    pass.events = {POLLIN, POLLOUT, POLLIN | POLLOUT};
    EXPECT_EQ(wait(pass), 0);
    ASSERT_EQ(cares().polled.size(), 3u);
    EXPECT_EQ(cares().polled[0].events, POLLIN | POLLRDNORM);
    EXPECT_EQ(cares().polled[1].events, POLLOUT | POLLWRNORM);
    EXPECT_EQ(cares().polled[2].events, POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM);
    EXPECT_THAT(platform().journal, ElementsAre("ares_getsock(16)", "ares_timeout(20.0)", "ppoll(3, 5.0)",
                                                "ares_process_fd(70, bad)", "ares_process_fd(bad, 71)",
                                                "ares_process_fd(72, 72)"));
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(WaitAres, socketsWithoutEventsAreProcessedToo) {
    Pass pass;
    pass.sockets = {{70, true, false}, {71, true, true}, {72, true, false}, {73, true, false}};
    pass.ready = 2;
    pass.events = {0, POLLERR, POLLRDNORM, POLLWRNORM};
    EXPECT_EQ(wait(pass), 0);
    EXPECT_THAT(platform().journal, ElementsAre("ares_getsock(16)", "ares_timeout(20.0)", "ppoll(4, 5.0)",
                                                "ares_process_fd(bad, bad)", "ares_process_fd(bad, bad)",
                                                "ares_process_fd(72, bad)", "ares_process_fd(bad, 73)"));
}

TEST_F(WaitAres, stopsAtTheFirstUnusedSlot) {
    Pass pass;
    pass.sockets = {{70, true, false}, {71, false, false}, {72, true, false}};
    EXPECT_EQ(wait(pass), -1);
    ASSERT_EQ(cares().polled.size(), 1u);
}

TEST_F(WaitAres, sixteenSockets) {
    Pass pass;
    pass.sockets.clear();
    for (int i = 0; i < 16; ++i) {
        pass.sockets.push_back({100 + i, true, true});
    }
    pass.ready = 1;
    pass.events = std::vector<short>(16, POLLIN);
    EXPECT_EQ(wait(pass), 0);
    EXPECT_EQ(cares().polled.size(), 16u);
    EXPECT_EQ(platform().callCount("ares_process_fd"), 16);
}

TEST_F(WaitAres, waitsAtLeastASecond) {
    Pass pass;
    pass.timeout = {0, 200000};
    EXPECT_EQ(wait(pass), -1);
    EXPECT_EQ(cares().lastWait.tv_sec, 1);
    EXPECT_EQ(cares().lastWait.tv_nsec, 200000000);
    EXPECT_THAT(platform().log,
                ElementsAre(line(50000, "make ppoll to wait at least 1 second", "Wait_Ares"), kTimeout));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_EQ(platform().log[1].format, "%s");
}

TEST_F(WaitAres, waitsAsLongAsCaresSays) {
    Pass pass;
    pass.timeout = {3, 999999};
    EXPECT_EQ(wait(pass), -1);
    EXPECT_EQ(cares().lastWait.tv_sec, 3);
    EXPECT_EQ(cares().lastWait.tv_nsec, 999999000);
    pass.timeout = {50, 1};
    EXPECT_EQ(wait(pass), -1);
    EXPECT_EQ(cares().lastWait.tv_sec, 20);
    EXPECT_EQ(cares().lastWait.tv_nsec, 0);
    EXPECT_THAT(platform().journal, ElementsAre("ares_getsock(16)", "ares_timeout(20.0)", "ppoll(1, 20.0)",
                                                "log 50000 ppoll timeout", "ares_process_fd(bad, bad)"));
}

TEST_F(WaitAres, nothingToWaitFor) {
    Pass pass;
    pass.sockets.clear();
    pass.timeout = {0, 0};
    EXPECT_EQ(wait(pass), -1);
    EXPECT_THAT(platform().journal,
                ElementsAre("ares_getsock(16)", "ares_timeout(20.0)",
                            "log 50000 make ppoll to wait at least 1 second",
                            "log 50000 no events to wait for", "ares_process_fd(bad, bad)"));
    EXPECT_EQ(platform().log[1].format, "%s");
}

TEST_F(WaitAres, failedPoll) {
    Pass pass;
    pass.ready = -1;
    pass.error = EINTR;
    EXPECT_EQ(wait(pass), -1);
    EXPECT_THAT(platform().log, ElementsAre(line(70000, "poll error", "Wait_Ares")));
    EXPECT_EQ(platform().log[0].format, "poll error");
    EXPECT_EQ(platform().journal.back(), "ares_process_fd(bad, bad)");
    EXPECT_EQ(platform().callCount("ppoll"), 1);
}

class Callback : public Resolver {
  protected:
    void call(void *argument, const std::vector<std::string> &addresses, int family = AF_INET) {
        cares().callback = ozu::ares::callback;
        cares().argument = argument;
        cares().answer(addresses, family);
    }
};

TEST_F(Callback, takesTheFirstAddressAndClearsSixteenBytes) {
    call(output.data(), {"10.1.2.3", "10.1.2.4"});
    EXPECT_EQ(std::string(output.data(), 20), std::string("10.1.2.3") + std::string(8, '\0') + "####");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Callback, addressThatCannotBeWrittenIsPassedOver) {
    unwritable = 1;
    call(output.data(), {"10.1.2.3", "10.1.2.4", "10.1.2.5"});
    EXPECT_STREQ(output.data(), "10.1.2.4");
    unwritable = 2;
    call(output.data(), {"10.1.2.3", "10.1.2.4"});
    EXPECT_EQ(std::string(output.data(), 20), std::string(16, '\0') + "####");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Callback, otherFamiliesAndNoAddresses) {
    call(output.data(), {"2001:db8::1"}, AF_INET6);
    EXPECT_EQ(std::string(output.data(), 20), std::string(16, '\0') + "####");
    output.fill('#');
    call(output.data(), {});
    EXPECT_EQ(std::string(output.data(), 20), std::string(16, '\0') + "####");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Callback, withoutArgument) {
    call(nullptr, {"10.1.2.3"});
    EXPECT_THAT(platform().log, ElementsAre(line(70000, "Invalid parameter", "callback")));
    EXPECT_EQ(platform().log[0].format, "%s");
}

TEST_F(Callback, failures) {
    hostent host{};
    ozu::ares::callback(output.data(), ARES_ETIMEOUT, 4, &host);
    ozu::ares::callback(output.data(), ARES_SUCCESS, 1, nullptr);
    EXPECT_TRUE(untouched());
    const auto failed = [](int status, int timeouts) {
        return line(70000,
                    std::string("DNS server could not find the host, status [") + ares_strerror(status) +
                        "], internal timeouts [" + std::to_string(timeouts) + "]",
                    "callback");
    };
    EXPECT_THAT(platform().log, ElementsAre(failed(ARES_ETIMEOUT, 4), failed(ARES_SUCCESS, 1)));
}

TEST_F(Resolver, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    constexpr int kStatuses[] = {ARES_ENOTFOUND, ARES_ESERVFAIL, ARES_ETIMEOUT};
    initialise();
    for (int round = 0; round < 500; ++round) {
        cares().passes.clear();
        cares().initStatus = random.below(30) == 0 ? ARES_ENOMEM : ARES_SUCCESS;
        cares().serversStatus = random.below(30) == 0 ? ARES_ENODATA : ARES_SUCCESS;
        for (std::uint32_t left = random.below(7); left > 0; --left) {
            Pass pass = random.below(4) == 0
                            ? answering({"10.1.2." + std::to_string(random.below(256)), "10.9.9.9"})
                            : silent();
            if (random.below(4) == 0) {
                pass.ready = 1;
                pass.events = {POLLIN};
                const int status = kStatuses[random.below(3)];
                pass.processing = [status] { cares().failLookup(status, 2); };
            }
            pass.timeout = {static_cast<time_t>(random.below(30)), static_cast<suseconds_t>(left)};
            cares().passes.push_back(pass);
        }
        output.fill('#');
        const char *secondary = round % 3 == 0 ? nullptr : "10.0.0.54";
        digest.add(look("10.0.0.53", secondary, round % 5 == 0 ? "eth0" : nullptr),
                   std::string_view(output.data(), output.size()));
    }
    digest.print("lookups");
}

// Everything that is documented to run concurrently, all at once, while commands are started: library and
// platform as a process links them. Meant for the thread sanitizer; OZU_ATTACK=long makes a million calls.

#include "attack_form.h"
#include "data_folders.h"
#include "random_numbers.h"

#include <gtest/gtest.h>
#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>
#include <product_info.h>
#include <system_event_log.h>
#include <utils_ozu.h>

#include <netinet/in.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using ozu::test::Random;

constexpr unsigned kThreads = 8;

void callText(Random &random) {
    std::array<char, 64> text{};
    const std::string source = random.text(random.below(40), "aA1,./:@ x\xC3\xA4");
    ozuutils_strlcpy(text.data(), source.c_str(), text.size());
    ozuutils_strncpy2Upper(text.data(), source.c_str(), 40);
    ozuutils_addToCommaSeparatedStringList(text.data(), "item", text.size());
    ozuutils_replaceSubstrInStr(text.data(), "item", "x", text.size());
    static_cast<void>(safe_atoi(source.c_str()));
    static_cast<void>(ozuutils_StringToNum(source.c_str(), 8, 16));
    std::array<unsigned char, 32> bytes{};
    ozuutils_hexStringToBinary(source.c_str(), bytes.data(), bytes.size(), 0);
}

void callNames(Random &random) {
    const auto number = static_cast<int>(random.below(300));
    EXPECT_NE(getDeviceTypeName(number), nullptr);
    EXPECT_NE(getTarn1OpcodeName(random.below(300)), nullptr);
    static_cast<void>(getDeviceTypeEnum("PIR"));
    static_cast<void>(ozuutils_getRsuFolder(number));
    std::uint32_t answer = 0;
    ozuutils_getLumAlarmType("gas", &answer);
    EXPECT_EQ(answer, 3U);
    std::array<char, 4> mcc{};
    std::array<char, 4> mnc{};
    EXPECT_EQ(ozuutils_IMSItoMccMnc("425010123456789", mcc.data(), mnc.data()), 2);
}

void callState(Random &random) {
    const auto device = static_cast<int>(random.below(210));
    static_cast<void>(IsPanelInAlarm());
    static_cast<void>(getCurArmType());
    static_cast<void>(ozuutils_isZoneBypassed(device, 0));
    static_cast<void>(IsDeviceMagnetType(device));
    static_cast<void>(ozuutils_isDeviceExistsAndActive(random.below(9), 37));
    static_cast<void>(ozuutils_isSafetyEventInProgress());
    static_cast<void>(getSY9IdFromUser(random.below(300)));
    static_cast<void>(getProductCodename());
    unsigned char any = 0;
    EXPECT_EQ(ozudb_isInFlightData(&any), 0);
}

void callNetwork(Random &random) {
    std::array<int, 4> number{};
    const std::string literal = "10." + std::to_string(random.below(300)) + ".1.1";
    static_cast<void>(is_valid_ip(literal.c_str(), &number[0], &number[1], &number[2], &number[3]));
    static_cast<void>(isValidIpAddress(literal.c_str()));
    std::array<char, 32> url{"http://user@host:80/path"};
    std::array<char, 16> host{};
    EXPECT_EQ(parse_host(url.data(), host.data(), host.size()), 1);
    EXPECT_STREQ(host.data(), "host");
    std::array<char, 16> address{};
    static_cast<void>(get_device_ip("lo", address.data()));
    sockaddr_in found{};
    static_cast<void>(ozuutils_gethostIPv4byIfname(&found, nullptr, "lo"));
}

void callFiles(Random &random) {
    void *buffer = nullptr;
    static_cast<void>(allocFileToBuff("/proc/self/cmdline", &buffer));
    free(buffer); // also when it could not be opened
    std::array<unsigned char, 16> bytes{};
    EXPECT_EQ(ozuutils_rand_bytes(bytes.data(), static_cast<int>(bytes.size())), 0U);
    std::array<char, 3> alpha2{};
    static_cast<void>(get_country_alpha2Code("Utopia", alpha2.data()));
    std::array<char, 42> key{};
    static_cast<void>(ozuutils_getDBcypher(key.data()));
    EXPECT_EQ(ozuutils_is_temp_file("/tmp/x"), 1);
    static_cast<void>(random);
}

void callPlatform(Random &random) {
    ozulog_printf_extend(30000, "%s %u", "threads", __func__, __LINE__, "line", random());
    EXPECT_EQ(ozumqttc_messagePublish("a\x01", 0, "", 0, 0, nullptr), 1);
    EXPECT_NE(ozumqttc_messagePublish("Process/ALL", 0, "", 0, 0, nullptr), 0); // there is no session
    if (random.below(300) == 0) {
        EXPECT_EQ(LOG_system_event(1, "event"), 0);
        EXPECT_EQ(ozudb_ModifyBypassExpiry(static_cast<int>(random.below(256)), 1, 5), 0);
        EXPECT_EQ(ozudb_ModifyModemStatistics(1, 2, 3, 4, 5, 6, 7, 8, 1), 0);
        EXPECT_EQ(limited_log_system_event(1, 1, "limited"), 0);
    }
    if (random.below(3000) == 0) {
        std::array<char, 10> program{"/bin/true"};
        std::array<char *, 2> words{program.data(), nullptr};
        int in = -1;
        int out = -1;
        const pid_t child = popen2(words.data(), &in, &out, nullptr);
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        close(in);
        close(out);
    }
}

struct Family {
    void (*call)(Random &random);
    int calls; // of documented functions, at least
};
constexpr std::array kFamilies{Family{callText, 7},    Family{callNames, 6}, Family{callState, 9},
                               Family{callNetwork, 5}, Family{callFiles, 5}, Family{callPlatform, 3}};

} // namespace

TEST(Threads, everythingConcurrentAtOnce) {
    const std::string folder = ozu::test::makeDataFolder();
    ASSERT_NE(freopen("/dev/null", "w", stderr), nullptr);
    ASSERT_EQ(ozulog_init("threads"), 0);
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    const long wanted = ozu::test::isLongAttack() ? 1000000 : 20000;
    std::atomic<long> calls = 0;
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            Random random(number);
            while (calls < wanted) {
                const Family &family = kFamilies[random.below(kFamilies.size())];
                family.call(random);
                calls += family.calls;
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    printf("attack: threads: %ld trials, %d failures\n", calls.load(), HasFailure() ? 1 : 0);
    ozu::test::removeWithSegments(folder);
}

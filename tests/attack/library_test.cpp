// The library's uses with each of their system calls failing in each way that its manual names, once and from
// there on, whoever makes it: also what the C library, c-ares, OpenSSL and the decoder ask of the kernel.

#include "attack_form.h"
#include "emulation.h"
#include "failing_calls.h"
#include "fake_platform.h"
#include "injection.h"
#include "resource_count.h"
#include "scenarios.h"
#include "test_files.h"

#include <utils_ozu/crypto.h>
#include <utils_ozu/files.h>

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>

using namespace ozu::test;

namespace {

// In a process of its own: 0 when the use came to its end and left nothing, 1 when it left something.
int useOnce(const Scenario &scenario) {
    static_cast<void>(scenario.run());
    injection().end();
    const bool clean = injection().streams == 0 && injection().channels == 0 && injection().memory.empty();
    return clean ? 0 : 1;
}

// Uses that make their files or their /proc themselves, so that these calls would fail as well. The first
// four are tried with files that were there before.
bool preparesItself(const Scenario &scenario) {
    constexpr std::array kNames{"allocFileToBuff",
                                "decryptVideoFile",
                                "ozuutils_crypt_aes128ecb decrypt",
                                "ozuutils_crypt_aes128ecb encrypt",
                                "ozuutils_findProcessId",
                                "ozuutils_removeRsuFile",
                                "unlink_cb"};
    return std::find(kNames.begin(), kNames.end(), scenario.name) != kNames.end();
}

constexpr std::array<unsigned char, 16> kKey{1, 2, 3};

void prepareFiles() {
    writeFile(worldFile("plain"), std::string(100000, 'p'));
    writeFile(worldFile("cipher"), std::string(100000, 'c'));
}

std::vector<Scenario> fileScenarios() {
    return {
        {"allocFileToBuff",
         [] {
             void *buffer = nullptr;
             allocFileToBuff(worldFile("plain").c_str(), &buffer);
             free(buffer); // also when it could not be opened
             return std::string();
         }},
        {"ozuutils_crypt_aes128ecb encrypt",
         [] {
             ozuutils_crypt_aes128ecb(worldFile("plain").c_str(), worldFile("out").c_str(), kKey.data(), 1);
             return std::string();
         }},
        {"ozuutils_crypt_aes128ecb decrypt",
         [] {
             ozuutils_crypt_aes128ecb(worldFile("cipher").c_str(), worldFile("out").c_str(), kKey.data(), 0);
             return std::string();
         }},
        {"decryptVideoFile", [] {
             decryptVideoFile(worldFile("cipher").c_str(), kKey.data(), 16, 0);
             return std::string();
         }}};
}

class LibraryCalls : public testing::TestWithParam<std::vector<Scenario> (*)()> {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        if (!isLongAttack()) {
            GTEST_SKIP() << "each of them starts a process, which takes a sanitizer long: OZU_ATTACK=long";
        }
#endif
        if (!callsCanFail()) {
            GTEST_SKIP() << "the kernel does not let a process supervise another's calls here";
        }
    }
    void trial(const Scenario &scenario, const CallFailure &failure, long call) {
        resetWorld();
        prepareFiles();
        platform() = FakePlatform();
        injection().begin(-1, 0, false);
        static_cast<void>(fflush(stdout));
        const FailureRun run = runWithFailure(failure, [&] { return useOnce(scenario); });
        injection().end();
        ++trials;
        if (run.late || run.status != 0) {
            ++failures;
            printf("failed: %s (%ld), %s: status %d%s\n", scenario.name.c_str(), call,
                   wordsFor(failure).c_str(), run.status, run.late ? ", late" : "");
        }
    }
    void sweep(const Scenario &scenario) {
        resetWorld();
        prepareFiles();
        platform() = FakePlatform();
        injection().begin(-1, 0, false);
        const FailureRun undisturbed = runWithFailure({}, [&] { return useOnce(scenario); });
        injection().end();
        EXPECT_EQ(undisturbed.status, 0) << scenario.name;
        const std::size_t stride =
            isLongAttack() ? 1 : std::max<std::size_t>(1, undisturbed.calls.size() / 3);
        for (std::size_t i = 0; i < undisturbed.calls.size(); i += stride) {
            for (const int error : errorsOf(undisturbed.calls[i])) {
                for (const int times : timesOf(error)) {
                    trial(scenario, {static_cast<int>(i) + 1, error, times}, undisturbed.calls[i]);
                }
            }
        }
    }
    long trials = 0;
    long failures = 0;
};

std::string nameOf(const testing::TestParamInfo<std::vector<Scenario> (*)()> &room) {
    constexpr std::array kNames{"alarm",   "devices",  "media", "network",
                                "process", "security", "time",  "files"};
    return kNames.at(room.index);
}

} // namespace

TEST_P(LibraryCalls, fail) {
    std::vector<Scenario> scenarios = GetParam()();
    if (GetParam() != fileScenarios) {
        std::erase_if(scenarios, preparesItself);
    }
    for (const Scenario &scenario : scenarios) {
        sweep(scenario);
    }
    printf("attack: %s: %ld trials, %ld failures, %zu uses\n",
           testing::UnitTest::GetInstance()->current_test_info()->name(), trials, failures, scenarios.size());
    EXPECT_GT(trials, 0);
    EXPECT_EQ(failures, 0);
}

// ---- soak
// ------------------------------------------------------------------------------------------------------------

namespace {

// What a call keeps, or how long it waits, is part of its description.
bool keepsOrWaits(const Scenario &scenario) {
    constexpr std::array kNames{"exec_cmd", "popen2", "ozuutils_jpegValidator damaged",
                                "ozuutils_RebootSystem", "ozuutils_processInit"};
    return std::find(kNames.begin(), kNames.end(), scenario.name) != kNames.end();
}

// Once more. What the test would tell of it is forgotten.
std::string runAgain(const Scenario &scenario) {
    const std::string result = scenario.run();
    injection().forgetCalls();
    platform().journal.clear();
    platform().log.clear();
    platform().published.clear();
    return result;
}

std::chrono::seconds timeOfEachUse() {
    const char *chosen = std::getenv("OZU_SOAK_SECONDS");
    return std::chrono::seconds(chosen == nullptr ? 5 : std::strtol(chosen, nullptr, 10));
}

class LibrarySoak : public testing::TestWithParam<std::vector<Scenario> (*)()> {
  protected:
    // A million calls, or as many as fit into some seconds; returns how many.
    static long soak(const Scenario &scenario, std::chrono::seconds time, long most) {
        constexpr int kWarm = 100;
        resetWorld();
        prepareFiles();
        // The calls of the C library that the scenarios disturb go through.
        platform() = FakePlatform();
        injection().begin(-1, 0, false);
        std::string result;
        for (int i = 0; i < kWarm; ++i) {
            result = runAgain(scenario);
        }
        injection().pause(); // counting them opens a folder
        const int opened = openDescriptors();
        [[maybe_unused]] const long resident = residentPages();
        injection().resume();
        const auto until = std::chrono::steady_clock::now() + time;
        long calls = 0;
        long different = 0;
        while (calls < most && std::chrono::steady_clock::now() < until) {
            different += runAgain(scenario) == result ? 0 : 1;
            ++calls;
        }
        injection().end();
        EXPECT_EQ(different, 0) << scenario.name;
        EXPECT_EQ(openDescriptors(), opened) << scenario.name;
// Sanitizers keep freed memory, and an emulator has some of its own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        if (!emulated()) {
            EXPECT_LE(residentPages(), resident + 256)
                << scenario.name << " after " << calls << " calls"; // a megabyte
        }
#endif
        return calls;
    }
};

} // namespace

TEST_P(LibrarySoak, soak) {
    std::vector<Scenario> scenarios = GetParam()();
    std::erase_if(scenarios, keepsOrWaits);
    long calls = 0;
    long fewest = 1000000;
    std::string slowest;
    for (const Scenario &scenario : scenarios) {
        const long made = soak(scenario, timeOfEachUse(), isLongAttack() ? 1000000 : 200);
        calls += made;
        if (made < fewest) {
            fewest = made;
            slowest = ", " + std::to_string(made) + " of " + scenario.name;
        }
    }
    printf("attack: %s: %ld calls, 0 failures, %zu uses%s\n",
           testing::UnitTest::GetInstance()->current_test_info()->name(), calls, scenarios.size(),
           slowest.c_str());
    EXPECT_GT(calls, 0);
}

INSTANTIATE_TEST_SUITE_P(, LibrarySoak,
                         testing::Values(alarmScenarios, deviceScenarios, mediaScenarios, networkScenarios,
                                         processScenarios, securityScenarios, timeScenarios, fileScenarios),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(, LibraryCalls,
                         testing::Values(alarmScenarios, deviceScenarios, mediaScenarios, networkScenarios,
                                         processScenarios, securityScenarios, timeScenarios, fileScenarios),
                         nameOf);

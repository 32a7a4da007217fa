#include <utils_ozu/reboot.h>

#include "process_test.h"

#include <unistd.h>

#include <csetjmp>
#include <cstdlib>
#include <ctime>

namespace {

constexpr int kWrapped = 4711;

// A clock that only sleep moves, and a system that counts down to the end of the reboot.
struct Machine {
    long long now = 1700000000;
    int commandsLeft = 1;
    unsigned int left = 0; // what sleep reports as not slept
    jmp_buf gone = {};
    bool running = false;
    std::function<void(unsigned int)> onSleep;
};
Machine machine;

class Reboot : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        machine = Machine();
        // The canary: from here on the shell cannot be reached.
        ASSERT_EQ(system("exit 3"), kWrapped);
        machine.commandsLeft = 1;
        platform().journal.clear();
        platform().state.powerManagerMode = 2;
    }
};

// Runs the reboot until the given number of commands were handed to the shell.
void reboot(unsigned int delay, int reason, int wait, const char *text, int commands = 1) {
    machine.commandsLeft = commands;
    machine.running = true;
    if (setjmp(machine.gone) == 0) {
        ozuutils_RebootSystem(delay, reason, wait, text);
    }
    machine.running = false;
}

std::vector<LogLine> linesOf(int level) {
    std::vector<LogLine> lines;
    for (const auto &line : platform().log) {
        if (line.level == level) {
            lines.push_back(line);
        }
    }
    return lines;
}

} // namespace

extern "C" int __wrap_system(const char *command) {
    platform().journal.push_back(std::string("system(\"") + command + "\")");
    if (machine.running && --machine.commandsLeft == 0) {
        longjmp(machine.gone, 1);
    }
    return kWrapped;
}

extern "C" unsigned int __wrap_sleep(unsigned int seconds) {
    platform().journal.push_back("sleep(" + std::to_string(seconds) + ")");
    machine.now += seconds;
    if (machine.onSleep) {
        machine.onSleep(seconds);
    }
    return machine.left;
}

extern "C" time_t __wrap_time(time_t *out) {
    platform().journal.emplace_back("time()");
    const auto now = static_cast<time_t>(machine.now);
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

TEST_F(Reboot, goesThroughEveryStepInOrder) {
    platform().state.powerManagerMode = 5;
    for (int i = 0; i < OZUDB_MODEM_COUNTERS; ++i) {
        platform().state.modemStatistics[0].counter[i] = static_cast<uint16_t>(100 + i);
        platform().state.modemStatistics[1].counter[i] = static_cast<uint16_t>(200 + i);
    }
    reboot(7, 42, 30, "new firmware");
    EXPECT_THAT(platform().journal,
                ElementsAre("ozudb_getSharedMemory(0)",
                            "log 40000 REBOOT CP, boot reason = 42, [new firmware]",
                            "ozumqttc_messagePublish(\"Process/POWER_MANAGER\", 1, \"\", 22, 21, payload)",
                            "ozudb_updatePanelRebootReason(42)",
                            "ozumqttc_messagePublish(\"Process/ALL\", 0, \"LTE\", 1, 0, payload)",
                            "log 30000 System reset will begin after [ 7] seconds", "sleep(7)",
                            "ozudb_ModifyModemStatistics(200, 202, 202, 203, 204, 205, 206, 207, 0)",
                            "ozudb_ModifyModemStatistics(100, 102, 102, 103, 104, 105, 106, 107, 1)",
                            "ozudb_isInFlightData()", "system(\"sync; reboot\")"));
    EXPECT_THAT(platform().log, ElementsAre(shortLine(40000, "REBOOT CP, boot reason = 42, [new firmware]"),
                                            extended(30000, "System reset will begin after [ 7] seconds",
                                                     "ozuutils_RebootSystem")));
    ASSERT_EQ(platform().published.size(), 2u);
    EXPECT_EQ(platform().published[0].payload, std::string(1, '\0'));
    EXPECT_FALSE(platform().published[1].nullPayload);
    EXPECT_EQ(platform().published[1].payload, "");
}

TEST_F(Reboot, powerManagerIsToldInModesOneAndFiveOnly) {
    for (const uint32_t mode :
         {0U, 1U, 2U, 3U, 4U, 5U, 6U, 255U, 256U, 257U, 65537U, 0x80000001U, 0xFFFFFFFFU}) {
        platform().published.clear();
        platform().state.powerManagerMode = mode;
        reboot(0, 1, 0, "x");
        const bool told = mode == 1 || mode == 5;
        ASSERT_EQ(platform().published.size(), told ? 2u : 1u) << mode;
        EXPECT_EQ(platform().published.back().topic, "Process/ALL") << mode;
        EXPECT_EQ(platform().published.front().topic, told ? "Process/POWER_MANAGER" : "Process/ALL") << mode;
    }
}

TEST_F(Reboot, withoutATextTheStoredReasonStays) {
    reboot(1, 9, 0, nullptr);
    EXPECT_EQ(platform().callCount("ozudb_updatePanelRebootReason"), 0);
    EXPECT_EQ(platform().log[0], shortLine(40000, "REBOOT CP, boot reason = 9, []"));
    platform().log.clear();
    reboot(1, -9, 0, "");
    EXPECT_EQ(platform().callCount("ozudb_updatePanelRebootReason"), 0);
    EXPECT_EQ(platform().log[0], shortLine(40000, "REBOOT CP, boot reason = -9, []"));
}

TEST_F(Reboot, textIsNeverAFormat) {
    reboot(0, 1, 0, "100%s %n");
    EXPECT_EQ(platform().log[0], shortLine(40000, "REBOOT CP, boot reason = 1, [100%s %n]"));
}

TEST_F(Reboot, delayIsPrintedUnsigned) {
    reboot(0xFFFFFFFFU, 1, 0, "x");
    EXPECT_THAT(platform().journal, Contains("log 30000 System reset will begin after [4294967295] seconds"));
    EXPECT_THAT(platform().journal, Contains("sleep(4294967295)"));
}

TEST_F(Reboot, nothingStopsIt) {
    platform().state.powerManagerMode = 1;
    platform().results = {{"ozumqttc_messagePublish", -3},
                          {"ozudb_updatePanelRebootReason", 12},
                          {"ozudb_ModifyModemStatistics", 5},
                          {"ozudb_isInFlightData", 6}};
    reboot(2, 3, 0, "why");
    EXPECT_THAT(linesOf(70000), ElementsAre(extended(70000, "MQTT message publish failed with code: -3",
                                                     "ozuutils_RebootSystem"),
                                            extended(70000, "Failed to update DB with the reason, code: 12",
                                                     "ozuutils_RebootSystem")));
    EXPECT_EQ(platform().callCount("ozudb_ModifyModemStatistics"), 2);
    EXPECT_EQ(platform().journal.back(), "system(\"sync; reboot\")");
}

TEST_F(Reboot, goesOnWithoutSharedState) {
    platform().stateMissing = true;
    reboot(4, 3, 0, "why");
    EXPECT_THAT(platform().calls(),
                ElementsAre("ozudb_getSharedMemory(0)", "ozudb_updatePanelRebootReason(3)",
                            "ozumqttc_messagePublish(\"Process/ALL\", 0, \"LTE\", 1, 0, payload)", "sleep(4)",
                            "ozudb_isInFlightData()", "system(\"sync; reboot\")"));
}

TEST_F(Reboot, counterWrapsAt65535) {
    platform().state.modemStatistics[0].counter[1] = 65535;
    platform().state.modemStatistics[1].counter[1] = 65534;
    reboot(0, 1, 0, "x");
    EXPECT_THAT(platform().journal, Contains("ozudb_ModifyModemStatistics(0, 65535, 0, 0, 0, 0, 0, 0, 0)"));
    EXPECT_THAT(platform().journal, Contains("ozudb_ModifyModemStatistics(0, 0, 0, 0, 0, 0, 0, 0, 1)"));
}

TEST_F(Reboot, countersAreReadAfterThePause) {
    machine.onSleep = [](unsigned int) { platform().state.modemStatistics[1].counter[1] = 70; };
    // The second record is read after the first was written.
    platform().onCall["ozudb_ModifyModemStatistics"] = [] {
        platform().state.modemStatistics[0].counter[1] = 80;
    };
    reboot(5, 1, 0, "x");
    EXPECT_THAT(platform().journal, Contains("ozudb_ModifyModemStatistics(0, 71, 0, 0, 0, 0, 0, 0, 0)"));
    EXPECT_THAT(platform().journal, Contains("ozudb_ModifyModemStatistics(0, 81, 0, 0, 0, 0, 0, 0, 1)"));
}

TEST_F(Reboot, stateIsFetchedOnce) {
    reboot(1, 1, 1, "x");
    EXPECT_EQ(platform().callCount("ozudb_getSharedMemory"), 1);
}

TEST_F(Reboot, waitsForUnsentMessagesWithProgress) {
    platform().inFlight.assign(12, 1);
    reboot(0, 1, 30, "x");
    EXPECT_EQ(platform().callCount("ozudb_isInFlightData"), 13);
    EXPECT_EQ(platform().callCount("sleep"), 13); // the delay of 0 and twelve seconds
    EXPECT_THAT(
        linesOf(40000),
        ElementsAre(
            shortLine(40000, "REBOOT CP, boot reason = 1, [x]"),
            shortLine(40000, "RebootSystem: Additional waiting for unsent messages to be sent (+0s)"),
            shortLine(40000, "RebootSystem: Additional waiting for unsent messages to be sent (+5s)"),
            shortLine(40000, "RebootSystem: Additional waiting for unsent messages to be sent (+10s)"),
            shortLine(40000, "RebootSystem: All messages have been sent. The system will reboot now ...")));
    EXPECT_EQ(linesOf(40000).back().format, "%s");
}

TEST_F(Reboot, progressComesBeforeTheSecondItAnnounces) {
    platform().inFlight.assign(1, 255);
    reboot(0, 1, 1, "x");
    const auto &journal = platform().journal;
    const auto first = std::find(journal.begin(), journal.end(), "ozudb_isInFlightData()");
    EXPECT_THAT(
        std::vector<std::string>(first, journal.end()),
        ElementsAre("ozudb_isInFlightData()",
                    "log 40000 RebootSystem: Additional waiting for unsent messages to be sent (+0s)",
                    "sleep(1)", "ozudb_isInFlightData()",
                    "log 40000 RebootSystem: All messages have been sent. The system will reboot now ...",
                    "system(\"sync; reboot\")"));
}

class RebootUnsent : public Reboot, public testing::WithParamInterface<int> {};

TEST_P(RebootUnsent, endsTheWaitInTime) {
    const int wait = GetParam();
    const int seconds = std::max(wait, 0);
    platform().inFlight.assign(1000, 1);
    reboot(0, 1, wait, "x");
    EXPECT_THAT(platform().log,
                Contains(extended(70000,
                                  "RebootSystem: Timeout while waiting for unsent messages! The system will "
                                  "reboot now with unsent messages!",
                                  "WaitForUnsentDataBeforeReboot")));
    EXPECT_EQ(linesOf(70000).front().format, "%s");
    EXPECT_EQ(platform().callCount("ozudb_isInFlightData"), seconds + 1);
    EXPECT_EQ(platform().callCount("sleep"), seconds + 1);
    EXPECT_EQ(linesOf(40000).size(), static_cast<std::size_t>(1 + (seconds + 4) / 5));
    EXPECT_EQ(platform().journal.back(), "system(\"sync; reboot\")");
}

INSTANTIATE_TEST_SUITE_P(Waits, RebootUnsent, testing::Values(-2147483647 - 1, -1, 0, 1, 4, 5, 6, 11, 300));

TEST_F(Reboot, isForcedAfterAMinuteAndEveryTenSecondsFromThen) {
    reboot(0, 1, 0, "x", 4);
    const auto &journal = platform().journal;
    const auto asked = std::find(journal.begin(), journal.end(), "system(\"sync; reboot\")");
    std::vector<std::string> expected = {"system(\"sync; reboot\")", "time()"};
    // At exactly 60 seconds it is not forced yet.
    for (int pass = 1; pass <= 9; ++pass) {
        expected.insert(expected.end(), {"log 50000 Waiting for Linux reboot...", "sleep(10)", "time()"});
        if (pass > 6) {
            expected.insert(expected.end(), {"log 50000 Force reboot ...", "system(\"reboot -idf\")"});
        }
    }
    EXPECT_EQ(std::vector<std::string>(asked, journal.end()), expected);
    EXPECT_EQ(linesOf(50000).front(),
              extended(50000, "Waiting for Linux reboot...", "ozuutils_RebootSystem"));
    EXPECT_EQ(linesOf(50000).back(), extended(50000, "Force reboot ...", "ozuutils_RebootSystem"));
    for (const auto &line : linesOf(50000)) {
        EXPECT_EQ(line.format, "%s");
    }
}

TEST_F(Reboot, aClockSetBackOnlyDelaysTheForce) {
    int sleeps = 0;
    machine.onSleep = [&sleeps](unsigned int) {
        if (++sleeps == 3) {
            machine.now -= 1000;
        }
    };
    reboot(0, 1, 0, "x", 2);
    EXPECT_EQ(platform().journal.back(), "system(\"reboot -idf\")");
    EXPECT_EQ(platform().callCount("sleep"), 1 + 107);
}

TEST_F(Reboot, aClockSetForwardForcesAtOnce) {
    int sleeps = 0;
    machine.onSleep = [&sleeps](unsigned int) {
        if (++sleeps == 2) {
            machine.now += 51; // with the ten seconds slept: 61
        }
    };
    reboot(0, 1, 0, "x", 2);
    EXPECT_EQ(platform().callCount("sleep"), 2);
}

TEST_F(Reboot, interruptedPausesAreNotResumed) {
    machine.left = 55; // as after a signal
    platform().inFlight = {1};
    reboot(60, 1, 5, "x", 2);
    EXPECT_EQ(platform().callCount("sleep"), 1 + 1 + 7);
}

TEST_F(Reboot, onlyTheAnswerAboutMessagesCountsNotItsStatus) {
    platform().inFlight = {1};
    platform().results["ozudb_isInFlightData"] = -1;
    reboot(0, 1, 3, "x");
    EXPECT_EQ(platform().callCount("ozudb_isInFlightData"), 2);
}

TEST_F(Reboot, waitForUnsentDataLogsNothing) {
    EXPECT_EQ(WaitForUnsentData(10), 1);
    EXPECT_THAT(platform().journal, ElementsAre("ozudb_isInFlightData()"));
    platform().journal.clear();

    platform().inFlight = {1, 1, 0};
    EXPECT_EQ(WaitForUnsentData(10), 1);
    EXPECT_THAT(platform().journal,
                ElementsAre("ozudb_isInFlightData()", "sleep(1)", "ozudb_isInFlightData()", "sleep(1)",
                            "ozudb_isInFlightData()"));
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Reboot, waitForUnsentDataIsBounded) {
    for (const int seconds : {-2147483647 - 1, -1, 0}) {
        platform().journal.clear();
        platform().inFlight.assign(1, 1);
        EXPECT_EQ(WaitForUnsentData(seconds), 0);
        EXPECT_THAT(platform().journal, ElementsAre("ozudb_isInFlightData()"));
    }
    platform().journal.clear();
    platform().inFlight.assign(100, 1);
    EXPECT_EQ(WaitForUnsentData(7), 0);
    EXPECT_EQ(platform().callCount("sleep"), 7);
    EXPECT_EQ(platform().callCount("ozudb_isInFlightData"), 8);
    // What the last second brought still counts.
    platform().inFlight = {1, 1, 0};
    EXPECT_EQ(WaitForUnsentData(2), 1);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Reboot, requestGoesToTheCoprocessorLink) {
    request_CP_reboot_from();
    EXPECT_THAT(platform().journal,
                ElementsAre("ozumqttc_messagePublish(\"Process/MDL\", 7, \"RSU\", 1, 1, payload)"));
    EXPECT_EQ(platform().published[0].payload, std::string("\x0F\x01\0\0\0\0\0", 7));
}

TEST_F(Reboot, failedRequestIsLogged) {
    for (const int code : {1, -1, 255, 65536, -2147483647 - 1}) {
        platform().log.clear();
        platform().results["ozumqttc_messagePublish"] = code;
        request_CP_reboot_from();
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, "ozumqttc_messagePublish \n", "request_CP_reboot_from")));
        EXPECT_EQ(platform().log[0].format, "%s");
    }
}

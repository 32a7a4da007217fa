#include <utils_ozu/state.h>

#include "state_test.h"

#include <cstring>

using ozu::test::extended;
using ozu::test::now;
using testing::IsEmpty;

namespace {

constexpr int kSlots = OZUDB_SAFETY_EVENTS;

class SafetyState : public ozu::test::ClockTest {
  protected:
    static PanelSafetyEvent &event(int slot) { return platform().state.safetyEvents[slot]; }
    static void startedAgo(int slot, std::int64_t seconds, std::uint8_t rfId = 12, std::uint32_t type = 9) {
        event(slot) = {static_cast<std::int32_t>(now - seconds), rfId, type, 0};
    }
};

ozu::test::LogLine siren(int seconds, int rfId, const char *type) {
    return extended(40000,
                    "Safety alarm is running for " + std::to_string(seconds) + " sec for the device RfId " +
                        std::to_string(rfId) + " of type " + type + ".",
                    "ozuutils_isSafetySirenInProgress");
}

} // namespace

// ---- ozuutils_isSafetyEventInProgress ----

TEST_F(SafetyState, noEventIsInProgress) {
    EXPECT_EQ(ozuutils_isSafetyEventInProgress(), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));
    event(0) = {0, 1, 2, 0};    // free
    event(49) = {100, 1, 2, 1}; // over
    event(48) = {100, 1, 2, 255};
    EXPECT_EQ(ozuutils_isSafetyEventInProgress(), 0);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(SafetyState, firstRunningEventIsLogged) {
    event(3) = {100, 7, 9, 1};
    event(4) = {-5, 255, 0x0A, 0};
    event(5) = {100, 8, 9, 0};
    EXPECT_EQ(ozuutils_isSafetyEventInProgress(), 1);
    EXPECT_THAT(
        platform().log,
        ElementsAre(extended(40000, "Safety event in progress because of the device RfId 255 of type 0x0A.",
                             "ozuutils_isSafetyEventInProgress")));
    EXPECT_THAT(platform().calls(), ElementsAre(kFetch));
    event(4).deviceType = 0xFFFFFFFF;
    event(4).rfId = 0;
    platform().log.clear();
    EXPECT_EQ(ozuutils_isSafetyEventInProgress(), 1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(
                    40000, "Safety event in progress because of the device RfId 0 of type 0xFFFFFFFF.",
                    "ozuutils_isSafetyEventInProgress")));
}

TEST_F(SafetyState, everySlotCountsAsAnEvent) {
    for (int slot = 0; slot < kSlots; ++slot) {
        platform().state = PanelSharedState{};
        event(slot) = {1, 1, 1, 0};
        EXPECT_EQ(ozuutils_isSafetyEventInProgress(), 1) << slot;
    }
}

// ---- ozuutils_isSafetySirenInProgress ----

TEST_F(SafetyState, noSirenSounds) {
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch, "time()"));
}

TEST_F(SafetyState, sirenSoundsFor180Seconds) {
    for (int age = -3; age <= 200; ++age) {
        platform().log.clear();
        startedAgo(17, age);
        const bool sounds = age > 0 && age < 180;
        EXPECT_EQ(ozuutils_isSafetySirenInProgress(), sounds ? 180 - age : 0) << age;
        if (sounds) {
            EXPECT_THAT(platform().log, ElementsAre(siren(age, 12, "0x09")));
        } else {
            EXPECT_THAT(platform().log, IsEmpty());
        }
    }
}

TEST_F(SafetyState, newestEventDecidesAndEachNewerOneIsLogged) {
    startedAgo(0, 100, 1, 0x10);
    startedAgo(1, 120, 2, 0x11); // older than the one before
    startedAgo(2, 30, 3, 0x123);
    event(2).ended = 1; // still sounds
    startedAgo(3, 30, 4, 0x13);
    startedAgo(48, -10, 5, 0x14);
    startedAgo(49, 29, 6, 0x15);
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 151);
    EXPECT_THAT(platform().log,
                ElementsAre(siren(100, 1, "0x10"), siren(30, 3, "0x123"), siren(29, 6, "0x15")));
    EXPECT_THAT(platform().calls(), ElementsAre(kFetch, "time()"));
}

TEST_F(SafetyState, freeSlotIsNoEventEvenJustAfter1970) {
    now = 50;
    event(0) = {0, 1, 1, 0};
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 0);
    event(0).startTime = 1;
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 131);
    now = -1; // the clock's failure
    event(0).startTime = -31;
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 150);
}

TEST_F(SafetyState, farTimesDoNotWrap) {
    now = INT32_MAX;
    event(0).startTime = INT32_MIN;
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 0);
    event(0).startTime = INT32_MAX - 1;
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 179);
    now = INT32_MIN;
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 0);
}

TEST_F(SafetyState, clockBeyondThePanelsCountsAsFailed) {
    if constexpr (sizeof(time_t) > 4) {
        now = INT32_MAX + 10LL;
        event(0).startTime = INT32_MAX;
        EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 0);
    }
}

TEST_F(SafetyState, missingRecordAnswersZero) {
    event(0) = {1, 1, 1, 0};
    startedAgo(1, 5);
    platform().stateMissing = true;
    EXPECT_EQ(ozuutils_isSafetyEventInProgress(), 0);
    EXPECT_EQ(ozuutils_isSafetySirenInProgress(), 0);
    EXPECT_THAT(platform().log, IsEmpty());
    EXPECT_EQ(platform().callCount("ozudb_getSharedMemory"), 2);
}

TEST_F(SafetyState, recordsOfAnyContentAnswerAsModelled) {
    ozu::test::Random random(5);
    for (int round = 0; round < 3000; ++round) {
        int best = 180;
        bool running = false;
        for (int slot = 0; slot < kSlots; ++slot) {
            PanelSafetyEvent &each = event(slot);
            each = {static_cast<std::int32_t>(random()), static_cast<std::uint8_t>(random()), random(),
                    static_cast<std::uint8_t>(random() % 4 == 0 ? 0 : random())};
            if (random() % 8 == 0) {
                each.startTime = static_cast<std::int32_t>(now - 100 + random.below(400));
            }
            each.startTime = random() % 4 == 0 ? 0 : each.startTime;
            const std::int64_t age = now - each.startTime;
            if (each.startTime != 0 && age > 0 && age < best) {
                best = static_cast<int>(age);
            }
            running = running || (each.startTime != 0 && each.ended == 0);
        }
        const PanelSharedState before = platform().state;
        ASSERT_EQ(ozuutils_isSafetySirenInProgress(), 180 - best);
        ASSERT_EQ(ozuutils_isSafetyEventInProgress(), running ? 1 : 0);
        ASSERT_EQ(std::memcmp(&before, &platform().state, sizeof(before)), 0);
        platform().journal.clear();
        platform().log.clear();
    }
}

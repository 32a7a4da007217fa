#include <utils_ozu/state.h>

#include "guarded_buffer.h"
#include "state_test.h"

#include <sys/mman.h>

#include <climits>
#include <cstddef>
#include <cstring>

using ozu::test::now;

namespace {

constexpr int kDevice = 7;
constexpr int kTableEntry = 201;
constexpr int kMagnet = 85;
constexpr int kPlain = 3; // a detector without contacts

std::string asked(const std::string &function) {
    return function + "(" + std::to_string(kDevice) + ")";
}

class DeviceState : public ozu::test::ClockTest {
  protected:
    void SetUp() override {
        ClockTest::SetUp();
        enroll(kMagnet);
        zone().firstInputEnabled = 1;
        zone().secondInputEnabled = 1;
        zone().bypass[0].bypassExpiry = OZUDB_BYPASS_FOREVER;
        zone().bypass[1].bypassExpiry = OZUDB_BYPASS_FOREVER;
        platform().rfDetectors[kDevice] = 1;
    }
    static PanelDevice &device() { return platform().state.devices[kDevice]; }
    static PanelZone &zone() { return platform().state.zones[kTableEntry]; }
    static void enroll(std::uint32_t deviceType) {
        device().deviceType = deviceType;
        device().tableIndex = kTableEntry;
        device().active = 1;
    }
    static void bypassUntil(std::uint32_t expiry, int input = 0, std::uint8_t flag = 1) {
        zone().bypass[input].bypassed = flag;
        zone().bypass[input].bypassExpiry = expiry;
    }
};

const std::vector<std::string> kAskedDetector = {kFetch, asked("ozudb_isTagReader"), asked("ozudb_isRfInput"),
                                                 asked("ozudb_isRfDetector")};

std::vector<std::string> detectorThen(std::initializer_list<std::string> more) {
    std::vector<std::string> calls = kAskedDetector;
    calls.insert(calls.end(), more);
    return calls;
}

PanelSharedState *recordAt(void *memory) {
    return static_cast<PanelSharedState *>(memory);
}

std::vector<std::string> bypassEnded(int deviceType) {
    return detectorThen({"time()", "ozudb_ModifyBypassExpiry(201, 0, -1)",
                         "MESSENGER_SendTBBEvent(7, " + std::to_string(deviceType) + ", 1, 2, 0, 0, 65535)"});
}

} // namespace

// ---- Kinds ----

TEST_F(DeviceState, magnetsAreW3AndTqsx) {
    for (std::uint32_t type = 0; type <= 300; ++type) {
        enroll(type);
        EXPECT_EQ(IsDeviceMagnetType(kDevice), type == 85 || type == 57 ? 1 : 0) << type;
    }
    enroll(0x80000000U + 85);
    EXPECT_EQ(IsDeviceMagnetType(kDevice), 0);
    enroll(256 + 85);
    EXPECT_EQ(IsDeviceMagnetType(kDevice), 0);
}

TEST_F(DeviceState, camerasAreUmkUmkrlUmkrAndChev) {
    for (std::uint32_t type = 0; type <= 400; ++type) {
        enroll(type);
        EXPECT_EQ(ozuutils_isCameraDevice(kDevice),
                  type == 38 || type == 59 || type == 60 || type == 67 ? 1 : 0)
            << type;
    }
}

// ---- Bypass ----

TEST_F(DeviceState, tagReaderHasItsOwnFlag) {
    platform().tagReaders[kDevice] = -1;
    for (const int flag : {0, 1, 2, 255}) {
        platform().state.tagReaders[kTableEntry].bypassed = static_cast<std::uint8_t>(flag);
        platform().journal.clear();
        EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), flag);
        EXPECT_THAT(platform().journal, ElementsAre(kFetch, asked("ozudb_isTagReader")));
        EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 1), flag);
    }
}

TEST_F(DeviceState, rfInputIsBypassedWhileNotEnabled) {
    platform().rfInputs[kDevice] = 1;
    for (const int enabled : {0, 1, 2, 255}) {
        platform().state.rfInputs[kTableEntry].enabled = static_cast<std::uint8_t>(enabled);
        platform().journal.clear();
        EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), enabled == 0 ? 1 : 0);
        EXPECT_THAT(platform().journal,
                    ElementsAre(kFetch, asked("ozudb_isTagReader"), asked("ozudb_isRfInput")));
    }
}

TEST_F(DeviceState, otherKindsAreNotBypassed) {
    platform().rfDetectors.clear();
    bypassUntil(OZUDB_BYPASS_FOREVER);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 0);
    EXPECT_EQ(platform().journal, kAskedDetector);
}

TEST_F(DeviceState, magnetHasOneFlagForEachInput) {
    bypassUntil(OZUDB_BYPASS_FOREVER, 0, 3);
    bypassUntil(OZUDB_BYPASS_FOREVER, 1, 4);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 3);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 1), 4);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 2), 4);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, -1), 4);
}

TEST_F(DeviceState, otherDetectorsHaveOneFlagForAllInputs) {
    enroll(kPlain);
    zone().firstInputEnabled = 0; // only counts for magnets
    zone().secondInputEnabled = 0;
    bypassUntil(OZUDB_BYPASS_FOREVER, 0, 3);
    bypassUntil(OZUDB_BYPASS_FOREVER, 1, 4);
    for (const int input : {0, 1, 2, -1}) {
        EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, input), 3);
    }
}

TEST_F(DeviceState, inputNotInUseCountsAsBypassed) {
    zone().firstInputEnabled = 0;
    zone().secondInputEnabled = 0;
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 1);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 1), 1);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 2), 0);
    EXPECT_EQ(IsMagnetOpen(kDevice), 0);

    bypassUntil(1); // run out, but the input not in use comes first
    platform().journal.clear();
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 1);
    EXPECT_EQ(platform().journal, kAskedDetector);

    zone().firstInputEnabled = 1;
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 1), 1);
    zone().firstInputEnabled = 0;
    zone().secondInputEnabled = 255;
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 1), 0);
}

TEST_F(DeviceState, timedBypassEndsInItsSecond) {
    for (const int type : {kMagnet, kPlain}) {
        enroll(static_cast<std::uint32_t>(type));
        bypassUntil(static_cast<std::uint32_t>(now), 0, 9);
        platform().journal.clear();
        EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 0);
        EXPECT_EQ(platform().journal, bypassEnded(type));
        EXPECT_EQ(zone().bypass[0].bypassed, 9) << "only the database writes the record";
        EXPECT_EQ(zone().bypass[0].bypassExpiry, static_cast<std::uint32_t>(now));

        bypassUntil(static_cast<std::uint32_t>(now + 1), 0, 9);
        platform().journal.clear();
        EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 9);
        EXPECT_EQ(platform().journal, detectorThen({"time()"}));
    }
}

TEST_F(DeviceState, clockIsReadOnlyForATimedBypass) {
    bypassUntil(OZUDB_BYPASS_FOREVER, 0, 255);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 255);
    EXPECT_EQ(platform().journal, kAskedDetector);
    bypassUntil(1, 0, 0); // not bypassed at all
    platform().journal.clear();
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 0);
    EXPECT_EQ(platform().journal, kAskedDetector);
}

TEST_F(DeviceState, bypassOfTheSecondInputDoesNotRunOut) {
    bypassUntil(1, 1, 6);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 1), 6);
    EXPECT_EQ(platform().journal, kAskedDetector);
    enroll(kPlain);
    bypassUntil(1, 0, 5);
    platform().journal.clear();
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 1), 5);
    EXPECT_EQ(platform().journal, kAskedDetector);
}

TEST_F(DeviceState, anInputAboveOneTakesTheSecondFlagAndItsExpiry) {
    bypassUntil(1, 1, 6);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 2), 0);
    EXPECT_EQ(platform().journal, bypassEnded(kMagnet));
}

TEST_F(DeviceState, expiryIsASignedTime) {
    struct Case {
        std::int64_t now;
        std::uint32_t expiry;
        int answer;
    };
    for (const auto &[at, expiry, answer] : {
             Case{INT32_MAX - 1LL, 0x7FFFFFFF, 1},
             Case{INT32_MAX, 0x7FFFFFFF, 0},
             Case{INT32_MAX, 0x7FFFFFFE, 0},
             Case{0, 0x80000000, 0}, // long ago
             Case{INT32_MAX, 0x80000000, 0},
             Case{1, 0xFFFFFFFE, 0},
             Case{0, 0, 0},
             Case{0, 1, 1},
             Case{-1, 0, 1}, // the clock's failure
             Case{-1, 0xFFFFFFFE, 0},
         }) {
        now = at;
        bypassUntil(expiry);
        EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), answer) << at << " " << expiry;
    }
}

TEST_F(DeviceState, clockBeyondThePanelsCountsAsFailed) {
    if constexpr (sizeof(time_t) > 4) {
        now = INT32_MAX + 1LL;
        bypassUntil(1'700'000'000);
        EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 1);
        EXPECT_EQ(platform().journal, detectorThen({"time()"}));
    }
}

TEST_F(DeviceState, resultsOfThePlatformDoNotMatter) {
    platform().results["ozudb_ModifyBypassExpiry"] = -5;
    platform().results["MESSENGER_SendTBBEvent"] = -6;
    bypassUntil(1);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 0);
    EXPECT_EQ(platform().journal, bypassEnded(kMagnet));
}

TEST_F(DeviceState, eventCarriesTypesOfAllBits) {
    enroll(0xFFFFFFFF);
    bypassUntil(1);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 0);
    EXPECT_EQ(platform().journal, bypassEnded(-1));
}

// ---- Contacts ----

TEST_F(DeviceState, magnetIsOpen) {
    device().openState = 2;
    EXPECT_EQ(IsMagnetOpen(kDevice), 1);
    EXPECT_EQ(platform().journal, kAskedDetector);
    enroll(57);
    EXPECT_EQ(IsMagnetOpen(kDevice), 1);
}

TEST_F(DeviceState, magnetCountsAsClosed) {
    device().openState = 0;
    EXPECT_EQ(IsMagnetOpen(kDevice), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));

    device().openState = 1;
    zone().firstInputEnabled = 0;
    platform().journal.clear();
    EXPECT_EQ(IsMagnetOpen(kDevice), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));

    zone().firstInputEnabled = 1;
    enroll(kPlain);
    platform().journal.clear();
    EXPECT_EQ(IsMagnetOpen(kDevice), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));

    enroll(kMagnet);
    bypassUntil(OZUDB_BYPASS_FOREVER);
    platform().journal.clear();
    EXPECT_EQ(IsMagnetOpen(kDevice), 0);
    EXPECT_EQ(platform().journal, kAskedDetector);
}

TEST_F(DeviceState, openMagnetEndsABypassThatRanOut) {
    device().openState = 1;
    bypassUntil(static_cast<std::uint32_t>(now));
    EXPECT_EQ(IsMagnetOpen(kDevice), 1);
    EXPECT_EQ(platform().journal, bypassEnded(kMagnet));
}

TEST_F(DeviceState, magnetOfAnotherKindAsksItsKind) {
    device().openState = 1;
    platform().tagReaders[kDevice] = 1;
    platform().state.tagReaders[kTableEntry].bypassed = 1;
    EXPECT_EQ(IsMagnetOpen(kDevice), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch, asked("ozudb_isTagReader")));
}

TEST_F(DeviceState, cameraLidIsClosed) {
    enroll(59);
    EXPECT_EQ(IsCameraLidClosed(kDevice), 1);
    EXPECT_EQ(platform().journal, kAskedDetector);
    bypassUntil(OZUDB_BYPASS_FOREVER);
    EXPECT_EQ(IsCameraLidClosed(kDevice), 0);
    bypassUntil(static_cast<std::uint32_t>(now));
    platform().journal.clear();
    EXPECT_EQ(IsCameraLidClosed(kDevice), 1);
    EXPECT_EQ(platform().journal, bypassEnded(59));
}

TEST_F(DeviceState, cameraLidDoesNotCount) {
    enroll(59);
    device().openState = 255;
    EXPECT_EQ(IsCameraLidClosed(kDevice), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));
    device().openState = 0;
    for (const std::uint32_t other : {38U, 57U, 60U, 67U, 85U, 59U + 256U}) {
        enroll(other);
        platform().journal.clear();
        EXPECT_EQ(IsCameraLidClosed(kDevice), 0) << other;
        EXPECT_THAT(platform().journal, ElementsAre(kFetch));
    }
}

// ---- Enrolled devices ----

TEST_F(DeviceState, findsTheFirstActiveDevice) {
    const auto put = [](int index, std::uint32_t rfId, std::uint32_t type, std::uint8_t active) {
        platform().state.devices[index].rfId = rfId;
        platform().state.devices[index].deviceType = type;
        platform().state.devices[index].active = active;
    };
    put(0, 99, 2, 1); // not looked at
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(99, 2), -1);
    put(205, 99, 2, 1);
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(99, 2), 205);
    put(1, 99, 2, 1);
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(99, 2), 1);
    put(1, 99, 2, 2); // only 1 is active
    put(100, 99, 2, 1);
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(99, 2), 100);
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(99, 3), -1);
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(98, 2), -1);
    put(3, 0xFFFFFFFF, 0xFFFFFFFF, 1);
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(0xFFFFFFFF, -1), 3);
    platform().journal.clear();
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(1, 1), -1);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));
}

TEST_F(DeviceState, whatLiesBehindTheLastDeviceIsNone) {
    PanelDevice likeness = {};
    likeness.rfId = 99;
    likeness.deviceType = 2;
    likeness.active = 1;
    char *behind = reinterpret_cast<char *>(&platform().state) + offsetof(PanelSharedState, devices) +
                   sizeof platform().state.devices;
    memcpy(behind, &likeness, sizeof likeness);
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(99, 2), -1);
}

TEST_F(DeviceState, danalocksLiveAt164To196) {
    for (int index = 0; index < MAX_DEVICE_INDEX; ++index) {
        platform().state = PanelSharedState{};
        platform().state.devices[index].deviceType = 87;
        platform().state.devices[index].active = 1;
        EXPECT_EQ(isDanalockExistAndActived(), index >= 164 && index <= 196 ? 1 : 0) << index;
        platform().state.devices[index].active = 2;
        EXPECT_EQ(isDanalockExistAndActived(), 0) << index;
        platform().state.devices[index].active = 1;
        platform().state.devices[index].deviceType = 88;
        EXPECT_EQ(isDanalockExistAndActived(), 0) << index;
    }
    platform().journal.clear();
    EXPECT_EQ(isDanalockExistAndActived(), 0);
    EXPECT_THAT(platform().journal, ElementsAre(kFetch));
}

// ---- Indexes out of range, missing and meaningless records ----

void expectNothingOf(int index) {
    EXPECT_EQ(IsDeviceMagnetType(index), 0);
    EXPECT_EQ(ozuutils_isCameraDevice(index), 0);
    EXPECT_EQ(IsMagnetOpen(index), 0);
    EXPECT_EQ(IsCameraLidClosed(index), 0);
    EXPECT_EQ(ozuutils_isZoneBypassed(index, 0), 0);
    EXPECT_EQ(ozuutils_isZoneBypassed(index, 1), 0);
}

TEST_F(DeviceState, indexOutOfRangeAnswersZero) {
    std::memset(&platform().state, 0xFF, sizeof(platform().state));
    for (const int index : {-1, 206, 207, 255, 256, 65535, 65536, INT_MAX, INT_MIN}) {
        platform().tagReaders[index] = platform().rfInputs[index] = platform().rfDetectors[index] = 1;
        platform().journal.clear();
        expectNothingOf(index);
        EXPECT_EQ(platform().journal, std::vector<std::string>(6, kFetch));
    }
}

TEST_F(DeviceState, indexOutOfRangeTouchesNoMemory) {
    // A record in which, and around which, any access is a crash.
    constexpr std::size_t kRoom = std::size_t{1} << 20;
    void *unreadable = mmap(nullptr, 2 * kRoom, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(unreadable, MAP_FAILED);
    platform().record = recordAt(static_cast<char *>(unreadable) + kRoom);
    for (const int index : {-1, 206, 207, 255, 256, 65535, 65536, INT_MAX, INT_MIN}) {
        expectNothingOf(index);
    }
    munmap(unreadable, 2 * kRoom);
}

TEST_F(DeviceState, indexesInRangeStayInTheRecord) {
    // The record ends at an unreadable page, and so it begins. Table indexes of any value are in range.
    for (const auto edge : {ozu::test::Edge::Front, ozu::test::Edge::Back}) {
        for (const int fill : {0x00, 0xFF}) {
            const ozu::test::GuardedBuffer memory(sizeof(PanelSharedState), edge,
                                                  static_cast<unsigned char>(fill));
            platform().record = recordAt(memory.bytes());
            for (int index = 0; index < MAX_DEVICE_INDEX; ++index) {
                platform().tagReaders[index] = index % 4 == 0 ? 1 : 0;
                platform().rfInputs[index] = index % 4 == 1 ? 1 : 0;
                platform().rfDetectors[index] = 1;
                for (const std::uint32_t type : {85U, 59U, 2U}) {
                    platform().record->devices[index].deviceType = type;
                    platform().record->devices[index].openState = type == 85 ? 1 : 0;
                    for (const int input : {0, 1, 2}) {
                        static_cast<void>(ozuutils_isZoneBypassed(index, input));
                    }
                    static_cast<void>(IsMagnetOpen(index));
                    static_cast<void>(IsCameraLidClosed(index));
                }
            }
            static_cast<void>(isDanalockExistAndActived());
            EXPECT_EQ(ozuutils_isDeviceExistsAndActive(1, 1), -1);
        }
    }
}

TEST_F(DeviceState, missingRecordAnswersZeroOrNone) {
    platform().stateMissing = true;
    platform().tagReaders[kDevice] = 1;
    EXPECT_EQ(IsDeviceMagnetType(kDevice), 0);
    EXPECT_EQ(ozuutils_isCameraDevice(kDevice), 0);
    EXPECT_EQ(IsMagnetOpen(kDevice), 0);
    EXPECT_EQ(IsCameraLidClosed(kDevice), 0);
    EXPECT_EQ(ozuutils_isZoneBypassed(kDevice, 0), 0);
    EXPECT_EQ(ozuutils_isDeviceExistsAndActive(0, 0), -1);
    EXPECT_EQ(isDanalockExistAndActived(), 0);
    EXPECT_EQ(platform().journal, std::vector<std::string>(7, kFetch));
}

namespace {

struct Answers {
    int magnetType, camera, bypassed0, bypassed1, bypassed2, open, lid;
    bool operator==(const Answers &) const = default;
};

void PrintTo(const Answers &answers, std::ostream *out) {
    *out << answers.magnetType << answers.camera << ' ' << answers.bypassed0 << ' ' << answers.bypassed1
         << ' ' << answers.bypassed2 << ' ' << answers.open << answers.lid;
}

int bypassModel(const PanelSharedState &state, int index, int input) {
    const PanelDevice &device = state.devices[index];
    const int t = device.tableIndex;
    if (platform().tagReaders[index] != 0) {
        return state.tagReaders[t].bypassed;
    }
    if (platform().rfInputs[index] != 0) {
        return state.rfInputs[t].enabled == 0 ? 1 : 0;
    }
    if (platform().rfDetectors[index] == 0) {
        return 0;
    }
    const bool magnet = device.deviceType == 85 || device.deviceType == 57;
    const PanelZone &zone = state.zones[t];
    const PanelBypass &bypass = input != 0 && magnet ? zone.bypass[1] : zone.bypass[0];
    if (magnet &&
        ((input == 0 && zone.firstInputEnabled == 0) || (input == 1 && zone.secondInputEnabled == 0))) {
        return 1;
    }
    if (bypass.bypassed != 0 && input != 1 && bypass.bypassExpiry != 0xFFFFFFFF &&
        static_cast<std::int32_t>(bypass.bypassExpiry) <= now) {
        return 0;
    }
    return bypass.bypassed;
}

Answers model(const PanelSharedState &state, int index) {
    const PanelDevice &device = state.devices[index];
    const auto type = device.deviceType;
    Answers answers{};
    answers.magnetType = type == 85 || type == 57 ? 1 : 0;
    answers.camera = type == 38 || type == 59 || type == 60 || type == 67 ? 1 : 0;
    answers.bypassed0 = bypassModel(state, index, 0);
    answers.bypassed1 = bypassModel(state, index, 1);
    answers.bypassed2 = bypassModel(state, index, 2);
    answers.open = answers.magnetType != 0 && state.zones[device.tableIndex].firstInputEnabled != 0 &&
                           device.openState != 0 && answers.bypassed0 == 0
                       ? 1
                       : 0;
    answers.lid = device.openState == 0 && type == 59 && answers.bypassed0 == 0 ? 1 : 0;
    return answers;
}

Answers ask(int index) {
    return {IsDeviceMagnetType(index),         ozuutils_isCameraDevice(index),
            ozuutils_isZoneBypassed(index, 0), ozuutils_isZoneBypassed(index, 1),
            ozuutils_isZoneBypassed(index, 2), IsMagnetOpen(index),
            IsCameraLidClosed(index)};
}

void askAll() {
    for (int index = 0; index < MAX_DEVICE_INDEX; ++index) {
        ASSERT_EQ(ask(index), model(platform().state, index)) << index;
    }
    platform().journal.clear();
}

} // namespace

TEST_F(DeviceState, recordsOfAnyContentAnswerAsModelled) {
    ozu::test::Random random(4);
    std::memset(&platform().state, 0x00, sizeof(platform().state));
    askAll();
    std::memset(&platform().state, 0xFF, sizeof(platform().state));
    askAll();
    constexpr std::uint32_t kTypes[] = {85, 57, 59, 38, 60, 67, 2};
    for (int round = 0; round < 40; ++round) {
        auto *bytes = reinterpret_cast<unsigned char *>(&platform().state);
        random.fill(bytes, sizeof(platform().state));
        for (PanelZone &each : platform().state.zones) {
            each.firstInputEnabled &= static_cast<std::uint8_t>(random() % 2);
            each.secondInputEnabled &= static_cast<std::uint8_t>(random() % 2);
            for (PanelBypass &bypass : each.bypass) {
                bypass.bypassed &= static_cast<std::uint8_t>(random() % 4 == 0 ? 0 : 255);
                bypass.bypassExpiry = random() % 3 == 0 ? OZUDB_BYPASS_FOREVER : bypass.bypassExpiry;
            }
        }
        for (int index = 0; index < MAX_DEVICE_INDEX; ++index) {
            PanelDevice &each = platform().state.devices[index];
            each.deviceType = kTypes[random() % std::size(kTypes)];
            each.openState &= static_cast<std::uint8_t>(random() % 2);
            platform().tagReaders[index] = random() % 8 == 0 ? 1 : 0;
            platform().rfInputs[index] = random() % 8 == 0 ? 1 : 0;
            platform().rfDetectors[index] = random() % 8 == 0 ? 0 : 1;
        }
        askAll();
    }
}

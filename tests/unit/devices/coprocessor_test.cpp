#include <utils_ozu/coprocessor.h>

#include "fake_platform.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <climits>
#include <cstdlib>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

bool failNextMalloc = false;
bool countMallocs = false;
std::vector<std::size_t> allocated;
int freed = 0;
const void *envelope = nullptr;

} // namespace

extern "C" void *__real_malloc(std::size_t size);
extern "C" void __real_free(void *memory);

extern "C" void *__wrap_malloc(std::size_t size) {
    if (!countMallocs) {
        return __real_malloc(size);
    }
    countMallocs = false;
    allocated.push_back(size);
    countMallocs = !failNextMalloc;
    void *memory = failNextMalloc ? nullptr : __real_malloc(size);
    countMallocs = false;
    envelope = memory;
    if (memory != nullptr) {
        memset(memory, 0xEE, size);
    }
    return memory;
}

extern "C" void __wrap_free(void *memory) {
    if (memory != nullptr && memory == envelope) {
        ++freed;
        envelope = nullptr;
    }
    __real_free(memory);
}

namespace {

class Coprocessor : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        failNextMalloc = false;
        countMallocs = false;
        allocated.clear();
        freed = 0;
        envelope = nullptr;
    }
    // The first allocation after this call is the envelope's.
    static void watch() {
        allocated.clear();
        allocated.reserve(4);
        freed = 0;
        countMallocs = true;
    }
    static const ozu::test::PublishedMessage &onlyMessage() {
        EXPECT_THAT(platform().published, SizeIs(1));
        return platform().published.at(0);
    }
    // A request of 186 bytes: envelope, code, value, zeros.
    static void expectRequest(char code, char value) {
        const auto &message = onlyMessage();
        EXPECT_EQ(message.topic, "Process/MDL");
        EXPECT_EQ(message.label, "");
        EXPECT_EQ(message.messageClass, 0);
        EXPECT_EQ(message.command, 1);
        EXPECT_EQ(message.length, 191u);
        std::string payload = {17, 4, 0, 0, 0, code, value};
        payload.resize(191, '\0');
        EXPECT_EQ(message.payload, payload);
    }
};

TEST_F(Coprocessor, wrapsAndPublishesABlock) {
    const std::uint8_t block[] = {1, 0, 255, 128, 7};
    EXPECT_EQ(ozuutils_SendDataToNXP(block, sizeof block, 4), 0);
    EXPECT_THAT(platform().journal,
                ElementsAre("ozumqttc_messagePublish(\"Process/MDL\", 10, \"\", 0, 1, payload)"));
    EXPECT_EQ(onlyMessage().payload, std::string("\x11\x04\0\0\0\x01\0\xFF\x80\x07", 10));
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Coprocessor, allocatesOneByteMoreThanItSendsAndFreesIt) {
    const std::uint8_t block[300] = {};
    for (const unsigned int length : {0u, 1u, 186u, 300u}) {
        watch();
        EXPECT_EQ(ozuutils_SendDataToNXP(block, length, 4), 0);
        countMallocs = false;
        EXPECT_THAT(allocated, ElementsAre(length + 6));
        EXPECT_EQ(freed, 1);
    }
}

TEST_F(Coprocessor, emptyBlock) {
    EXPECT_EQ(ozuutils_SendDataToNXP(nullptr, 0, 9), 0);
    EXPECT_EQ(onlyMessage().length, 5u);
    EXPECT_EQ(onlyMessage().payload, std::string("\x11\x09\0\0\0", 5));
}

TEST_F(Coprocessor, onlyTheLowByteOfTheCommandIsSent) {
    const std::uint8_t block[] = {3};
    for (const unsigned int command : {0u, 255u, 256u + 5u, 65535u, UINT_MAX}) {
        platform().published.clear();
        EXPECT_EQ(ozuutils_SendDataToNXP(block, 1, command), 0);
        EXPECT_EQ(onlyMessage().payload[1], static_cast<char>(command));
    }
}

TEST_F(Coprocessor, noMemory) {
    const std::uint8_t block[] = {3};
    watch();
    failNextMalloc = true;
    EXPECT_EQ(ozuutils_SendDataToNXP(block, 1, 4), 2);
    EXPECT_THAT(allocated, ElementsAre(7u));
    EXPECT_THAT(platform().journal, ElementsAre("log 30000 Malloc error"));
    EXPECT_THAT(platform().log, ElementsAre(extended(30000, "Malloc error", "ozuutils_SendDataToNXP")));
    EXPECT_EQ(platform().log.at(0).format, "%s");
}

TEST_F(Coprocessor, lengthThatNoEnvelopeCanHold) {
    const std::uint8_t block[] = {3};
    for (const unsigned int length :
         {UINT_MAX, UINT_MAX - 5, UINT_MAX - 6, 0x80000000U, unsigned{INT_MAX}, unsigned{INT_MAX} - 5}) {
        platform().journal.clear();
        EXPECT_EQ(ozuutils_SendDataToNXP(block, length, 4), 2);
        EXPECT_THAT(platform().journal, ElementsAre("log 30000 Malloc error"));
    }
}

TEST_F(Coprocessor, failedPublishIsReportedAndFreed) {
    const std::uint8_t block[] = {3};
    for (const int status : {1, -1, INT_MIN, 255}) {
        platform().results["ozumqttc_messagePublish"] = status;
        platform().log.clear();
        watch();
        EXPECT_EQ(ozuutils_SendDataToNXP(block, 1, 4), status);
        countMallocs = false;
        EXPECT_EQ(freed, 1);
        EXPECT_THAT(platform().log, ElementsAre(extended(70000, "status=" + std::to_string(status),
                                                         "ozuutils_SendDataToNXP")));
        EXPECT_EQ(platform().log.at(0).format, "status=%d");
    }
}

struct NamedRequest {
    const char *name;
    int (*send)();
    char code;
};

void PrintTo(const NamedRequest &request, std::ostream *out) {
    *out << request.name;
}

class Requests : public Coprocessor, public testing::WithParamInterface<NamedRequest> {};

TEST_P(Requests, sendsItsCode) {
    EXPECT_EQ(GetParam().send(), 0);
    expectRequest(GetParam().code, 0);
    EXPECT_THAT(platform().journal, SizeIs(1));
}

TEST_P(Requests, returnsTheStatus) {
    platform().results["ozumqttc_messagePublish"] = 42;
    EXPECT_EQ(GetParam().send(), 42);
    EXPECT_THAT(platform().log, ElementsAre(extended(70000, "status=42", "ozuutils_SendDataToNXP")));
}

TEST_P(Requests, returnsTheFailedAllocation) {
    watch();
    failNextMalloc = true;
    EXPECT_EQ(GetParam().send(), 2);
    EXPECT_THAT(platform().published, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, Requests,
    testing::Values(NamedRequest{"serialNumber", [] { return ozuutils_updateCPserialNumberInShmem(); }, 0},
                    NamedRequest{"manufactureValues",
                                 [] { return ozuutils_updateNxpManufactureParamsInShmem(); }, 9},
                    NamedRequest{"tamperState", [] { return ozuutils_GetNxpTamperState(); }, 10}),
    [](const auto &instance) { return std::string(instance.param.name); });

TEST_F(Coprocessor, uartProtocolHidesTheResult) {
    for (const unsigned int protocol : {0u, 1u, 255u, 256u, 258u, UINT_MAX}) {
        platform().published.clear();
        EXPECT_EQ(ozuutils_updateNxpUartProtocol(protocol), 0);
        expectRequest(8, static_cast<char>(protocol));
    }
    platform().results["ozumqttc_messagePublish"] = 3;
    EXPECT_EQ(ozuutils_updateNxpUartProtocol(1), 0);
    EXPECT_THAT(platform().log, ElementsAre(extended(70000, "status=3", "ozuutils_SendDataToNXP")));
    watch();
    failNextMalloc = true;
    EXPECT_EQ(ozuutils_updateNxpUartProtocol(1), 0);
}

TEST_F(Coprocessor, everyPlasticVersion) {
    for (int version = 0; version < 256; ++version) {
        platform().state.cpPlasticVersion = static_cast<std::uint8_t>(version);
        platform().published.clear();
        platform().log.clear();
        const bool good = version >= 1 && version <= 3;
        EXPECT_EQ(ozuutils_setNxpPlasticVersion(), good ? 0 : 1) << version;
        if (good) {
            expectRequest(13, static_cast<char>(version));
            EXPECT_THAT(platform().log,
                        ElementsAre(extended(40000, "Set CP plastic version to " + std::to_string(version),
                                             "ozuutils_setNxpPlasticVersion")));
            EXPECT_EQ(platform().log.at(0).format, "Set CP plastic version to %d");
        } else {
            EXPECT_THAT(platform().published, IsEmpty());
            EXPECT_THAT(platform().log,
                        ElementsAre(extended(
                            80000, "Error: can't update plastic version to " + std::to_string(version),
                            "ozuutils_setNxpPlasticVersion")));
            EXPECT_EQ(platform().log.at(0).format, "Error: can't update plastic version to %d");
        }
    }
}

TEST_F(Coprocessor, plasticVersionIsAnnouncedBeforeItIsSent) {
    platform().state.cpPlasticVersion = 2;
    platform().results["ozumqttc_messagePublish"] = 6;
    EXPECT_EQ(ozuutils_setNxpPlasticVersion(), 6);
    EXPECT_THAT(platform().journal,
                ElementsAre("ozudb_getSharedMemory(0)", "log 40000 Set CP plastic version to 2",
                            "ozumqttc_messagePublish(\"Process/MDL\", 191, \"\", 0, 1, payload)",
                            "log 70000 status=6"));
}

TEST_F(Coprocessor, noPlasticVersionWithoutState) {
    platform().stateMissing = true;
    EXPECT_EQ(ozuutils_setNxpPlasticVersion(), 2);
    EXPECT_THAT(platform().published, IsEmpty());
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Coprocessor, gpioOfTheRadio) {
    const unsigned int table[][2] = {{0, 0}, {5, 1}, {255, 255}, {9, 256}, {256 + 7, 2}, {1, UINT_MAX}};
    for (const auto &row : table) {
        platform().published.clear();
        platform().journal.clear();
        platform().log.clear();
        controlCC1352Gpio("RFMAN", row[0], row[1]);
        EXPECT_EQ(platform().journal.at(0),
                  "ozumqttc_messagePublish(\"Process/RF_MANAGER\", 2, \"RFMAN\", 35, 10, payload)");
        EXPECT_EQ(onlyMessage().payload, (std::string{static_cast<char>(row[0]), static_cast<char>(row[1])}));
        EXPECT_THAT(platform().log, ElementsAre(extended(30000,
                                                         "Set CC GPIO number " + std::to_string(row[0]) +
                                                             " to level " + std::to_string(row[1] & 255U),
                                                         "controlCC1352Gpio")));
        EXPECT_EQ(platform().log.at(0).format, "Set CC GPIO number %d to level %d");
    }
}

TEST_F(Coprocessor, gpioThatIsNotSent) {
    platform().results["ozumqttc_messagePublish"] = -2;
    controlCC1352Gpio("", 1, 1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(70000, "Send mqtt RF_MGR_MQTT_API_CMD_TYPE_SET_CC_GPIO failed",
                                     "controlCC1352Gpio")));
    EXPECT_EQ(platform().log.at(0).format, "%s");
}

} // namespace

TEST_F(Coprocessor, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    for (int round = 0; round < 200; ++round) {
        const std::string data = random.text(random.below(300));
        platform().results["ozumqttc_messagePublish"] = random.below(8) == 0 ? 5 : 0;
        digest.add(ozuutils_SendDataToNXP(reinterpret_cast<const std::uint8_t *>(data.data()),
                                          static_cast<unsigned int>(data.size()), random()));
        digest.add(ozuutils_updateCPserialNumberInShmem());
        digest.add(ozuutils_updateNxpUartProtocol(random()));
        digest.add(ozuutils_updateNxpManufactureParamsInShmem());
        digest.add(ozuutils_GetNxpTamperState());
        platform().state.cpPlasticVersion = static_cast<std::uint8_t>(random.below(5));
        digest.add(ozuutils_setNxpPlasticVersion());
        const unsigned int pin = random();
        controlCC1352Gpio("sender", pin, random());
        digest.add(pin);
    }
    digest.print("requests");
}

// Requests to the NXP co-processor and to the CC1352 radio.

#include <utils_ozu/coprocessor.h>

#include <base/log.h>
#include <base/panel_state.h>

#include <mqttc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr int kNoMemory = 2;
constexpr int kNoState = 2;
constexpr int kBadVersion = 1;

constexpr const char *kNxpTopic = "Process/MDL";
constexpr char kNoLabel[8] = {};
constexpr int kNxpClass = 0;
constexpr int kNxpMessage = 1;
constexpr std::uint8_t kNxpEnvelope = 17;
constexpr unsigned int kNxpCommand = 4;
constexpr unsigned int kEnvelopeHead = 5;
constexpr unsigned int kEnvelopeSpare = 1; // allocated behind the block, never sent

constexpr const char *kRadioTopic = "Process/RF_MANAGER";
constexpr int kRadioClass = 35;
constexpr int kSetGpio = 10;

enum class Request : std::uint8_t {
    SerialNumber = 0,
    UartProtocol = 8,
    ManufactureValues = 9,
    TamperState = 10,
    PlasticVersion = 13,
};

struct RequestBlock {
    Request code;
    std::uint8_t value;
    std::uint8_t rest[184];
};
static_assert(sizeof(RequestBlock) == 186);

struct Free {
    void operator()(void *memory) const noexcept { std::free(memory); }
};

// Memory for an envelope, or null; the panel cannot address a block whose size does not fit 32 bits.
std::uint8_t *allocateEnvelope(unsigned int length) noexcept {
    std::uint32_t size = 0;
    if (__builtin_add_overflow(length, kEnvelopeHead + kEnvelopeSpare, &size)) {
        return nullptr;
    }
    return static_cast<std::uint8_t *>(malloc(size));
}

int send(Request code, unsigned int value = 0) noexcept {
    const RequestBlock block{code, static_cast<std::uint8_t>(value), {}};
    return ozuutils_SendDataToNXP(reinterpret_cast<const std::uint8_t *>(&block), sizeof block, kNxpCommand);
}

} // namespace

int ozuutils_SendDataToNXP(const std::uint8_t *data, unsigned int length, unsigned int command) noexcept {
    const std::unique_ptr<std::uint8_t, Free> envelope(allocateEnvelope(length));
    std::uint8_t *bytes = envelope.get();
    if (bytes == nullptr) {
        OZU_LOG_TEXT(OZULOG_INFO, "Malloc error");
        return kNoMemory;
    }
    std::memset(bytes, 0, kEnvelopeHead);
    bytes[0] = kNxpEnvelope;
    bytes[1] = static_cast<std::uint8_t>(command);
    if (length != 0) {
        std::memcpy(bytes + kEnvelopeHead, data, length);
    }
    const int status =
        ozumqttc_messagePublish(kNxpTopic, length + kEnvelopeHead, kNoLabel, kNxpClass, kNxpMessage, bytes);
    if (status != 0) {
        OZU_LOG(OZULOG_ERROR, "status=%d", status);
    }
    return status;
}

int ozuutils_updateCPserialNumberInShmem(void) noexcept {
    return send(Request::SerialNumber);
}

int ozuutils_updateNxpUartProtocol(unsigned int protocol) noexcept {
    static_cast<void>(send(Request::UartProtocol, protocol));
    return 0;
}

int ozuutils_updateNxpManufactureParamsInShmem(void) noexcept {
    return send(Request::ManufactureValues);
}

int ozuutils_GetNxpTamperState(void) noexcept {
    return send(Request::TamperState);
}

int ozuutils_setNxpPlasticVersion(void) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return kNoState;
    }
    const std::uint8_t version = ozu::readOnce(state->cpPlasticVersion);
    if (version < 1 || version > 3) {
        OZU_LOG(OZULOG_CRITICAL, "Error: can't update plastic version to %d", version);
        return kBadVersion;
    }
    OZU_LOG(OZULOG_NOTICE, "Set CP plastic version to %d", version);
    return send(Request::PlasticVersion, version);
}

void controlCC1352Gpio(const char *sender, unsigned int gpio, unsigned int level) noexcept {
    const std::uint8_t record[2] = {static_cast<std::uint8_t>(gpio), static_cast<std::uint8_t>(level)};
    if (ozumqttc_messagePublish(kRadioTopic, sizeof record, sender, kRadioClass, kSetGpio, record) != 0) {
        OZU_LOG_TEXT(OZULOG_ERROR, "Send mqtt RF_MGR_MQTT_API_CMD_TYPE_SET_CC_GPIO failed");
        return;
    }
    OZU_LOG(OZULOG_INFO, "Set CC GPIO number %d to level %d", static_cast<int>(gpio), record[1]);
}

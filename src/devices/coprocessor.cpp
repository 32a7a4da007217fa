// Requests to the NXP co-processor and to the CC1352 radio.

#include <utils_ozu/coprocessor.h>

#include <base/log.h>
#include <base/panel_state.h>

#include <mqttc.h>
#include <utils_ozu/messages.h>
#include <utils_ozu/results.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr int kNoMemory = 2;
constexpr int kBadVersion = 1;

constexpr char kNoLabel[8] = {};
constexpr unsigned int kEnvelopeHead = 5;
constexpr unsigned int kEnvelopeSpare = 1; // allocated behind the block, never sent

struct RequestBlock {
    std::uint8_t code;
    std::uint8_t value;
    std::uint8_t rest[184];
};
static_assert(sizeof(RequestBlock) == 186);

struct Free {
    void operator()(void *memory) const noexcept { std::free(memory); }
};

// Memory for an envelope, or null; no block on the panel has more than 2 GiB - 1.
std::uint8_t *allocateEnvelope(unsigned int length) noexcept {
    std::int32_t size = 0;
    if (__builtin_add_overflow(length, kEnvelopeHead + kEnvelopeSpare, &size)) {
        return nullptr;
    }
    return static_cast<std::uint8_t *>(malloc(static_cast<std::size_t>(size)));
}

int send(OzuNxpRequest code, unsigned int value = 0) noexcept {
    const RequestBlock block{static_cast<std::uint8_t>(code), static_cast<std::uint8_t>(value), {}};
    return ozuutils_SendDataToNXP(reinterpret_cast<const std::uint8_t *>(&block), sizeof block,
                                  OZU_NXP_COMMAND_REQUEST);
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
    bytes[0] = OZU_MDL_NXP_ENVELOPE;
    bytes[1] = static_cast<std::uint8_t>(command);
    if (length != 0) {
        std::memcpy(bytes + kEnvelopeHead, data, length);
    }
    const int status = ozumqttc_messagePublish(OZU_TOPIC_MDL, length + kEnvelopeHead, kNoLabel,
                                               OZU_MESSAGE_NXP_CLASS, OZU_MESSAGE_NXP_COMMAND, bytes);
    if (status != 0) {
        OZU_LOG(OZULOG_ERROR, "status=%d", status);
    }
    return status;
}

int ozuutils_updateCPserialNumberInShmem(void) noexcept {
    return send(OZU_NXP_SERIAL_NUMBER);
}

int ozuutils_updateNxpUartProtocol(unsigned int protocol) noexcept {
    static_cast<void>(send(OZU_NXP_UART_PROTOCOL, protocol));
    return 0;
}

int ozuutils_updateNxpManufactureParamsInShmem(void) noexcept {
    return send(OZU_NXP_MANUFACTURE_VALUES);
}

int ozuutils_GetNxpTamperState(void) noexcept {
    return send(OZU_NXP_TAMPER_STATE);
}

int ozuutils_setNxpPlasticVersion(void) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return OZU_RESULT_MISSING;
    }
    const std::uint8_t version = ozu::readOnce(state->cpPlasticVersion);
    if (version < 1 || version > 3) {
        OZU_LOG(OZULOG_CRITICAL, "Error: can't update plastic version to %d", version);
        return kBadVersion;
    }
    OZU_LOG(OZULOG_NOTICE, "Set CP plastic version to %d", version);
    return send(OZU_NXP_PLASTIC_VERSION, version);
}

void controlCC1352Gpio(const char *sender, unsigned int gpio, unsigned int level) noexcept {
    const std::uint8_t record[2] = {static_cast<std::uint8_t>(gpio), static_cast<std::uint8_t>(level)};
    if (ozumqttc_messagePublish(OZU_TOPIC_RF_MANAGER, sizeof record, sender, OZU_MESSAGE_RF_MANAGER_CLASS,
                                OZU_MESSAGE_RF_MANAGER_SET_CC_GPIO, record) != 0) {
        OZU_LOG_TEXT(OZULOG_ERROR, "Send mqtt RF_MGR_MQTT_API_CMD_TYPE_SET_CC_GPIO failed");
        return;
    }
    OZU_LOG(OZULOG_INFO, "Set CC GPIO number %d to level %d", static_cast<int>(gpio), record[1]);
}

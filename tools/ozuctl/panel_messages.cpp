#include "panel_messages.h"

#include <utils_ozu/names.h>

namespace ozuctl {

namespace {

using Payload = std::span<const unsigned char>;

struct Named {
    int code;
    const char *name;
};

template <std::size_t Count>
std::string nameIn(const Named (&rows)[Count], int code) {
    for (const Named &row : rows) {
        if (row.code == code) {
            return row.name;
        }
    }
    return "UNKNOWN";
}

constexpr int kUartProtocol = 8;
constexpr int kPlasticVersion = 13;
constexpr Named kNxpRequests[] = {
    {0, "SERIAL_NUMBER"}, {kUartProtocol, "UART_PROTOCOL"},     {9, "MANUFACTURE_VALUES"},
    {10, "TAMPER_STATE"}, {kPlasticVersion, "PLASTIC_VERSION"},
};
constexpr Named kCategories[] = {
    {1, "SECURITY"}, {8, "PANIC"}, {11, "ARM"}, {12, "DISARM"}, {14, "NETWORK"},
};

constexpr unsigned char kNxpEnvelope = 17;
constexpr std::size_t kNxpHead = 5;
constexpr unsigned char kRebootRequest = 15;

std::string fieldsText(const Json &record) {
    std::string text;
    for (const auto &[key, value] : record.items()) {
        text += (text.empty() ? "" : key == "message" ? "" : " " + key + "=") + plainText(value);
    }
    return text;
}

Meaning meaning(Json record) {
    std::string text = fieldsText(record);
    return {std::move(record), std::move(text)};
}

// Envelope 17, command, three bytes, then the request block.
std::optional<Meaning> nxpRequest(Payload payload) {
    if (payload.size() < kNxpHead || payload[0] != kNxpEnvelope) {
        return std::nullopt;
    }
    Json record = {{"message", "NXP_REQUEST"}, {"nxpCommand", payload[1]}};
    const Payload block = payload.subspan(kNxpHead);
    if (block.empty()) {
        return meaning(std::move(record));
    }
    record["request"] = coded(block[0], nxpRequestName(block[0]));
    if (block.size() > 1 && block[0] == kUartProtocol) {
        record["protocol"] = block[1];
    }
    if (block.size() > 1 && block[0] == kPlasticVersion) {
        record["version"] = block[1];
    }
    return meaning(std::move(record));
}

std::optional<Meaning> rebootRequest(Payload payload) {
    if (payload.size() < 2 || payload[0] != kRebootRequest || payload[1] != 1) {
        return std::nullopt;
    }
    return meaning({{"message", "CP_REBOOT_REQUEST"}});
}

std::optional<Meaning> setGpio(Payload payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    return meaning({{"message", "RF_MGR_MQTT_API_CMD_TYPE_SET_CC_GPIO"},
                    {"gpio", payload[0]},
                    {"level", payload[1]},
                    {"high", payload[1] != 0}});
}

// An event of a device, as JSON; its type gets a name.
std::optional<Meaning> deviceEvent(Payload payload) {
    Json record = Json::parse(payload.begin(), payload.end(), nullptr, false);
    if (!record.is_object() || !record.contains("type") || !record["type"].is_number_integer()) {
        return std::nullopt;
    }
    const int type = record["type"].get<int>();
    record["type"] = coded(type, getDeviceTypeName(type));
    Json named = {{"message", "DEVICE_EVENT"}};
    named.update(record);
    return meaning(std::move(named));
}

std::optional<Meaning> powerManagerReboot(Payload) {
    return meaning({{"message", "POWER_MANAGER_REBOOT"}});
}
std::optional<Meaning> systemReboot(Payload) {
    return meaning({{"message", "SYS_BROADCAST_REBOOT"}});
}
std::optional<Meaning> timeZoneChanged(Payload) {
    return meaning({{"message", "SYS_BROADCAST_TIMEZONE_CHANGED"}});
}

struct Message {
    const char *topic;
    int messageClass;
    int command;
    std::optional<Meaning> (*read)(Payload payload);
};

constexpr int kAny = -1;
constexpr Message kMessages[] = {
    {"Process/MDL", 0, 1, nxpRequest},
    {"Process/MDL", 1, 1, rebootRequest},
    {"Process/RF_MANAGER", 35, 10, setGpio},
    {"Process/POWER_MANAGER", 22, 21, powerManagerReboot},
    {"Process/ALL", 1, 0, systemReboot},
    {"Process/ALL", 6, 0, timeZoneChanged},
    {"Multicast/TBB_EVENT", kAny, kAny, deviceEvent},
};

} // namespace

std::string nxpRequestName(int code) {
    return nameIn(kNxpRequests, code);
}

std::string eventCategoryName(int category) {
    return nameIn(kCategories, category);
}

std::optional<Meaning> meaningOf(const std::string &topic, int messageClass, int command, Payload payload) {
    for (const Message &message : kMessages) {
        const bool numbers = message.messageClass == kAny ||
                             (message.messageClass == messageClass && message.command == command);
        if (topic == message.topic && numbers) {
            return message.read(payload);
        }
    }
    return std::nullopt;
}

} // namespace ozuctl

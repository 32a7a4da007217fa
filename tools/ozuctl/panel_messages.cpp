#include "panel_messages.h"

#include <system_event_log.h>
#include <utils_ozu/messages.h>
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

constexpr Named kNxpRequests[] = {
    {OZU_NXP_SERIAL_NUMBER, "SERIAL_NUMBER"},           {OZU_NXP_UART_PROTOCOL, "UART_PROTOCOL"},
    {OZU_NXP_MANUFACTURE_VALUES, "MANUFACTURE_VALUES"}, {OZU_NXP_TAMPER_STATE, "TAMPER_STATE"},
    {OZU_NXP_PLASTIC_VERSION, "PLASTIC_VERSION"},
};
constexpr Named kCategories[] = {
    {SYSTEM_EVENT_SECURITY, "SECURITY"}, {SYSTEM_EVENT_PANIC, "PANIC"},     {SYSTEM_EVENT_ARM, "ARM"},
    {SYSTEM_EVENT_DISARM, "DISARM"},     {SYSTEM_EVENT_NETWORK, "NETWORK"},
};

constexpr std::size_t kNxpHead = 5;

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

// Envelope, command, three bytes, then the request block.
std::optional<Meaning> nxpRequest(Payload payload) {
    if (payload.size() < kNxpHead || payload[0] != OZU_MDL_NXP_ENVELOPE) {
        return std::nullopt;
    }
    Json record = {{"message", "NXP_REQUEST"}, {"nxpCommand", payload[1]}};
    const Payload block = payload.subspan(kNxpHead);
    if (block.empty()) {
        return meaning(std::move(record));
    }
    record["request"] = coded(block[0], nxpRequestName(block[0]));
    if (block.size() > 1 && block[0] == OZU_NXP_UART_PROTOCOL) {
        record["protocol"] = block[1];
    }
    if (block.size() > 1 && block[0] == OZU_NXP_PLASTIC_VERSION) {
        record["version"] = block[1];
    }
    return meaning(std::move(record));
}

std::optional<Meaning> rebootRequest(Payload payload) {
    if (payload.size() < 2 || payload[0] != OZU_MDL_REBOOT || payload[1] != 1) {
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

// An event of a device, as JSON; its type gets a name. Other members than those that the messenger writes,
// and values that are no whole numbers, are not shown: they could say anything.
std::optional<Meaning> deviceEvent(Payload payload) {
    const auto event = boundedJson(payload);
    if (!event || !event->is_object()) {
        return std::nullopt;
    }
    Json record = {{"message", "DEVICE_EVENT"}};
    for (const char *key : {"device", "type", "class", "code", "partition", "input", "user"}) {
        const auto found = event->find(key);
        if (found == event->end() || !found->is_number_integer()) {
            continue;
        }
        const auto number = found->get<std::int64_t>();
        if (number < INT32_MIN || number > INT32_MAX || (found->is_number_unsigned() && number < 0)) {
            continue;
        }
        record[key] = std::string_view(key) == "type"
                          ? coded(number, getDeviceTypeName(static_cast<int>(number)))
                          : Json(number);
    }
    return record.contains("type") ? std::optional(meaning(std::move(record))) : std::nullopt;
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
    {OZU_TOPIC_MDL, OZU_MESSAGE_NXP_CLASS, OZU_MESSAGE_NXP_COMMAND, nxpRequest},
    {OZU_TOPIC_MDL, OZU_MESSAGE_CP_REBOOT_CLASS, OZU_MESSAGE_CP_REBOOT_COMMAND, rebootRequest},
    {OZU_TOPIC_RF_MANAGER, OZU_MESSAGE_RF_MANAGER_CLASS, OZU_MESSAGE_RF_MANAGER_SET_CC_GPIO, setGpio},
    {OZU_TOPIC_POWER_MANAGER, OZU_MESSAGE_POWER_MANAGER_CLASS, OZU_MESSAGE_POWER_MANAGER_REBOOT,
     powerManagerReboot},
    {OZU_TOPIC_ALL, OZU_MESSAGE_REBOOT_CLASS, OZU_MESSAGE_REBOOT_COMMAND, systemReboot},
    {OZU_TOPIC_ALL, OZU_MESSAGE_TIME_ZONE_CLASS, OZU_MESSAGE_TIME_ZONE_COMMAND, timeZoneChanged},
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

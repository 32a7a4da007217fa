#include "bus_message.h"

#include "numbers.h"
#include "panel_messages.h"
#include "text.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <span>

namespace ozuctl {

namespace {

constexpr std::size_t kMaxShown = std::size_t{64} * 1024; // bytes of a payload

// What the message's MQTT 5 user properties tell beside the payload. The first of a name counts.
struct Sender {
    std::optional<std::string> label;
    std::optional<int> messageClass;
    std::optional<int> command;
};

// What a property holds for a number: what receivers of the panel understand.
std::optional<int> messageNumber(const char *text) {
    const auto number = wholeNumber(text);
    return number && *number >= 0 && *number <= 255 ? std::optional(static_cast<int>(*number)) : std::nullopt;
}

void take(Sender &sender, const char *name, const char *value) {
    if (strcmp(name, "label") == 0 && !sender.label) {
        sender.label = value;
    } else if (strcmp(name, "class") == 0 && !sender.messageClass) {
        sender.messageClass = messageNumber(value);
    } else if (strcmp(name, "command") == 0 && !sender.command) {
        sender.command = messageNumber(value);
    }
}

Sender senderOf(const mosquitto_property *properties) {
    Sender sender;
    bool next = false;
    for (;;) {
        char *name = nullptr;
        char *value = nullptr;
        properties =
            mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &value, next);
        const std::unique_ptr<char, decltype(&free)> ownName(name, free);
        const std::unique_ptr<char, decltype(&free)> ownValue(value, free);
        if (properties == nullptr || name == nullptr || value == nullptr) {
            return sender;
        }
        take(sender, name, value);
        next = true;
    }
}

// When the sender published it, where the message tells and the clock agrees: not in the future, and not
// longer ago than a broker keeps what it cannot hand on. Otherwise now.
std::int64_t sentMs(const mosquitto_property *properties) {
    constexpr std::int64_t kMaxAgeMs = 600000;
    const std::int64_t now = nowMilliseconds();
    void *bytes = nullptr;
    std::uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &bytes, &length, false) ==
        nullptr) {
        return now;
    }
    const std::unique_ptr<void, decltype(&free)> own(bytes, free);
    const auto sent = wholeNumber({static_cast<const char *>(bytes), length});
    return sent && *sent <= now && *sent >= now - kMaxAgeMs ? *sent : now;
}

// The payload again where it is nothing but printable text.
std::string readable(std::span<const unsigned char> payload) {
    const bool plain = payload.size() > 1 &&
                       std::ranges::all_of(payload, [](unsigned char c) { return c >= ' ' && c < 0x7F; });
    return plain ? " " + std::string(payload.begin(), payload.end()) : "";
}

} // namespace

Happening messageHappening(const mosquitto_message &message, const mosquitto_property *properties) {
    const Sender sender = senderOf(properties);
    const std::span whole(static_cast<const unsigned char *>(message.payload),
                          static_cast<std::size_t>(message.payloadlen));
    const auto shown = whole.first(std::min(whole.size(), kMaxShown));
    const std::string payload = hexText(shown);
    Json record = {{"kind", "bus"},
                   {"topic", message.topic},
                   {"length", message.payloadlen},
                   {"payload", payload},
                   {"label", sender.label ? Json(*sender.label) : Json(nullptr)},
                   {"class", sender.messageClass ? Json(*sender.messageClass) : Json(nullptr)},
                   {"command", sender.command ? Json(*sender.command) : Json(nullptr)}};
    std::string text = "bus    " + visible(message.topic);
    for (const char *key : {"label", "class", "command"}) {
        if (!record[key].is_null() && record[key] != "") {
            text += std::string(" ") + key + "=" + plainText(record[key]);
        }
    }
    text += " [" + payload + (shown.size() < whole.size() ? "...]" : "]");
    if (shown.size() < whole.size()) {
        record["cut"] = true;
    }
    if (message.retain) {
        record["retained"] = true; // the broker kept it; it was sent before we listened
    }
    const auto meaning =
        meaningOf(message.topic, sender.messageClass.value_or(-1), sender.command.value_or(-1), whole);
    if (meaning) {
        record["meaning"] = meaning->record;
        text += " " + meaning->text;
    } else {
        text += readable(shown);
    }
    return {message.retain ? nowMilliseconds() : sentMs(properties), std::move(record), std::move(text)};
}

} // namespace ozuctl

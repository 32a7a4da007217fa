#include "bus_listener.h"

#include "numbers.h"
#include "panel_messages.h"
#include "text.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <span>

namespace ozuctl {

namespace {

constexpr const char *kBrokerHost = "127.0.0.1";
constexpr int kBrokerPort = 1883;
constexpr int kKeepAliveSeconds = 10;

constexpr std::size_t kMostShown = std::size_t{64} * 1024; // bytes of a payload

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

// The payload again where it is nothing but printable text.
std::string readable(std::span<const unsigned char> payload) {
    const bool plain = payload.size() > 1 &&
                       std::ranges::all_of(payload, [](unsigned char c) { return c >= ' ' && c < 0x7F; });
    return plain ? " " + std::string(payload.begin(), payload.end()) : "";
}

Happening messageHappening(const mosquitto_message &message, const mosquitto_property *properties) {
    const Sender sender = senderOf(properties);
    const std::span whole(static_cast<const unsigned char *>(message.payload),
                          static_cast<std::size_t>(message.payloadlen));
    const auto shown = whole.first(std::min(whole.size(), kMostShown));
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
    const auto meaning =
        meaningOf(message.topic, sender.messageClass.value_or(-1), sender.command.value_or(-1), whole);
    if (meaning) {
        record["meaning"] = meaning->record;
        text += " " + meaning->text;
    } else {
        text += readable(shown);
    }
    return {nowMilliseconds(), std::move(record), std::move(text)};
}

} // namespace

struct BusListener::Session {
    Timeline *timeline;
    std::string topic;
    mosquitto *client = nullptr;
    std::mutex lock;
    std::condition_variable changed;
    bool subscribed = false;

    // A message that could not be shown, most likely for want of memory.
    void tellTrouble(const char *what) const noexcept {
        try {
            timeline->add({nowMilliseconds(),
                           {{"kind", "trouble"}, {"text", what}},
                           std::string("trouble a message could not be shown: ") + what});
        } catch (const std::exception &) {
            std::abort(); // not even room for this line: the stream would be wrong without a word
        }
    }

    void tellBroker(bool connected) const noexcept {
        try {
            timeline->add({nowMilliseconds(),
                           {{"kind", "broker"}, {"connected", connected}},
                           connected ? "broker connected" : "broker gone"});
        } catch (const std::exception &error) {
            tellTrouble(error.what());
        }
    }

    static void onConnect(mosquitto *client, void *object, int reason, int, const mosquitto_property *) {
        if (reason == 0) {
            mosquitto_subscribe_v5(client, nullptr, static_cast<Session *>(object)->topic.c_str(), 1, 0,
                                   nullptr);
        }
    }

    static void onSubscribe(mosquitto *, void *object, int, int, const int *, const mosquitto_property *) {
        auto *session = static_cast<Session *>(object);
        const std::lock_guard guard(session->lock);
        if (session->subscribed) {
            session->tellBroker(true); // back after a break
        }
        session->subscribed = true;
        session->changed.notify_all();
    }

    static void onDisconnect(mosquitto *, void *object, int reason, const mosquitto_property *) {
        if (reason != 0) {
            static_cast<Session *>(object)->tellBroker(false);
        }
    }

    static void onMessage(mosquitto *, void *object, const mosquitto_message *message,
                          const mosquitto_property *properties) {
        // Nothing may leave a function that a C library called.
        try {
            static_cast<Session *>(object)->timeline->add(messageHappening(*message, properties));
        } catch (const std::exception &error) {
            static_cast<Session *>(object)->tellTrouble(error.what());
        }
    }
};

BusListener::BusListener(Timeline &timeline, const std::string &topic)
    : session_(std::make_unique<Session>()) {
    Session &session = *session_;
    session.timeline = &timeline;
    session.topic = topic;
    mosquitto_lib_init();
    session.client = mosquitto_new(nullptr, true, &session);
    if (session.client == nullptr) {
        throw CommandError(kUnreachable, "no memory for a session with the broker");
    }
    mosquitto_int_option(session.client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_reconnect_delay_set(session.client, 1, 5, false);
    mosquitto_connect_v5_callback_set(session.client, Session::onConnect);
    mosquitto_subscribe_v5_callback_set(session.client, Session::onSubscribe);
    mosquitto_disconnect_v5_callback_set(session.client, Session::onDisconnect);
    mosquitto_message_v5_callback_set(session.client, Session::onMessage);
    bool ready =
        mosquitto_connect(session.client, kBrokerHost, kBrokerPort, kKeepAliveSeconds) == MOSQ_ERR_SUCCESS &&
        mosquitto_loop_start(session.client) == MOSQ_ERR_SUCCESS;
    if (ready) {
        std::unique_lock guard(session.lock);
        ready = session.changed.wait_for(guard, std::chrono::seconds(5),
                                         [&session] { return session.subscribed; });
    }
    if (!ready) {
        mosquitto_loop_stop(session.client, true);
        mosquitto_destroy(session.client);
        session_.reset();
        throw CommandError(kUnreachable, "no broker answers on 127.0.0.1:1883",
                           "Start one, type 'ozuctl box shell' for a box with a broker of its own, or add "
                           "--no-bus.");
    }
}

BusListener::~BusListener() {
    if (session_ != nullptr) {
        mosquitto_disconnect(session_->client);
        mosquitto_loop_stop(session_->client, false);
        mosquitto_destroy(session_->client);
        mosquitto_lib_cleanup();
    }
}

} // namespace ozuctl

#include "bus_listener.h"

#include "panel_messages.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>

namespace ozuctl {

namespace {

constexpr const char *kBrokerHost = "127.0.0.1";
constexpr int kBrokerPort = 1883;
constexpr int kKeepAliveSeconds = 10;

// The message's MQTT 5 user properties, which carry what the payload does not.
Json propertiesOf(const mosquitto_property *properties) {
    Json found = Json::object();
    char *name = nullptr;
    char *value = nullptr;
    bool next = false;
    while ((properties = mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name,
                                                             &value, next)) != nullptr) {
        found[name] = value;
        free(name);
        free(value);
        next = true;
    }
    return found;
}

// A number where the property holds one.
Json numberOrText(const Json &value) {
    const auto text = value.get<std::string>();
    const bool digits =
        !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string::npos;
    return digits ? Json(std::stol(text)) : value;
}

// The payload again where it is nothing but printable text.
std::string readable(const mosquitto_message &message) {
    const std::string text(static_cast<const char *>(message.payload),
                           static_cast<std::size_t>(message.payloadlen));
    const bool plain =
        text.size() > 1 && std::ranges::all_of(text, [](char c) { return c >= ' ' && c < 0x7F; });
    return plain ? " " + text : "";
}

Happening messageHappening(const mosquitto_message &message, const mosquitto_property *properties) {
    const Json carried = propertiesOf(properties);
    const std::string payload = hexText(
        {static_cast<const unsigned char *>(message.payload), static_cast<std::size_t>(message.payloadlen)});
    Json record = {
        {"kind", "bus"}, {"topic", message.topic}, {"length", message.payloadlen}, {"payload", payload}};
    std::string text = "bus    " + std::string(message.topic);
    for (const char *key : {"label", "class", "command"}) {
        record[key] = carried.contains(key) ? numberOrText(carried[key]) : Json(nullptr);
        if (!record[key].is_null() && record[key] != "") {
            text += std::string(" ") + key + "=" + plainText(record[key]);
        }
    }
    if (record["label"].is_number()) {
        record["label"] = carried["label"];
    }
    text += " [" + payload + "]";
    const auto number = [&record](const char *key) {
        return record[key].is_number() ? record[key].get<int>() : -1;
    };
    const auto meaning = meaningOf(
        message.topic, number("class"), number("command"),
        {static_cast<const unsigned char *>(message.payload), static_cast<std::size_t>(message.payloadlen)});
    if (meaning) {
        record["meaning"] = meaning->record;
        text += " " + meaning->text;
    } else {
        text += readable(message);
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

    void tellBroker(bool connected) const {
        timeline->add({nowMilliseconds(),
                       {{"kind", "broker"}, {"connected", connected}},
                       connected ? "broker connected" : "broker gone"});
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
        static_cast<Session *>(object)->timeline->add(messageHappening(*message, properties));
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
        throw CommandError(kUnreachable,
                           "no broker answers on 127.0.0.1:1883; start one, type 'ozuctl box shell' for "
                           "a box with a broker of its own, or add --no-bus");
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

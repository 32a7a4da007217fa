// What the MQTT library tells the session: answers of the broker and messages of others, on the session's
// thread.

#include "mqtt_session.h"

#include "errors.h"
#include "in_flight.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace ozu::platform {

namespace {

constexpr int kReceiveMaximum = 65535; // a bound lets acknowledged messages wait in the broker, unsaved
constexpr int kRefused = 0x80;         // MQTT 5 reasons from here on are failures
constexpr int kShuttingDown = 0x8B;
constexpr int kKeepAliveTimeout = 0x8D;
constexpr int kSessionTakenOver = 0x8E;
constexpr std::uint32_t kUnbounded = 0xFFFFFFFF;

// The broker ended the session, but for nothing that it was sent.
bool isNobodysFault(int reason) noexcept {
    return reason == kShuttingDown || reason == kKeepAliveTimeout || reason == kSessionTakenOver;
}

// The library's reasons: the broker closed the connection, or answered in a way that the library does not
// take. Later libraries do not take every refusal of a message.
bool isBrokersDoing(int reason) noexcept {
    return reason == MOSQ_ERR_CONN_LOST || reason == MOSQ_ERR_ERRNO || reason == MOSQ_ERR_PROTOCOL ||
           reason == MOSQ_ERR_MALFORMED_PACKET;
}

int userNumber(const std::string &text) noexcept {
    int value = 0;
    static_cast<void>(std::from_chars(text.data(), text.data() + text.size(), value));
    return value;
}

void initialiseLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { mosquitto_lib_init(); });
}

} // namespace

// Nothing may be thrown through the MQTT library, which is C.
struct MqttSession::Callbacks {
    template <class Body>
    static void shielded(void *session, Body &&body) noexcept {
        try {
            body(*static_cast<MqttSession *>(session));
        } catch (const std::exception &error) {
            note(OZULOG_ERROR, "mqttc_connect", error.what());
        }
    }
    static void connect(mosquitto *, void *session, int reason, int, const mosquitto_property *properties) {
        shielded(session, [=](MqttSession &self) { self.onConnect(reason, properties); });
    }
    static void disconnect(mosquitto *, void *session, int reason, const mosquitto_property *) {
        shielded(session, [=](MqttSession &self) { self.onDisconnect(reason); });
    }
    static void publish(mosquitto *, void *session, int mid, int reason, const mosquitto_property *) {
        shielded(session, [=](MqttSession &self) { self.onAcknowledged(mid, reason); });
    }
    static void subscribe(mosquitto *, void *session, int mid, int count, const int *granted,
                          const mosquitto_property *) {
        const int reason = count > 0 ? granted[0] : kRefused;
        shielded(session, [=](MqttSession &self) { self.onSubscribed(mid, reason); });
    }
    static void message(mosquitto *, void *session, const mosquitto_message *message,
                        const mosquitto_property *properties) {
        shielded(session, [=](MqttSession &self) { self.onMessage(*message, properties); });
    }
};

MqttSession::MqttSession(std::string host, int port, std::string name, const OzuMqttArg *arg)
    : host_(std::move(host)), port_(port), name_(std::move(name)) {
    if (arg != nullptr) {
        arg_ = *arg;
    }
    initialiseLibrary();
    wakeUp_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeUp_ < 0) {
        throw Error(kInternal, std::string("eventfd: ") + std::strerror(errno));
    }
    try {
        renewClient();
    } catch (...) {
        close(wakeUp_);
        throw;
    }
}

// Each connection has a client of its own: the library would send again whatever was under way, in the same
// order and for ever. This session keeps its messages itself.
void MqttSession::renewClient() {
    mosquitto_destroy(client_);
    // The broker's session outlives a connection: what others publish meanwhile is delivered after the
    // reconnection.
    client_ = mosquitto_new(name_.c_str(), false, this);
    if (client_ == nullptr) {
        throw Error(errno == ENOMEM ? kOutOfMemory : kInvalidArgument,
                    "bus session " + name_ + " cannot be made");
    }
    mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(client_, MOSQ_OPT_SEND_MAXIMUM, static_cast<int>(kMaxSent));
    mosquitto_int_option(client_, MOSQ_OPT_RECEIVE_MAXIMUM, kReceiveMaximum);
    mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_v5_callback_set(client_, Callbacks::connect);
    mosquitto_disconnect_v5_callback_set(client_, Callbacks::disconnect);
    mosquitto_publish_v5_callback_set(client_, Callbacks::publish);
    mosquitto_subscribe_v5_callback_set(client_, Callbacks::subscribe);
    mosquitto_message_v5_callback_set(client_, Callbacks::message);
}

MqttSession::~MqttSession() {
    mosquitto_destroy(client_);
    close(wakeUp_);
}

void MqttSession::onConnect(int reason, const mqtt5__property *properties) {
    if (reason != 0) {
        refusal_ = reason;
        note(OZULOG_ERROR, "mqttc_connect",
             std::string("the broker refused the session: ") + mosquitto_reason_string(reason));
        return;
    }
    accepted_ = true;
    subscribing_.clear();
    std::uint32_t mostBytes = 0;
    const bool bounded = mosquitto_property_read_int32(properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, &mostBytes,
                                                       false) != nullptr;
    const std::lock_guard guard(mutex_);
    mostPacketBytes_ = bounded ? mostBytes : kUnbounded;
    undecidedUntil_ = Clock::now() + kRivalPatience;
    for (const auto &[topic, known] : topics_) {
        newTopics_.push_front(topic);
    }
}

void MqttSession::onDisconnect(int reason) {
    const bool spoken = reason >= kRefused;
    endedByBroker_ = accepted_ && (spoken ? !isNobodysFault(reason) : isBrokersDoing(reason));
    accepted_ = false;
    if (reason == kSessionTakenOver) {
        const std::lock_guard guard(mutex_);
        noteTakenOver();
    } else if (reason != 0) {
        note(OZULOG_WARNING, "mqttc_connect",
             std::string("connection to the broker lost: ") +
                 (spoken ? mosquitto_reason_string(reason) : mosquitto_strerror(reason)));
    }
}

void MqttSession::onAcknowledged(int mid, int reason) {
    const auto found = std::find_if(sent_.begin(), sent_.end(),
                                    [mid](const Outgoing &outgoing) { return outgoing.mid == mid; });
    if (found == sent_.end()) {
        return;
    }
    if (reason >= kRefused) {
        giveUp(*found, std::string("the broker refused it: ") + mosquitto_reason_string(reason));
    } else {
        const std::lock_guard guard(mutex_);
        --unacknowledged_;
        unacknowledgedBytes_ -= found->message.payload.size();
        updateCount();
    }
    sent_.erase(found);
    cautiously_ -= cautiously_ > 0 ? 1 : 0;
}

void MqttSession::onSubscribed(int mid, int reason) {
    const auto found = subscribing_.find(mid);
    if (found == subscribing_.end()) {
        return;
    }
    const std::string topic = found->second;
    subscribing_.erase(found);
    const bool refused = reason >= kRefused;
    if (refused) {
        note(OZULOG_ERROR, "ozumqttc_topicSubscribe",
             "the broker refused the subscription of " + topic.substr(0, kShownTopic) + ": " +
                 mosquitto_reason_string(reason));
    }
    const std::lock_guard guard(mutex_);
    answerSubscription(topic, refused ? int{kBrokerRefused} : 0);
}

void MqttSession::answerSubscription(const std::string &topic, int result) {
    for (Asked *asked : asked_) {
        if (asked->topic == topic) {
            asked->result = result;
            asked->answered = true;
        }
    }
    if (result != 0) {
        topics_.erase(topic);
    } else if (const auto known = topics_.find(topic); known != topics_.end()) {
        known->second = {true, 0};
    }
    changed_.notify_all();
}

void MqttSession::onMessage(const mosquitto_message &message, const mqtt5__property *properties) {
    if (arg_.onMessage == nullptr) {
        return;
    }
    std::string label;
    OzuMqttMessage out{};
    bool skip = false;
    for (;;) {
        char *name = nullptr;
        char *value = nullptr;
        properties =
            mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &value, skip);
        if (properties == nullptr) {
            break;
        }
        skip = true;
        if (std::strcmp(name, kLabelProperty) == 0) {
            label = value;
        } else if (std::strcmp(name, kClassProperty) == 0) {
            out.messageClass = userNumber(value);
        } else if (std::strcmp(name, kCommandProperty) == 0) {
            out.command = userNumber(value);
        }
        std::free(name);
        std::free(value);
    }
    out.topic = message.topic;
    out.senderLabel = label.c_str();
    out.payload = message.payload;
    out.payloadLength = static_cast<unsigned int>(message.payloadlen);
    arg_.onMessage(&out, arg_.user);
}

} // namespace ozu::platform

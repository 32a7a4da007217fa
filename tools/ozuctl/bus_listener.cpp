#include "bus_listener.h"

#include "bus_message.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <random>
#include <span>

#include <unistd.h>

namespace ozuctl {

namespace {

constexpr const char *kBrokerHost = "127.0.0.1";
constexpr int kBrokerPort = 1883;
constexpr int kKeepAliveSeconds = 10;

constexpr std::uint32_t kSessionExpirySeconds = 60; // how long the broker keeps messages for a lost listener

std::string freshClientName() {
    std::random_device random;
    char name[48];
    snprintf(name, sizeof name, "OZUCTL-LISTENER-%d-%08x%08x", getpid(), random(), random());
    return name;
}

} // namespace

struct BusListener::Session {
    Timeline *timeline;
    std::vector<std::string> topics;
    std::int64_t goneMs = 0; // since when the broker cannot reach us
    mosquitto *client = nullptr;
    std::mutex lock;
    std::condition_variable changed;
    std::size_t answers = 0; // to subscriptions

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

    void tellGone() noexcept {
        try {
            goneMs = nowMilliseconds();
            timeline->add({goneMs, {{"kind", "broker"}, {"connected", false}}, "broker gone"});
        } catch (const std::exception &error) {
            tellTrouble(error.what());
        }
    }

    // Kept: the broker remembers us, so that what it took meanwhile arrives now.
    void tellBack(bool kept) const noexcept {
        try {
            const std::string since = isoTimeMilliseconds(goneMs);
            timeline->add({nowMilliseconds(),
                           {{"kind", "broker"}, {"connected", true}, {"since", since}, {"missing", !kept}},
                           kept ? "broker connected; what it took since " + since + " follows"
                                : "broker connected; messages since " + since + " may be missing"});
        } catch (const std::exception &error) {
            tellTrouble(error.what());
        }
    }

    static void onConnect(mosquitto *client, void *object, int reason, int flags,
                          const mosquitto_property *) {
        if (reason != 0) {
            return;
        }
        const auto *session = static_cast<Session *>(object);
        if (session->goneMs != 0) {
            session->tellBack((flags & 1) != 0);
        }
        for (const std::string &topic : session->topics) {
            mosquitto_subscribe_v5(client, nullptr, topic.c_str(), 1, MQTT_SUB_OPT_SEND_RETAIN_NEW, nullptr);
        }
    }

    static void onSubscribe(mosquitto *, void *object, int, int, const int *, const mosquitto_property *) {
        auto *session = static_cast<Session *>(object);
        const std::lock_guard guard(session->lock);
        ++session->answers;
        session->changed.notify_all();
    }

    static void onDisconnect(mosquitto *, void *object, int reason, const mosquitto_property *) {
        auto *session = static_cast<Session *>(object);
        if (reason != 0 && session->answers != 0) {
            session->tellGone();
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

BusListener::BusListener(Timeline &timeline, std::vector<std::string> topics, const std::string &otherwise)
    : session_(std::make_unique<Session>()) {
    Session &session = *session_;
    session.timeline = &timeline;
    session.topics = std::move(topics);
    mosquitto_lib_init();
    session.client = mosquitto_new(freshClientName().c_str(), false, &session);
    if (session.client == nullptr) {
        throw CommandError(kUnreachable, "no memory for a session with the broker");
    }
    mosquitto_int_option(session.client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_reconnect_delay_set(session.client, 1, 5, false);
    mosquitto_connect_v5_callback_set(session.client, Session::onConnect);
    mosquitto_subscribe_v5_callback_set(session.client, Session::onSubscribe);
    mosquitto_disconnect_v5_callback_set(session.client, Session::onDisconnect);
    mosquitto_message_v5_callback_set(session.client, Session::onMessage);
    mosquitto_property *expiry = nullptr;
    mosquitto_property_add_int32(&expiry, MQTT_PROP_SESSION_EXPIRY_INTERVAL, kSessionExpirySeconds);
    const int connected = mosquitto_connect_bind_v5(session.client, kBrokerHost, kBrokerPort,
                                                    kKeepAliveSeconds, nullptr, expiry);
    mosquitto_property_free_all(&expiry);
    bool ready = connected == MOSQ_ERR_SUCCESS && mosquitto_loop_start(session.client) == MOSQ_ERR_SUCCESS;
    if (ready) {
        std::unique_lock guard(session.lock);
        ready = session.changed.wait_for(guard, std::chrono::seconds(5),
                                         [&session] { return session.answers >= session.topics.size(); });
    }
    if (!ready) {
        mosquitto_loop_stop(session.client, true);
        mosquitto_destroy(session.client);
        session_.reset();
        throw CommandError(kUnreachable, "no broker answers on 127.0.0.1:1883",
                           "Start one, or type 'ozuctl box shell' for a box with a broker of its own" +
                               (otherwise.empty() ? "." : "; " + otherwise));
    }
}

BusListener::~BusListener() {
    if (session_ != nullptr) {
        // The broker forgets who leaves on purpose.
        mosquitto_property *expiry = nullptr;
        mosquitto_property_add_int32(&expiry, MQTT_PROP_SESSION_EXPIRY_INTERVAL, 0);
        mosquitto_disconnect_v5(session_->client, 0, expiry);
        mosquitto_property_free_all(&expiry);
        mosquitto_loop_stop(session_->client, false);
        mosquitto_destroy(session_->client);
        mosquitto_lib_cleanup();
    }
}

} // namespace ozuctl

// The session's thread: one connection after the other, and what goes through it.

#include "mqtt_session.h"

#include "errors.h"
#include "in_flight.h"
#include "settings.h"

#include <fcntl.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <random>

namespace ozu::platform {

namespace {

constexpr int kKeepAliveSeconds = 15;
constexpr std::uint32_t kSessionExpirySeconds = 300;
constexpr int kDefaultPatience = 30;
constexpr int kHousekeepingMs = 500;

struct FreeProperties {
    void operator()(mosquitto_property *list) const noexcept { mosquitto_property_free_all(&list); }
};
using Properties = std::unique_ptr<mosquitto_property, FreeProperties>;

void addPair(Properties &list, const char *name, const std::string &value) {
    mosquitto_property *raw = list.release();
    const int result = mosquitto_property_add_string_pair(&raw, MQTT_PROP_USER_PROPERTY, name, value.c_str());
    list.reset(raw);
    if (result != MOSQ_ERR_SUCCESS) {
        throw Error(kInternal, std::string("user property: ") + mosquitto_strerror(result));
    }
}

Properties sessionExpiry(std::uint32_t seconds) {
    mosquitto_property *raw = nullptr;
    mosquitto_property_add_int32(&raw, MQTT_PROP_SESSION_EXPIRY_INTERVAL, seconds);
    return Properties(raw);
}

// The library keeps the message and sends it once there is a connection.
bool keptByLibrary(int result) noexcept {
    return result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST ||
           result == MOSQ_ERR_ERRNO;
}

int patienceSetting() noexcept {
    try {
        return numericSetting("bus.patience_s", 1, 3600, kDefaultPatience);
    } catch (const std::exception &) {
        return kDefaultPatience;
    }
}

} // namespace

void MqttSession::run() noexcept {
    pthread_setname_np(pthread_self(), "ozu-bus");
    try {
        InFlightPlace place(trySharedSegment(), name_.c_str(), static_cast<std::uint32_t>(patienceSetting()));
        if (!place.visible()) {
            note(OZULOG_WARNING, "mqttc_connect",
                 "other processes cannot see this process's messages in flight");
        }
        {
            const std::lock_guard guard(mutex_);
            place_ = &place;
        }
        serve();
        const std::lock_guard guard(mutex_);
        place_ = nullptr;
    } catch (const std::exception &error) {
        note(OZULOG_ERROR, "mqttc_connect", error.what());
        const std::lock_guard guard(mutex_);
        place_ = nullptr;
    }
    setPhase(Phase::Ended, kInternal);
}

void MqttSession::serve() {
    while (serveOnce()) {
        setPhase(Phase::Lost, 0);
        waitBeforeRetry();
        const std::lock_guard guard(mutex_);
        if (stopping_ || leftToAnother()) {
            break;
        }
    }
    const std::lock_guard guard(mutex_);
    if (unacknowledged_ != 0) {
        note(OZULOG_ERROR, "mqttc_disconnect",
             std::to_string(unacknowledged_) + " messages were not acknowledged by the broker");
    }
}

// One connection, from the attempt to its loss. @return true when another one is to follow
bool MqttSession::serveOnce() {
    const int result = connectOnce();
    if (result == 0) {
        const auto since = Clock::now();
        serveConnection();
        // A connection that is lost again and again is not tried more often than one that never comes.
        if (Clock::now() - since > kLastingConnection) {
            failures_ = 0;
        }
    }
    const std::lock_guard guard(mutex_);
    if (phase_ == Phase::Starting) { // the first attempt decides what mqttc_connect returns
        startResult_ = result;
        return false;
    }
    return !stopping_ && !leftToAnother();
}

// Another process has connected under our name. With mutex_ held.
bool MqttSession::leftToAnother() {
    if (!takenOver_ && place_ != nullptr && place_->takenOver()) {
        noteTakenOver();
    }
    return takenOver_;
}

void MqttSession::noteTakenOver() {
    takenOver_ = true;
    note(OZULOG_CRITICAL, "mqttc_connect",
         "another process connected as \"" + name_ + "\"; this one has left the bus");
}

int MqttSession::connectOnce() {
    accepted_ = false;
    refusal_ = 0;
    const Properties properties = sessionExpiry(kSessionExpirySeconds);
    int result = mosquitto_connect_bind_v5(client_, host_.c_str(), port_, kKeepAliveSeconds, nullptr,
                                           properties.get());
    if (result != MOSQ_ERR_SUCCESS) {
        ++failures_;
        return kBrokerUnreachable;
    }
    static_cast<void>(fcntl(mosquitto_socket(client_), F_SETFD, FD_CLOEXEC));
    const auto giveUpAt = Clock::now() + kConnectTimeout;
    while (!accepted_ && refusal_ == 0 && Clock::now() < giveUpAt) {
        if (!waitForSocket(kHousekeepingMs)) {
            break;
        }
        const std::lock_guard guard(mutex_);
        if (stopping_) {
            break;
        }
    }
    ++failures_;
    if (accepted_) {
        return 0;
    }
    return refusal_ != 0 ? kBrokerRefused : kBrokerUnreachable;
}

void MqttSession::serveConnection() {
    setPhase(Phase::Connected, 0);
    while (accepted_) {
        sendSubscriptions();
        pump();
        if (readyToLeave()) {
            leave();
            return;
        }
        if (!waitForSocket(kHousekeepingMs)) {
            return;
        }
    }
}

// Grows from half a second to half a minute; by chance a half shorter, so that processes do not all come back
// in the same moment.
void MqttSession::waitBeforeRetry() {
    constexpr int kFirstMs = 500;
    constexpr int kLongestMs = 30000;
    thread_local std::minstd_rand random(std::random_device{}());
    const unsigned doublings = std::min(failures_, 6U);
    const int most = std::min(kFirstMs << doublings, kLongestMs);
    const int delay = std::uniform_int_distribution(most / 2, most)(random);
    const auto until = Clock::now() + std::chrono::milliseconds(delay);
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, until, [this] { return stopping_; });
}

// Hands messages to the MQTT library as long as it has room for them.
void MqttSession::pump() {
    for (;;) {
        BusMessage message;
        {
            const std::lock_guard guard(mutex_);
            if (waiting_.empty() || sent_.size() >= static_cast<std::size_t>(kMostSent)) {
                return;
            }
            message = std::move(waiting_.front());
            waiting_.pop_front();
        }
        Properties properties;
        addPair(properties, kLabelProperty, message.label);
        addPair(properties, kClassProperty, std::to_string(message.messageClass));
        addPair(properties, kCommandProperty, std::to_string(message.command));
        int mid = 0;
        const int result = mosquitto_publish_v5(client_, &mid, message.topic.c_str(),
                                                static_cast<int>(message.payload.size()),
                                                message.payload.data(), 1, false, properties.get());
        sent_[mid] = message.payload.size();
        if (!keptByLibrary(result)) {
            note(OZULOG_ERROR, "ozumqttc_messagePublish",
                 "message to " + message.topic + " dropped: " + mosquitto_strerror(result));
            onAcknowledged(mid, 0);
        }
    }
}

void MqttSession::sendSubscriptions() {
    for (;;) {
        std::string topic;
        {
            const std::lock_guard guard(mutex_);
            if (newTopics_.empty()) {
                return;
            }
            topic = newTopics_.front();
            newTopics_.pop_front();
            if (std::find(topics_.begin(), topics_.end(), topic) == topics_.end()) {
                topics_.push_back(topic);
            }
        }
        int mid = 0;
        if (mosquitto_subscribe_v5(client_, &mid, topic.c_str(), 1, 0, nullptr) == MOSQ_ERR_SUCCESS) {
            subscribing_[mid] = topic;
        }
    }
}

bool MqttSession::readyToLeave() {
    const std::lock_guard guard(mutex_);
    return stopping_ && (unacknowledged_ == 0 || Clock::now() >= stopBy_);
}

void MqttSession::leave() {
    // Expiry 0: the broker forgets the session of a process that leaves on purpose.
    const Properties properties = sessionExpiry(0);
    mosquitto_disconnect_v5(client_, 0, properties.get());
    const auto until = Clock::now() + kDrainTimeout;
    while (mosquitto_socket(client_) >= 0 && mosquitto_want_write(client_) && Clock::now() < until) {
        if (!waitForSocket(kHousekeepingMs)) {
            break;
        }
    }
}

// Waits for the connection or a wish and does the connection's work; false once the connection is gone.
bool MqttSession::waitForSocket(int timeoutMs) {
    const int connection = mosquitto_socket(client_);
    if (connection < 0) {
        return false;
    }
    const short events = mosquitto_want_write(client_) ? POLLIN | POLLOUT : POLLIN;
    std::array<pollfd, 2> waits{pollfd{connection, events, 0}, pollfd{wakeUp_, POLLIN, 0}};
    if (poll(waits.data(), waits.size(), timeoutMs) > 0 && waits[1].revents != 0) {
        std::uint64_t count = 0;
        static_cast<void>(!read(wakeUp_, &count, sizeof(count)));
    }
    int result = MOSQ_ERR_SUCCESS;
    if ((waits[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0) {
        result = mosquitto_loop_read(client_, 1);
    }
    if (result == MOSQ_ERR_SUCCESS && mosquitto_socket(client_) >= 0 && mosquitto_want_write(client_)) {
        result = mosquitto_loop_write(client_, 1);
    }
    if (result == MOSQ_ERR_SUCCESS && mosquitto_socket(client_) >= 0) {
        result = mosquitto_loop_misc(client_);
    }
    return result == MOSQ_ERR_SUCCESS && mosquitto_socket(client_) >= 0;
}

} // namespace ozu::platform

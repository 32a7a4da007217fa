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
#include <new>
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

// When it was sent, for those who put what happened in order. Receivers of the message do not see it.
void addSendersTime(Properties &list, const std::string &sent) {
    mosquitto_property *raw = list.release();
    mosquitto_property_add_binary(&raw, MQTT_PROP_CORRELATION_DATA, sent.data(),
                                  static_cast<std::uint16_t>(sent.size()));
    list.reset(raw); // without it the time of arrival counts
}

Properties sessionExpiry(std::uint32_t seconds) {
    mosquitto_property *raw = nullptr;
    mosquitto_property_add_int32(&raw, MQTT_PROP_SESSION_EXPIRY_INTERVAL, seconds);
    return Properties(raw);
}

// The message was fine, the connection was not.
bool isConnectionsFault(int result) noexcept {
    return result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO;
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
    InFlightPlace place(trySharedSegment(), name_.c_str(), static_cast<std::uint32_t>(patienceSetting()));
    if (!place.visible()) {
        note(OZULOG_WARNING, "mqttc_connect", "other processes cannot see this process's messages in flight");
    }
    {
        const std::lock_guard guard(mutex_);
        place_ = &place;
    }
    try {
        serve();
    } catch (const std::exception &error) {
        note(OZULOG_ERROR, "mqttc_connect", error.what());
    }
    end();
}

// From here on nothing is accepted any more; what was and has not been acknowledged is told.
void MqttSession::end() {
    const std::lock_guard guard(mutex_);
    place_->setCount(0);
    place_ = nullptr;
    if (phase_ == Phase::Starting && startResult_ == 0) {
        startResult_ = kInternal;
    }
    phase_ = Phase::Ended;
    changed_.notify_all();
    if (unacknowledged_ != 0) {
        note(OZULOG_ERROR, "mqttc_disconnect",
             std::to_string(unacknowledged_) + " messages were not acknowledged by the broker");
    }
}

void MqttSession::serve() {
    while (serveOnce()) {
        setPhase(Phase::Lost, 0);
        if (isThrownOut()) {
            return;
        }
        waitBeforeRetry();
        const std::lock_guard guard(mutex_);
        if (mustLeave()) {
            return;
        }
    }
}

// One connection, from the attempt to its loss. @return true when another one is to follow
bool MqttSession::serveOnce() {
    int result = kInternal;
    try {
        result = connectOnce();
        if (result == 0) {
            const auto since = Clock::now();
            serveConnection();
            // A connection that is lost again and again is not tried more often than one that never comes.
            if (Clock::now() - since > kLastingConnection) {
                failures_ = 0;
            }
        }
    } catch (const std::exception &error) { // out of memory: a later connection may have it
        note(OZULOG_ERROR, "mqttc_connect", error.what());
    }
    takeBack();
    const std::lock_guard guard(mutex_);
    if (phase_ == Phase::Starting) { // the first attempt decides what mqttc_connect returns
        startResult_ = result;
        return false;
    }
    return !mustLeave();
}

// The broker keeps but one session of a name. Where it said goodbye to this one without a reason that came
// through, a connected session of the same name is reason enough.
bool MqttSession::isThrownOut() {
    constexpr std::chrono::milliseconds kPause{20};
    const auto until = Clock::now() + kRivalPatience;
    std::unique_lock lock(mutex_);
    while (!takenOver_ && !stopping_ && place_ != nullptr && place_->hasRival() && Clock::now() < until) {
        if (place_->hasConnectedRival()) {
            noteTakenOver();
        } else {
            changed_.wait_for(lock, kPause);
        }
    }
    return takenOver_;
}

void MqttSession::noteTakenOver() {
    takenOver_ = true;
    note(OZULOG_CRITICAL, "mqttc_connect",
         "another process connected as \"" + name_ + "\"; this one has left the bus");
}

int MqttSession::connectOnce() {
    renewClient();
    accepted_ = false;
    endedByBroker_ = false;
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
        if (mustLeave()) {
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
        if (cautiously_ == 0 || subscribing_.empty()) {
            pump();
        }
        if (readyToLeave()) {
            leave();
            return;
        }
        if (!waitForSocket(kHousekeepingMs)) {
            return;
        }
    }
}

// Grows from half a second to half a minute; with random jitter, so that processes do not all come back
// in the same moment.
void MqttSession::waitBeforeRetry() {
    constexpr int kFirstMs = 500;
    constexpr int kMaxMs = 30000;
    thread_local std::minstd_rand random(std::random_device{}());
    const unsigned doublings = std::min(failures_, 6U);
    const int most = std::min(kFirstMs << doublings, kMaxMs);
    const int delay = std::uniform_int_distribution(most / 2, most)(random);
    const auto until = Clock::now() + std::chrono::milliseconds(delay);
    std::unique_lock lock(mutex_);
    if (changed_.wait_until(lock, until, [this] { return stopping_; }) && !mustLeave()) {
        changed_.wait_for(lock, std::chrono::milliseconds(kFirstMs / 4)); // the last attempts come quickly
    }
}

// Hands messages to the MQTT library as long as it has room for them.
void MqttSession::pump() {
    while (sent_.size() < (cautiously_ > 0 ? 1 : kMaxSent)) {
        sent_.emplace_back();
        {
            const std::lock_guard guard(mutex_);
            if (waiting_.empty()) {
                sent_.pop_back();
                return;
            }
            sent_.back() = std::move(waiting_.front());
            waiting_.pop_front();
        }
        send(sent_.back());
    }
}

void MqttSession::send(Outgoing &outgoing) {
    const BusMessage &message = outgoing.message;
    Properties properties;
    addPair(properties, kLabelProperty, message.label);
    addPair(properties, kClassProperty, std::to_string(message.messageClass));
    addPair(properties, kCommandProperty, std::to_string(message.command));
    addSendersTime(properties, message.sent);
    const int result = mosquitto_publish_v5(client_, &outgoing.mid, message.topic.c_str(),
                                            static_cast<int>(message.payload.size()), message.payload.data(),
                                            1, false, properties.get());
    if (result == MOSQ_ERR_NOMEM) {
        throw std::bad_alloc();
    }
    if (result != MOSQ_ERR_SUCCESS && !isConnectionsFault(result)) {
        giveUp(outgoing, mosquitto_strerror(result));
        sent_.pop_back();
    }
}

// The message was accepted and will not be delivered; it leaves sent_ next.
void MqttSession::giveUp(const Outgoing &outgoing, const std::string &why) {
    note(OZULOG_ERROR, "ozumqttc_messagePublish",
         "message to " + outgoing.message.topic.substr(0, kShownTopic) + " given up: " + why);
    const std::lock_guard guard(mutex_);
    --unacknowledged_;
    unacknowledgedBytes_ -= outgoing.message.payload.size();
    updateCount();
}

// The connection is gone: what was under way is sent again, one by one. When there is one that the broker
// cannot take, it is soon in flight alone, and is known by the connections that break.
void MqttSession::takeBack() {
    if (sent_.empty() && endedByBroker_) {
        suspectSubscription();
    } else if (sent_.size() == 1 && endedByBroker_) {
        failures_ = std::min(failures_, 2U); // the broker is there
        if (++sent_.front().losses >= kMaxLosses) {
            giveUp(sent_.front(),
                   "the broker ended the session each of " + std::to_string(kMaxLosses) + " times");
            sent_.clear();
        }
    }
    cautiously_ = std::max(cautiously_, sent_.size());
    const std::lock_guard guard(mutex_);
    while (!sent_.empty()) {
        waiting_.push_front(std::move(sent_.back()));
        sent_.pop_back();
    }
}

// The connection broke under nothing but subscriptions. They are answered in their order, so it was the first
// one without an answer.
void MqttSession::suspectSubscription() {
    if (subscribing_.empty()) {
        return;
    }
    failures_ = std::min(failures_, 2U); // the broker is there
    const std::string topic = subscribing_.begin()->second;
    const std::lock_guard guard(mutex_);
    const auto known = topics_.find(topic);
    if (known != topics_.end() && ++known->second.losses >= kMaxLosses) {
        note(OZULOG_ERROR, "ozumqttc_topicSubscribe",
             "subscription of " + topic.substr(0, kShownTopic) +
                 " given up: the broker ended the session each of " + std::to_string(kMaxLosses) + " times");
        answerSubscription(topic, kBrokerRefused);
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
            topics_.try_emplace(topic);
        }
        int mid = 0;
        const int result = mosquitto_subscribe_v5(client_, &mid, topic.c_str(), 1, 0, nullptr);
        if (result == MOSQ_ERR_SUCCESS) {
            subscribing_[mid] = topic;
        } else if (!isConnectionsFault(result)) {
            note(OZULOG_ERROR, "ozumqttc_topicSubscribe",
                 "subscription of " + topic.substr(0, kShownTopic) +
                     " given up: " + mosquitto_strerror(result));
            const std::lock_guard guard(mutex_);
            answerSubscription(topic, result == MOSQ_ERR_NOMEM ? kOutOfMemory : kInvalidArgument);
        }
    }
}

bool MqttSession::readyToLeave() {
    const std::lock_guard guard(mutex_);
    return mustLeave();
}

bool MqttSession::mustLeave() {
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

#include "mqtt_session.h"

#include "errors.h"
#include "in_flight.h"
#include "settings.h"

#include <fcntl.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <random>

namespace ozu::platform {

namespace {

constexpr int kKeepAliveSeconds = 15;
constexpr int kMostSent = 100;         // handed to the MQTT library at a time
constexpr int kReceiveMaximum = 65535; // a bound lets acknowledged messages wait in the broker, unsaved
constexpr std::uint32_t kSessionExpirySeconds = 300;
constexpr int kDefaultPatience = 30;
constexpr int kHousekeepingMs = 500;
constexpr int kRefused = 0x80; // MQTT 5 reasons from here on are failures
constexpr int kSessionTakenOver = 0x8E;

using Clock = std::chrono::steady_clock;

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

int userNumber(const std::string &text) noexcept {
    int value = 0;
    static_cast<void>(std::from_chars(text.data(), text.data() + text.size(), value));
    return value;
}

int patienceSetting() noexcept {
    try {
        return numericSetting("bus.patience_s", 1, 3600, kDefaultPatience);
    } catch (const std::exception &) {
        return kDefaultPatience;
    }
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
            note(70000, "mqttc_connect", error.what());
        }
    }
    static void connect(mosquitto *, void *session, int reason, int, const mosquitto_property *) {
        shielded(session, [=](MqttSession &self) { self.onConnect(reason); });
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
    // The session outlives a connection: what others publish meanwhile is delivered after the reconnection.
    client_ = mosquitto_new(name_.c_str(), false, this);
    if (client_ == nullptr) {
        const int error = errno;
        close(wakeUp_);
        throw Error(error == ENOMEM ? kOutOfMemory : kInvalidArgument,
                    "bus session " + name_ + " cannot be made");
    }
    mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(client_, MOSQ_OPT_SEND_MAXIMUM, kMostSent);
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

// ---- any thread
// ----------------------------------------------------------------------------------------------

void MqttSession::wake() noexcept {
    const std::uint64_t one = 1;
    static_cast<void>(!write(wakeUp_, &one, sizeof(one)));
}

bool MqttSession::onOwnThread() const noexcept {
    return pthread_equal(pthread_self(), thread_) != 0;
}

void MqttSession::setPhase(Phase phase, int result) {
    const std::lock_guard guard(mutex_);
    if (phase_ == Phase::Starting && startResult_ == 0) {
        startResult_ = result;
    }
    phase_ = phase;
    if (place_ != nullptr) {
        place_->setConnected(phase == Phase::Connected);
    }
    changed_.notify_all();
}

void MqttSession::updateCount() {
    if (place_ != nullptr) {
        place_->setCount(static_cast<std::uint32_t>(unacknowledged_));
    }
}

int MqttSession::start() {
    auto *self = new std::shared_ptr<MqttSession>(shared_from_this());
    // The thread takes no signal: handlers stay with the program's own threads, and a write to a broken
    // connection cannot kill the process.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(
        &thread_, nullptr,
        [](void *argument) -> void * {
            const std::unique_ptr<std::shared_ptr<MqttSession>> own(
                static_cast<std::shared_ptr<MqttSession> *>(argument));
            (*own)->run();
            return nullptr;
        },
        self);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) {
        delete self;
        throw Error(kInternal, std::string("thread of the bus session: ") + std::strerror(error));
    }
    pthread_detach(thread_);
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kConnectTimeout, [this] { return phase_ != Phase::Starting; })) {
        stopping_ = true;
        stopBy_ = Clock::now();
        wake();
        return kBrokerUnreachable;
    }
    return startResult_;
}

void MqttSession::stop() {
    std::unique_lock lock(mutex_);
    stopping_ = true;
    stopBy_ = Clock::now() + kDrainTimeout;
    wake();
    if (!onOwnThread()) {
        changed_.wait_until(lock, stopBy_ + kDrainTimeout, [this] { return phase_ == Phase::Ended; });
    }
}

int MqttSession::subscribe(const std::string &topic) {
    if (mosquitto_sub_topic_check(topic.c_str()) != MOSQ_ERR_SUCCESS) {
        return kInvalidArgument;
    }
    std::unique_lock lock(mutex_);
    if (takenOver_) {
        return kTakenOver;
    }
    if (phase_ != Phase::Connected || stopping_) {
        return kNotConnected;
    }
    asked_[topic] = {};
    newTopics_.push_back(topic);
    wake();
    if (onOwnThread()) {
        return 0; // in a message's callback: the answer can only come after it
    }
    const auto over = [&] { return asked_[topic].answered || phase_ == Phase::Ended; };
    int result = kBrokerUnreachable;
    if (changed_.wait_for(lock, kSubscribeTimeout, over)) {
        result = asked_[topic].answered ? asked_[topic].result : takenOver_ ? kTakenOver : kNotConnected;
    }
    asked_.erase(topic);
    if (result != 0) {
        std::erase(topics_, topic);
    }
    return result;
}

int MqttSession::publish(BusMessage message) {
    if (mosquitto_pub_topic_check(message.topic.c_str()) != MOSQ_ERR_SUCCESS || message.topic.empty() ||
        mosquitto_validate_utf8(message.label.c_str(), static_cast<int>(message.label.size())) !=
            MOSQ_ERR_SUCCESS) {
        return kInvalidArgument;
    }
    const std::size_t bytes = message.payload.size();
    const std::lock_guard guard(mutex_);
    if (takenOver_) {
        return kTakenOver;
    }
    if (phase_ == Phase::Ended || stopping_) {
        return kNotConnected;
    }
    if (unacknowledged_ >= kMostMessages || unacknowledgedBytes_ + bytes > kMostBytes) {
        return kQueueFull;
    }
    waiting_.push_back(std::move(message));
    ++unacknowledged_;
    unacknowledgedBytes_ += bytes;
    updateCount();
    wake();
    return 0;
}

// ---- the session's thread
// --------------------------------------------------------------------------------------

void MqttSession::run() noexcept {
    pthread_setname_np(pthread_self(), "ozu-bus");
    try {
        InFlightPlace place(trySharedSegment(), name_.c_str(), static_cast<std::uint32_t>(patienceSetting()));
        if (!place.visible()) {
            note(50000, "mqttc_connect", "other processes cannot see this process's messages in flight");
        }
        {
            const std::lock_guard guard(mutex_);
            place_ = &place;
        }
        serve();
        const std::lock_guard guard(mutex_);
        place_ = nullptr;
    } catch (const std::exception &error) {
        note(70000, "mqttc_connect", error.what());
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
        note(70000, "mqttc_disconnect",
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
        takenOver_ = true;
        note(80000, "mqttc_connect",
             "another process connected as \"" + name_ + "\"; this one has left the bus");
    }
    return takenOver_;
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
            note(70000, "ozumqttc_messagePublish",
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

void MqttSession::onConnect(int reason) {
    if (reason != 0) {
        refusal_ = reason;
        note(70000, "mqttc_connect",
             std::string("the broker refused the session: ") + mosquitto_reason_string(reason));
        return;
    }
    accepted_ = true;
    subscribing_.clear();
    const std::lock_guard guard(mutex_);
    if (place_ != nullptr) {
        place_->takeOverName();
    }
    newTopics_.insert(newTopics_.begin(), topics_.begin(), topics_.end());
}

void MqttSession::onDisconnect(int reason) {
    accepted_ = false;
    if (reason == kSessionTakenOver) {
        const std::lock_guard guard(mutex_);
        takenOver_ = true;
        note(80000, "mqttc_connect",
             "another process connected as \"" + name_ + "\"; this one has left the bus");
    } else if (reason != 0) {
        note(50000, "mqttc_connect",
             std::string("connection to the broker lost: ") +
                 (reason >= kRefused ? mosquitto_reason_string(reason) : mosquitto_strerror(reason)));
    }
}

void MqttSession::onAcknowledged(int mid, int reason) {
    if (reason >= kRefused) {
        note(70000, "ozumqttc_messagePublish",
             std::string("the broker refused a message: ") + mosquitto_reason_string(reason));
    }
    const auto found = sent_.find(mid);
    if (found == sent_.end()) {
        return;
    }
    const std::size_t bytes = found->second;
    sent_.erase(found);
    const std::lock_guard guard(mutex_);
    --unacknowledged_;
    unacknowledgedBytes_ -= bytes;
    updateCount();
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
        note(70000, "ozumqttc_topicSubscribe",
             "the broker refused the subscription of " + topic + ": " + mosquitto_reason_string(reason));
    }
    const std::lock_guard guard(mutex_);
    if (const auto asked = asked_.find(topic); asked != asked_.end()) {
        asked->second = {refused ? int{kBrokerRefused} : 0, true};
    }
    if (refused) {
        std::erase(topics_, topic);
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

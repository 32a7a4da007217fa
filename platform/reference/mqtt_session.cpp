// The session as its process calls it, on any thread.

#include "mqtt_session.h"

#include "bus_text.h"
#include "errors.h"
#include "in_flight.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>

namespace ozu::platform {

namespace {

// Bytes of a number whose every byte carries seven bits.
std::size_t bytesOfLength(std::size_t length) noexcept {
    constexpr unsigned kBits = 7;
    std::size_t bytes = 1;
    while ((length >>= kBits) != 0) {
        ++bytes;
    }
    return bytes;
}

// Bytes that the message takes on its way to the broker.
std::size_t packetBytes(const BusMessage &message) {
    std::size_t properties = 0;
    const auto add = [&](const char *name, std::size_t valueBytes) {
        constexpr std::size_t kFrame = 5; // what it is, and the two lengths
        properties += kFrame + std::strlen(name) + valueBytes;
    };
    add(kLabelProperty, message.label.size());
    add(kClassProperty, std::to_string(message.messageClass).size());
    add(kCommandProperty, std::to_string(message.command).size());
    constexpr std::size_t kSentFrame = 3; // what it is, and its length
    properties += kSentFrame + message.sent.size();
    constexpr std::size_t kTopicLength = 2;
    constexpr std::size_t kNumber = 2;
    const std::size_t rest = kTopicLength + message.topic.size() + kNumber + bytesOfLength(properties) +
                             properties + message.payload.size();
    return 1 + bytesOfLength(rest) + rest;
}

} // namespace

bool isSendable(const BusMessage &message) noexcept {
    return isPublishable(message.topic) && isLabel(message.label) && message.payload.size() <= kMaxBytes;
}

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

// Two connected sessions of one name are one too many: the broker is about to throw one of them out, and
// tells which. Until then nobody should take this one for good.
void MqttSession::awaitVerdict(std::unique_lock<std::mutex> &lock) {
    constexpr std::chrono::milliseconds kPause{5};
    while (phase_ == Phase::Connected && !stopping_ && !onOwnThread() && Clock::now() < undecidedUntil_ &&
           place_ != nullptr && place_->hasConnectedRival()) {
        changed_.wait_for(lock, kPause);
    }
}

bool MqttSession::isTakenOver() const noexcept {
    return takenOver_ || (phase_ == Phase::Lost && place_ != nullptr && place_->hasRival());
}

int MqttSession::subscribe(const std::string &topic) {
    std::unique_lock lock(mutex_);
    awaitVerdict(lock);
    if (isTakenOver()) {
        return kTakenOver;
    }
    if (phase_ != Phase::Connected || stopping_) {
        return kNotConnected;
    }
    newTopics_.push_back(topic);
    wake();
    if (onOwnThread()) {
        return 0; // in a message's callback: the answer can only come after it
    }
    Asked asked{topic};
    asked_.push_back(&asked);
    const auto over = [&] { return asked.answered || phase_ == Phase::Ended; };
    int result = kBrokerUnreachable;
    if (changed_.wait_for(lock, kSubscribeTimeout, over)) {
        result = asked.answered ? asked.result : takenOver_ ? kTakenOver : kNotConnected;
    }
    std::erase(asked_, &asked);
    if (result != 0) {
        forgetUngranted(topic);
    }
    return result;
}

// A subscription that failed is not tried again, unless it was granted before or somebody else waits for it.
void MqttSession::forgetUngranted(const std::string &topic) {
    const auto known = topics_.find(topic);
    const bool granted = known != topics_.end() && known->second.granted;
    if (!granted && std::none_of(asked_.begin(), asked_.end(),
                                 [&](const Asked *other) { return other->topic == topic; })) {
        topics_.erase(topic);
        std::erase(newTopics_, topic);
    }
}

int MqttSession::publish(BusMessage message) {
    if (!isSendable(message)) {
        return kInvalidArgument;
    }
    using namespace std::chrono;
    message.sent =
        std::to_string(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
    const std::size_t bytes = message.payload.size();
    std::unique_lock lock(mutex_);
    if (packetBytes(message) > mostPacketBytes_) {
        return kInvalidArgument;
    }
    awaitVerdict(lock);
    if (isTakenOver()) {
        return kTakenOver;
    }
    if (phase_ == Phase::Ended || stopping_) {
        return kNotConnected;
    }
    if (unacknowledged_ >= kMaxMessages || unacknowledgedBytes_ + bytes > kMaxBytes) {
        return kQueueFull;
    }
    waiting_.push_back({std::move(message)});
    ++unacknowledged_;
    unacknowledgedBytes_ += bytes;
    updateCount();
    wake();
    return 0;
}

} // namespace ozu::platform

// The session as its process calls it, on any thread.

#include "mqtt_session.h"

#include "errors.h"
#include "in_flight.h"

#include <mosquitto.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

namespace ozu::platform {

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

} // namespace ozu::platform

// mqttc.h: the process's one session with the broker.

#include <mqttc.h>

#include "bus_text.h"
#include "errors.h"
#include "mqtt_session.h"
#include "severity.h"

#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace ozu::platform {

namespace {

constexpr int kHighestPort = 65535;

struct Bus {
    std::mutex lifecycle; // one connect or disconnect at a time
    std::mutex pointer;   // held for a moment only
    std::shared_ptr<MqttSession> session;
    std::atomic<pid_t> owner{0}; // process that connected; a forked child has no session
};

// Never destroyed: the session's thread may run until the process is gone.
Bus &theBus() {
    static Bus &bus = *new Bus;
    return bus;
}

std::shared_ptr<MqttSession> ownSession() {
    Bus &bus = theBus();
    if (bus.owner.load() != getpid()) {
        return nullptr;
    }
    const std::lock_guard guard(bus.pointer);
    return bus.session;
}

void setSession(std::shared_ptr<MqttSession> session) {
    Bus &bus = theBus();
    const std::lock_guard guard(bus.pointer);
    if (bus.owner.load() != getpid() && bus.session) {
        // Inherited over a fork: its thread does not exist here, so it is left as it is.
        new std::shared_ptr<MqttSession>(std::move(bus.session));
    }
    bus.session = std::move(session);
    bus.owner.store(bus.session ? getpid() : 0);
}

} // namespace

int publishOnSession(BusMessage message) {
    const auto session = ownSession();
    return session ? session->publish(std::move(message)) : int{kNotConnected};
}

void lockBusForFork() noexcept {
    theBus().pointer.lock();
}

void unlockBusAfterFork() noexcept {
    theBus().pointer.unlock();
}

void renewBusInChild() noexcept {
    theBus().pointer.unlock();
    new (&theBus().lifecycle) std::mutex;
}

} // namespace ozu::platform

using namespace ozu::platform;

extern "C" {

int mqttc_connect(const char *host, int port, const char *clientName, void *mqttArg) {
    return guarded(__func__, [&]() -> int {
        if (host == nullptr || *host == '\0' || port < 1 || port > kHighestPort ||
            !usableProcessName(clientName)) {
            return kInvalidArgument;
        }
        const std::lock_guard guard(theBus().lifecycle);
        if (ownSession()) {
            return kAlreadyConnected;
        }
        auto session =
            std::make_shared<MqttSession>(host, port, clientName, static_cast<const OzuMqttArg *>(mqttArg));
        const int result = session->start();
        if (result == 0) {
            setSession(std::move(session));
        } else {
            note(OZULOG_ERROR, "mqttc_connect",
                 std::string(host) + ":" + std::to_string(port) + ": " + codeText(result));
        }
        return result;
    });
}

void mqttc_disconnect(void) {
    guarded(__func__, []() -> int {
        if (!ownSession()) {
            return 0;
        }
        const std::lock_guard guard(theBus().lifecycle);
        if (const auto session = ownSession()) {
            session->stop();
            setSession(nullptr);
        }
        return 0;
    });
}

int ozumqttc_topicSubscribe(const char *topic) {
    return guarded(__func__, [&]() -> int {
        if (topic == nullptr || !isSubscribable(topic)) {
            return kInvalidArgument;
        }
        const auto session = ownSession();
        return session ? session->subscribe(topic) : int{kNotConnected};
    });
}

int ozumqttc_messagePublish(const char *topic, unsigned int payloadLength, const char *senderLabel,
                            int messageClass, int command, const void *payload) {
    return guarded(__func__, [&]() -> int {
        if (topic == nullptr || (payload == nullptr && payloadLength != 0) || payloadLength > kMaxBytes) {
            return kInvalidArgument;
        }
        const auto *bytes = static_cast<const unsigned char *>(payload);
        BusMessage message{topic, senderLabel != nullptr ? senderLabel : "", messageClass, command,
                           payloadLength == 0 ? std::vector<unsigned char>()
                                              : std::vector<unsigned char>(bytes, bytes + payloadLength)};
        // What can never be sent is refused, whether there is a session or not.
        return isSendable(message) ? publishOnSession(std::move(message)) : int{kInvalidArgument};
    });
}

} // extern "C"

// The process's session with the broker.
//
// One thread of the session owns the connection and makes every call of the MQTT library; publishers and
// subscribers hand it their wishes. It reconnects by itself, subscribes again, and sends again what the
// broker has not acknowledged.
//
// mqtt_session.cpp is what publishers and subscribers call, mqtt_connection.cpp what the thread does,
// mqtt_callbacks.cpp what the MQTT library tells it.
#pragma once

#include <mqttc.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace ozu::platform {

class InFlightPlace;

struct BusMessage {
    std::string topic;
    std::string label;
    int messageClass = 0;
    int command = 0;
    std::vector<unsigned char> payload;
    std::string sent = {}; // when the caller published it, UTC milliseconds in decimal
};

// The broker takes its topic and its label.
bool isSendable(const BusMessage &message) noexcept;

// Names of the user properties that carry what is not payload.
inline constexpr const char *kLabelProperty = "label";
inline constexpr const char *kClassProperty = "class";
inline constexpr const char *kCommandProperty = "command";

// A message is accepted while the ones that wait for their acknowledgement stay within both bounds.
inline constexpr std::size_t kMaxMessages = 1000;
inline constexpr std::size_t kMaxBytes = std::size_t{4} << 20;
inline constexpr std::size_t kMaxSent = 100; // handed to the MQTT library at a time
// A message that was the only one under way so often when the connection broke is given up, and so is a
// subscription: it may be what the broker cannot take.
inline constexpr int kMaxLosses = 5;
// Of a topic in a log line; what happened to it stands behind.
inline constexpr std::size_t kShownTopic = 200;
// How long a caller waits: for the session, for the answer to a subscription, for the last acknowledgements.
inline constexpr std::chrono::milliseconds kConnectTimeout{5000};
inline constexpr std::chrono::milliseconds kLastingConnection{10000};
inline constexpr std::chrono::milliseconds kSubscribeTimeout{5000};
inline constexpr std::chrono::milliseconds kDrainTimeout{3000};
// How long two sessions of one name may take to find out which of them the broker keeps.
inline constexpr std::chrono::milliseconds kRivalPatience{2000};

using Clock = std::chrono::steady_clock;

class MqttSession : public std::enable_shared_from_this<MqttSession> {
  public:
    MqttSession(std::string host, int port, std::string name, const OzuMqttArg *arg);
    ~MqttSession();
    MqttSession(const MqttSession &) = delete;
    MqttSession &operator=(const MqttSession &) = delete;

    // Starts the thread and waits until the broker has accepted the session. @return 0 or a Code
    int start();
    // Waits for outstanding acknowledgements, leaves the broker, ends the thread.
    void stop();
    int subscribe(const std::string &topic);
    int publish(BusMessage message);

  private:
    struct Callbacks; // of the MQTT library

    enum class Phase { Starting, Connected, Lost, Ended };
    struct Topic {
        bool granted = false;
        int losses = 0; // connections that broke while it waited for its answer
    };
    struct Asked { // a caller that waits
        const std::string &topic;
        int result = 0;
        bool answered = false;
    };
    struct Outgoing {
        BusMessage message;
        int mid = 0;    // number with the MQTT library while it is under way
        int losses = 0; // connections that broke while it was under way alone
    };

    // On the session's thread.
    void run() noexcept;
    void serve();
    bool serveOnce();
    bool isThrownOut();
    void noteTakenOver(); // with mutex_ held
    void renewClient();
    void end();
    int connectOnce();
    void serveConnection();
    void waitBeforeRetry();
    void pump();
    void send(Outgoing &outgoing);
    void giveUp(const Outgoing &outgoing, const std::string &why);
    void takeBack();
    void sendSubscriptions();
    void suspectSubscription();
    void forgetUngranted(const std::string &topic);                // with mutex_ held
    void answerSubscription(const std::string &topic, int result); // with mutex_ held
    bool readyToLeave();
    bool mustLeave(); // with mutex_ held
    void leave();
    bool waitForSocket(int timeoutMs);
    void onConnect(int reason, const mqtt5__property *properties);
    void onDisconnect(int reason);
    void onAcknowledged(int mid, int reason);
    void onSubscribed(int mid, int reason);
    void onMessage(const mosquitto_message &message, const mqtt5__property *properties);

    // On any thread.
    void wake() noexcept;
    void setPhase(Phase phase, int result);
    void updateCount(); // with mutex_ held
    [[nodiscard]] bool onOwnThread() const noexcept;
    void awaitVerdict(std::unique_lock<std::mutex> &lock);
    [[nodiscard]] bool isTakenOver() const noexcept; // with mutex_ held

    const std::string host_;
    const int port_;
    const std::string name_;
    OzuMqttArg arg_{};

    int wakeUp_ = -1; // event descriptor
    mosquitto *client_ = nullptr;
    pthread_t thread_{};

    std::mutex mutex_; // of everything up to the next comment
    std::condition_variable changed_;
    Phase phase_ = Phase::Starting;
    int startResult_ = 0;
    bool stopping_ = false;
    bool takenOver_ = false;
    Clock::time_point stopBy_;
    Clock::time_point undecidedUntil_; // until then a rival may still be about to throw this session out
    std::uint32_t mostPacketBytes_ = 0xFFFFFFFF; // that the broker takes
    std::deque<Outgoing> waiting_;
    std::size_t unacknowledged_ = 0; // waiting_ and sent_
    std::size_t unacknowledgedBytes_ = 0;
    std::map<std::string, Topic> topics_; // granted or asked for
    std::deque<std::string> newTopics_;
    std::vector<Asked *> asked_;
    InFlightPlace *place_ = nullptr;

    // Of the session's thread alone.
    std::deque<Outgoing> sent_;  // not acknowledged, oldest first
    std::size_t cautiously_ = 0; // so many messages are sent one by one, after a connection broke under them
    std::map<int, std::string> subscribing_;
    bool accepted_ = false; // the broker has answered CONNECT with success
    bool endedByBroker_ = false;
    int refusal_ = 0;
    unsigned failures_ = 0; // since the last connection that lasted
};

// Publishes on this process's session, if it has one. @return 0 or a Code
int publishOnSession(BusMessage message);

// Around a fork: no thread is fetching or changing the session then. The child gets locks that nobody holds,
// even when a thread of the parent is connecting.
void lockBusForFork() noexcept;
void unlockBusAfterFork() noexcept;
void renewBusInChild() noexcept;

} // namespace ozu::platform

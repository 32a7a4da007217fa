// The bus session against a real broker: what is sent, what is received, what a broker in trouble does.

#include "panel_folder.h"

#include "broker.h"
#include "mqtt_session.h"

#include <messenger.h>
#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

using namespace ozu::platform;
using namespace ozu::test;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct Received {
    std::string topic;
    std::string label;
    int messageClass = 0;
    int command = 0;
    std::string payload;
    bool operator==(const Received &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Received &message) {
    return out << message.topic << " \"" << message.label << "\" " << message.messageClass << " "
               << message.command << " " << testing::PrintToString(message.payload);
}

// Collects what arrives.
class Inbox {
  public:
    OzuMqttArg arg{&Inbox::take, this};

    std::vector<Received> all() {
        const std::lock_guard guard(mutex_);
        return messages_;
    }
    std::set<std::string> payloads() {
        std::set<std::string> found;
        for (const auto &message : all()) {
            found.insert(message.payload);
        }
        return found;
    }

  private:
    static void take(const OzuMqttMessage *message, void *user) {
        auto &inbox = *static_cast<Inbox *>(user);
        const std::lock_guard guard(inbox.mutex_);
        inbox.messages_.push_back(
            {message->topic, message->senderLabel, message->messageClass, message->command,
             std::string(static_cast<const char *>(message->payload), message->payloadLength)});
    }
    std::mutex mutex_;
    std::vector<Received> messages_;
};

// The broker keeps sessions and their messages over a restart.
constexpr const char *kLasting = "persistence true\nautosave_on_changes true\nautosave_interval 1\n";

class Bus : public PanelFolder {
  protected:
    void SetUp() override {
        if (!Broker::available()) {
            GTEST_SKIP() << "mosquitto is not installed";
        }
        PanelFolder::SetUp();
    }
    void TearDown() override {
        mqttc_disconnect();
        broker.reset();
        PanelFolder::TearDown();
    }
    void startBroker(const std::string &configuration = "") {
        broker = std::make_unique<Broker>(folder(), configuration);
    }
    int connect(const char *name = "alarmd") {
        return mqttc_connect("127.0.0.1", broker->port(), name, &inbox.arg);
    }

    static int publish(const std::string &topic, const std::string &payload) {
        return ozumqttc_messagePublish(topic.c_str(), static_cast<unsigned>(payload.size()), "T", 1, 2,
                                       payload.data());
    }
    static int inFlight() {
        unsigned char any = 99;
        EXPECT_EQ(ozudb_isInFlightData(&any), 0);
        return any;
    }
    static bool drained() {
        return eventually([] { return inFlight() == 0; });
    }

    // A broker that cannot take one message, for whatever reason: that one is dropped and reported, the
    // others pass.
    static void expectOnlyPoisonIsGivenUp(const std::string &protest) {
        const int port = freePort();
        const int listener = listenSilently(port);
        std::atomic<bool> over{false};
        std::set<std::string> passed;
        std::thread server([&] { passed = serveUnableToBear(listener, "poison", over, protest); });
        ASSERT_EQ(ozulog_init("alarmd"), 0);
        ASSERT_EQ(mqttc_connect("127.0.0.1", port, "alarmd", nullptr), 0);
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(publish("Process/ALL", "before" + std::to_string(i)), 0);
        }
        ASSERT_EQ(publish("Process/ALL", "poison"), 0);
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(publish("Process/ALL", "after" + std::to_string(i)), 0);
        }
        EXPECT_TRUE(eventually([] { return inFlight() == 0; }, 60));
        EXPECT_EQ(publish("Process/ALL", "last"), 0);
        EXPECT_TRUE(eventually([] { return inFlight() == 0; }, 30));
        mqttc_disconnect();
        over = true;
        server.join();
        close(listener);
        EXPECT_EQ(passed.size(), 41U);
        EXPECT_EQ(passed.count("last"), 1U);
        EXPECT_THAT(contentOf(logFile("alarmd")),
                    HasSubstr("message to Process/ALL given up: the broker ended the session"));
    }

    std::unique_ptr<Broker> broker;
    Inbox inbox;
};

int seconds(const std::function<void()> &body) {
    const auto from = std::chrono::steady_clock::now();
    body();
    return static_cast<int>(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - from).count());
}

} // namespace

TEST_F(Bus, carriesLabelClassAndCommandBesideThePayload) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/#"), 0);
    const std::string binary("\x0F\x01\0\0\xFF\n\x80", 7);
    EXPECT_EQ(ozumqttc_messagePublish("Process/MDL", 7, "RSU", 1, 1, binary.data()), 0);
    EXPECT_EQ(ozumqttc_messagePublish("Process/ALL", 0, "LTE", 1, 0, ""), 0);
    EXPECT_EQ(ozumqttc_messagePublish("Process/ALL", 0, "", 255, 255, nullptr), 0);
    EXPECT_EQ(ozumqttc_messagePublish("Process/ALL", 0, nullptr, 0, 0, nullptr), 0);
    ASSERT_TRUE(eventually([&] { return inbox.all().size() == 4; }));
    EXPECT_THAT(inbox.all(), ElementsAre(Received{"Process/MDL", "RSU", 1, 1, binary},
                                         Received{"Process/ALL", "LTE", 1, 0, ""},
                                         Received{"Process/ALL", "", 255, 255, ""},
                                         Received{"Process/ALL", "", 0, 0, ""}));
}

TEST_F(Bus, sessionIsAsDocumented) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    ASSERT_EQ(publish("Process/ALL", "x"), 0);
    ASSERT_TRUE(drained());
    ASSERT_TRUE(eventually([&] { return inbox.all().size() == 1; }));
    mqttc_disconnect();
    broker->stop(SIGTERM); // what it has to say is said
    const std::string said = contentOf(folder() + "/mosquitto.log");
    EXPECT_THAT(said, HasSubstr("as alarmd (p5, c0, k15)")); // MQTT 5, the session is kept, keep-alive
    EXPECT_THAT(said, HasSubstr("Process/ALL (QoS 1)"));
    EXPECT_THAT(said, HasSubstr("Received PUBLISH from alarmd (d0, q1, r0, "));
    EXPECT_THAT(said, HasSubstr("Sending PUBLISH to alarmd (d0, q1, r0, "));
}

TEST_F(Bus, messengerEventIsAMessage) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Multicast/TBB_EVENT"), 0);
    EXPECT_EQ(MESSENGER_SendTBBEvent(3, 85, 1, 2, 0, 0, 65535), 0);
    ASSERT_TRUE(eventually([&] { return !inbox.all().empty(); }));
    EXPECT_THAT(inbox.all(),
                ElementsAre(Received{
                    "Multicast/TBB_EVENT", "MESSENGER", 1, 2,
                    R"({"device":3,"type":85,"class":1,"code":2,"partition":0,"input":0,"user":65535})"}));
}

TEST_F(Bus, remoteLinesAreSentAndLogged) {
    startBroker();
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Multicast/REMOTE_LOG"), 0);
    EXPECT_EQ(ozulog_printf_mqtt_transmission(60000, "NETWORK: fail [%s]", "host\n"), 0);
    EXPECT_EQ(ozulog_printf_mqtt_transmission(10000, "%s", "filtered"), 0);
    ASSERT_TRUE(eventually([&] { return !inbox.all().empty(); }));
    EXPECT_THAT(inbox.all(),
                ElementsAre(Received{"Multicast/REMOTE_LOG", "alarmd", 0, 6, "NETWORK: fail [host\n]"}));
    EXPECT_THAT(linesOf(logFile("alarmd")).back(), testing::EndsWith("- - NETWORK: fail [host\\n]"));
}

TEST_F(Bus, argumentsAreChecked) {
    startBroker();
    EXPECT_EQ(mqttc_connect(nullptr, 1, "a", nullptr), kInvalidArgument);
    EXPECT_EQ(mqttc_connect("127.0.0.1", 0, "a", nullptr), kInvalidArgument);
    EXPECT_EQ(mqttc_connect("127.0.0.1", 65536, "a", nullptr), kInvalidArgument);
    EXPECT_EQ(mqttc_connect("127.0.0.1", 1, "", nullptr), kInvalidArgument);
    EXPECT_EQ(publish("Process/ALL", "x"), kNotConnected);
    EXPECT_EQ(ozumqttc_topicSubscribe("Process/ALL"), kNotConnected);
    EXPECT_EQ(MESSENGER_SendTBBEvent(0, 0, 0, 0, 0, 0, 0), kNotConnected);
    ASSERT_EQ(connect(), 0);
    EXPECT_EQ(connect(), kAlreadyConnected);
    EXPECT_EQ(publish("", "x"), kInvalidArgument);
    EXPECT_EQ(publish("a/#", "x"), kInvalidArgument);
    EXPECT_EQ(ozumqttc_messagePublish(nullptr, 0, "", 1, 1, nullptr), kInvalidArgument);
    EXPECT_EQ(ozumqttc_messagePublish("a", 1, "", 1, 1, nullptr), kInvalidArgument);
    EXPECT_EQ(ozumqttc_messagePublish("a", 0, "\xFF", 1, 1, nullptr), kInvalidArgument);
    EXPECT_EQ(ozumqttc_topicSubscribe("a/#/b"), kInvalidArgument);
    EXPECT_EQ(ozumqttc_topicSubscribe(""), kInvalidArgument);
    EXPECT_EQ(ozumqttc_topicSubscribe(nullptr), kInvalidArgument);
    mqttc_disconnect();
    mqttc_disconnect();
    EXPECT_EQ(publish("Process/ALL", "x"), kNotConnected);
    EXPECT_EQ(connect(), 0);
}

namespace {

std::string levels(int count) {
    std::string topic = "a";
    for (int level = 1; level < count; ++level) {
        topic += "/a";
    }
    return topic;
}

} // namespace

// What the broker would end the session for never reaches it, whether it is there or not.
TEST_F(Bus, whatTheBrokerCannotBearIsRefusedAtOnce) {
    const std::string nonsense[] = {"",          "a\x01",        "a\nb",         "a\x7F",
                                    "\xC2\x80",  "\xFF",         "\xC3",         "\xED\xA0\x80",
                                    "\xC0\xAF",  "\xEF\xBF\xBF", "\xEF\xB7\x90", std::string(65536, 'a'),
                                    levels(201), levels(5000),   "$share/a+/b",  "$share/a/#/b"};
    const std::string noFilter[] = {"a/#/b",  "a#",      "+a",       "a/b+",      "#/",
                                    "$share", "$share/", "$share/a", "$share/a/", "$share//a"};
    const auto expectRefused = [&](const char *when) {
        EXPECT_LE(
            seconds([&] {
                for (const auto &text : nonsense) {
                    EXPECT_EQ(publish(text, "x"), kInvalidArgument) << when << text.substr(0, 20);
                    EXPECT_EQ(ozumqttc_topicSubscribe(text.c_str()), kInvalidArgument)
                        << when << text.substr(0, 20);
                }
                for (const auto &text : noFilter) {
                    EXPECT_EQ(ozumqttc_topicSubscribe(text.c_str()), kInvalidArgument) << when << text;
                }
                for (const char *noTopic :
                     {"#", "+", "a/+", "a/#", "a+b", "$SYS/a", "$SYS", "$share/group/a", "$share"}) {
                    EXPECT_EQ(publish(noTopic, "x"), kInvalidArgument) << when << noTopic;
                }
                for (const auto &label :
                     {std::string(65536, 'l'), std::string(100000, 'l'), std::string("a\x01"),
                      std::string("\xFF"), std::string("\xC2\x85")}) {
                    EXPECT_EQ(ozumqttc_messagePublish("a", 0, label.c_str(), 1, 1, nullptr), kInvalidArgument)
                        << when << label.substr(0, 20);
                }
                const std::vector<char> large(kMaxBytes + 1);
                EXPECT_EQ(
                    ozumqttc_messagePublish("a", static_cast<unsigned>(large.size()), "", 1, 1, large.data()),
                    kInvalidArgument);
            }),
            3)
            << when;
    };
    expectRefused("without a session: ");
    startBroker();
    ASSERT_EQ(connect(), 0);
    expectRefused("connected: ");
    // What is just within the bounds passes.
    EXPECT_EQ(ozumqttc_topicSubscribe(levels(200).c_str()), 0);
    EXPECT_EQ(ozumqttc_topicSubscribe("$share/group/+/x/#"), 0);
    EXPECT_EQ(publish(levels(200), "deep"), 0);
    EXPECT_EQ(publish(std::string(65535, 'a'), "x"), 0);
    EXPECT_EQ(ozumqttc_messagePublish(levels(200).c_str(), 0, std::string(65535, 'l').c_str(), 1, 1, nullptr),
              0);
    EXPECT_TRUE(drained());
    EXPECT_TRUE(eventually([&] { return inbox.all().size() == 2; }));
    broker->stop(SIGKILL);
    pause(300);
    expectRefused("without a broker: ");
    EXPECT_EQ(publish("Process/ALL", "x"), 0);
    EXPECT_THAT(contentOf(folder() + "/mosquitto.log"), testing::Not(HasSubstr("malformed")));
    EXPECT_THAT(contentOf(folder() + "/mosquitto.log"), testing::Not(HasSubstr("protocol error")));
}

TEST_F(Bus, whatIsTooLargeForTheBrokerIsRefusedAtOnce) {
    startBroker("max_packet_size 2000\n");
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    EXPECT_EQ(publish("Process/ALL", std::string(2000, 'x')), kInvalidArgument);
    std::size_t largest = 2000;
    while (publish("Process/ALL", std::string(largest, 'x')) == kInvalidArgument) {
        --largest;
    }
    EXPECT_GT(largest, 1900U);
    EXPECT_EQ(publish("Process/ALL", "small"), 0);
    EXPECT_TRUE(drained());
    EXPECT_TRUE(eventually([&] { return inbox.payloads().count("small") == 1; }));
}

TEST_F(Bus, whatTheBrokerRefusesIsTold) {
    startBroker("message_size_limit 1000\n");
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(publish("Process/ALL", std::string(2000, 'x')), 0);
    EXPECT_TRUE(drained());
    EXPECT_THAT(contentOf(logFile("alarmd")), HasSubstr("70000 E"));
    EXPECT_THAT(contentOf(logFile("alarmd")),
                ContainsRegex("message to Process/ALL given up: the broker (refused it|ended the session)"))
        << "what it says depends on the library's release";
}

TEST_F(Bus, messageThatEndsTheSessionAgainAndAgainIsGivenUp) {
    expectOnlyPoisonIsGivenUp("");
}

TEST_F(Bus, messageWhoseAnswerTheLibraryDoesNotTakeIsGivenUp) {
    expectOnlyPoisonIsGivenUp(std::string("\x40\x01\0", 3)); // an acknowledgement that is too short
}

TEST_F(Bus, whatIsLeftAtTheEndIsTold) {
    startBroker();
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    ASSERT_EQ(connect(), 0);
    broker->stop(SIGKILL);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(publish("Process/ALL", "x"), 0);
    }
    mqttc_disconnect();
    EXPECT_THAT(contentOf(logFile("alarmd")), HasSubstr("3 messages were not acknowledged by the broker"));
}

TEST_F(Bus, brokerThatComesBackWhileTheProcessLeavesHasTheRest) {
    startBroker(kLasting);
    ASSERT_EQ(connect("listener"), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    const pid_t sender = startChild([&] {
        if (connect("sender") != 0) {
            return 1;
        }
        rewriteFile(folder() + "/connected", "x");
        while (access((folder() + "/gone").c_str(), F_OK) != 0) {
            pause(10);
        }
        if (publish("Process/ALL", "late") != 0) {
            return 2;
        }
        mqttc_disconnect();
        return 0;
    });
    ASSERT_TRUE(eventually([&] { return access((folder() + "/connected").c_str(), F_OK) == 0; }));
    broker->stop(SIGKILL);
    rewriteFile(folder() + "/gone", "x");
    pause(500);
    broker->start();
    EXPECT_EQ(waitForChild(sender), 0);
    EXPECT_TRUE(eventually([&] { return inbox.payloads().count("late") == 1; }));
}

// Of many processes that start under one name one stays on the bus; every other one is told by its
// publications.
TEST_F(Bus, processesThatLostTheRaceForANameAreTold) {
    startBroker();
    constexpr int kProcesses = 20;
    const std::string go = folder() + "/go";
    const std::string results = folder() + "/result.";
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        children.push_back(startChild([&, process] {
            while (access(go.c_str(), F_OK) != 0) {
                pause(1);
            }
            const int connected = connect();
            if (connected == kBrokerUnreachable) {
                // On a busy machine the broker's answer comes too late for this process, but has thrown out
                // another one.
                return 3;
            }
            const int subscribed = connected == 0 ? ozumqttc_topicSubscribe("Process/ALL") : 0;
            const int published = publish("Process/ALL", "x");
            rewriteFile(results + std::to_string(process), "done");
            pause(3000);
            const int later = publish("Process/ALL", "y");
            if (published == 0 && later == 0 && connected == 0 && subscribed == 0) {
                return 0; // the winner
            }
            // Whoever was told at the start is told by the publication after it, too; everybody but the
            // winner is told in the end.
            const bool toldAtOnce = (connected == 0 && subscribed == 0) || published != 0;
            return toldAtOnce && later != 0 ? 1 : 2;
        }));
    }
    rewriteFile(go, "x");
    std::array<int, 4> outcomes{};
    for (const pid_t child : children) {
        ++outcomes.at(static_cast<std::size_t>(waitForChild(child)));
    }
    const auto [winners, losers, toldDifferentThings, tooLate] = outcomes;
    EXPECT_EQ(toldDifferentThings, 0);
    EXPECT_EQ(winners + losers + tooLate, kProcesses);
    EXPECT_LE(winners, 1);
    EXPECT_GE(winners + tooLate, 1) << losers << " losers";
}

TEST_F(Bus, disconnectDeliversWhatWasPublished) {
    startBroker();
    ASSERT_EQ(connect("listener"), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    EXPECT_EQ(inChild([&] {
                  if (connect("sender") != 0) {
                      return 1;
                  }
                  for (int i = 0; i < 500; ++i) {
                      publish("Process/ALL", std::to_string(i));
                  }
                  mqttc_disconnect();
                  return inFlight();
              }),
              0);
    EXPECT_TRUE(eventually([&] { return inbox.payloads().size() == 500; })) << inbox.payloads().size();
}

// ---- a broker that cannot be used
// ------------------------------------------------------------------------------

TEST_F(Bus, absentBrokerIsUnreachable) {
    EXPECT_EQ(mqttc_connect("127.0.0.1", freePort(), "alarmd", nullptr), kBrokerUnreachable);
    EXPECT_EQ(publish("Process/ALL", "x"), kNotConnected);
}

TEST_F(Bus, silentBrokerIsGivenUpInTime) {
    const int port = freePort();
    const int listener = listenSilently(port);
    int result = 0;
    EXPECT_LE(seconds([&] { result = mqttc_connect("127.0.0.1", port, "alarmd", nullptr); }), 10);
    EXPECT_EQ(result, kBrokerUnreachable);
    close(listener);
    startBroker(); // a later attempt works
    EXPECT_EQ(connect(), 0);
}

TEST_F(Bus, nonsenseInsteadOfABrokersAnswerIsNoSession) {
    const std::array nonsense{
        std::string("HTTP/1.1 400 Bad Request\r\n\r\n"),
        std::string(300, '\0'),
        std::string("\x20\x03", 2),                            // cut
        std::string("\x20\x03\xff\xff\xff", 5),                // no such reason
        std::string("\x20\xff\xff\xff\xff\x7f", 6),            // a length of five bytes
        std::string("\x20\x06\0\0\x03\x21\0\0", 8),            // takes no message at all
        std::string("\x20\x08\0\0\x05\x12\0\x02\xff\xfe", 10), // names the client in no UTF-8
        std::string("\x10\0", 2),                              // not a server's
        std::string("\x30\x04\0\x01\x61\0", 6),                // a message to nobody yet
    };
    const int port = freePort();
    for (const std::string &answer : nonsense) {
        const int listener = listenSilently(port);
        std::thread server(answerOnce, listener, answer);
        EXPECT_NE(mqttc_connect("127.0.0.1", port, "alarmd", nullptr), 0) << testing::PrintToString(answer);
        server.join();
        close(listener);
    }
    startBroker();
    EXPECT_EQ(connect(), 0);
}

TEST_F(Bus, nonsenseInASessionCostsThatSessionAlone) {
    const std::array nonsense{
        std::string("\xff\xff\xff\xff\xff\xff", 6),
        std::string("\x30\x07\0\x01\xff\0xyz", 9),      // a topic that is no UTF-8
        std::string("\x30\x03\0\0\0", 5),               // no topic
        std::string("\x36\x06\0\x01\x61\0\x01\0", 8),   // a quality of service that there is not
        std::string("\x30\x06\0\x01\x61\x7f\x26\0", 8), // properties that end behind the message
        std::string("\x32\x06\0\x01\x61\0\0\0", 8),     // number zero
        std::string("\x40\x02\0\x63\x50\x02\0\x63", 8), // acknowledge what was never sent
        std::string("\x90\x04\0\x63\0\0", 6),           // the same of a subscription
        std::string("\x20\x03\0\0\0", 5),               // accepted once more
    };
    const int port = freePort();
    for (const std::string &packet : nonsense) {
        const int listener = listenSilently(port);
        std::thread server(answerOnce, listener, std::string("\x20\x03\0\0\0", 5) + packet);
        const int result = mqttc_connect("127.0.0.1", port, "alarmd", &inbox.arg);
        EXPECT_TRUE(result == 0 || result == kBrokerUnreachable) << result;
        server.join();
        close(listener);
        mqttc_disconnect();
    }
    EXPECT_EQ(inbox.payloads().size(), 0U);
    startBroker();
    EXPECT_EQ(connect(), 0);
}

TEST_F(Bus, refusedSessionIsReported) {
    startBroker("allow_anonymous false\n");
    EXPECT_EQ(connect(), kBrokerRefused);
}

TEST_F(Bus, refusedSubscriptionIsReported) {
    const int port = freePort();
    const int listener = listenSilently(port);
    int refused = 0;
    std::thread server([&] { refused = serveRefusingSubscriptions(listener); });
    EXPECT_EQ(mqttc_connect("127.0.0.1", port, "alarmd", nullptr), 0);
    EXPECT_EQ(ozumqttc_topicSubscribe("Multicast/X"), kBrokerRefused);
    mqttc_disconnect();
    server.join();
    close(listener);
    EXPECT_EQ(refused, 1);
}

TEST_F(Bus, threadsMaySubscribeToTheSame) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    for (int round = 0; round < 20; ++round) {
        std::array<std::atomic<int>, 8> results{};
        std::vector<std::thread> threads;
        threads.reserve(results.size());
        for (auto &result : results) {
            threads.emplace_back([&] { result = ozumqttc_topicSubscribe("Process/same"); });
        }
        for (auto &thread : threads) {
            thread.join();
        }
        for (const auto &result : results) {
            ASSERT_EQ(result, 0) << round;
        }
    }
}

// What was granted stays, although asking for it again has failed.
TEST_F(Bus, subscriptionOutlivesAFailedRepetition) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/#"), 0);
    broker->freeze();
    EXPECT_EQ(ozumqttc_topicSubscribe("Process/#"), kBrokerUnreachable);
    broker->stop(SIGKILL);
    broker->start(); // it has forgotten everything
    ASSERT_TRUE(eventually([&] {
        return publish("Process/ALL", "again") == 0 &&
               eventually([&] { return inbox.payloads().count("again") != 0; }, 2);
    }));
}

// Also one that was made where nobody waits for its answer.
TEST_F(Bus, subscriptionThatEndsTheSessionAgainAndAgainIsGivenUp) {
    const int port = freePort();
    const int listener = listenSilently(port);
    std::atomic<bool> over{false};
    std::set<std::string> acknowledged;
    std::thread server([&] { acknowledged = serveUnableToBear(listener, "Process/unbearable", over); });
    bool asked = false;
    OzuMqttArg arg{[](const OzuMqttMessage *, void *user) {
                       if (!std::exchange(*static_cast<bool *>(user), true)) {
                           EXPECT_EQ(ozumqttc_topicSubscribe("Process/unbearable"), 0);
                       }
                   },
                   &asked};
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    EXPECT_EQ(mqttc_connect("127.0.0.1", port, "alarmd", &arg), 0);
    EXPECT_EQ(ozumqttc_topicSubscribe("Process/first"), 0); // the message that comes with it calls back
    EXPECT_EQ(publish("Process/ALL", "one"), 0);
    const auto toldOf = [](const std::string &what) {
        return contentOf(logFile("alarmd")).find(what) != std::string::npos;
    };
    EXPECT_TRUE(eventually([&] { return toldOf("subscription of Process/unbearable given up"); }, 60));
    EXPECT_TRUE(toldOf(" 70000 E "));
    EXPECT_EQ(publish("Process/ALL", "two"), 0);
    EXPECT_TRUE(eventually([] { return inFlight() == 0; }, 60)); // back on the bus for good
    mqttc_disconnect();
    over = true;
    server.join();
    close(listener);
    EXPECT_THAT(acknowledged, ElementsAre("one", "two"));
}

TEST_F(Bus, secondProcessOfTheSameNameTakesOver) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    const pid_t child = startChild([&] {
        const int result = connect();
        pause(1500);
        const int published = publish("Process/ALL", "x"); // nobody has thrown this one out meanwhile
        mqttc_disconnect();
        return result + published;
    });
    EXPECT_TRUE(eventually([] { return publish("Process/ALL", "x") == kTakenOver; }));
    EXPECT_EQ(ozumqttc_topicSubscribe("Process/ALL"), kTakenOver);
    EXPECT_EQ(waitForChild(child), 0);
    mqttc_disconnect();
    EXPECT_EQ(connect(), 0);
}

// ---- a broker that goes and comes
// ------------------------------------------------------------------------------

TEST_F(Bus, reconnectsSubscribesAgainAndSendsWhatWaited) {
    startBroker(kLasting);
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    ASSERT_EQ(publish("Process/ALL", "before"), 0);
    ASSERT_TRUE(drained());
    broker->stop(SIGKILL);
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(publish("Process/ALL", std::to_string(i)), 0);
    }
    EXPECT_EQ(inFlight(), 1);
    broker->start();
    EXPECT_TRUE(eventually([&] { return inbox.payloads().size() == 51; })) << inbox.payloads().size();
    EXPECT_TRUE(drained());
    EXPECT_EQ(ozumqttc_topicSubscribe("Process/NEW"), 0);
}

TEST_F(Bus, restartUnderLoadLosesNoAcknowledgedMessage) {
    startBroker(kLasting);
    ASSERT_EQ(connect("listener"), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    constexpr int kMessages = 600;
    const pid_t sender = startChild([&] {
        if (connect("sender") != 0) {
            return 1;
        }
        for (int i = 0; i < kMessages; ++i) {
            while (publish("Process/ALL", std::to_string(i)) == kQueueFull) {
                pause(10);
            }
            pause(2);
        }
        return drained() ? 0 : 2; // every one acknowledged
    });
    for (int restart = 0; restart < 2; ++restart) {
        pause(300);
        broker->stop(SIGTERM);
        pause(100);
        broker->start();
    }
    ASSERT_EQ(waitForChild(sender), 0);
    EXPECT_TRUE(eventually([&] { return inbox.payloads().size() == kMessages; })) << inbox.payloads().size();
}

TEST_F(Bus, messagesThatWaitForADeadBrokerStopCounting) {
    ASSERT_EQ(setSetting("bus.patience_s", "1"), 0);
    startBroker();
    ASSERT_EQ(connect(), 0);
    broker->stop(SIGKILL);
    ASSERT_EQ(publish("Process/ALL", "x"), 0);
    EXPECT_EQ(inFlight(), 1);
    std::vector<InFlightSlot> slots;
    ASSERT_EQ(readInFlight(slots), 0);
    ASSERT_EQ(slots.size(), 1U);
    EXPECT_EQ(slots[0].process, "alarmd");
    EXPECT_EQ(slots[0].pid, getpid());
    EXPECT_EQ(slots[0].unacknowledged, 1U);
    EXPECT_TRUE(drained());
    ASSERT_EQ(readInFlight(slots), 0);
    EXPECT_EQ(slots[0].unacknowledged, 1U);
    EXPECT_FALSE(slots[0].connected);
    EXPECT_FALSE(slots[0].counted);
}

TEST_F(Bus, deadProcessLeavesNothingInFlight) {
    SKIP_WITHOUT_ROBUST_LOCKS();
    startBroker();
    const pid_t victim = startChild([&] {
        if (connect("victim") != 0) {
            return 1;
        }
        publish("Process/ALL", "x");
        for (;;) {
            publish("Process/ALL", "y");
        }
        return 0;
    });
    ASSERT_TRUE(eventually([] { return inFlight() == 1; }));
    kill(victim, SIGKILL);
    // Even while it is a zombie.
    EXPECT_TRUE(eventually([] { return inFlight() == 0; }));
    std::vector<InFlightSlot> slots;
    ASSERT_EQ(readInFlight(slots), 0);
    EXPECT_TRUE(slots.empty());
    EXPECT_EQ(waitForChild(victim), -SIGKILL);
}

TEST_F(Bus, frozenBrokerIsNoticedByTheKeepAlive) {
    ASSERT_EQ(setSetting("bus.patience_s", "1"), 0);
    startBroker();
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    broker->freeze();
    ASSERT_EQ(publish("Process/ALL", "x"), 0);
    EXPECT_EQ(inFlight(), 1);
    // One keep-alive until the broker is asked, one until its silence is an answer.
    EXPECT_TRUE(eventually([] { return inFlight() == 0; }, 45));
    std::vector<InFlightSlot> slots;
    ASSERT_EQ(readInFlight(slots), 0);
    ASSERT_EQ(slots.size(), 1U);
    EXPECT_EQ(slots[0].unacknowledged, 1U);
    EXPECT_FALSE(slots[0].connected);
    broker->thaw();
    EXPECT_TRUE(eventually([&] { return inbox.payloads() == std::set<std::string>{"x"}; }));
    EXPECT_TRUE(eventually([&] { return readInFlight(slots) == 0 && slots[0].unacknowledged == 0; }));
}

TEST_F(Bus, reconnectsLessAndLessOften) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    broker->stop(SIGKILL);
    const int listener = listenSilently(broker->port());
    const auto times = turnAway(listener, 3);
    close(listener);
    // Twice as long each time, with random jitter of up to a half; a busy machine may add to it.
    for (std::size_t i = 0; i + 1 < times.size(); ++i) {
        const std::chrono::duration<double> gap = times[i + 1] - times[i];
        const double longest = static_cast<double>(2U << i);
        EXPECT_GE(gap.count(), longest / 2 - 0.1) << i;
        EXPECT_LE(gap.count(), longest + 10) << i;
    }
    broker->start();
    ASSERT_EQ(publish("Process/ALL", "x"), 0);
    EXPECT_TRUE(drained());
}

TEST_F(Bus, queueIsBounded) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    broker->stop(SIGKILL);
    std::size_t accepted = 0;
    int result = 0;
    while ((result = publish("Process/ALL", std::to_string(accepted))) == 0 && accepted < 5000) {
        ++accepted;
    }
    EXPECT_EQ(result, kQueueFull);
    EXPECT_EQ(accepted, kMaxMessages);
}

TEST_F(Bus, queueIsBoundedInBytes) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    broker->stop(SIGKILL);
    const std::string large(kMaxBytes / 4, 'x');
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(publish("Process/ALL", large), 0);
    }
    EXPECT_EQ(publish("Process/ALL", "x"), kQueueFull);
}

TEST_F(Bus, disconnectFromADeadBrokerIsBounded) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    broker->stop(SIGKILL);
    ASSERT_EQ(publish("Process/ALL", "x"), 0);
    EXPECT_LE(seconds([] { mqttc_disconnect(); }), 8);
    EXPECT_EQ(inFlight(), 0);
}

// ---- processes and threads
// -------------------------------------------------------------------------------------

TEST_F(Bus, forkedChildLeavesTheParentsSessionAlone) {
    startBroker();
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    const pid_t child = fork();
    if (child == 0) {
        const int result = publish("Process/ALL", "from the child");
        mqttc_disconnect();
        std::_Exit(result == kNotConnected ? 0 : 1);
    }
    EXPECT_EQ(waitForChild(child), 0);
    pause(200);
    EXPECT_EQ(publish("Process/ALL", "still here"), 0);
    EXPECT_TRUE(eventually([&] { return inbox.all().size() == 1; }));
    EXPECT_EQ(inbox.payloads(), std::set<std::string>{"still here"});
    EXPECT_THAT(contentOf(folder() + "/mosquitto.log"), testing::Not(HasSubstr("Received DISCONNECT")));
}

TEST_F(Bus, childrenOfABusyProcessHaveSessionsOfTheirOwn) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "under this sanitizer a forked child of threads has none";
#endif
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "this sanitizer's own allocator may be locked at the fork, and stays so in the child";
#endif
    startBroker();
    ASSERT_EQ(connect(), 0);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&stop] {
            while (!stop) {
                publish("Process/ALL", "from the parent");
            }
        });
    }
    for (int i = 0; i < 30; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(30); // a lock that the parent held at the fork
            int wrong = publish("Process/ALL", "x") == kNotConnected ? 0 : 1;
            wrong += connect("child") == 0 ? 0 : 2;
            wrong += publish("Process/ALL", "from a child") == 0 ? 0 : 4;
            mqttc_disconnect();
            std::_Exit(wrong);
        }
        const int wrong = waitForChild(child);
        EXPECT_EQ(wrong, 0) << i;
        if (wrong != 0) {
            break;
        }
    }
    stop = true;
    for (auto &thread : threads) {
        thread.join();
    }
}

TEST_F(Bus, brokenConnectionRaisesNoSignal) {
    startBroker();
    EXPECT_EQ(inChild([&] {
                  signal(SIGPIPE, SIG_DFL);
                  if (connect("sender") != 0) {
                      return 1;
                  }
                  for (int round = 0; round < 3; ++round) {
                      broker->stop(SIGKILL);
                      for (int i = 0; i < 100; ++i) {
                          publish("Process/ALL", std::string(10000, 'x'));
                      }
                      broker->start();
                      if (!drained()) {
                          return 2;
                      }
                  }
                  broker->stop(SIGKILL);
                  return 0;
              }),
              0);
}

TEST_F(Bus, callbackMayPublishAndSubscribe) {
    startBroker();
    struct Echo {
        std::atomic<int> answers{0};
    } echo;
    OzuMqttArg arg{[](const OzuMqttMessage *message, void *user) {
                       if (std::string(message->topic) == "ping") {
                           ozumqttc_topicSubscribe("pong");
                           ozumqttc_messagePublish("pong", 0, "", 0, 0, nullptr);
                       } else {
                           ++static_cast<Echo *>(user)->answers;
                       }
                   },
                   &echo};
    ASSERT_EQ(mqttc_connect("127.0.0.1", broker->port(), "echo", &arg), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("ping"), 0);
    ASSERT_EQ(publish("ping", ""), 0);
    EXPECT_TRUE(eventually([&] { return echo.answers == 1; }));
    mqttc_disconnect();
}

TEST_F(Bus, threadsLogAndPublish) {
    startBroker();
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    ASSERT_EQ(connect(), 0);
    ASSERT_EQ(ozumqttc_topicSubscribe("Process/ALL"), 0);
    std::vector<std::thread> threads;
    std::atomic<int> published{0};
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 100; ++i) {
                ozulog_printf_extend(30000, "%d:%d", "src/utils", "f", i, thread, i);
                ozulog_printf_mqtt_transmission(60000, "remote %d:%d", thread, i);
                while (publish("Process/ALL", std::to_string(thread) + ":" + std::to_string(i)) ==
                       kQueueFull) {
                    pause(5);
                }
                ++published;
                static_cast<void>(inFlight());
                ozudb_ModifyBypassExpiry(thread, i & 1, i);
                if (i % 25 == 0) {
                    setSeverity("alarmd", i % 50 == 0 ? "TRACE" : "INFO");
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(published, 800);
    EXPECT_TRUE(eventually([&] { return inbox.payloads().size() == 800; })) << inbox.payloads().size();
    EXPECT_TRUE(drained());
}

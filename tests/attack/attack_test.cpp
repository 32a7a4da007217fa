// What the platform was built to survive, again and again. Each case says how often it tried and how often it
// failed, in a line that begins with "attack:".
//
// OZU_ATTACK=long makes as many trials as the table of the reliability page has, otherwise there are but a
// few.

#include "panel_folder.h"

#include "attack_form.h"
#include "broker.h"
#include "emulation.h"
#include "failing_calls.h"
#include "resource_count.h"

#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>
#include <sqlite3.h>
#include <system_event_log.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <vector>

using namespace ozu::platform;
using namespace ozu::test;

namespace {

// What a process ends with when something gave a code. Not 1, with which a sanitizer ends one.
constexpr int kGaveACode = 3;

int times(int few, int many) {
    return isLongAttack() ? many : few;
}

class Attack : public PanelFolder {
  protected:
    void TearDown() override {
        static_cast<void>(fflush(stdout));
        printf("attack: %s: %ld trials, %ld failures%s\n",
               testing::UnitTest::GetInstance()->current_test_info()->name(), trials, failures,
               beside.c_str());
        EXPECT_EQ(failures, 0);
        EXPECT_TRUE(trials > 0 || IsSkipped());
        PanelFolder::TearDown();
    }
    void trial(bool good, const std::string &what) {
        ++trials;
        if (!good) {
            ++failures;
            printf("failed: %s\n", what.c_str());
        }
    }

    // A process's life with the platform; 0 when everything worked.
    static int use() {
        std::array<char, 9> severity{};
        int wrong = ozudb_getSeverityNameByProcName(severity.data(), 8, "alarmd");
        wrong |= ozudb_addProc2Log("alarmd", "INFO", getpid());
        wrong |= ozulog_init("alarmd");
        PanelSharedState *state = ozudb_getSharedMemory(0);
        wrong |= state == nullptr ? 1 : 0;
        ozulog_printf(OZULOG_INFO, "%s", "line");
        wrong |= ozudb_ModifyBypassExpiry(5, 1, 77) | ozudb_ModifyModemStatistics(1, 2, 3, 4, 5, 6, 7, 8, 0);
        wrong |= LOG_system_event(1, "event") | limited_log_system_event(1, 1, "limited");
        wrong |= ozudb_updatePanelRebootReason(3);
        unsigned char any = 0;
        wrong |= ozudb_isInFlightData(&any);
        return wrong == 0 ? 0 : kGaveACode;
    }
    // The same in a process of its own, which says into a file what goes to standard error.
    int useElsewhere(std::string &said) {
        const std::string path = folder() + "/said";
        remove(path.c_str());
        const int status = inChild([&] {
            static_cast<void>(!freopen(path.c_str(), "w", stderr));
            alarm(60);
            return use();
        });
        said = contentOf(path);
        return status;
    }
    static bool isToldOf(const std::string &said) {
        return said.find(" 70000 E ") != std::string::npos || said.find(" 80000 C ") != std::string::npos;
    }
    static bool databaseIsSound() {
        sqlite3 *handle = nullptr;
        std::string answer;
        sqlite3_open_v2(databaseFile().c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
        sqlite3_exec(
            handle, "PRAGMA integrity_check",
            [](void *out, int, char **values, char **) {
                *static_cast<std::string *>(out) += values[0];
                return 0;
            },
            &answer, nullptr);
        sqlite3_close(handle);
        return answer == "ok";
    }

    long trials = 0;
    long failures = 0;
    std::string beside; // what else is to be said of them
    std::mt19937 random{20261122};
};

constexpr int kWriters = 4;

// What each writer has begun to store, and what it has been told to be stored.
struct Acknowledged {
    std::array<std::atomic<int>, kWriters> begun;
    std::array<std::atomic<int>, kWriters> bypass;
    std::array<std::atomic<int>, kWriters> events;
    std::atomic<long> writes;
    // On the bus, where each writer counts from 1 in each round: what was accepted, what the broker has
    // acknowledged of it, and what a listener has.
    std::array<std::atomic<int>, kWriters> published;
    std::array<std::atomic<int>, kWriters> delivered;
    std::array<std::atomic<int>, kWriters> received;
    std::atomic<int> round;
    std::atomic<int> disorder; // messages that arrived twice, or before an earlier one
    std::atomic<long> messages;
};

// The listener's side: "ROUND WRITER NUMBER".
void count(const OzuMqttMessage *message, void *user) {
    auto &acknowledged = *static_cast<Acknowledged *>(user);
    int round = 0;
    int writer = 0;
    int number = 0;
    const std::string text(static_cast<const char *>(message->payload), message->payloadLength);
    if (sscanf(text.c_str(), "%d %d %d", &round, &writer, &number) != 3 || round != acknowledged.round) {
        return;
    }
    auto &received = acknowledged.received.at(static_cast<std::size_t>(writer));
    acknowledged.disorder += number == received + 1 ? 0 : 1;
    received = number;
    ++acknowledged.messages;
}

class KilledWriters : public Attack {
  protected:
    void SetUp() override {
        Attack::SetUp();
        SKIP_WITHOUT_ROBUST_LOCKS();
        acknowledged = new (mmap(nullptr, sizeof(Acknowledged), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Acknowledged{};
    }
    void TearDown() override {
        if (listener > 0) {
            kill(listener, SIGKILL);
            waitForChild(listener);
        }
        broker.reset();
        Attack::TearDown();
    }
    // A process of another panel that counts what arrives, on a broker that is not killed.
    void listen() {
        if (!Broker::available()) {
            return;
        }
        const std::string path = folder() + "/broker";
        mkdir(path.c_str(), 0700);
        broker = std::make_unique<Broker>(path, "max_queued_messages 0\nmax_inflight_messages 0\n");
        acknowledged->round = -1;
        listener = startChild([&] {
            setenv("OZU_PLATFORM_DIR", (folder() + "/listener").c_str(), 1);
            OzuMqttArg arg{count, acknowledged};
            if (mqttc_connect("127.0.0.1", broker->port(), "listener", &arg) != 0 ||
                ozumqttc_topicSubscribe("Attack/#") != 0) {
                return 1;
            }
            acknowledged->round = 0;
            for (;;) {
                ::pause();
            }
        });
        ASSERT_TRUE(eventually([&] { return acknowledged->round == 0; }));
    }
    static bool isAllAcknowledged() {
        std::vector<InFlightSlot> slots;
        return readInFlight(slots) == 0 && std::none_of(slots.begin(), slots.end(), [](const auto &slot) {
                   return slot.pid == getpid() && slot.unacknowledged != 0;
               });
    }
    void publish(int writer) {
        const auto at = static_cast<std::size_t>(writer);
        const int number = acknowledged->published.at(at) + 1;
        const std::string text =
            std::to_string(acknowledged->round) + " " + std::to_string(writer) + " " + std::to_string(number);
        if (ozumqttc_messagePublish("Attack/x", static_cast<unsigned>(text.size()), "W", 1, 2, text.data()) ==
            0) {
            acknowledged->published.at(at) = number;
            if (isAllAcknowledged()) {
                acknowledged->delivered.at(at) = number;
            }
        }
    }
    // Those that the broker has taken have arrived, each once and in order.
    bool everyMessageArrived() {
        const bool arrived = eventually([&] {
            for (std::size_t at = 0; at < kWriters; ++at) {
                if (acknowledged->received.at(at) < acknowledged->delivered.at(at)) {
                    return false;
                }
            }
            return true;
        });
        bool sent = true;
        for (std::size_t at = 0; at < kWriters; ++at) { // the last one may have been cut between both
            sent = sent && acknowledged->received.at(at) <= acknowledged->published.at(at) + 1;
        }
        return arrived && sent && acknowledged->disorder == 0;
    }
    void beginRound(int number) {
        acknowledged->round = number;
        for (std::size_t at = 0; at < kWriters; ++at) {
            acknowledged->published.at(at) = 0;
            acknowledged->delivered.at(at) = 0;
            acknowledged->received.at(at) = 0;
        }
    }
    void write(int writer) {
        const auto at = static_cast<std::size_t>(writer);
        const bool publishes = acknowledged->round > 0 && acknowledged->round % 2 == 0 &&
                               mqttc_connect("127.0.0.1", broker->port(),
                                             ("writer" + std::to_string(writer)).c_str(), nullptr) == 0;
        for (int number = acknowledged->begun.at(at) + 1;; ++number) {
            acknowledged->begun.at(at) = number;
            if (ozudb_ModifyBypassExpiry(writer, 1, number) == 0) {
                acknowledged->bypass.at(at) = number;
                ++acknowledged->writes;
            }
            if (LOG_system_event(writer, std::to_string(number).c_str()) == 0) {
                acknowledged->events.at(at) = number;
                ++acknowledged->writes;
            }
            if (publishes) {
                publish(writer);
            }
        }
    }
    // Starts the writers and kills them all, at a moment that nobody chose.
    void killWhileTheyWrite() {
        std::array<pid_t, kWriters> writers{};
        for (int writer = 0; writer < kWriters; ++writer) {
            writers.at(static_cast<std::size_t>(writer)) = startChild([&, writer] {
                write(writer);
                return 0;
            });
        }
        usleep(static_cast<useconds_t>(std::uniform_int_distribution(
            5000, acknowledged->round % 2 == 0 && broker ? 200000 : 60000)(random)));
        for (const pid_t writer : writers) {
            kill(writer, SIGKILL);
        }
        for (const pid_t writer : writers) {
            waitForChild(writer);
        }
    }
    // Everything that was acknowledged is there, or what was begun later.
    bool nothingIsLost() {
        const PanelSharedState *state = ozudb_getSharedMemory(0);
        if (state == nullptr || ozudb_ModifyBypassExpiry(200, 0, -1) != 0) { // the next writer works
            return false;
        }
        std::map<int, int> newest;
        std::vector<SystemEvent> events;
        while (readEvents(lastEvent, 1000, events) == 0 && !events.empty()) {
            for (const auto &event : events) {
                newest[event.category] = std::stoi(event.text);
            }
            lastEvent = events.back().id;
        }
        bool whole = true;
        for (int writer = 0; writer < kWriters; ++writer) {
            const auto at = static_cast<std::size_t>(writer);
            const int told = acknowledged->bypass.at(at);
            const auto &bypass = state->zones[writer].bypass[0];
            const auto stored = bypass.bypassed != 0 ? static_cast<int>(bypass.bypassExpiry) : 0;
            whole = whole && stored >= told && stored <= acknowledged->begun.at(at);
            const int toldEvent = acknowledged->events.at(at);
            newestEvent.at(at) = std::max(newestEvent.at(at), newest[writer]);
            whole =
                whole && newestEvent.at(at) >= toldEvent && newestEvent.at(at) <= acknowledged->begun.at(at);
        }
        return whole;
    }
    void sayHowMany() {
        beside = ", " + std::to_string(acknowledged->writes) + " acknowledged writes, " +
                 std::to_string(acknowledged->messages) + " messages";
    }

    Acknowledged *acknowledged = nullptr;
    std::unique_ptr<Broker> broker;
    pid_t listener = 0;
    std::array<int, kWriters> newestEvent{};
    std::int64_t lastEvent = 0;
};

} // namespace

// In every other round they publish, too.
TEST_F(KilledWriters, writersKilled) {
    listen();
    for (int round = 1; round <= times(10, 1000); ++round) {
        beginRound(broker != nullptr ? round : 0);
        killWhileTheyWrite();
        const bool kept = nothingIsLost();
        trial(kept && everyMessageArrived(), "round " + std::to_string(round) + (kept ? ", messages" : ""));
    }
    trial(databaseIsSound(), "the database");
    sayHowMany();
}

// All processes of the panel end at once and shared memory is gone; what the system had taken for the disk
// gets there, and what the broker had taken for the other panel.
TEST_F(KilledWriters, everythingKilledAndBooted) {
    listen();
    for (int round = 1; round <= times(10, 1000); ++round) {
        beginRound(broker != nullptr ? round : 0);
        killWhileTheyWrite();
        boot();
        const bool kept = nothingIsLost();
        trial(kept && everyMessageArrived(), "round " + std::to_string(round) + (kept ? ", messages" : ""));
        closePlatform();
    }
    trial(databaseIsSound(), "the database");
    sayHowMany();
}

// ---- damaged files
// ----------------------------------------------------------------------------------------------------

namespace {

class Damage : public Attack {
  protected:
    void SetUp() override {
        Attack::SetUp();
        ASSERT_EQ(use(), 0);
        for (int i = 0; i < 40; ++i) {
            ASSERT_EQ(LOG_system_event(1, std::string(300, 'e').c_str()), 0);
        }
        closePlatform();
        for (const char *name : kNames) {
            whole[name] = contentOf(folder() + "/" + name);
        }
    }
    void restore() {
        for (const auto &[name, content] : whole) {
            const std::string path = folder() + "/" + name;
            remove(path.c_str());
            if (!content.empty()) {
                rewriteFile(path, content);
                chmod(path.c_str(), 0600);
            }
        }
        for (const char *suffix : {"-wal", "-shm", "-journal"}) {
            if (whole.count("ozu.db" + std::string(suffix)) == 0) {
                remove((databaseFile() + suffix).c_str());
            }
        }
    }
    // Whoever starts then neither crashes nor waits for ever; either all is well or a line says what is
    // wrong.
    void damaged(const std::string &what) {
        std::string said;
        const int status = useElsewhere(said);
        trial(status == 0 || (status == kGaveACode && isToldOf(said)),
              what + ": " + std::to_string(status) + "\n" + said);
    }
    void step(const std::string &what, const std::function<void(const std::string &path)> &doDamage,
              const std::string &name) {
        restore();
        doDamage(folder() + "/" + name);
        damaged(name + " " + what);
    }

    static constexpr std::array<const char *, 4> kNames{"identity", "ozu.db", "ozu.db-wal", "log/alarmd.log"};
    std::map<std::string, std::string> whole;
};

} // namespace

TEST_F(Damage, filesCutAndOverwritten) {
    const std::size_t stride = isLongAttack() ? 1 : 9;
    for (const auto &[name, content] : whole) {
        for (std::size_t size = 0; size < content.size(); size += 512 * stride) {
            step(
                "cut at " + std::to_string(size),
                [&](const std::string &path) {
                    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
                },
                name);
        }
        for (std::size_t page = 0; page * 4096 < content.size(); page += stride) {
            for (const int filling : {0, 0xFF, 0xA5}) {
                step(
                    "page " + std::to_string(page) + " filled with " + std::to_string(filling),
                    [&](const std::string &path) {
                        std::string changed = content;
                        const std::size_t room = std::min<std::size_t>(4096, content.size() - page * 4096);
                        changed.replace(page * 4096, room, room, static_cast<char>(filling));
                        rewriteFile(path, changed);
                    },
                    name);
            }
        }
        for (int round = 0; round < times(2, 200) && !content.empty(); ++round) {
            step(
                "random bytes, round " + std::to_string(round),
                [&](const std::string &path) {
                    std::string changed = content;
                    for (int i = 0; i < 16; ++i) {
                        changed[random() % changed.size()] = static_cast<char>(random());
                    }
                    rewriteFile(path, changed);
                },
                name);
        }
    }
    restore();
    std::string said;
    trial(useElsewhere(said) == 0, "restored: " + said);
}

TEST_F(Damage, somethingElseInPlaceOfEachPath) {
    const std::string victim = folder() + "/victim";
    for (const char *name :
         {"identity", "ozu.db", "ozu.db-wal", "ozu.db-shm", "ozu.db-journal", "log/alarmd.log"}) {
        const std::map<std::string, std::function<int(const char *)>> plants{
            {"nothing", [](const char *) { return 0; }},
            {"link", [&](const char *path) { return symlink(victim.c_str(), path); }},
            {"dangling link", [](const char *path) { return symlink("/nowhere/at/all", path); }},
            {"FIFO", [](const char *path) { return mkfifo(path, 0666); }},
            {"folder", [](const char *path) { return mkdir(path, 0777); }},
            {"hard link", [&](const char *path) { return link(victim.c_str(), path); }},
            {"unreadable file",
             [](const char *path) { return close(open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0)); }},
            {"file for all",
             [](const char *path) {
                 return close(open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666)) + chmod(path, 0666);
             }},
        };
        for (const auto &[what, plant] : plants) {
            rewriteFile(victim, "precious");
            step(
                what,
                [&, &put = plant](const std::string &path) {
                    remove(path.c_str());
                    ASSERT_EQ(put(path.c_str()), 0);
                },
                name);
            trial(contentOf(victim) == "precious",
                  std::string(name) + " " + what + ": the victim was changed");
            remove((folder() + "/" + name).c_str());
        }
    }
}

// ---- failing calls
// ----------------------------------------------------------------------------------------------------

namespace {

class FailingCalls : public Attack {
  protected:
    void SetUp() override {
        Attack::SetUp();
        if (!callsCanFail()) {
            GTEST_SKIP() << "the kernel does not let a process supervise another's calls here";
        }
    }
    // Each call fails in each way that its manual names, alone, with some and with all that follow: no crash,
    // no endless wait, and afterwards a process finds everything in order.
    void sweep(const std::function<int()> &body, const std::function<void()> &before) {
        before();
        const std::vector<long> made = runWithFailure({}, body).calls;
        const int calls = static_cast<int>(made.size());
        beside = ", " + std::to_string(calls) + " calls";
        const int stride = isLongAttack() ? 1 : std::max(1, calls / 6);
        for (int from = 1; from <= calls; from += stride) {
            for (const int error : errorsOf(made.at(static_cast<std::size_t>(from) - 1))) {
                for (const int times : timesOf(error)) {
                    before();
                    const CallFailure failure{from, error, times};
                    const auto run = runWithFailure(failure, body);
                    trial(!run.late && (run.status == 0 || run.status == kGaveACode),
                          wordsFor(failure) + ": status " + std::to_string(run.status) +
                              (run.late ? ", late" : ""));
                }
            }
            std::string said;
            trial(useElsewhere(said) == 0, "after call " + std::to_string(from) + ": " + said);
        }
    }
    static int readAndSet() {
        std::vector<ProcessSeverity> severities;
        std::vector<LoggedProcess> processes;
        std::vector<SystemEvent> events;
        std::vector<Setting> settings;
        std::vector<InFlightSlot> slots;
        std::optional<int> next;
        std::optional<int> last;
        const PanelSharedState *state = nullptr;
        std::string why;
        int wrong = attachState(state, why) | readInFlight(slots) | readEvents(0, 10, events);
        wrong |= setSeverity("rfd", "DEBUG") | listSeverities(severities) | removeSeverity("rfd");
        wrong |= listProcesses(processes) | setSetting("product.code", "5") | listSettings(settings);
        wrong |= readRebootReasons(next, last);
        wrong |= updateState([](PanelSharedState &changed) { changed.zones[3].bypass[0].bypassed = 1; });
        return wrong == 0 ? 0 : kGaveACode;
    }
    static int quietly() {
        static_cast<void>(!freopen("/dev/null", "w", stderr));
        closePlatform();
        return use();
    }
};

} // namespace

TEST_F(FailingCalls, callsOfAFirstStartFail) {
    sweep(quietly, [&] {
        boot();
        for (const char *name : {"identity", "ozu.db", "ozu.db-wal", "ozu.db-shm", "log/alarmd.log"}) {
            remove((folder() + "/" + name).c_str());
        }
        rmdir(logFolder().c_str());
    });
}

TEST_F(FailingCalls, callsOfALaterStartFail) {
    ASSERT_EQ(use(), 0);
    closePlatform();
    sweep(quietly, [] {});
}

// What the tool and a service technician's programs do.
TEST_F(FailingCalls, callsOfReadersAndSettingsFail) {
    ASSERT_EQ(use(), 0);
    closePlatform();
    sweep(
        [] {
            static_cast<void>(!freopen("/dev/null", "w", stderr));
            closePlatform();
            return readAndSet();
        },
        [] {});
}

// ---- the broker
// -------------------------------------------------------------------------------------------------------

namespace {

// Of all processes that have a broker killed.
struct Kills {
    std::atomic<int> rounds;
    std::atomic<int> lost; // rounds after which an accepted message was missing
    std::atomic<int> messages;
};

struct Inbox {
    std::mutex mutex;
    std::set<std::string> payloads;
    std::size_t size() {
        const std::lock_guard guard(mutex);
        return payloads.size();
    }
    static void take(const OzuMqttMessage *message, void *user) {
        auto &inbox = *static_cast<Inbox *>(user);
        const std::lock_guard guard(inbox.mutex);
        inbox.payloads.emplace(static_cast<const char *>(message->payload), message->payloadLength);
    }
};

// Publishes so many messages of rising numbers; adds those that were accepted.
void publishMore(int count, std::size_t &accepted) {
    for (int i = 0; i < count; ++i) {
        const std::string payload = std::to_string(accepted);
        accepted += ozumqttc_messagePublish("Attack/x", static_cast<unsigned>(payload.size()), "T", 1, 2,
                                            payload.data()) == 0
                        ? 1U
                        : 0U;
    }
}

// A process with a broker of its own, which is killed again and again.
int killBroker(const std::string &folder, const std::string &name, int rounds, Kills &kills) {
    mkdir(folder.c_str(), 0700);
    Broker broker(folder, "persistence true\nautosave_on_changes true\nautosave_interval 1\n"
                          "max_queued_messages 0\nmax_inflight_messages 0\n");
    Inbox inbox;
    OzuMqttArg arg{Inbox::take, &inbox};
    if (mqttc_connect("127.0.0.1", broker.port(), name.c_str(), &arg) != 0 ||
        ozumqttc_topicSubscribe("Attack/#") != 0) {
        return 1;
    }
    std::size_t accepted = 0;
    for (int round = 0; round < rounds; ++round) {
        publishMore(50, accepted);
        broker.freeze(); // what it has handed out is read before it dies
        ozu::test::pause(100);
        publishMore(20, accepted);
        broker.stop(SIGKILL);
        publishMore(20, accepted);
        broker.start();
        kills.lost += eventually([&] { return inbox.size() == accepted; }, 90) ? 0 : 1;
        ++kills.rounds;
    }
    mqttc_disconnect();
    kills.messages += static_cast<int>(accepted);
    return 0;
}

} // namespace

// A session that is lost again and again comes back less and less often: several at a time save the wait.
TEST_F(Attack, brokerKilled) {
    if (!Broker::available()) {
        GTEST_SKIP() << "mosquitto is not installed";
    }
    auto *kills =
        new (mmap(nullptr, sizeof(Kills), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Kills{};
    std::vector<pid_t> processes;
    for (int number = 0; number < times(1, 10); ++number) {
        const std::string name = "listener" + std::to_string(number);
        processes.push_back(
            startChild([&, name] { return killBroker(folder() + "/" + name, name, times(3, 20), *kills); }));
    }
    for (const pid_t process : processes) {
        EXPECT_EQ(waitForChild(process), 0);
    }
    trials = kills->rounds;
    failures = kills->lost;
    EXPECT_EQ(trials, times(3, 200));
    beside = ", " + std::to_string(kills->messages) + " messages";
}

// ---- time
// -------------------------------------------------------------------------------------------------------------

TEST_F(Attack, soak) {
    ASSERT_EQ(use(), 0);
    ASSERT_EQ(setSeverity("alarmd", "OFF"),
              0); // lines are formatted and dropped: the disk is not what is tested
    const auto round = [] {
        unsigned char any = 0;
        bool good = ozudb_getSharedMemory(0) != nullptr && ozudb_isInFlightData(&any) == 0;
        ozulog_printf_extend(OZULOG_INFO, "%s", "src/utils", "f", 1, "x");
        good = good && ozudb_isTagReader(1) == 0 && ozudb_isRfInput(1) == 0 && ozudb_isRfDetector(1) == 0;
        return good && ozumqttc_messagePublish("a\x01", 0, "", 0, 0, nullptr) == kInvalidArgument;
    };
    for (int i = 0; i < 1000; ++i) {
        trial(round(), "warm");
    }
    const int opened = openDescriptors();
    const long resident = residentPages();
    for (int i = 0; i < times(20000, 1000000); ++i) {
        trial(round(), "call " + std::to_string(i));
    }
    for (int i = 0; i < times(20, 2000); ++i) {
        trial(ozudb_ModifyBypassExpiry(i & 255, i & 1, i) == 0 && LOG_system_event(1, "x") == 0, "write");
    }
    EXPECT_EQ(openDescriptors(), opened);
    // Two megabytes, the database's cache among them; an emulator's memory is not the process's.
    if (!emulated()) {
        EXPECT_LE(residentPages(), resident + 512);
    }
    beside = ", " + std::to_string(residentPages() - resident) + " pages more";
}

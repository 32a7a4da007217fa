// ozuctl monitor: bus messages, state changes, log lines, system events, starts and ends of processes as one
// stream in chronological order.

#include "arguments.h"
#include "bus_listener.h"
#include "commands/commands.h"
#include "commands/processes.h"
#include "filter.h"
#include "log_follower.h"
#include "numbers.h"
#include "recording.h"
#include "sources.h"
#include "stopping.h"
#include "topics.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <optional>
#include <thread>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

// Long enough for a log line or an event to be written and found after it happened.
constexpr int kMonitorHoldMs = 300;
constexpr int kMaxHoldMs = 10'000;
// The record has no time stamps: its changes are as exact as the looks at it are frequent.
constexpr auto kMonitorLook = std::chrono::milliseconds(2);
constexpr int kLooksPerRead = 25; // log files, events and processes carry their own times

struct MonitorOptions {
    bool noBus = false;
    bool noState = false;
    bool noLog = false;
    bool noEvents = false;
    bool noProcesses = false;
    Filter filter;
    std::string times = "utc";
    std::string file;
    std::size_t count = 0; // 0: no limit
    double seconds = 0;
    int holdMs = kMonitorHoldMs;
};

// None as long as the panel's first process is yet to come.
Json processesNow() {
    try {
        return runningProcesses();
    } catch (const CommandError &error) {
        if (error.code != kUnreachable) {
            throw;
        }
        return Json::array();
    }
}

// Filters that overlap would bring a message once for each of them, and a recording keeps all messages: then
// everything comes, and the filter chooses. "#" does not stand for the broker's own topics.
std::vector<std::string> subscriptions(const MonitorOptions &options) {
    const auto &topics = options.filter.topics;
    if (topics.size() == 1 && options.file.empty()) {
        return topics;
    }
    std::vector<std::string> all = {"#"};
    std::ranges::copy_if(topics, std::back_inserter(all),
                         [](const std::string &topic) { return topic.starts_with('$'); });
    return all;
}

// What is looked at, each source if it is wanted.
class Sources {
  public:
    Sources(Timeline &timeline, const MonitorOptions &options)
        : state_(timeline), wantsState_(!options.noState) {
        if (!options.noBus) {
            bus_.emplace(timeline, subscriptions(options), "'ozuctl monitor --no-bus' does without.");
        }
        if (!options.noLog) {
            logs_.emplace(platform::logFolder(),
                          [&timeline](const std::string &file, const std::string &line) {
                              timeline.add(logHappening(file, line));
                          });
        }
        if (!options.noEvents) {
            events_.emplace(timeline);
        }
        if (!options.noProcesses) {
            processes_.emplace(timeline);
        }
        state_.look();
    }

    Json snapshot() {
        return {{"kind", "snapshot"}, {"processes", processesNow()}, {"fields", state_.snapshot()["fields"]}};
    }

    void lookAtState() {
        if (wantsState_) {
            state_.look();
        }
    }

    void lookAtFiles() {
        if (logs_) {
            logs_->look();
        }
        if (events_) {
            events_->look();
        }
        if (processes_) {
            processes_->look();
        }
    }

  private:
    std::optional<BusListener> bus_;
    StateSource state_;
    bool wantsState_;
    std::optional<LogFollower> logs_;
    std::optional<EventSource> events_;
    std::optional<ProcessSource> processes_;
};

// Shows happenings, and keeps all of them where that is asked for.
class Stream {
  public:
    Stream(const Context &context, const MonitorOptions &options) : context_(context), options_(options) {
        if (!options.file.empty()) {
            recording_.emplace(options.file);
        }
    }

    void begin(const Json &snapshot) {
        const std::int64_t now = nowMilliseconds();
        start_ = before_ = now;
        keep(timed(now, snapshot));
        const Json shown = chosenOf(snapshot);
        printRecord(context_, timed(now, shown), timeText(now) + " snapshot");
        if (!context_.json) {
            writeSnapshot(shown);
        }
    }

    // False once as many have been shown as were asked for.
    bool show(const std::vector<Happening> &happenings) {
        for (const Happening &happening : happenings) {
            const Json record = timed(happening.timeMs, happening.record);
            keep(record);
            if (!options_.filter.passes(happening.record)) {
                continue;
            }
            printRecord(context_, record, timeText(happening.timeMs) + " " + happening.text, lookOf(record));
            before_ = happening.timeMs;
            if (++shown_ == options_.count) {
                return false;
            }
        }
        return true;
    }

  private:
    static Json timed(std::int64_t timeMs, const Json &happening) {
        Json record = {{"time", isoTimeMilliseconds(timeMs)}};
        record.update(happening);
        return record;
    }

    // Of a snapshot, what the filters and the kinds left out do not hide.
    [[nodiscard]] Json chosenOf(const Json &snapshot) const {
        Json processes = Json::array();
        std::ranges::copy_if(snapshot["processes"], std::back_inserter(processes), [this](const Json &one) {
            return !options_.noProcesses && options_.filter.passesProcess(one["process"]);
        });
        Json fields = snapshot["fields"].is_null() && !options_.noState ? Json(nullptr) : Json::object();
        for (const auto &[path, value] : snapshot["fields"].items()) {
            if (!options_.noState && options_.filter.passesField(path)) {
                fields[path] = value;
            }
        }
        return {{"kind", "snapshot"}, {"processes", std::move(processes)}, {"fields", std::move(fields)}};
    }

    void keep(const Json &record) {
        if (recording_) {
            recording_->add(record);
        }
    }

    [[nodiscard]] std::string timeText(std::int64_t timeMs) const {
        if (options_.times == "utc") {
            return isoTimeMilliseconds(timeMs);
        }
        char text[32];
        snprintf(text, sizeof text, "%+10.3f",
                 static_cast<double>(timeMs - (options_.times == "delta" ? before_ : start_)) / 1000);
        return text;
    }

    static void writeSnapshot(const Json &snapshot) {
        for (const auto &process : snapshot["processes"]) {
            writeLine("  process " + plainText(process["process"]) + "[" + plainText(process["pid"]) + "] " +
                      plainText(process["severity"]));
        }
        if (snapshot["fields"].is_null()) {
            writeLine("  no shared record yet");
            return;
        }
        for (const auto &[path, value] : snapshot["fields"].items()) {
            writeLine("  " + path + " " + plainText(value));
        }
    }

    const Context &context_;
    const MonitorOptions &options_;
    std::optional<RecordingFile> recording_;
    std::int64_t start_ = 0;
    std::int64_t before_ = 0; // time of the line above
    std::size_t shown_ = 0;
};

ExitCode monitor(const Context &context, const MonitorOptions &options) {
    for (const std::string &topic : options.filter.topics) {
        requireFilter(topic);
    }
    for (const std::string &field : options.filter.fields) {
        requireFields(field);
    }
    stopOnSignals();
    Timeline timeline(options.holdMs);
    Sources sources(timeline, options);
    Stream stream(context, options);
    stream.begin(sources.snapshot());

    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
    for (int look = 0; !stopped() && (options.seconds <= 0 || std::chrono::steady_clock::now() < end);
         ++look) {
        sources.lookAtState();
        if (look % kLooksPerRead == 0) {
            sources.lookAtFiles();
        }
        if (!stream.show(timeline.ripe())) {
            return kDone;
        }
        requireReader();
        std::this_thread::sleep_for(kMonitorLook);
    }
    sources.lookAtFiles();
    const bool more = stream.show(timeline.ripe(true));
    return options.count != 0 && more && !stopped() ? kTimedOut : kDone;
}

} // namespace

void registerMonitor(CLI::App &app, Context &context) {
    auto options = std::make_shared<MonitorOptions>();
    CLI::App *command =
        app.add_subcommand("monitor", "Bus messages, state changes, log lines, system events, starts and "
                                      "ends of processes as one stream in\n"
                                      "chronological order; first a snapshot. Filters narrow the kinds that "
                                      "they apply to. Ends with an interrupt");
    command->add_flag("--no-bus", options->noBus, "Leave out the messages");
    command->add_flag("--no-state", options->noState, "Leave out changes of the shared record");
    command->add_flag("--no-log", options->noLog, "Leave out log lines");
    command->add_flag("--no-events", options->noEvents, "Leave out system events");
    command->add_flag("--no-processes", options->noProcesses, "Leave out starts and ends of processes");
    command
        ->add_option("--topic", options->filter.topics,
                     "Messages of this topic only, with MQTT wildcards; may be given again")
        ->allow_extra_args(false);
    command
        ->add_option("--field", options->filter.fields,
                     "Changes of this field or part only: devices[3], zones; may be given again")
        ->allow_extra_args(false);
    addLogFilters(*command, options->filter);
    addChecked(
        *command, "--times", "utc|relative|delta",
        [options](const std::string &what, const std::string &text) {
            options->times = requireWord(what, text, {"utc", "relative", "delta"});
        },
        "As they are, since the start, or since the line above, in seconds");
    addNumber(*command, "--count", options->count, 1, kMaxInt,
              "Stop after so many lines; 124 when --for runs out first");
    addSeconds(*command, "--for", options->seconds, "Stop after so many seconds");
    addNumber(
        *command, "--hold", options->holdMs, 0, kMaxHoldMs,
        "Milliseconds for which a line waits for earlier ones that are found later (300); with 0, lines come "
        "as they are found");
    command
        ->add_option("--record", options->file,
                     "Keep everything, whatever is shown, in this file, for 'replay'")
        ->type_name("FILE");
    command->callback([options, &context] {
        context.command = [&context, options] { return monitor(context, *options); };
    });
}

} // namespace ozuctl

// ozuctl monitor: bus messages, state changes, log lines and system events as one stream in the order of
// time.

#include "arguments.h"
#include "bus_listener.h"
#include "commands/commands.h"
#include "commands/processes.h"
#include "log_follower.h"
#include "log_line.h"
#include "panel_messages.h"
#include "state_fields.h"
#include "text.h"
#include "timeline.h"
#include "topics.h"

#include <ozu_platform_tools.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

// Long enough for a log line or an event to be written and found after it happened.
constexpr std::int64_t kHoldMs = 300;
// The record has no time stamps: its changes are as exact as the looks at it are frequent.
constexpr auto kLook = std::chrono::milliseconds(5);
constexpr int kLooksPerRead = 10; // log files and events carry their own times
constexpr int kEventsPerLook = 1000;

volatile std::sig_atomic_t stopped = 0;

struct Options {
    bool noBus = false;
    bool noState = false;
    bool noLog = false;
    bool noEvents = false;
    std::string topic = "#";
    double seconds = 0;
};

// --- the shared record ---

class StateWatcher {
  public:
    explicit StateWatcher(Timeline &timeline) : timeline_(timeline), fields_(fieldsBelow("")) {}

    // Attaches once there is a record; from then on tells every change.
    void look() {
        if (live_ == nullptr) {
            std::string why;
            if (platform::attachState(live_, why) != 0) {
                return;
            }
            before_ = *live_;
            if (late_) {
                timeline_.add({nowMilliseconds(), snapshot(), "state  the shared record has appeared"});
            }
            return;
        }
        const PanelSharedState now = *live_;
        // Padding that differs only costs the comparison of the fields.
        if (memcmp(&now, &before_, sizeof now) == 0) { // NOLINT(bugprone-suspicious-memory-comparison)
            return;
        }
        for (const Field &field : fields_) {
            if (field.differs(before_, now)) {
                tell(field, field.read(before_), field.read(now));
            }
        }
        before_ = now;
    }

    // What differs from an untouched panel, or null while there is no record.
    Json snapshot() {
        late_ = true;
        if (live_ == nullptr) {
            return {{"kind", "state"}, {"fields", nullptr}};
        }
        Json fields = Json::object();
        for (const Field &field : fields_) {
            if (!field.isUsual(before_)) {
                fields[field.path()] = field.read(before_);
            }
        }
        return {{"kind", "state"}, {"fields", std::move(fields)}};
    }

  private:
    void tell(const Field &field, const Json &before, const Json &after) {
        timeline_.add({nowMilliseconds(),
                       {{"kind", "state"}, {"field", field.path()}, {"old", before}, {"new", after}},
                       "state  " + field.path() + " " + plainText(before) + " -> " + plainText(after)});
    }

    Timeline &timeline_;
    std::vector<Field> fields_;
    const PanelSharedState *live_ = nullptr;
    PanelSharedState before_ = {};
    bool late_ = false;
};

// --- log lines ---

// A line that is none of the log's is passed on as it is.
Happening logHappening(const std::string &file, const std::string &line) {
    const auto parts = splitLogLine(line);
    if (!parts) {
        return {nowMilliseconds(),
                {{"kind", "log"}, {"process", file}, {"text", line}},
                "log    " + visible(line)};
    }
    Json record = {{"kind", "log"},
                   {"process", parts->process},
                   {"pid", parts->pid},
                   {"level", coded(parts->level, parts->letter)},
                   {"source", parts->placed ? Json(parts->source) : Json(nullptr)},
                   {"function", parts->placed ? Json(parts->function) : Json(nullptr)},
                   {"line", parts->placed ? Json(parts->line) : Json(nullptr)},
                   {"text", parts->text}};
    return {parts->timeMs, std::move(record),
            "log    " + visible(parts->process) + " " + parts->letter + " " + visible(parts->text)};
}

// --- system events ---

class EventReader {
  public:
    explicit EventReader(Timeline &timeline) : timeline_(timeline) {
        std::vector<platform::SystemEvent> old;
        while (platform::readEvents(last_, kEventsPerLook, old) == 0 && !old.empty()) {
            last_ = old.back().id;
        }
    }

    void look() {
        std::vector<platform::SystemEvent> events;
        if (platform::readEvents(last_, kEventsPerLook, events) != 0) {
            return;
        }
        for (const auto &event : events) {
            last_ = event.id;
            timeline_.add({event.timeMs,
                           {{"kind", "event"},
                            {"process", event.process},
                            {"pid", event.pid},
                            {"category", coded(event.category, eventCategoryName(event.category))},
                            {"subtype", event.subtype ? Json(*event.subtype) : Json(nullptr)},
                            {"suppressed", event.suppressed},
                            {"text", event.text}},
                           "event  " + visible(event.process) + " " +
                               plainText(coded(event.category, eventCategoryName(event.category))) + ": " +
                               visible(event.text)});
        }
    }

  private:
    Timeline &timeline_;
    std::int64_t last_ = 0;
};

// --- the stream ---

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

void showSnapshot(const Context &context, const Json &snapshot) {
    const std::string time = isoTimeMilliseconds(nowMilliseconds());
    Json record = {{"time", time}};
    record.update(snapshot);
    printRecord(context, record, time + " snapshot");
    if (context.json) {
        return;
    }
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

void show(const Context &context, const Happening &happening) {
    Json record = {{"time", isoTimeMilliseconds(happening.timeMs)}};
    record.update(happening.record);
    printRecord(context, record, isoTimeMilliseconds(happening.timeMs) + " " + happening.text);
}

ExitCode monitor(const Context &context, const Options &options) {
    if (!options.noBus) {
        requireFilter(options.topic);
    }
    Timeline timeline(kHoldMs);
    std::optional<BusListener> bus;
    if (!options.noBus) {
        bus.emplace(timeline, options.topic);
    }
    StateWatcher state(timeline);
    std::optional<LogFollower> logs;
    if (!options.noLog) {
        logs.emplace(platform::logFolder(), [&timeline](const std::string &file, const std::string &line) {
            timeline.add(logHappening(file, line));
        });
    }
    std::optional<EventReader> events;
    if (!options.noEvents) {
        events.emplace(timeline);
    }
    signal(SIGINT, [](int) { stopped = 1; });
    signal(SIGTERM, [](int) { stopped = 1; });

    state.look();
    const Json snapshot = {
        {"kind", "snapshot"}, {"processes", processesNow()}, {"fields", state.snapshot()["fields"]}};
    showSnapshot(context, snapshot);

    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
    for (int look = 0; stopped == 0 && (options.seconds <= 0 || std::chrono::steady_clock::now() < end);
         ++look) {
        if (!options.noState) {
            state.look();
        }
        if (logs && look % kLooksPerRead == 0) {
            logs->look();
        }
        if (events && look % kLooksPerRead == 0) {
            events->look();
        }
        for (const Happening &happening : timeline.ripe()) {
            show(context, happening);
        }
        requireReader();
        std::this_thread::sleep_for(kLook);
    }
    if (logs) {
        logs->look();
    }
    if (events) {
        events->look();
    }
    for (const Happening &happening : timeline.ripe(true)) {
        show(context, happening);
    }
    return kDone;
}

} // namespace

void registerMonitor(CLI::App &app, Context &context) {
    auto options = std::make_shared<Options>();
    CLI::App *command = app.add_subcommand(
        "monitor",
        "Bus messages, state changes, log lines and system events as one stream in the order of time;\n"
        "first a snapshot. Ends with an interrupt");
    command->add_flag("--no-bus", options->noBus, "Leave out the messages");
    command->add_flag("--no-state", options->noState, "Leave out changes of the shared record");
    command->add_flag("--no-log", options->noLog, "Leave out log lines");
    command->add_flag("--no-events", options->noEvents, "Leave out system events");
    command->add_option("--topic", options->topic, "Messages of this topic only, with MQTT wildcards");
    addSeconds(*command, "--for", options->seconds, "Stop after so many seconds");
    command->callback([options, &context] {
        context.command = [&context, options] { return monitor(context, *options); };
    });
}

} // namespace ozuctl

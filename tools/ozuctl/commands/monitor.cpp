// ozuctl monitor: bus messages, state changes, log lines and system events as one stream in the order of
// time.

#include "bus_listener.h"
#include "commands/commands.h"
#include "commands/processes.h"
#include "log_follower.h"
#include "panel_messages.h"
#include "state_fields.h"
#include "timeline.h"

#include <ozu_platform_tools.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <regex>
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

std::optional<std::int64_t> millisecondsOf(const std::string &iso) {
    tm parts = {};
    const char *rest = strptime(iso.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr) {
        return std::nullopt;
    }
    std::int64_t fraction = 0;
    if (*rest == '.') {
        const std::string digits = (std::string(rest + 1) + "000").substr(0, 3);
        fraction = strtol(digits.c_str(), nullptr, 10);
    }
    return std::int64_t{timegm(&parts)} * 1000 + fraction;
}

// "time level letter process[pid] source function:line text", with "- -" for a line without position. Any
// other line is passed on as it is.
Happening logHappening(const std::string &file, const std::string &line) {
    static const std::regex shape(R"(^(\S+) (\d+) ([A-Z]) (.+?)\[(\d+)\] (\S+) (?:-|(\S+):(\d+)) (.*)$)");
    std::smatch part;
    if (!std::regex_match(line, part, shape)) {
        return {nowMilliseconds(), {{"kind", "log"}, {"process", file}, {"text", line}}, "log    " + line};
    }
    const bool placed = part[7].matched;
    Json record = {{"kind", "log"},
                   {"process", part[4].str()},
                   {"pid", std::stol(part[5])},
                   {"level", coded(std::stol(part[2]), part[3])},
                   {"source", placed ? Json(part[6]) : Json(nullptr)},
                   {"function", placed ? Json(part[7]) : Json(nullptr)},
                   {"line", placed ? Json(std::stol(part[8])) : Json(nullptr)},
                   {"text", part[9].str()}};
    std::string text = "log    " + part[4].str() + " " + part[3].str() + " " + part[9].str();
    return {millisecondsOf(part[1]).value_or(nowMilliseconds()), std::move(record), std::move(text)};
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
                           "event  " + event.process + " " +
                               plainText(coded(event.category, eventCategoryName(event.category))) + ": " +
                               event.text});
        }
    }

  private:
    Timeline &timeline_;
    std::int64_t last_ = 0;
};

// --- the stream ---

std::string snapshotText(const Json &snapshot) {
    std::string text = "snapshot";
    for (const auto &process : snapshot["processes"]) {
        text += "\n  process " + plainText(process["process"]) + "[" + plainText(process["pid"]) + "] " +
                plainText(process["severity"]);
    }
    if (snapshot["fields"].is_null()) {
        return text + "\n  no shared record yet";
    }
    for (const auto &[path, value] : snapshot["fields"].items()) {
        text += "\n  " + path + " " + plainText(value);
    }
    return text;
}

void show(const Context &context, const Happening &happening) {
    Json record = {{"time", isoTimeMilliseconds(happening.timeMs)}};
    record.update(happening.record);
    printRecord(context, record, isoTimeMilliseconds(happening.timeMs) + " " + happening.text);
}

ExitCode monitor(const Context &context, const Options &options) {
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
    signal(SIGPIPE, SIG_DFL); // `monitor | head` ends with head

    state.look();
    const Json snapshot = {
        {"kind", "snapshot"}, {"processes", runningProcesses()}, {"fields", state.snapshot()["fields"]}};
    show(context, {nowMilliseconds(), snapshot, snapshotText(snapshot)});

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
    command->add_option("--for", options->seconds, "Stop after so many seconds")->check(CLI::PositiveNumber);
    command->callback([options, &context] {
        context.command = [&context, options] { return monitor(context, *options); };
    });
}

} // namespace ozuctl

// ozuctl wait-for: ends once something is so, or has happened.

#include "arguments.h"
#include "bus_listener.h"
#include "commands/commands.h"
#include "commands/processes.h"
#include "filter.h"
#include "log_files.h"
#include "log_follower.h"
#include "named_numbers.h"
#include "numbers.h"
#include "sources.h"
#include "text.h"
#include "topics.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

constexpr auto kWaitLook = std::chrono::milliseconds(10);

struct WaitOptions {
    double seconds = 0;
    std::vector<std::string> assignments;
    std::string topic;
    std::optional<std::string> payload;
    std::optional<std::string> label;
    std::optional<int> messageClass;
    std::optional<int> command;
    Filter filter;
    std::optional<int> category;
    std::optional<std::int64_t> sinceMs;
    std::string process;
    bool gone = false;
};

// Looks until something is found: a record that is printed, with its text.
using Look = std::function<std::optional<Happening>()>;

Json foundRecord(const Happening &happening) {
    Json record = {{"time", isoTimeMilliseconds(happening.timeMs)}};
    record.update(happening.record);
    return record;
}

ExitCode waitFor(const Context &context, const WaitOptions &options, const std::string &what,
                 const Look &look) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
    for (;;) {
        // The last look comes after the time is up, so that what happened within it counts.
        const bool over = options.seconds > 0 && std::chrono::steady_clock::now() >= end;
        if (const auto found = look()) {
            print(context, foundRecord(*found), isoTimeMilliseconds(found->timeMs) + " " + found->text);
            return kDone;
        }
        if (over) {
            throw CommandError(kTimedOut, "the time is up: " + what);
        }
        std::this_thread::sleep_for(kWaitLook);
    }
}

// The first happening of a timeline that is wanted.
std::optional<Happening> firstOf(Timeline &timeline, const std::function<bool(const Json &)> &wanted) {
    auto ripe = timeline.ripe(true);
    const auto found =
        std::ranges::find_if(ripe, [&wanted](const Happening &one) { return wanted(one.record); });
    return found == ripe.end() ? std::nullopt : std::optional(std::move(*found));
}

// --- state ---

struct Wanted {
    Field field;
    PanelSharedState value; // as the field is to be
};

std::vector<std::unique_ptr<Wanted>> wantedFields(const std::vector<std::string> &words) {
    std::vector<std::unique_ptr<Wanted>> wanted;
    for (const std::string &word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos) {
            throw CommandError(kUsage, inQuotes(word) + " is not FIELD=VALUE");
        }
        auto one = std::make_unique<Wanted>(Wanted{requireField(word.substr(0, equals)), {}});
        one->field.write(one->value, word.substr(equals + 1));
        wanted.push_back(std::move(one));
    }
    return wanted;
}

ExitCode waitForState(const Context &context, const WaitOptions &options) {
    const auto wanted = wantedFields(options.assignments);
    const PanelSharedState *live = nullptr;
    return waitFor(context, options, "the fields have other values", [&]() -> std::optional<Happening> {
        std::string why;
        if (live == nullptr && platform::attachState(live, why) != 0) {
            return std::nullopt; // the panel may still boot
        }
        const PanelSharedState now = *live;
        Json fields = Json::object();
        std::string text = "state ";
        for (const auto &one : wanted) {
            if (one->field.differs(now, one->value)) {
                return std::nullopt;
            }
            fields[one->field.path()] = one->field.read(now);
            text += " " + one->field.path() + " " + plainText(one->field.read(now));
        }
        return Happening{nowMilliseconds(), {{"kind", "state"}, {"fields", std::move(fields)}}, text};
    });
}

// --- bus ---

ExitCode waitForBus(const Context &context, const WaitOptions &options) {
    requireFilter(options.topic);
    const std::optional<std::string> payload =
        options.payload ? std::optional(hexText(requireBytes("--payload", *options.payload))) : std::nullopt;
    Timeline timeline(0);
    const BusListener bus(timeline, {options.topic});
    return waitFor(context, options, "no such message on the bus", [&] {
        return firstOf(timeline, [&](const Json &record) {
            return record["kind"] == "bus" && !record.contains("retained") &&
                   (!payload || record["payload"] == *payload) &&
                   (!options.label || record["label"] == *options.label) &&
                   (!options.messageClass || record["class"] == *options.messageClass) &&
                   (!options.command || record["command"] == *options.command);
        });
    });
}

// --- log ---

ExitCode waitForLog(const Context &context, const WaitOptions &options) {
    Timeline timeline(0);
    LogFollower follower(platform::logFolder(),
                         [&timeline](const std::string &file, const std::string &line) {
                             timeline.add(logHappening(file, line));
                         });
    bool first = true;
    return waitFor(context, options, "no such log line", [&]() -> std::optional<Happening> {
        if (first && options.sinceMs) {
            first = false;
            try {
                auto past = pastLogLines(options.filter, *options.sinceMs, 0);
                if (!past.empty()) {
                    return std::move(past.front());
                }
            } catch (const CommandError &) { // NOLINT: no log yet, so no line of the past
            }
        }
        follower.look();
        return firstOf(timeline, [&](const Json &record) { return options.filter.passes(record); });
    });
}

// --- events ---

ExitCode waitForEvent(const Context &context, const WaitOptions &options) {
    Timeline timeline(0);
    EventSource events(timeline);
    const auto wanted = [&](const Json &record) {
        return options.filter.passes(record) &&
               (!options.category || record["category"]["code"] == *options.category);
    };
    return waitFor(context, options, "no such event", [&] {
        events.look();
        return firstOf(timeline, wanted);
    });
}

// --- processes ---

ExitCode waitForProcess(const Context &context, const WaitOptions &options) {
    const std::string what =
        options.gone ? inQuotes(options.process) + " still runs" : "no process " + inQuotes(options.process);
    return waitFor(context, options, what, [&]() -> std::optional<Happening> {
        std::vector<platform::LoggedProcess> processes;
        static_cast<void>(platform::listProcesses(processes)); // the panel may still boot
        const auto found = std::ranges::find_if(processes, [&](const platform::LoggedProcess &one) {
            return one.running && one.process == options.process;
        });
        const bool runs = found != processes.end();
        if (runs == options.gone) {
            return std::nullopt;
        }
        return Happening{runs ? found->sinceMs : nowMilliseconds(),
                         {{"kind", "process"},
                          {"process", options.process},
                          {"pid", runs ? Json(found->pid) : Json(nullptr)},
                          {"what", runs ? "running" : "gone"}},
                         "process " + visible(options.process) +
                             (runs ? "[" + std::to_string(found->pid) + "] runs" : " is gone")};
    });
}

using Waiter = ExitCode (*)(const Context &, const WaitOptions &);

} // namespace

void registerWaitFor(CLI::App &app, Context &context) {
    auto options = std::make_shared<WaitOptions>();
    CLI::App *command = app.add_subcommand(
        "wait-for", "Wait until something is so or has happened; 0 when it came, 124 when the time was up");
    command->require_subcommand(1);
    const auto add = [&](const char *word, const char *help, Waiter waiter) {
        CLI::App *one = command->add_subcommand(word, help);
        addSeconds(*one, "--for", options->seconds, "Longest wait; without it there is no limit");
        one->callback([options, waiter, &context] {
            context.command = [options, waiter, &context] { return waiter(context, *options); };
        });
        return one;
    };

    CLI::App *state = add("state", "Until fields have these values (FIELD=VALUE), or at once", waitForState);
    state->add_option("CONDITION", options->assignments, "FIELD=VALUE")->required();

    CLI::App *bus = add("bus", "Until a message is published from now on", waitForBus);
    bus->add_option("TOPIC", options->topic, "With MQTT wildcards, e.g. Process/#")->required();
    bus->add_option("--payload", options->payload, "All of it, hexadecimal");
    bus->add_option("--label", options->label, "Its sender's label");
    addNumber(*bus, "--class", options->messageClass, 0, 255, "Class of the message");
    addNumber(*bus, "--command", options->command, 0, 255, "Command within the class");

    const auto since = [options](const std::string &what, const std::string &text) {
        options->sinceMs = requireSince(what, text);
    };
    CLI::App *log = add("log", "Until a log line is written from now on", waitForLog);
    refuseEmpty(log->add_option("TEXT", options->filter.text, "What it contains"));
    log->add_option("--process", options->filter.processes, "Of this process; may be given again")
        ->allow_extra_args(false);
    addChecked(
        *log, "--level", "LEVEL",
        [options](const std::string &what, const std::string &text) {
            options->filter.level = requireLevel(what, text);
        },
        "Of this level and above: WARNING, 50000");
    addChecked(*log, "--since", "TIME", since,
               "Lines from then on, too: 2026-03-01T12:00:00Z, or how long ago: 90 (seconds), 5m, 2h, 1d");

    CLI::App *event = add("event", "Until a system event is written from now on", waitForEvent);
    refuseEmpty(event->add_option("TEXT", options->filter.text, "What it contains"));
    event->add_option("--process", options->filter.processes, "Of this process; may be given again")
        ->allow_extra_args(false);
    addChecked(
        *event, "--category", "N",
        [options](const std::string &what, const std::string &text) {
            options->category =
                static_cast<int>(requireNamed(what, text, kLeastInt, kMaxInt, eventCategories()));
        },
        "Of this category: number or name, e.g. 11 or ARM");

    CLI::App *process = add("process", "Until a panel process runs, or at once", waitForProcess);
    refuseEmpty(process->add_option("NAME", options->process, "Its registered name")->required());
    process->add_flag("--gone", options->gone, "Until it does not run");
}

} // namespace ozuctl

// ozuctl state: the fields of the panel's shared record.

#include "arguments.h"
#include "commands/commands.h"
#include "state_fields.h"
#include "stopping.h"
#include "text.h"
#include "timeline.h"

#include <chrono>
#include <ctime>
#include <memory>
#include <thread>

namespace ozuctl {

namespace {

struct StateOptions {
    std::vector<std::string> paths;
    bool all = false;
    int intervalMs = 50;
    double seconds = 0;
    std::size_t changes = 0;
    std::vector<std::string> until;
};

std::vector<Field> chosenFields(const std::vector<std::string> &paths) {
    if (paths.empty()) {
        return fieldsBelow("");
    }
    std::vector<Field> fields;
    for (const std::string &path : paths) {
        const auto found = requireFields(path);
        fields.insert(fields.end(), found.begin(), found.end());
    }
    return fields;
}

ExitCode get(const Context &context, const StateOptions &options) {
    const auto fields = chosenFields(options.paths);
    const PanelSharedState snapshot = Context::state();
    if (context.json) {
        print(context, nested(snapshot, fields));
        return kDone;
    }
    Json lines = Json::object();
    for (const Field &field : fields) {
        // A field that was named is always shown.
        if (options.all || fields.size() == 1 || !field.isUsual(snapshot)) {
            lines[field.path()] = field.read(snapshot);
        }
    }
    if (fields.size() == 1) {
        print(context, lines.front());
    } else if (!lines.empty()) {
        print(context, lines);
    } else {
        tell("ozuctl: nothing there differs from an untouched panel's; --all shows every field");
    }
    return kDone;
}

struct Assignment {
    Field field;
    std::string text;
};

std::vector<Assignment> parseAssignments(const std::vector<std::string> &words) {
    std::vector<Assignment> assignments;
    for (const std::string &word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos) {
            throw CommandError(kUsage, inQuotes(word) + " is not FIELD=VALUE");
        }
        assignments.push_back({requireField(word.substr(0, equals)), word.substr(equals + 1)});
    }
    return assignments;
}

ExitCode set(const Context &context, const StateOptions &options) {
    const auto assignments = parseAssignments(options.paths);
    // All values are tried on a scratch record first: either every field changes or none.
    auto scratch = std::make_unique<PanelSharedState>();
    for (const Assignment &assignment : assignments) {
        assignment.field.write(*scratch, assignment.text);
    }
    context.requireConsent("changes the panel's shared record");
    Context::changeState([&assignments](PanelSharedState &state) {
        for (const Assignment &assignment : assignments) {
            assignment.field.write(state, assignment.text);
        }
    });
    printChanged(context, "the shared record");
    return kDone;
}

void printChange(const Context &context, const Field &field, const PanelSharedState &before,
                 const PanelSharedState &after) {
    const std::string when = isoTimeMilliseconds(nowMilliseconds());
    const Json record = {
        {"time", when}, {"field", field.path()}, {"old", field.read(before)}, {"new", field.read(after)}};
    printRecord(context, record,
                when + " " + field.path() + " " + plainText(record["old"]) + " -> " +
                    plainText(record["new"]));
}

bool reached(const PanelSharedState &state, const std::vector<Assignment> &wanted) {
    auto copy = std::make_unique<PanelSharedState>(state);
    for (const Assignment &assignment : wanted) {
        assignment.field.write(*copy, assignment.text);
        if (assignment.field.differs(*copy, state)) {
            return false;
        }
    }
    return !wanted.empty();
}

// Ends: asked for by --until, --changes or a signal (0), or --for ran out (124 when --until was not reached).
ExitCode watch(const Context &context, const StateOptions &options) {
    const auto fields = chosenFields(options.paths);
    const auto wanted = parseAssignments(options.until);
    const PanelSharedState &live = Context::state();
    auto before = std::make_unique<PanelSharedState>(live);
    auto after = std::make_unique<PanelSharedState>();
    stopOnSignals();
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
    std::size_t seen = 0;
    while (!stopped()) {
        *after = live;
        requireReader();
        for (const Field &field : fields) {
            if (field.differs(*before, *after)) {
                printChange(context, field, *before, *after);
                if (++seen == options.changes) {
                    return kDone;
                }
            }
        }
        std::swap(before, after);
        if (reached(*before, wanted)) {
            return kDone;
        }
        if (options.seconds > 0 && std::chrono::steady_clock::now() >= end) {
            return wanted.empty() && options.changes == 0 ? kDone : kTimedOut;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(options.intervalMs));
    }
    return kDone;
}

void addGet(CLI::App &state, Context &context) {
    auto options = std::make_shared<StateOptions>();
    CLI::App *command =
        state.add_subcommand("get", "Show fields, by default all that differ from an untouched panel's");
    refuseEmpty(command->add_option("FIELD", options->paths,
                                    "A field or part: partitions[0].partitionState, devices[3], zones"));
    command->add_flag("--all", options->all, "Show every field");
    command->callback(
        [options, &context] { context.command = [&context, options] { return get(context, *options); }; });
}

void addSet(CLI::App &state, Context &context) {
    auto options = std::make_shared<StateOptions>();
    CLI::App *command = state.add_subcommand(
        "set",
        "Change fields. Values: numbers; names of device types (W3) and partition states (ARMED_2); times\n"
        "as 2026-03-01T12:00:00Z, now, now+30; never (an expiry)");
    command->add_option("CHANGE", options->paths, "FIELD=VALUE")->required();
    command->callback(
        [options, &context] { context.command = [options, &context] { return set(context, *options); }; });
}

void addWatch(CLI::App &state, Context &context) {
    auto options = std::make_shared<StateOptions>();
    CLI::App *command = state.add_subcommand("watch", "Show changes of fields as they happen");
    refuseEmpty(
        command->add_option("FIELD", options->paths, "Fields or parts to watch; all of them by default"));
    addNumber(*command, "--interval", options->intervalMs, 1, 60000, "Milliseconds between two reads (50)");
    addSeconds(*command, "--for", options->seconds, "Stop after so many seconds");
    addNumber(*command, "--changes", options->changes, 1, kMaxInt, "Stop after so many changes");
    command
        ->add_option("--until", options->until, "Stop when FIELD=VALUE holds; 124 when --for runs out first")
        ->allow_extra_args(false);
    command->callback(
        [options, &context] { context.command = [&context, options] { return watch(context, *options); }; });
}

} // namespace

void registerState(CLI::App &app, Context &context) {
    CLI::App *state = app.add_subcommand("state", "Fields of the panel's shared record, by name");
    state->require_subcommand(1);
    addGet(*state, context);
    addSet(*state, context);
    addWatch(*state, context);
}

} // namespace ozuctl

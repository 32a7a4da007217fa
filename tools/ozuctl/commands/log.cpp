// ozuctl log: the lines of all panel processes, past and to come, in chronological order.

#include "arguments.h"
#include "commands/commands.h"
#include "filter.h"
#include "log_files.h"
#include "log_follower.h"
#include "sources.h"
#include "stopping.h"
#include "text.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

namespace ozuctl {

namespace {

constexpr auto kLogLook = std::chrono::milliseconds(50);
constexpr std::int64_t kLogHoldMs =
    200; // a line may be found a little later than one that was written after it

struct LogOptions {
    Filter filter;
    std::int64_t sinceMs = 0;
    std::size_t last = 0; // 0: all
    bool follow = false;
    double seconds = 0;
};

Json lineRecord(const Happening &line) {
    Json record = {{"time", line.timeMs == 0 ? Json(nullptr) : Json(isoTimeMilliseconds(line.timeMs))}};
    record.update(line.record);
    record.erase("kind");
    return record;
}

std::string lineText(const Happening &line) {
    const Json &record = line.record;
    std::string text = line.timeMs == 0 ? "-" : isoTimeMilliseconds(line.timeMs);
    if (!record.contains("level")) {
        return text + " " + plainText(record["process"]) + " " + visible(record["text"].get<std::string>());
    }
    return text + " " + plainText(record["level"]["name"]) + " " + plainText(record["process"]) + "[" +
           plainText(record["pid"]) + "] " + plainText(record["text"]);
}

ExitCode follow(const Context &context, const LogOptions &options, Timeline &timeline,
                LogFollower &follower) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
    const auto show = [&](bool everything) {
        for (const Happening &line : timeline.ripe(everything)) {
            printRecord(context, lineRecord(line), lineText(line), lookOf(line.record));
        }
    };
    while (!stopped() && (options.seconds <= 0 || std::chrono::steady_clock::now() < end)) {
        std::this_thread::sleep_for(kLogLook);
        requireReader();
        follower.look();
        show(false);
    }
    follower.look();
    show(true);
    return kDone;
}

ExitCode log(const Context &context, const LogOptions &options) {
    Timeline timeline(kLogHoldMs);
    std::optional<LogFollower> follower;
    if (options.follow) {
        stopOnSignals();
        // Opened before the past is read, so that nothing falls between; what is found twice is the past's.
        follower.emplace(ozu::platform::logFolder(), [&](const std::string &file, const std::string &line) {
            Happening one = logHappening(file, line);
            if (options.filter.passes(one.record)) {
                timeline.add(std::move(one));
            }
        });
    }
    // The first panel process is yet to come: whoever follows waits for it.
    const bool none = options.follow && access(ozu::platform::logFolder().c_str(), F_OK) != 0;
    const auto past =
        none ? std::deque<Happening>() : pastLogLines(options.filter, options.sinceMs, options.last);
    if (options.follow) {
        follower->look();
        for (Happening &line : timeline.ripe(true)) {
            if (std::ranges::none_of(past, [&line](const Happening &one) {
                    return one.timeMs == line.timeMs && one.record == line.record;
                })) {
                timeline.add(std::move(line));
            }
        }
    }
    if (context.json && !options.follow) {
        Json rows = Json::array();
        for (const Happening &line : past) {
            rows.push_back(lineRecord(line));
        }
        print(context, rows);
        return kDone;
    }
    for (const Happening &line : past) {
        printRecord(context, lineRecord(line), lineText(line), lookOf(line.record));
    }
    return options.follow ? follow(context, options, timeline, *follower) : kDone;
}

} // namespace

void registerLog(CLI::App &app, Context &context) {
    auto options = std::make_shared<LogOptions>();
    CLI::App *command = app.add_subcommand("log", "Log lines of all panel processes, oldest first");
    addLogFilters(*command, options->filter);
    addChecked(
        *command, "--since", "TIME",
        [options](const std::string &what, const std::string &text) {
            options->sinceMs = requireSince(what, text);
        },
        "Lines from then on: 2026-03-01T12:00:00Z, or how long ago: 90 (seconds), 5m, 2h, 1d");
    addNumber(*command, "-n,--last", options->last, 1, kMaxInt,
              "Only the last so many of those that are there");
    command->add_flag("-f,--follow", options->follow, "Continue with new lines until interrupted");
    addSeconds(*command, "--for", options->seconds, "With -f: stop after so many seconds");
    command->callback(
        [options, &context] { context.command = [options, &context] { return log(context, *options); }; });
}

} // namespace ozuctl

// ozuctl replay: what a recording holds happens again: messages on the bus, changes of the shared record.

#include "arguments.h"
#include "codes.h"
#include "commands/commands.h"
#include "numbers.h"
#include "recording.h"
#include "state_fields.h"
#include "stopping.h"
#include "topics.h"

#include <mqttc.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

namespace ozuctl {

namespace {

constexpr int kQueueFull = 23;
constexpr auto kReplayPatience = std::chrono::seconds(30); // for a broker that takes nothing
constexpr std::int64_t kMaxSpeed = 1000000;
constexpr std::int64_t kMaxMs = 366LL * 24 * 3600 * 1000; // of a recording

struct ReplayOptions {
    std::string file;
    std::int64_t speed = 1;
    bool fast = false;
};

// A value as 'state set' takes it.
std::string valueText(const Json &value) {
    if (value.is_object() && value.contains("code")) {
        return value["code"].dump();
    }
    return value.is_null() ? "0" : value.is_string() ? value.get<std::string>() : value.dump();
}

// Class or command.
int numberOf(const Json &record, const char *key) {
    const auto number =
        record.contains(key) && record[key].is_number_integer() ? record[key].get<std::int64_t>() : 0;
    return number >= 0 && number <= 255 ? static_cast<int>(number) : 0;
}

std::string textOf(const Json &record, const char *key) {
    return record.contains(key) && record[key].is_string() ? record[key].get<std::string>() : "";
}

// Messages and states; the other lines have times of others, which may be anything.
bool canHappenAgain(const Recorded &one) {
    const std::string kind = textOf(one.record, "kind");
    return kind == "bus" || kind == "state" || kind == "snapshot";
}

// Whether a message can be sent as it was: whole, and not one of the broker's own.
bool isWhole(const Json &record) {
    try {
        requireTopic(textOf(record, "topic"));
        static_cast<void>(requireBytes("payload", textOf(record, "payload")));
        return !record.contains("cut");
    } catch (const CommandError &) {
        return false;
    }
}

class Replay {
  public:
    explicit Replay(const ReplayOptions &options) : options_(options) {}

    Json run(const std::vector<Recorded> &recording) {
        const auto start = std::chrono::steady_clock::now();
        for (const Recorded &one : recording) {
            if (!options_.fast) {
                const std::int64_t after = std::min(one.timeMs - recording.front().timeMs, kMaxMs);
                waitUntil(start + std::chrono::milliseconds(after / options_.speed));
            }
            if (stopped()) {
                break;
            }
            happen(one.record);
        }
        return {{"messages", messages_}, {"changes", changes_}, {"skipped", skipped_}};
    }

  private:
    static void waitUntil(std::chrono::steady_clock::time_point when) {
        while (!stopped() && std::chrono::steady_clock::now() < when) {
            std::this_thread::sleep_until(
                std::min(when, std::chrono::steady_clock::now() + std::chrono::milliseconds(50)));
        }
    }

    void happen(const Json &record) {
        const std::string kind = textOf(record, "kind");
        if (kind == "bus") {
            publish(record);
        } else if (record.contains("field") && record.contains("new")) {
            set({{textOf(record, "field"), record["new"]}});
        } else if (record.contains("fields") && record["fields"].is_object()) {
            set(record["fields"]); // the state at the beginning
        }
    }

    void set(const Json &values) {
        Context::changeState([&](PanelSharedState &state) {
            for (const auto &[path, value] : values.items()) {
                try {
                    requireField(path).write(state, valueText(value));
                    ++changes_;
                } catch (const CommandError &) {
                    ++skipped_; // another release's field
                }
            }
        });
    }

    void publish(const Json &record) {
        if (!isWhole(record)) {
            ++skipped_;
            return;
        }
        const auto payload = requireBytes("payload", textOf(record, "payload"));
        const auto end = std::chrono::steady_clock::now() + kReplayPatience;
        int code = 0;
        do {
            code = ozumqttc_messagePublish(
                textOf(record, "topic").c_str(), static_cast<unsigned int>(payload.size()),
                textOf(record, "label").c_str(), numberOf(record, "class"), numberOf(record, "command"),
                payload.empty() ? "" : static_cast<const void *>(payload.data()));
            if (code == kQueueFull) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        } while (code == kQueueFull && !stopped() && std::chrono::steady_clock::now() < end);
        if (code != 0 && !stopped()) {
            throw CommandError(kLibraryFailed, "a message was not sent (" + platformCode(code) + ")");
        }
        ++messages_;
    }

    const ReplayOptions &options_;
    std::size_t messages_ = 0;
    std::size_t changes_ = 0;
    std::size_t skipped_ = 0;
};

ExitCode replay(const Context &context, const ReplayOptions &options) {
    auto recording = readRecording(options.file);
    std::erase_if(recording, std::not_fn(canHappenAgain));
    context.requireConsent("makes a recording's messages and state changes happen on this panel");
    Context::startPanelProcess();
    stopOnSignals();
    print(context, Replay(options).run(recording));
    return stopped() ? kNo : kDone;
}

} // namespace

void registerReplay(CLI::App &app, Context &context) {
    auto options = std::make_shared<ReplayOptions>();
    CLI::App *command = app.add_subcommand(
        "replay", "Publish the messages and make the state changes of a recording again, in a panel box");
    command->add_option("FILE", options->file, "Made by 'monitor --record'")->required();
    addNumber(*command, "--speed", options->speed, 1, kMaxSpeed, "So many times as fast as it was (1)");
    command->add_flag("--fast", options->fast, "Without any pause");
    command->callback(
        [options, &context] { context.command = [options, &context] { return replay(context, *options); }; });
}

} // namespace ozuctl

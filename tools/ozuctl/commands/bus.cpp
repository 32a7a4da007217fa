// ozuctl publish: one message on the panel's bus.

#include "arguments.h"
#include "codes.h"
#include "commands/commands.h"
#include "files.h"
#include "log_tap.h"
#include "numbers.h"
#include "topics.h"

#include <mqttc.h>
#include <ozulog.h>

#ifdef OZUCTL_REFERENCE_PLATFORM
#include <ozu_platform_tools.h>
#endif

#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace ozuctl {

namespace {

struct PublishOptions {
    std::string topic;
    std::string label = "OZUCTL";
    int messageClass = 0;
    int command = 0;
    std::string payload;
    std::optional<std::string> text;
};

constexpr std::uint64_t kMaxPacketBytes = 268435455; // of an MQTT packet

// The payload: hexadecimal, standard input as it is, or the text.
std::vector<unsigned char> payloadOf(const PublishOptions &options) {
    if (options.text && !options.payload.empty()) {
        throw CommandError(kUsage, "PAYLOAD and --text exclude each other");
    }
    if (!options.text && options.payload != "-") {
        return requireBytes("PAYLOAD", options.payload);
    }
    const std::string bytes = options.text ? *options.text : contentOf("/dev/stdin", kMaxPacketBytes);
    return {bytes.begin(), bytes.end()};
}

#ifdef OZUCTL_REFERENCE_PLATFORM

constexpr auto kPublishPatience = std::chrono::seconds(10);

// Messages of this process that the broker has not acknowledged; nothing when that cannot be told.
std::optional<unsigned> unacknowledged() {
    std::vector<ozu::platform::InFlightSlot> slots;
    if (ozu::platform::readInFlight(slots) != 0) {
        return std::nullopt;
    }
    for (const auto &slot : slots) {
        if (slot.pid == getpid()) {
            return slot.unacknowledged;
        }
    }
    return std::nullopt;
}

// True once the broker has the message.
bool taken() {
    const auto end = std::chrono::steady_clock::now() + kPublishPatience;
    while (std::chrono::steady_clock::now() < end) {
        if (unacknowledged().value_or(0) == 0) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

#else

bool taken() {
    return true; // leaving the bus waits for what is under way
}

#endif

ExitCode publish(const Context &context, const PublishOptions &options) {
    requireTopic(options.topic);
    const auto bytes = payloadOf(options);
    context.requireConsent("sends a message to the panel's processes");
    Context::startPanelProcess();
    int code = 0;
    bool arrived = false;
    std::string refusal;
    {
        const LogTap tap([&refusal](const LoggedLine &line) {
            refusal = line.level >= OZULOG_ERROR ? line.text : refusal;
            return std::string();
        });
        code = ozumqttc_messagePublish(options.topic.c_str(), static_cast<unsigned int>(bytes.size()),
                                       options.label.c_str(), options.messageClass, options.command,
                                       bytes.empty() ? "" : static_cast<const void *>(bytes.data()));
        arrived = code == 0 && taken();
    }
    const std::string why = refusal.empty() ? "" : ": " + refusal;
    if (code != 0) {
        throw CommandError(kLibraryFailed, "the message was not sent (" + platformCode(code) + ")" + why);
    }
    if (!arrived) {
        throw CommandError(kLibraryFailed, "the broker did not take the message within 10 s" + why);
    }
    if (!refusal.empty()) {
        throw CommandError(kLibraryFailed, "the broker did not take the message" + why);
    }
    print(context, {{"topic", options.topic}, {"bytes", bytes.size()}, {"taken", true}}, "");
    return kDone;
}

} // namespace

void registerBus(CLI::App &app, Context &context) {
    auto options = std::make_shared<PublishOptions>();
    CLI::App *command = app.add_subcommand("publish", "Send one message to panel processes");
    command->add_option("TOPIC", options->topic, "For example Process/ALL")->required();
    command->add_option(
        "PAYLOAD", options->payload,
        "Hexadecimal, two digits a byte; nothing for an empty message; '-' for the bytes on standard "
        "input");
    command->add_option("--text", options->text, "The payload as text");
    command->add_option("--label", options->label, "Sender label (OZUCTL)");
    addNumber(*command, "--class", options->messageClass, 0, 255, "Class of the message (0)");
    addNumber(*command, "--command", options->command, 0, 255, "Command within the class (0)");
    command->callback([options, &context] {
        context.command = [options, &context] { return publish(context, *options); };
    });
}

} // namespace ozuctl

// ozuctl publish: one message on the panel's bus.

#include "commands/commands.h"

#include <mqttc.h>

#include <memory>

namespace ozuctl {

namespace {

struct Options {
    std::string topic;
    std::string label = "OZUCTL";
    int messageClass = 0;
    int command = 0;
    std::string payload;
};

int digitValue(char digit) {
    return digit >= '0' && digit <= '9'   ? digit - '0'
           : digit >= 'a' && digit <= 'f' ? digit - 'a' + 10
           : digit >= 'A' && digit <= 'F' ? digit - 'A' + 10
                                          : -1;
}

std::vector<unsigned char> bytesOf(const std::string &hex) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        const int high = digitValue(hex[i]);
        const int low = digitValue(hex[i + 1]);
        if (high < 0 || low < 0) {
            break;
        }
        bytes.push_back(static_cast<unsigned char>(high << 4 | low));
    }
    if (bytes.size() * 2 != hex.size()) {
        throw CommandError(kUsage, "'" + hex + "' is not hexadecimal, two digits a byte");
    }
    return bytes;
}

ExitCode publish(const Options &options) {
    const auto bytes = bytesOf(options.payload);
    Context::startPanelProcess();
    const int code = ozumqttc_messagePublish(options.topic.c_str(), static_cast<unsigned int>(bytes.size()),
                                             options.label.c_str(), options.messageClass, options.command,
                                             bytes.empty() ? "" : static_cast<const void *>(bytes.data()));
    if (code != 0) {
        throw CommandError(kLibraryFailed, "the message was not accepted, code " + std::to_string(code));
    }
    return kDone; // leaving the bus waits for what is under way
}

} // namespace

void registerBus(CLI::App &app, Context &context) {
    auto options = std::make_shared<Options>();
    CLI::App *command = app.add_subcommand("publish", "Send one message to panel processes");
    command->add_option("TOPIC", options->topic, "For example Process/ALL")->required();
    command->add_option("PAYLOAD", options->payload,
                        "Hexadecimal, two digits a byte; nothing for an empty message");
    command->add_option("--label", options->label, "Sender label (OZUCTL)");
    command->add_option("--class", options->messageClass, "Class of the message (0)")
        ->check(CLI::Range(0, 255));
    command->add_option("--command", options->command, "Command within the class (0)")
        ->check(CLI::Range(0, 255));
    command->callback([options, &context] { context.command = [options] { return publish(*options); }; });
}

} // namespace ozuctl

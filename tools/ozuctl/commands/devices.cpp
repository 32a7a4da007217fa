// ozuctl nxp, gpio: requests to the co-processor and to the radio.

#include "commands/commands.h"
#include "panel_messages.h"

#include <utils_ozu/coprocessor.h>
#include <utils_ozu/messages.h>

#include <charconv>
#include <memory>

namespace ozuctl {

namespace {

ExitCode sent(const Context &context, int code, int result) {
    if (result != 0) {
        throw CommandError(kLibraryFailed, "the request was not sent (code " + std::to_string(result) + ")");
    }
    print(context, {{"request", coded(code, nxpRequestName(code))}});
    return kDone;
}

std::vector<std::uint8_t> bytesOf(const std::string &hex) {
    std::vector<std::uint8_t> bytes(hex.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char *digits = hex.data() + 2 * i;
        if (std::from_chars(digits, digits + 2, bytes[i], 16).ptr != digits + 2) {
            throw CommandError(kUsage, "'" + hex + "' is not a row of bytes in hexadecimal");
        }
    }
    if (hex.size() % 2 != 0) {
        throw CommandError(kUsage, "'" + hex + "' ends in half a byte");
    }
    return bytes;
}

ExitCode sendBlock(const Context &context, const std::string &hex, unsigned command) {
    const auto block = bytesOf(hex);
    Context::startPanelProcess();
    const int code = block.empty() ? -1 : block[0];
    return sent(context, code,
                ozuutils_SendDataToNXP(block.data(), static_cast<unsigned>(block.size()), command));
}

ExitCode housing(const Context &context) {
    const int version = Context::state().cpPlasticVersion;
    Context::startPanelProcess();
    const int result = ozuutils_setNxpPlasticVersion();
    if (result == 1) {
        throw CommandError(kLibraryFailed, "the shared state's housing version is " +
                                               std::to_string(version) +
                                               "; it must be 1 to 3 (ozuctl state set cpPlasticVersion=1)");
    }
    return sent(context, OZU_NXP_PLASTIC_VERSION, result);
}

void addRequest(CLI::App &nxp, Context &context, const char *word, const char *help, int code,
                int (*request)()) {
    nxp.add_subcommand(word, help)->callback([&context, code, request] {
        context.command = [&context, code, request] {
            Context::startPanelProcess();
            return sent(context, code, request());
        };
    });
}

struct Options {
    unsigned protocol = 0;
    unsigned command = OZU_NXP_COMMAND_REQUEST;
    std::string block;
    unsigned gpio = 0;
    unsigned level = 0;
    std::string sender = "OZUCTL";
};

} // namespace

void registerNxp(CLI::App &app, Context &context) {
    CLI::App *nxp = app.add_subcommand("nxp", "Requests to the co-processor");
    nxp->require_subcommand(1);
    addRequest(*nxp, context, "serial", "Have it tell the panel's serial number", OZU_NXP_SERIAL_NUMBER,
               [] { return ozuutils_updateCPserialNumberInShmem(); });
    addRequest(*nxp, context, "manufacture", "Have it tell the manufacturing values",
               OZU_NXP_MANUFACTURE_VALUES, [] { return ozuutils_updateNxpManufactureParamsInShmem(); });
    addRequest(*nxp, context, "tamper", "Have it tell the state of the tamper switch", OZU_NXP_TAMPER_STATE,
               [] { return ozuutils_GetNxpTamperState(); });

    auto options = std::make_shared<Options>();
    CLI::App *command = nxp->add_subcommand("uart", "Set the protocol of its UART");
    command->add_option("PROTOCOL", options->protocol)->required()->check(CLI::Range(0, 255));
    command->callback([options, &context] {
        context.command = [options, &context] {
            Context::startPanelProcess();
            return sent(context, OZU_NXP_UART_PROTOCOL, ozuutils_updateNxpUartProtocol(options->protocol));
        };
    });

    nxp->add_subcommand("housing", "Tell it the housing version of the shared state")->callback([&context] {
        context.command = [&context] { return housing(context); };
    });

    command = nxp->add_subcommand("send", "Send it any request block");
    command->add_option("BYTES", options->block, "In hexadecimal; may be empty")->required();
    command->add_option("--command", options->command, "Command of the envelope (4)");
    command->callback([options, &context] {
        context.command = [options, &context] {
            return sendBlock(context, options->block, options->command);
        };
    });
}

void registerGpio(CLI::App &app, Context &context) {
    auto options = std::make_shared<Options>();
    CLI::App *command = app.add_subcommand("gpio", "Set an output of the CC1352 radio");
    command->add_option("N", options->gpio, "Number of the output")->required();
    command->add_option("LEVEL", options->level, "0 low, anything else high")->required();
    command->add_option("--sender", options->sender, "Label of the sender (OZUCTL)");
    command->callback([options, &context] {
        context.command = [options, &context] {
            Context::startPanelProcess();
            controlCC1352Gpio(options->sender.c_str(), options->gpio, options->level);
            print(context, {{"gpio", options->gpio & 255U}, {"level", options->level & 255U}});
            return kDone; // the library does not tell; the log does
        };
    });
}

} // namespace ozuctl

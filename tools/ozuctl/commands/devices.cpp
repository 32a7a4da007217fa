// ozuctl nxp, gpio: requests to the co-processor and to the radio.

#include "arguments.h"
#include "codes.h"
#include "commands/commands.h"
#include "numbers.h"
#include "panel_messages.h"

#include <utils_ozu/coprocessor.h>
#include <utils_ozu/messages.h>

#include <memory>

namespace ozuctl {

namespace {

constexpr const char *kSends = "sends a request to the panel's co-processor";

ExitCode sent(const Context &context, int code, int result) {
    if (result != 0) {
        throw CommandError(kLibraryFailed, "the request was not sent (" + platformCode(result) + ")");
    }
    print(context, {{"request", coded(code, nxpRequestName(code))}});
    return kDone;
}

ExitCode sendBlock(const Context &context, const std::string &hex, unsigned command) {
    const auto block = requireBytes("BYTES", hex);
    context.requireConsent(kSends);
    Context::startPanelProcess();
    const int code = block.empty() ? -1 : block[0];
    return sent(context, code,
                ozuutils_SendDataToNXP(block.data(), static_cast<unsigned>(block.size()), command));
}

ExitCode housing(const Context &context) {
    const int version = Context::state().cpPlasticVersion;
    context.requireConsent(kSends);
    Context::startPanelProcess();
    const int result = ozuutils_setNxpPlasticVersion();
    if (result == 1) {
        throw CommandError(kLibraryFailed,
                           "the shared state's housing version is " + std::to_string(version) +
                               "; it must be 1 to 3",
                           "'ozuctl state set cpPlasticVersion=1' sets it.");
    }
    return sent(context, OZU_NXP_PLASTIC_VERSION, result);
}

void addRequest(CLI::App &nxp, Context &context, const char *word, const char *help, int code,
                int (*request)()) {
    nxp.add_subcommand(word, help)->callback([&context, code, request] {
        context.command = [&context, code, request] {
            context.requireConsent(kSends);
            Context::startPanelProcess();
            return sent(context, code, request());
        };
    });
}

struct NxpOptions {
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
    addRequest(*nxp, context, "serial", "Ask it for the panel's serial number", OZU_NXP_SERIAL_NUMBER,
               [] { return ozuutils_updateCPserialNumberInShmem(); });
    addRequest(*nxp, context, "manufacture", "Ask it for the manufacturing values",
               OZU_NXP_MANUFACTURE_VALUES, [] { return ozuutils_updateNxpManufactureParamsInShmem(); });
    addRequest(*nxp, context, "tamper", "Ask it for the state of the tamper switch", OZU_NXP_TAMPER_STATE,
               [] { return ozuutils_GetNxpTamperState(); });

    auto options = std::make_shared<NxpOptions>();
    CLI::App *command = nxp->add_subcommand("uart", "Set the protocol of its UART");
    addNumber(*command, "PROTOCOL", options->protocol, 0, 255, "Number of the protocol")->required();
    command->callback([options, &context] {
        context.command = [options, &context] {
            context.requireConsent(kSends);
            Context::startPanelProcess();
            return sent(context, OZU_NXP_UART_PROTOCOL, ozuutils_updateNxpUartProtocol(options->protocol));
        };
    });

    nxp->add_subcommand("housing", "Tell it the housing version of the shared state")->callback([&context] {
        context.command = [&context] { return housing(context); };
    });

    command = nxp->add_subcommand("send", "Send it any request block");
    command->add_option("BYTES", options->block, "In hexadecimal; may be empty")->required();
    addNumber(*command, "--command", options->command, 0, 255, "Command of the envelope (4)");
    command->callback([options, &context] {
        context.command = [options, &context] {
            return sendBlock(context, options->block, options->command);
        };
    });
}

void registerGpio(CLI::App &app, Context &context) {
    auto options = std::make_shared<NxpOptions>();
    CLI::App *command = app.add_subcommand("gpio", "Set an output of the CC1352 radio");
    addNumber(*command, "N", options->gpio, 0, 255, "Number of the output")->required();
    addNumber(*command, "LEVEL", options->level, 0, 255, "0 low, anything else high")->required();
    command->add_option("--sender", options->sender, "Label of the sender (OZUCTL)");
    command->callback([options, &context] {
        context.command = [options, &context] {
            context.requireConsent("sets an output of the panel's radio");
            Context::startPanelProcess();
            controlCC1352Gpio(options->sender.c_str(), options->gpio, options->level);
            print(context, {{"gpio", options->gpio}, {"level", options->level}});
            return kDone; // the library does not tell; the log does
        };
    });
}

} // namespace ozuctl

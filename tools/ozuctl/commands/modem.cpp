// ozuctl modem, imsi: versions of the cellular modem, codes of a SIM.

#include "arguments.h"
#include "commands/commands.h"
#include "text.h"

#include <utils_ozu/modem.h>

#include <memory>

namespace ozuctl {

namespace {

constexpr std::size_t kLine = 1024;
constexpr std::size_t kMaxDigits = 6;

// First line of the modem's version file, without its line feed.
std::string versionLine() {
    char line[kLine] = {};
    if (ozuutils_readTelitFwFile(line, sizeof line) != 0) {
        throw CommandError(kNo, "there is no version in /var/run/version; the modem process writes it");
    }
    std::string text = line;
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

using VersionOf = int (*)(const char *text, char *out, std::size_t digits);

ExitCode showPart(const Context &context, const char *key, VersionOf versionOf,
                  const std::optional<std::string> &given, std::size_t digits) {
    const std::string text = given ? *given : versionLine();
    char out[kMaxDigits + 2] = {};
    const int result = versionOf(text.c_str(), out, digits);
    print(context, {{"text", text}, {key, result == 0 ? Json(out) : Json(nullptr)}});
    return result == 0 ? kDone : kNo;
}

ExitCode imsi(const Context &context, const std::string &digits) {
    char mcc[4] = {};
    char mnc[4] = {};
    const int length = ozuutils_IMSItoMccMnc(digits.c_str(), mcc, mnc);
    if (length == 0) {
        throw CommandError(kUsage, "DIGITS must be an IMSI, at least six digits, not " + inQuotes(digits));
    }
    print(context, {{"mcc", mcc}, {"mnc", mnc}, {"mncLength", length}});
    return kDone;
}

struct ModemOptions {
    std::optional<std::string> text;
    std::size_t appDigits = 6;
    std::size_t betaDigits = 1;
    int psm = 0;
    std::string imsi;
};

} // namespace

void registerModem(CLI::App &app, Context &context) {
    auto options = std::make_shared<ModemOptions>();
    CLI::App *modem = app.add_subcommand("modem", "The cellular modem");
    modem->require_subcommand(1);
    modem->add_subcommand("version", "Its firmware version, from /var/run/version")->callback([&context] {
        context.command = [&context] {
            print(context, {{"version", versionLine()}});
            return kDone;
        };
    });

    CLI::App *command =
        modem->add_subcommand("app", "Application version in a version text. 1 when there is none");
    command->add_option("TEXT", options->text, "By default the firmware version");
    addNumber(*command, "--digits", options->appDigits, 1, 6, "Digits it has (6)");
    command->callback([options, &context] {
        context.command = [options, &context] {
            return showPart(context, "application", getAppModemVersion, options->text, options->appDigits);
        };
    });

    command = modem->add_subcommand("beta", "Beta number in a version text. 1 when there is none");
    command->add_option("TEXT", options->text, "By default the firmware version");
    addNumber(*command, "--digits", options->betaDigits, 1, 3, "Digits it has (1)");
    command->callback([options, &context] {
        context.command = [options, &context] {
            return showPart(context, "beta", getAppBetaModemVersion, options->text, options->betaDigits);
        };
    });

    command = modem->add_subcommand("awake", "Whether it neither saves power nor works in CBank mode");
    addNumber(*command, "PSM", options->psm, kLeastInt, kMaxInt, "Its power-saving state")->required();
    command->callback([options, &context] {
        context.command = [options, &context] {
            static_cast<void>(Context::state());
            const bool awake = isNoPSMandNoCBankMode(options->psm) != 0;
            print(context, {{"psm", options->psm}, {"awake", awake}});
            return awake ? kDone : kNo;
        };
    });
}

void registerImsi(CLI::App &app, Context &context) {
    auto digits = std::make_shared<std::string>();
    CLI::App *command = app.add_subcommand("imsi", "Country and network code of a SIM");
    command->add_option("DIGITS", *digits, "The SIM's IMSI")->required();
    command->callback(
        [digits, &context] { context.command = [digits, &context] { return imsi(context, *digits); }; });
}

} // namespace ozuctl

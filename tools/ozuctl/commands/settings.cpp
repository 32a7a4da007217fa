// ozuctl settings: what the reference platform is told about itself.

#include "arguments.h"
#include "commands/commands.h"
#include "platform_errors.h"
#include "suggest.h"
#include "text.h"

#include <ozu_platform_tools.h>

#include <algorithm>
#include <memory>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

std::vector<platform::Setting> allSettings() {
    std::vector<platform::Setting> settings;
    if (const int code = platform::listSettings(settings); code != 0) {
        throw platformFailure("cannot read the settings", code);
    }
    return settings;
}

ExitCode listSettings(const Context &context) {
    Json rows = Json::array();
    for (const auto &one : allSettings()) {
        rows.push_back({{"name", one.name}, {"value", one.value}});
    }
    print(context, rows);
    return kDone;
}

ExitCode showSetting(const Context &context, const std::string &name) {
    const auto settings = allSettings();
    const auto found = std::ranges::find(settings, name, &platform::Setting::name);
    if (found == settings.end()) {
        std::vector<std::string> names;
        names.reserve(settings.size());
        for (const auto &one : settings) {
            names.push_back(one.name);
        }
        throw CommandError(kNo, "no setting " + inQuotes(name) + " is stored" + didYouMean(name, names));
    }
    print(context, {{"name", found->name}, {"value", found->value}}, visible(found->value));
    return kDone;
}

ExitCode changeSetting(const Context &context, const std::string &name, const std::string &value) {
    context.requireConsent("changes a setting of the panel");
    if (const int code = platform::setSetting(name, value); code != 0) {
        throw platformFailure("cannot store the setting " + inQuotes(name), code);
    }
    printChanged(context, "the setting");
    return kDone;
}

} // namespace

void registerSettings(CLI::App &app, Context &context) {
    struct SettingWords {
        std::string name;
        std::string value;
    };
    auto words = std::make_shared<SettingWords>();
    CLI::App *command =
        app.add_subcommand("settings", "A setting of the platform; with VALUE stores it; alone lists all");
    refuseEmpty(command->add_option("NAME", words->name, "For example log.max_bytes"));
    CLI::Option *value = command->add_option("VALUE", words->value, "Its new value");
    command->callback([words, value, &context] {
        const bool changes = value->count() != 0;
        context.command = [words, changes, &context] {
            return words->name.empty() ? listSettings(context)
                   : changes           ? changeSetting(context, words->name, words->value)
                                       : showSetting(context, words->name);
        };
    });
}

} // namespace ozuctl

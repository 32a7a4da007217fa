// ozuctl time: date texts as the panel reads them, and its time zone.

#include "arguments.h"
#include "commands/commands.h"
#include "log_tap.h"
#include "numbers.h"

#include <ozulog.h>
#include <utils_ozu/dates.h>
#include <utils_ozu/time_zone.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

namespace ozuctl {

namespace {

struct Format {
    std::string_view name;
    std::string_view layout;
    int (*parse)(const char *text);
};

constexpr std::array kFormats = {
    Format{"date", "MM-DD-YYYY hh:mm:ss, local", date_string_to_time},
    Format{"limited", "DD/MM/YYYY [hh:mm], UTC", date_string_to_time_limited},
    Format{"tools", "DDMMYYYY, UTC", date_string_to_time_tools},
    Format{"bypass", "Www Mmm DD hh:mm:ss YYYY, local", bypass_string_to_time},
    Format{"local", "YYMMDDhhmm, local", localTimeStrToTimeT},
};

std::string layouts() {
    std::string text = "Layout of the text:";
    for (const auto &format : kFormats) {
        text += "\n" + std::string(format.name) + " (" + std::string(format.layout) + ")";
    }
    return text;
}

constexpr std::size_t kMaxZone = 103; // the library ends the process on a longer one

struct TimeOptions {
    std::string format = "date";
    std::string text;
    std::string zone;
    bool notify = false;
};

ExitCode parse(const Context &context, const TimeOptions &options) {
    const auto *format = std::ranges::find(kFormats, options.format, &Format::name);
    std::string why = "not a " + options.format + " text (" + std::string(format->layout) +
                      "), or a time that 32 bits cannot hold";
    int seconds = 0;
    {
        const LogTap tap([&why](const LoggedLine &line) {
            why = line.level >= OZULOG_ERROR ? line.text : why;
            return std::string();
        });
        seconds = format->parse(options.text.c_str());
    }
    if (seconds == -1) {
        throw CommandError(kLibraryFailed, why);
    }
    print(context, {{"seconds", seconds}, {"time", isoTime(seconds)}});
    return kDone;
}

ExitCode zone(const Context &context, const TimeOptions &options) {
    if (options.zone.size() > kMaxZone) {
        throw CommandError(kUsage, "NAME must have at most 103 characters, not " +
                                       std::to_string(options.zone.size()));
    }
    context.requireConsent("changes the time zone of this machine");
    if (options.notify) {
        Context::startPanelProcess();
    }
    std::string why = "the link could not be made, or there is no such zone (see ozuctl's log)";
    int code = 0;
    {
        const LogTap tap([&why](const LoggedLine &line) {
            why = line.level >= OZULOG_WARNING ? line.text : why;
            return line.level >= OZULOG_WARNING ? std::string() : line.text;
        });
        code = applyTimeZone(options.zone.c_str(), options.notify ? 1 : 0);
    }
    if (code != 0) {
        throw CommandError(code == 70 ? kNo : kLibraryFailed, why);
    }
    print(context, {{"zone", options.zone.empty() ? "UTC" : options.zone}, {"notified", options.notify}});
    return kDone;
}

} // namespace

void registerTime(CLI::App &app, Context &context) {
    auto options = std::make_shared<TimeOptions>();
    CLI::App *time = app.add_subcommand("time", "Date texts as the panel reads them, and its time zone");
    time->require_subcommand(1);

    CLI::App *parsing = time->add_subcommand("parse", "Print the time that a text means");
    std::vector<std::string> names;
    names.reserve(kFormats.size());
    for (const auto &format : kFormats) {
        names.emplace_back(format.name);
    }
    addChecked(
        *parsing, "--format", "LAYOUT",
        [options, names](const std::string &what, const std::string &text) {
            options->format = requireWord(what, text, names);
        },
        layouts());
    parsing->add_option("TEXT", options->text, "The text")->required();
    parsing->callback(
        [options, &context] { context.command = [&context, options] { return parse(context, *options); }; });

    CLI::App *zoning = time->add_subcommand("zone", "Switch the panel's time zone");
    zoning->add_option("NAME", options->zone, "For example Europe/Berlin; an empty text for UTC")->required();
    zoning->add_flag("--notify", options->notify, "Tell all processes");
    zoning->callback(
        [options, &context] { context.command = [&context, options] { return zone(context, *options); }; });
}

} // namespace ozuctl

// ozuctl events: the system event log, and lines for it.

#include "arguments.h"
#include "codes.h"
#include "commands/commands.h"
#include "named_numbers.h"
#include "panel_messages.h"
#include "platform_errors.h"
#include "stopping.h"
#include "text.h"

#include <utils_ozu/partitions.h>

#include <ozu_platform_tools.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

constexpr int kMaxEvents = 1000;
constexpr auto kEventsLook = std::chrono::milliseconds(50);

struct EventsOptions {
    bool follow = false;
    std::size_t last = 0; // 0: all
    std::optional<int> category;
    double seconds = 0;
};

Json eventJson(const platform::SystemEvent &event) {
    return {{"id", event.id},
            {"time", isoTimeMilliseconds(event.timeMs)},
            {"process", event.process},
            {"pid", event.pid},
            {"category", coded(event.category, eventCategoryName(event.category))},
            {"subtype", event.subtype ? Json(*event.subtype) : Json(nullptr)},
            {"suppressed", event.suppressed},
            {"text", event.text}};
}

std::string eventText(const Json &event) {
    std::string text = plainText(event["time"]) + " " + plainText(event["process"]) + " " +
                       plainText(event["category"]) + ": " + plainText(event["text"]);
    if (event["suppressed"] != 0) {
        text += " (" + plainText(event["suppressed"]) + " suppressed before)";
    }
    return text;
}

// The events above an id that are asked for; the id moves on.
std::vector<Json> eventsAfter(std::int64_t &id, const EventsOptions &options) {
    std::vector<Json> found;
    std::vector<platform::SystemEvent> events;
    do {
        events.clear();
        const int code = platform::readEvents(id, kMaxEvents, events);
        if (code == platform::kNothingThere && options.follow) {
            return found; // the panel's first process is yet to come
        }
        if (code != 0) {
            throw platformFailure("cannot read the events", code);
        }
        for (const auto &event : events) {
            id = event.id;
            if (!options.category || *options.category == event.category) {
                found.push_back(eventJson(event));
            }
        }
    } while (events.size() == kMaxEvents);
    return found;
}

ExitCode follow(const Context &context, const EventsOptions &options, std::int64_t id) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
    stopOnSignals();
    while (!stopped() && (options.seconds <= 0 || std::chrono::steady_clock::now() < end)) {
        std::this_thread::sleep_for(kEventsLook);
        requireReader();
        for (const Json &event : eventsAfter(id, options)) {
            printRecord(context, event, eventText(event));
        }
    }
    return kDone;
}

ExitCode events(const Context &context, const EventsOptions &options) {
    std::int64_t id = 0;
    std::vector<Json> found = eventsAfter(id, options);
    if (options.last != 0 && found.size() > options.last) {
        found.erase(found.begin(), found.end() - static_cast<std::ptrdiff_t>(options.last));
    }
    if (context.json && !options.follow) {
        print(context, found);
        return kDone;
    }
    for (const Json &event : found) {
        printRecord(context, event, eventText(event));
    }
    return options.follow ? follow(context, options, id) : kDone;
}

// --- new lines ---

// A number or one of its names.
CLI::Option *addNamed(CLI::App &command, const char *name, unsigned &target, const NamedNumbers &(*names)(),
                      const char *help) {
    return addChecked(
        command, name, "N",
        [&target, names](const std::string &what, const std::string &text) {
            target = static_cast<unsigned>(requireNamed(what, text, 0, kMaxUnsigned, names()));
        },
        help);
}

struct Line {
    unsigned command = 0;
    unsigned partition = 0;
    std::string media;
    std::string action;
    std::string server;
    std::string iface;
    int result = 0;
    unsigned port = 0;
};

constexpr const char *kWrites = "writes to the panel's event log";

ExitCode written(const Context &context, int code) {
    if (code != 0) {
        throw CommandError(kLibraryFailed, "the line was not written (" + platformCode(code) + ")");
    }
    printChanged(context, "the event log");
    return kDone;
}

// Connects to a TCP port, writes the opening and the closing.
ExitCode addSocket(const Context &context, const Line &line) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(line.port));
    if (inet_pton(AF_INET, line.server.c_str(), &address.sin_addr) != 1) {
        throw CommandError(kUsage, "ADDRESS must be a dotted IPv4 address, not " + inQuotes(line.server));
    }
    context.requireConsent(kWrites);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected =
        fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    if (connected) {
        ozuutils_sysLogSocketPrinter(fd, 1);
        ozuutils_sysLogSocketPrinter(fd, 0);
    }
    if (fd >= 0) {
        close(fd);
    }
    if (!connected) {
        throw CommandError(kNo, "nothing listens on " + line.server + " port " + std::to_string(line.port));
    }
    printChanged(context, "the event log");
    return kDone;
}

void addWriters(CLI::App &events, Context &context) {
    CLI::App *add = events.add_subcommand("add", "Write a line as a panel process does");
    add->require_subcommand(1);
    auto line = std::make_shared<Line>();

    using Writer = int (*)(unsigned, unsigned, const char *);
    const auto addSecurity = [&](const char *word, const char *help, Writer writer) {
        CLI::App *command = add->add_subcommand(word, help);
        addNamed(*command, "NUMBER", line->command, securityCommands,
                 "Command or event, 0 to 19, or its name")
            ->required();
        addNamed(*command, "PARTITION", line->partition, partitions, "0 to 9, or its name")->required();
        command->add_option("MEDIA", line->media, "Where it came from")->required();
        command->callback([line, writer, &context] {
            context.command = [line, writer, &context] {
                context.requireConsent(kWrites);
                return written(context, writer(line->command, line->partition, line->media.c_str()));
            };
        });
    };
    addSecurity("command", "A security command", writeSecurityCmdToSystemLog);
    addSecurity("event", "A security event", writeSecurityEventToSystemLog);

    CLI::App *command = add->add_subcommand("http", "An HTTP request");
    command->add_option("ACTION", line->action, "For example GET")->required();
    command->add_option("SERVER", line->server, "Its name")->required();
    addNumber(*command, "RESULT", line->result, kLeastInt, kMaxInt,
              "HTTP status, or a code of the transfer library")
        ->required();
    command->add_option("IFACE", line->iface, "Network interface; by default none");
    command->callback([line, &context] {
        context.command = [line, &context] {
            context.requireConsent(kWrites);
            return written(context, ozuutils_sysLogHTTPSPrinter(line->action.c_str(), line->server.c_str(),
                                                                line->iface.c_str(), line->result));
        };
    });

    command = add->add_subcommand("socket", "Opening and closing of a connection that is made for it");
    command->add_option("ADDRESS", line->server, "IPv4 address")->required();
    addNumber(*command, "PORT", line->port, 0, 65535, "TCP port")->required();
    command->callback(
        [line, &context] { context.command = [line, &context] { return addSocket(context, *line); }; });
}

} // namespace

void registerEvents(CLI::App &app, Context &context) {
    auto options = std::make_shared<EventsOptions>();
    CLI::App *command = app.add_subcommand("events", "The system event log, oldest first");
    command->add_flag("-f,--follow", options->follow, "Continue with new events until interrupted");
    addNumber(*command, "-n,--last", options->last, 1, kMaxInt,
              "Only the last so many of those that are there");
    addChecked(
        *command, "--category", "N",
        [options](const std::string &what, const std::string &text) {
            options->category =
                static_cast<int>(requireNamed(what, text, kLeastInt, kMaxInt, eventCategories()));
        },
        "Only this category: number or name, e.g. 11 or ARM");
    addSeconds(*command, "--for", options->seconds, "With -f: stop after so many seconds");
    addWriters(*command, context);
    command->callback([options, command, &context] {
        if (command->get_subcommands().empty()) {
            context.command = [options, &context] { return events(context, *options); };
        }
    });
}

} // namespace ozuctl

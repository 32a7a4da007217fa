// ozuctl reboot, exec, ps, klog, uptime: the machine under the panel.

#include "arguments.h"
#include "commands/commands.h"
#include "log_tap.h"
#include "text.h"

#include <utils_ozu/command.h>
#include <utils_ozu/dates.h>
#include <utils_ozu/files.h>
#include <utils_ozu/kernel_log.h>
#include <utils_ozu/reboot.h>

#ifdef OZUCTL_REFERENCE_PLATFORM
#include <ozu_platform_tools.h>
#endif

#include <unistd.h>

#include <array>
#include <cstring>
#include <memory>
#include <optional>

namespace ozuctl {

#ifdef OZUCTL_REFERENCE_PLATFORM
namespace platform = ozu::platform;
#endif

namespace {

// --- reboot ---

struct Reboot {
    unsigned int delay = 0;
    int reason = 0;
    int wait = 30;
    std::string text;
};

ExitCode reboot(const Context &context, const Reboot &options) {
    context.requireConsent("reboots this machine");
    Context::startPanelProcess();
    ozuutils_RebootSystem(options.delay, options.reason, options.wait, options.text.c_str());
}

void addReboot(CLI::App &app, Context &context) {
    auto options = std::make_shared<Reboot>();
    CLI::App *command = app.add_subcommand(
        "reboot", "Reboot the panel in an orderly way: notify all processes, store the reason,\n"
                  "wait for unsent messages. Does not return");
    addNumber(*command, "--delay", options->delay, 0, kMaxUnsigned,
              "Seconds between the announcement and the reboot (0)");
    addNumber(*command, "--reason", options->reason, kLeastInt, kMaxInt,
              "Reason code (0); stored with --text only");
    addNumber(*command, "--wait", options->wait, kLeastInt, kMaxInt,
              "Longest wait for unsent messages, in seconds (30)");
    command->add_option("--text", options->text, "Reason as text, for the log");
    command->callback(
        [options, &context] { context.command = [&context, options] { return reboot(context, *options); }; });
}

// --- exec ---

struct Exec {
    int timeout = 10;
    std::string until;
    std::vector<std::string> words;
};

std::string commandLine(const std::vector<std::string> &words) {
    std::string line;
    for (const auto &word : words) {
        if (word.empty() || word.find(' ') != std::string::npos) {
            throw CommandError(kUsage, inQuotes(word) +
                                           ": a word cannot be empty or hold a space, there is no quoting");
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return line;
}

ExitCode exec(const Context &context, const Exec &options) {
    const std::string line = commandLine(options.words);
    std::array<char, EXEC_CMD_MAX_COMMAND + 1> output = {};
    // The library's lines go to standard error as they come: the program shares it.
    const char *marker = options.until.empty() ? nullptr : options.until.c_str();
    const int result = exec_cmd(line.c_str(), options.timeout, marker, output.data());
    const char *const outcomes[] = {"failed", "time is up", "output ended", "marker seen"};
    if (context.json) {
        print(context, {{"command", line},
                        {"result", coded(result, outcomes[result + 2])},
                        {"output", std::string(output.data())}});
    } else {
        writeLines(output.data());
    }
    if (result == 1) {
        return kDone;
    }
    if (result == -1) {
        throw CommandError(kTimedOut, "the time of " + std::to_string(options.timeout) + " s is up");
    }
    throw CommandError(kLibraryFailed, "the program could not be run or read (see the lines above)");
}

void addExec(CLI::App &app, Context &context) {
    auto options = std::make_shared<Exec>();
    CLI::App *command = app.add_subcommand(
        "exec", "Run a program without a shell until it prints a text or the time is up; prints what it\n"
                "printed with that text. Give the program after '--'");
    addNumber(*command, "--timeout", options->timeout, 0, kMaxInt, "Seconds (10)");
    command->add_option("--until", options->until, "The text to wait for");
    command->add_option("COMMAND", options->words, "Program and arguments, 18 words at most")->required();
    command->callback(
        [options, &context] { context.command = [&context, options] { return exec(context, *options); }; });
}

// --- ps ---

ExitCode findProcess(const Context &context, const std::string &name) {
    const int pid = ozuutils_findProcessId(name.c_str());
    print(context, {{"name", name}, {"pid", pid < 0 ? Json(nullptr) : Json(pid)}},
          pid < 0 ? "" : std::to_string(pid));
    return pid < 0 ? kNo : kDone;
}

void addPs(CLI::App &app, Context &context) {
    auto name = std::make_shared<std::string>();
    CLI::App *command = app.add_subcommand("ps", "Print the first process that was started under a name");
    refuseEmpty(
        command->add_option("NAME", *name, "First word of its command line, with its path if it has one")
            ->required());
    command->callback(
        [name, &context] { context.command = [&context, name] { return findProcess(context, *name); }; });
}

// --- klog ---

ExitCode findInKernelLog(const Context &context, const std::string &text) {
    const int size = get_ring_buffer_size();
    if (size <= 0) {
        throw CommandError(kLibraryFailed,
                           "the kernel log may not be read here; it takes the right to (CAP_SYSLOG)");
    }
    std::vector<char> buffer(static_cast<std::size_t>(size));
    std::string why;
    int found = 0;
    {
        const LogTap tap([&why](const LoggedLine &logged) {
            why = logged.text;
            return std::string();
        });
        found = locate_in_kernel_ring_buffer(buffer.data(), size, text.c_str());
    }
    if (found == 0 && why.find("failed") != std::string::npos) {
        throw CommandError(kLibraryFailed, why);
    }
    const char *line = found != 0 ? strstr(buffer.data(), text.c_str()) : nullptr;
    if (line == nullptr && found != 0) {
        line = text.c_str(); // longer than the line that the library cuts it to
    }
    print(context,
          {{"text", text}, {"found", found != 0}, {"line", line == nullptr ? Json(nullptr) : Json(line)}},
          line == nullptr ? "" : line);
    return found != 0 ? kDone : kNo;
}

void addKlog(CLI::App &app, Context &context) {
    auto text = std::make_shared<std::string>();
    CLI::App *klog = app.add_subcommand("klog", "The kernel's log");
    klog->require_subcommand(1);
    CLI::App *command = klog->add_subcommand("find", "Look for a text and print the rest of its line");
    refuseEmpty(command->add_option("TEXT", *text, "What to look for")->required());
    command->callback(
        [text, &context] { context.command = [&context, text] { return findInKernelLog(context, *text); }; });
}

// --- uptime ---

// The reason stored for the reboot that began this boot; null when there is none to be known. The first
// process of a boot makes it that of this boot: until then it stands as the next one's.
Json rebootReason() {
#ifdef OZUCTL_REFERENCE_PLATFORM
    std::optional<int> next;
    std::optional<int> last;
    std::string segment;
    if (access(platform::databaseFile().c_str(), R_OK) == 0 && platform::readRebootReasons(next, last) == 0) {
        const bool begun = platform::segmentFile(segment) != platform::kNotFound;
        const auto reason = begun ? last : next;
        return reason ? Json(*reason) : Json(nullptr);
    }
#endif
    return nullptr;
}

ExitCode uptime(const Context &context) {
    double seconds = 0;
    double idle = 0;
    if (utils_get_cp_uptime(&seconds, &idle) == 0) {
        throw CommandError(kLibraryFailed, "/proc/uptime cannot be read");
    }
    print(context, {{"uptime", seconds}, {"idle", idle}, {"rebootReason", rebootReason()}});
    return kDone;
}

void addUptime(CLI::App &app, Context &context) {
    app.add_subcommand(
           "uptime",
           "Seconds since boot, idle seconds of all processors together, and the reason of the last reboot")
        ->callback([&context] { context.command = [&context] { return uptime(context); }; });
}

} // namespace

void registerSystem(CLI::App &app, Context &context) {
    addReboot(app, context);
    addExec(app, context);
    addPs(app, context);
    addKlog(app, context);
    addUptime(app, context);
}

} // namespace ozuctl

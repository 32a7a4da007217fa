// ozulog.h: the log.

#include <ozulog.h>

#include "log.h"

#include "data_folder.h"
#include "errors.h"
#include "log_line.h"
#include "log_sinks.h"
#include "mqtt_session.h"
#include "own_file.h"
#include "settings.h"
#include "severity.h"
#include "shared_segment.h"

#include <fcntl.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

namespace ozu::platform {

namespace {

constexpr const char *kTimePattern = "%Y-%m-%dT%H:%M:%S.%eZ %v";
constexpr const char *kRemoteTopic = "Multicast/REMOTE_LOG";
constexpr const char *kOwnSource = "ozu_platform";
constexpr int kLevelStep = 10000;
constexpr int kEarlyLevel = OZULOG_CRITICAL;
constexpr int kDefaultLargest = 1024 * 1024;
constexpr int kDefaultOlderFiles = 4;

struct Log {
    std::mutex mutex; // of what is below, up to the numbers, and of the sinks
    std::string process;
    std::unique_ptr<spdlog::logger> logger;
    std::vector<std::string> early;  // what the platform had to say of itself before there was a file
    std::atomic<int> lowestLevel{0}; // everything is kept until ozulog_init
    std::atomic<std::uint32_t> settingsSeen{0};
    std::atomic<bool> opened{false};
};

// Never destroyed: lines are written until the process is gone.
Log &theLog() {
    static Log &log = *new Log;
    return log;
}

// A process that was started without standard error may open anything as descriptor 2 later on.
std::unique_ptr<spdlog::logger> makeLogger(std::vector<spdlog::sink_ptr> sinks) {
    if (fcntl(STDERR_FILENO, F_GETFD) >= 0) {
        sinks.push_back(std::make_shared<StandardErrorSink>());
    }
    auto logger = std::make_unique<spdlog::logger>("ozu", sinks.begin(), sinks.end());
    logger->set_level(spdlog::level::trace);
    logger->set_formatter(
        std::make_unique<spdlog::pattern_formatter>(kTimePattern, spdlog::pattern_time_type::utc, "\n"));
    return logger;
}

// True while this thread reads its severity: what that logs must not read it again.
thread_local bool readingSeverity = false;

int configuredLevel(const std::string &process) {
    const auto name = effectiveSeverity(process);
    return (name ? levelOfSeverity(*name) : std::nullopt).value_or(kDefaultLevel);
}

void followSeverity(Log &log) noexcept {
    const Segment *segment = mappedSegment();
    if (segment == nullptr || !log.opened.load(std::memory_order_acquire) || readingSeverity) {
        return;
    }
    const std::uint32_t changes = segment->header.settingsChanges.load(std::memory_order_acquire);
    if (log.settingsSeen.exchange(changes) == changes) {
        return;
    }
    readingSeverity = true;
    try {
        log.lowestLevel.store(configuredLevel(loggingName()));
    } catch (const std::exception &error) {
        note(OZULOG_ERROR, __func__, error.what()); // the severity stays as it was
    }
    readingSeverity = false;
}

bool kept(Log &log, int level) noexcept {
    followSeverity(log);
    return level >= log.lowestLevel.load(std::memory_order_relaxed);
}

// Lines that went to standard error alone, which a daemon has closed.
void keepEarlyLine(Log &log, int level, const std::string &line) {
    constexpr std::size_t kMaxEarlyLines = 64;
    if (!log.opened.load() && level >= kEarlyLevel && log.early.size() < kMaxEarlyLines) {
        log.early.push_back(line);
    }
}

void writeEarlyLines(Log &log, const spdlog::sink_ptr &file) {
    spdlog::logger logger("ozu", file);
    logger.set_formatter(
        std::make_unique<spdlog::pattern_formatter>(kTimePattern, spdlog::pattern_time_type::utc, "\n"));
    for (const std::string &line : log.early) {
        logger.info(spdlog::string_view_t(line));
    }
    log.early.clear();
}

void write(Log &log, int level, const LinePosition &position, std::string_view text) {
    const std::lock_guard guard(log.mutex);
    if (!log.logger) {
        log.logger = makeLogger({});
    }
    const std::string &process = log.process.empty() ? program_invocation_short_name : log.process;
    const std::string line = lineBody(level, process, getpid(), position, text);
    if (position.source == kOwnSource) {
        keepEarlyLine(log, level, line);
    }
    log.logger->log(spdlog::level::info, spdlog::string_view_t(line));
}

// Runs the body of a log call; the caller's errno is left alone.
template <class Body>
int logging(Body &&body) noexcept {
    const int error = errno;
    int result = 0;
    try {
        result = body();
    } catch (const std::exception &) {
        result = kInternal;
    }
    errno = error;
    return result;
}

void open(Log &log, const char *processName) {
    const std::string folder = folderPath() + "/log";
    requireFolder(folderPath());
    int largest = kDefaultLargest;
    int olderFiles = kDefaultOlderFiles;
    int level = kDefaultLevel;
    // From here on changes of the severity are seen, even one that comes while it is being read.
    if (const Segment *segment = trySharedSegment()) {
        log.settingsSeen.store(segment->header.settingsChanges.load());
    }
    try {
        largest = numericSetting("log.max_bytes", 4096, 1 << 30, kDefaultLargest);
        olderFiles = numericSetting("log.files", 0, 99, kDefaultOlderFiles);
        level = configuredLevel(processName);
    } catch (const Error &error) {
        note(OZULOG_ERROR, "ozulog_init", error.what()); // the log works without the database
    }
    const auto fileSink = std::make_shared<FileSink>(folder + "/" + processName + ".log",
                                                     static_cast<std::size_t>(largest), olderFiles);
    auto logger = makeLogger({fileSink});
    const std::lock_guard guard(log.mutex);
    writeEarlyLines(log, fileSink);
    log.process = processName;
    log.logger = std::move(logger);
    log.lowestLevel.store(level);
    log.opened.store(true, std::memory_order_release);
}

} // namespace

std::string loggingName() {
    Log &log = theLog();
    const std::lock_guard guard(log.mutex);
    return log.process.empty() ? program_invocation_short_name : log.process;
}

void lockLogForFork() noexcept {
    theLog().mutex.lock();
}

void unlockLogAfterFork() noexcept {
    theLog().mutex.unlock();
}

void forgetLog() noexcept {
    Log &log = theLog();
    const std::lock_guard guard(log.mutex);
    log.opened.store(false);
    log.lowestLevel.store(0);
    log.process.clear();
    log.early.clear();
    log.logger.reset();
}

void note(int level, const char *function, std::string_view text) noexcept {
    logging([&] {
        Log &log = theLog();
        if (level >= log.lowestLevel.load(std::memory_order_relaxed)) {
            write(log, level, {kOwnSource, function, 0}, text);
        }
        return 0;
    });
}

} // namespace ozu::platform

using namespace ozu::platform;

extern "C" {

int ozulog_init(const char *processName) {
    return guarded(__func__, [&]() -> int {
        if (!usableProcessName(processName)) {
            return kInvalidArgument;
        }
        open(theLog(), processName);
        return 0;
    });
}

int ozulog_printf(int level, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = logging([&] {
        if (kept(theLog(), level)) {
            write(theLog(), level, {}, formatText(format, arguments));
        }
        return 0;
    });
    va_end(arguments);
    return result;
}

int ozulog_printf_extend(int level, const char *format, const char *sourceFile, const char *functionName,
                         int line, ...) {
    std::va_list arguments;
    va_start(arguments, line);
    const int result = logging([&] {
        if (kept(theLog(), level)) {
            write(theLog(), level, {sourceFile != nullptr ? sourceFile : "-", functionName, line},
                  formatText(format, arguments));
        }
        return 0;
    });
    va_end(arguments);
    return result;
}

int ozulog_printf_mqtt_transmission(int level, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = logging([&] {
        if (!kept(theLog(), level)) {
            return 0;
        }
        const std::string text = formatText(format, arguments);
        write(theLog(), level, {}, text);
        return publishOnSession({kRemoteTopic, loggingName(), 0, level / kLevelStep,
                                 std::vector<unsigned char>(text.begin(), text.end())});
    });
    va_end(arguments);
    return result;
}

} // extern "C"

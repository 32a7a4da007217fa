#include "settings.h"

#include "data_folder.h"
#include "database_file.h"
#include "log.h"
#include "mqtt_session.h"
#include "schema.h"
#include "severity.h"
#include "shared_segment.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

namespace ozu::platform {

namespace {

constexpr int kKeptEvents = 10000;
// Limited event lines: so many of one category and subtype within the window, the others are counted.
constexpr int kLinesPerWindow = 5;
constexpr std::int64_t kWindowMs = 60000;
constexpr std::size_t kMaxEvent = 1024;

std::recursive_mutex databaseMutex;
DatabaseFile *database = nullptr;
pid_t databaseOwner = 0;

std::int64_t nowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

// A database that was emptied or removed is the loss of everything in it, which nobody would see from the
// tables.
void noteEmptied(const FolderLock &lock, const std::string &path) {
    struct stat found {};
    if (!makesNothing() && !lock.isNew() && (lstat(path.c_str(), &found) != 0 || found.st_size == 0)) {
        note(OZULOG_CRITICAL, "ozudb",
             "database " + path + " is missing or empty; all its tables start over");
    }
}

// A database whose last page is not whole, and whose log could not complete it, was cut off. SQLite takes
// what is missing for zeros.
void mendWhenCutOff(const std::string &path) {
    constexpr off_t kPageBytes = 4096;
    struct stat found {};
    struct stat log {};
    if (!makesNothing() && lstat(path.c_str(), &found) == 0 && S_ISREG(found.st_mode) &&
        found.st_size > kPageBytes && found.st_size % kPageBytes != 0 &&
        (lstat((path + "-wal").c_str(), &log) != 0 || log.st_size == 0)) {
        mendDatabase(path);
    }
}

// The open connection; the caller holds databaseMutex.
DatabaseFile &connection() {
    if (database != nullptr && databaseOwner != getpid()) {
        database->abandon(); // inherited over a fork; SQLite connections must not cross one
        delete database;
        database = nullptr;
    }
    if (database == nullptr) {
        const std::string folder = folderPath();
        FolderLock lock(folder);
        const std::string path = databasePath(folder);
        noteEmptied(lock, path);
        mendWhenCutOff(path);
        auto file = std::make_unique<DatabaseFile>(path);
        requireSchema(*file);
        lock.endNewness();
        database = file.release();
        databaseOwner = getpid();
    }
    return *database;
}

void closeConnection() noexcept {
    delete database;
    database = nullptr;
}

// A panel must start even with a database beyond repair: the file is kept for analysis.
void setAside(const std::string &path) {
    const std::string kept = path + ".damaged";
    if (std::rename(path.c_str(), kept.c_str()) != 0) {
        throw Error(codeOfErrno(errno), kept + ": " + std::strerror(errno));
    }
    for (const char *suffix : {"-wal", "-shm", "-journal"}) {
        static_cast<void>(std::rename((path + suffix).c_str(), (kept + suffix).c_str()));
    }
    note(OZULOG_CRITICAL, "ozudb",
         "database " + path + " is damaged beyond single tables; it is kept as " + kept);
}

// Damage costs the tables that have it. A file that is beyond that is left to the processes that use it; when
// no panel runs, none has it open. @return false when it stays as it is
bool mend() noexcept {
    try {
        closeConnection();
        const std::string folder = folderPath();
        const FolderLock lock(folder);
        try {
            mendDatabase(databasePath(folder));
        } catch (const Error &error) {
            if (error.code() != kCorrupt || !identityInUse(folder, {}).empty()) {
                throw;
            }
            setAside(databasePath(folder));
        }
        return true;
    } catch (const std::exception &) {
        return false; // what was wrong in the first place is told
    }
}

// Runs one operation. After a failure that may be the file's own fault the next one opens it again.
template <class Operation>
auto withDatabase(Operation operation) {
    const std::lock_guard guard(databaseMutex);
    try {
        return operation(connection());
    } catch (const Error &error) {
        if (error.code() != kCorrupt || makesNothing() || !mend()) {
            if (error.code() != kBusy && error.code() != kNotFound && error.code() != kDiskFull) {
                closeConnection();
            }
            throw;
        }
    }
    try {
        return operation(connection());
    } catch (const Error &) {
        closeConnection();
        throw;
    }
}

template <class Operation>
auto inTransaction(Operation operation) {
    return withDatabase([&](DatabaseFile &file) {
        Transaction transaction(file);
        if constexpr (std::is_void_v<decltype(operation(file))>) {
            operation(file);
            transaction.commit();
        } else {
            auto result = operation(file);
            transaction.commit();
            return result;
        }
    });
}

std::optional<std::string> firstText(DatabaseFile &file, const char *sql, const std::string &key) {
    auto query = file.prepare(sql);
    query.bind(key);
    return query.step() ? std::optional(query.text(0)) : std::nullopt;
}

// The process's own severity, else that of all others. A text that is no severity's name counts as absent;
// when that leaves nothing, the severity is the one of a new folder.
std::optional<std::string> configured(DatabaseFile &file, const std::string &process) {
    bool unusable = false;
    for (const std::string &key : {process, std::string(kAnyProcess)}) {
        auto severity = firstText(file, "SELECT severity FROM severities WHERE process = ?", key);
        if (severity && levelOfSeverity(*severity)) {
            return severity;
        }
        unusable |= severity.has_value();
    }
    return unusable ? std::optional<std::string>(kDefaultSeverity) : std::nullopt;
}

void insertEvent(DatabaseFile &file, int category, const std::optional<int> &subtype, const std::string &text,
                 int suppressed) {
    file.prepare("INSERT INTO system_events (time_ms, category, subtype, process, pid, text, suppressed) "
                 "VALUES (?, ?, ?, ?, ?, ?, ?)")
        .bind(nowMs())
        .bind(category)
        .bind(subtype)
        .bind(loggingName())
        .bind(getpid())
        .bind(text.substr(0, kMaxEvent))
        .bind(suppressed)
        .step();
    file.prepare("DELETE FROM system_events WHERE id <= (SELECT max(id) FROM system_events) - ?")
        .bind(kKeptEvents)
        .step();
}

void writeBypass(DatabaseFile &file, const LastingBypass &row) {
    file.prepare("INSERT OR REPLACE INTO bypass VALUES (?, ?, ?)")
        .bind(row.zone)
        .bind(row.bypassed)
        .bind(std::int64_t{row.expiry})
        .step();
}

void writeStatistics(DatabaseFile &file, const LastingStatistics &row) {
    auto insert = file.prepare("INSERT OR REPLACE INTO modem_statistics VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(row.modem);
    for (const std::uint16_t counter : row.counter) {
        insert.bind(int{counter});
    }
    insert.step();
}

// A fork must not catch the platform in the middle of an operation, or the child finds locks that nobody will
// open. They are taken in the order in which they nest. A recursive lock remembers its thread, which the
// child does not have: it gets a new one.
[[maybe_unused]] const int forkHandlers = pthread_atfork(
    [] {
        lockSegmentForFork();
        databaseMutex.lock();
        lockBusForFork();
        lockLogForFork();
    },
    [] {
        unlockLogAfterFork();
        unlockBusAfterFork();
        databaseMutex.unlock();
        unlockSegmentAfterFork();
    },
    [] {
        unlockLogAfterFork();
        renewBusInChild();
        new (&databaseMutex) std::recursive_mutex;
        unlockSegmentAfterFork();
    });

} // namespace

SettingsLock::SettingsLock() {
    databaseMutex.lock();
}

SettingsLock::~SettingsLock() {
    databaseMutex.unlock();
}

void openSettings() {
    withDatabase([](DatabaseFile &) {});
}

void forgetSettings() noexcept {
    const std::lock_guard guard(databaseMutex);
    closeConnection();
}

std::optional<std::string> configuredSeverity(const std::string &process) {
    return withDatabase([&](DatabaseFile &file) { return configured(file, process); });
}

std::optional<std::string> effectiveSeverity(const std::string &process) {
    return withDatabase([&](DatabaseFile &file) {
        auto registered = firstText(file, "SELECT severity FROM processes WHERE process = ?", process);
        return registered ? registered : configured(file, process);
    });
}

void registerProcess(const std::string &process, const std::string &severity, int pid) {
    inTransaction([&](DatabaseFile &file) {
        file.prepare("INSERT OR REPLACE INTO processes VALUES (?, ?, ?, ?)")
            .bind(process)
            .bind(severity)
            .bind(pid)
            .bind(nowMs())
            .step();
    });
}

std::vector<ProcessSeverity> allSeverities() {
    return withDatabase([](DatabaseFile &file) {
        std::vector<ProcessSeverity> rows;
        auto query = file.prepare("SELECT process, severity FROM severities ORDER BY process");
        while (query.step()) {
            rows.push_back({query.text(0), query.text(1)});
        }
        return rows;
    });
}

void storeSeverity(const std::string &process, const std::string &severity) {
    inTransaction([&](DatabaseFile &file) {
        file.prepare("INSERT OR REPLACE INTO severities VALUES (?, ?)").bind(process).bind(severity).step();
        // Running processes follow: the named one, or with "*" all that have no row of their own.
        if (process == kAnyProcess) {
            file.prepare(
                    "UPDATE processes SET severity = ? WHERE process NOT IN (SELECT process FROM severities)")
                .bind(severity)
                .step();
        } else {
            file.prepare("UPDATE processes SET severity = ? WHERE process = ?")
                .bind(severity)
                .bind(process)
                .step();
        }
    });
}

bool dropSeverity(const std::string &process) {
    return inTransaction([&](DatabaseFile &file) {
        file.prepare("DELETE FROM severities WHERE process = ?").bind(process).step();
        const bool existed = file.changes() > 0;
        const auto general = configured(file, process);
        if (existed && general) {
            file.prepare("UPDATE processes SET severity = ? WHERE process = ?")
                .bind(*general)
                .bind(process)
                .step();
        }
        return existed;
    });
}

std::vector<LoggedProcess> allProcesses() {
    return withDatabase([](DatabaseFile &file) {
        std::vector<LoggedProcess> rows;
        auto query = file.prepare("SELECT process, severity, pid, since_ms FROM processes ORDER BY process");
        while (query.step()) {
            const int pid = query.integer(2);
            rows.push_back(
                {query.text(0), query.text(1), pid, query.number(3), pid > 0 && kill(pid, 0) == 0});
        }
        return rows;
    });
}

void storeRebootReason(int reason) {
    inTransaction([&](DatabaseFile &file) {
        file.prepare("INSERT INTO reboot (id, next_reason) VALUES (1, ?) "
                     "ON CONFLICT (id) DO UPDATE SET next_reason = excluded.next_reason")
            .bind(reason)
            .step();
    });
}

std::pair<std::optional<int>, std::optional<int>> rebootReasons() {
    return withDatabase([](DatabaseFile &file) {
        std::pair<std::optional<int>, std::optional<int>> reasons;
        auto query = file.prepare("SELECT next_reason, last_reason FROM reboot");
        if (query.step()) {
            reasons.first = query.isNull(0) ? std::nullopt : std::optional(query.integer(0));
            reasons.second = query.isNull(1) ? std::nullopt : std::optional(query.integer(1));
        }
        return reasons;
    });
}

void beginBoot() {
    inTransaction([](DatabaseFile &file) {
        file.run("UPDATE reboot SET last_reason = next_reason, next_reason = NULL");
    });
}

LastingState readLastingState() {
    return withDatabase([](DatabaseFile &file) {
        LastingState lasting;
        auto bypass = file.prepare("SELECT zone, bypassed, expiry FROM bypass");
        while (bypass.step()) {
            lasting.bypass.push_back(
                {bypass.integer(0), bypass.integer(1), static_cast<std::uint32_t>(bypass.number(2))});
        }
        auto statistics = file.prepare("SELECT modem, c1, c2, c3, c4, c5, c6, c7, c8 FROM modem_statistics");
        while (statistics.step()) {
            auto &row = lasting.statistics.emplace_back();
            row.modem = statistics.integer(0);
            for (int i = 0; i < OZUDB_MODEM_COUNTERS; ++i) {
                row.counter[static_cast<std::size_t>(i)] =
                    static_cast<std::uint16_t>(statistics.number(i + 1));
            }
        }
        auto reboot = file.prepare("SELECT last_reason FROM reboot WHERE last_reason IS NOT NULL");
        if (reboot.step()) {
            lasting.rebootReason = reboot.integer(0);
        }
        return lasting;
    });
}

void applyLastingState(const LastingState &lasting, PanelSharedState &state) {
    for (const auto &row : lasting.bypass) {
        if (row.zone >= 0 && row.zone < OZUDB_ZONES) {
            auto &bypass = state.zones[row.zone].bypass[0];
            bypass.bypassed = static_cast<std::uint8_t>(row.bypassed);
            bypass.bypassExpiry = row.expiry;
        }
    }
    for (const auto &row : lasting.statistics) {
        if (row.modem == 0 || row.modem == 1) {
            auto &record = state.modemStatistics[statisticsPosition(row.modem)];
            std::memcpy(record.counter, row.counter.data(), sizeof(record.counter));
        }
    }
}

void storeBypass(const std::vector<LastingBypass> &rows) {
    storeLasting({rows, {}, {}});
}

void storeStatistics(const std::vector<LastingStatistics> &rows) {
    storeLasting({{}, rows, {}});
}

void storeLasting(const LastingState &rows) {
    inTransaction([&](DatabaseFile &file) {
        for (const auto &row : rows.bypass) {
            writeBypass(file, row);
        }
        for (const auto &row : rows.statistics) {
            writeStatistics(file, row);
        }
    });
}

void appendEvent(int category, const std::string &text) {
    inTransaction([&](DatabaseFile &file) { insertEvent(file, category, std::nullopt, text, 0); });
}

bool appendLimitedEvent(int category, int subtype, const std::string &text) {
    return inTransaction([&](DatabaseFile &file) {
        const std::int64_t now = nowMs();
        std::int64_t windowStart = now;
        int lines = 0;
        int suppressed = 0;
        auto query = file.prepare(
            "SELECT window_ms, lines, suppressed FROM event_limits WHERE category = ? AND subtype = ?");
        query.bind(category).bind(subtype);
        if (query.step()) {
            const std::int64_t start = query.number(0);
            suppressed = static_cast<int>(std::clamp<std::int64_t>(query.number(2), 0, INT_MAX - 1));
            // A clock that was set back begins a new window.
            if (now >= start && start > now - kWindowMs) {
                windowStart = start;
                lines = static_cast<int>(std::clamp<std::int64_t>(query.number(1), 0, kLinesPerWindow));
            }
        }
        const bool written = lines < kLinesPerWindow;
        if (written) {
            insertEvent(file, category, subtype, text, suppressed);
        }
        file.prepare("INSERT OR REPLACE INTO event_limits VALUES (?, ?, ?, ?, ?)")
            .bind(category)
            .bind(subtype)
            .bind(windowStart)
            .bind(written ? lines + 1 : lines)
            .bind(written ? 0 : suppressed + 1)
            .step();
        return written;
    });
}

std::vector<SystemEvent> eventsAfter(std::int64_t id, int limit) {
    return withDatabase([&](DatabaseFile &file) {
        std::vector<SystemEvent> rows;
        auto query = file.prepare("SELECT id, time_ms, category, subtype, pid, process, text, suppressed "
                                  "FROM system_events WHERE id > ? ORDER BY id LIMIT ?");
        query.bind(id).bind(limit);
        while (query.step()) {
            rows.push_back({query.number(0), query.number(1), query.integer(2),
                            query.isNull(3) ? std::nullopt : std::optional(query.integer(3)),
                            query.integer(4), query.text(5), query.text(6), query.integer(7)});
        }
        return rows;
    });
}

std::optional<std::string> setting(const std::string &name) {
    return withDatabase([&](DatabaseFile &file) {
        return firstText(file, "SELECT value FROM settings WHERE name = ?", name);
    });
}

int numericSetting(const std::string &name, int lowest, int highest, int otherwise) {
    const auto text = setting(name);
    if (!text) {
        return otherwise;
    }
    int value = 0;
    const char *end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, value);
    return error == std::errc() && stop == end && value >= lowest && value <= highest ? value : otherwise;
}

std::vector<Setting> allSettings() {
    return withDatabase([](DatabaseFile &file) {
        std::vector<Setting> rows;
        auto query = file.prepare("SELECT name, value FROM settings ORDER BY name");
        while (query.step()) {
            rows.push_back({query.text(0), query.text(1)});
        }
        return rows;
    });
}

void storeSetting(const std::string &name, const std::string &value) {
    inTransaction([&](DatabaseFile &file) {
        file.prepare("INSERT OR REPLACE INTO settings VALUES (?, ?)").bind(name).bind(value).step();
    });
}

} // namespace ozu::platform

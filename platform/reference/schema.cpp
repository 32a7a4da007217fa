#include "schema.h"

#include "data_folder.h"

#include <array>
#include <vector>

namespace ozu::platform {

namespace {

constexpr int kSchemaVersion = 1;

struct Table {
    const char *name;
    const char *make;      // how it is made, and how it must be found
    const char *firstRows; // what it begins with
};

constexpr std::array<Table, 8> kTables{{
    {"severities", "CREATE TABLE severities (process TEXT PRIMARY KEY, severity TEXT NOT NULL) WITHOUT ROWID",
     "INSERT INTO severities VALUES ('*', 'INFO')"},
    {"processes",
     "CREATE TABLE processes (process TEXT PRIMARY KEY, severity TEXT NOT NULL, pid INTEGER NOT NULL, "
     "since_ms INTEGER NOT NULL) WITHOUT ROWID",
     ""},
    {"reboot",
     "CREATE TABLE reboot (id INTEGER PRIMARY KEY CHECK (id = 1), next_reason INTEGER, last_reason INTEGER)",
     "INSERT INTO reboot VALUES (1, NULL, NULL)"},
    {"modem_statistics",
     "CREATE TABLE modem_statistics (modem INTEGER PRIMARY KEY CHECK (modem IN (0, 1)), "
     "c1 INTEGER NOT NULL, c2 INTEGER NOT NULL, c3 INTEGER NOT NULL, c4 INTEGER NOT NULL, "
     "c5 INTEGER NOT NULL, c6 INTEGER NOT NULL, c7 INTEGER NOT NULL, c8 INTEGER NOT NULL)",
     ""},
    {"bypass",
     "CREATE TABLE bypass (zone INTEGER PRIMARY KEY CHECK (zone BETWEEN 0 AND 255), "
     "bypassed INTEGER NOT NULL, expiry INTEGER NOT NULL)",
     ""},
    {"system_events",
     "CREATE TABLE system_events (id INTEGER PRIMARY KEY AUTOINCREMENT, time_ms INTEGER NOT NULL, "
     "category INTEGER NOT NULL, subtype INTEGER, process TEXT NOT NULL, pid INTEGER NOT NULL, "
     "text TEXT NOT NULL, suppressed INTEGER NOT NULL)",
     ""},
    {"event_limits",
     "CREATE TABLE event_limits (category INTEGER NOT NULL, subtype INTEGER NOT NULL, "
     "window_ms INTEGER NOT NULL, lines INTEGER NOT NULL, suppressed INTEGER NOT NULL, "
     "PRIMARY KEY (category, subtype)) WITHOUT ROWID",
     ""},
    {"settings", "CREATE TABLE settings (name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID", ""},
}};

// SQLite's own table behind the increasing numbers of events; it goes by the highest number where there is
// none.
constexpr const char *kCounters = "sqlite_sequence";

void noteLoss(const std::string &table, const char *what) {
    note(OZULOG_CRITICAL, "ozudb",
         "table " + table + " of the database " + what + "; it starts over, its content is lost");
}

void make(DatabaseFile &file, const Table &table) {
    file.run(table.make);
    file.run(table.firstRows);
}

// The database is there and sound as far as this question goes; other failures than damage are thrown.
template <class Question>
bool isSound(Question &&question) {
    try {
        return question();
    } catch (const Error &error) {
        if (error.code() != kCorrupt) {
            throw;
        }
        return false;
    }
}

// Its definition is the one it was made by. The right columns are not enough: without its types and keys it
// would take rows twice, and with one more it would take none.
bool isShaped(DatabaseFile &file, const Table &table) {
    return isSound([&] {
        auto query = file.prepare("SELECT sql FROM sqlite_schema WHERE type = 'table' AND name = ?");
        query.bind(std::string_view(table.name));
        return query.step() && query.text(0) == table.make;
    });
}

// A connection of its own for each table: a connection that met damage is not used for anything else.
bool canBeRead(const std::string &path, const std::string &table) {
    return isSound([&] {
        DatabaseFile file(path, ForRepair{});
        auto check = file.prepare(("PRAGMA integrity_check('" + table + "')").c_str());
        return check.step() && check.text(0) == "ok";
    });
}

bool canBeRead(const std::string &path, const Table &table) {
    const bool shaped = isSound([&] {
        DatabaseFile file(path, ForRepair{});
        return isShaped(file, table);
    });
    return shaped && canBeRead(path, std::string(table.name));
}

// Takes a table out of the list of tables. Dropping it would mean to read it.
void forget(DatabaseFile &file, const char *table) {
    file.prepare("DELETE FROM sqlite_schema WHERE tbl_name = ?").bind(std::string_view(table)).step();
}

void replace(DatabaseFile &file, const std::vector<const Table *> &damaged, bool counters) {
    Transaction transaction(file);
    for (const Table *table : damaged) {
        forget(file, table->name);
    }
    if (counters) {
        forget(file, kCounters);
    }
    file.run("PRAGMA writable_schema=RESET");
    for (const Table *table : damaged) {
        make(file, *table);
    }
    if (counters) { // comes back with the first table that counts
        file.run("CREATE TABLE mender (id INTEGER PRIMARY KEY AUTOINCREMENT); DROP TABLE mender");
    }
    file.run(("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str());
    transaction.commit();
}

} // namespace

void requireSchema(DatabaseFile &file) {
    const std::int64_t version = file.number("PRAGMA user_version");
    if (version > kSchemaVersion) {
        throw Error(kWrongVersion, "the database was written by a newer release (version " +
                                       std::to_string(version) + "): run that release, or restore a copy");
    }
    std::vector<const Table *> missing;
    for (const Table &table : kTables) {
        if (!isShaped(file, table)) {
            missing.push_back(&table);
        }
    }
    if (missing.empty() && version == kSchemaVersion) {
        return;
    }
    if (makesNothing() && missing.size() < kTables.size()) {
        return; // who only looks sees the tables that are left
    }
    requireMaking("the tables of the database");
    const bool isNew = file.number("SELECT count(*) FROM sqlite_schema") == 0;
    for (const Table *table : missing) {
        if (!isNew) {
            noteLoss(table->name, "is missing or has another shape");
        }
    }
    DatabaseFile repair(file.path(), ForRepair{});
    replace(repair, missing, false);
    if (!isNew) {
        repair.run("VACUUM"); // what was in their place goes
    }
}

void mendDatabase(const std::string &path) {
    std::vector<const Table *> damaged;
    for (const Table &table : kTables) {
        if (!canBeRead(path, table)) {
            damaged.push_back(&table);
        }
    }
    const bool counters = !canBeRead(path, std::string(kCounters));
    DatabaseFile file(path, ForRepair{});
    replace(file, damaged, counters);
    for (const Table *table : damaged) {
        noteLoss(table->name, "is damaged");
    }
    if (counters) {
        noteLoss(kCounters, "is damaged");
    }
    file.run("VACUUM"); // what the lost tables had, and a damaged list of free pages, go with it
}

} // namespace ozu::platform

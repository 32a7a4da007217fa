#include "schema.h"

#include "data_folder.h"

#include <algorithm>
#include <array>
#include <string>
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
        auto query = file.prepare("SELECT sql FROM sqlite_schema WHERE name = ? COLLATE NOCASE");
        query.bind(std::string_view(table.name));
        return query.step() && query.text(0) == table.make && !query.step();
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

// Takes a table, and whatever else has its name, out of the list of tables. Dropping it would mean to read
// it.
void forget(DatabaseFile &file, const char *table) {
    file.prepare("DELETE FROM sqlite_schema "
                 "WHERE tbl_name = ?1 COLLATE NOCASE OR name = ?1 COLLATE NOCASE")
        .bind(std::string_view(table))
        .step();
}

// A row of the list of tables that somebody else has made.
struct Stranger {
    std::int64_t row;
    std::string what;
};

bool isOurs(const std::string &table) {
    return std::any_of(kTables.begin(), kTables.end(),
                       [&](const Table &own) { return sqlite3_stricmp(own.name, table.c_str()) == 0; });
}

// What others have made and must not stay: an index of one of our tables, which might let a row in only for
// another one; in a damaged file, whatever cannot be checked.
std::vector<Stranger> strangersInTheWay(DatabaseFile &file, bool damaged) {
    std::vector<Stranger> found;
    auto rows = file.prepare("SELECT rowid, type, name, tbl_name, sql IS NULL FROM sqlite_schema");
    while (rows.step()) {
        const std::string type = rows.text(1);
        const std::string table = rows.text(3);
        const bool isIndex = type == "index";
        bool inTheWay = false;
        if (isOurs(table)) {
            const bool isOwn = rows.number(4) != 0 || type == "table";
            inTheWay = !isOwn && (damaged || isIndex);
        } else {
            inTheWay = damaged && !((isIndex || type == "table") && canBeRead(file.path(), table));
        }
        if (inTheWay) {
            found.push_back({rows.number(0), type + " " + rows.text(2)});
        }
    }
    return found;
}

void forget(DatabaseFile &file, const std::vector<Stranger> &strangers) {
    for (const Stranger &stranger : strangers) {
        file.prepare("DELETE FROM sqlite_schema WHERE rowid = ?").bind(stranger.row).step();
        note(OZULOG_CRITICAL, "ozudb",
             stranger.what + " is not the platform's and is in its way; it is removed from the database");
    }
}

void replace(DatabaseFile &file, const std::vector<const Table *> &damaged,
             const std::vector<Stranger> &strangers, bool counters) {
    Transaction transaction(file);
    forget(file, strangers);
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

// Events are numbered upwards. One with a number near the end would be the last that the table takes.
void requireNumbers(DatabaseFile &file) {
    if (file.number("SELECT max((SELECT ifnull(max(id), 0) FROM system_events), "
                    "(SELECT ifnull(max(CAST(seq AS INTEGER)), 0) FROM sqlite_sequence "
                    "WHERE name = 'system_events')) >> 62") <= 0 ||
        makesNothing()) {
        return;
    }
    Transaction transaction(file);
    file.run("DELETE FROM system_events WHERE id >> 62 > 0");
    file.run("UPDATE sqlite_sequence SET seq = (SELECT ifnull(max(id), 0) FROM system_events) "
             "WHERE name = 'system_events'");
    transaction.commit();
    note(OZULOG_CRITICAL, "ozudb",
         "table system_events of the database had no numbers left; its events beyond 2^62 are lost");
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
    const std::vector<Stranger> strangers = strangersInTheWay(file, false);
    if (missing.empty() && strangers.empty() && version == kSchemaVersion) {
        requireNumbers(file);
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
    replace(repair, missing, strangers, false);
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
    replace(file, damaged, strangersInTheWay(file, true), counters);
    for (const Table *table : damaged) {
        noteLoss(table->name, "is damaged");
    }
    if (counters) {
        noteLoss(kCounters, "is damaged");
    }
    file.run("VACUUM"); // what the lost tables had, and a damaged list of free pages, go with it
}

} // namespace ozu::platform

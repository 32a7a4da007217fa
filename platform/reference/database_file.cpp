#include "database_file.h"

#include "data_folder.h"
#include "own_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace ozu::platform {

namespace {

constexpr int kBusyMilliseconds = 5000;

Code codeOfResult(int extended, int systemError) noexcept {
    switch (extended & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return kBusy;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return kReadOnly;
    case SQLITE_FULL:
        return kDiskFull;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_SCHEMA:
    case SQLITE_ERROR: // our statements are right: a table is missing, or has another shape
        return kCorrupt;
    case SQLITE_CANTOPEN:
        return systemError == 0 ? kCannotOpen : codeOfErrno(systemError);
    case SQLITE_IOERR:
        return systemError == ENOSPC || systemError == EDQUOT || systemError == EROFS
                   ? codeOfErrno(systemError)
                   : kInputOutput;
    case SQLITE_NOMEM:
        return kOutOfMemory;
    default:
        return kInternal;
    }
}

// The file is made by us, so that it never exists with other rights; its log files take over its mode. SQLite
// opens all four by name: nothing of somebody else's may be there.
void requireFiles(const std::string &path) {
    for (const char *suffix : {"-wal", "-shm", "-journal"}) {
        requireOwnFileOrNone(path + suffix);
    }
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) {
        requireMaking("database " + path);
    }
    Descriptor file;
    try {
        file = openOwnFile(path, O_RDWR | O_CREAT);
    } catch (const Error &error) {
        throw Error(error.code(), std::string("database ") + error.what());
    }
    if (closeToOthers(file.get())) {
        note(OZULOG_WARNING, "ozudb", path + " was open to other users; it is no longer");
    }
}

} // namespace

DatabaseFile::DatabaseFile(std::string path) : path_(std::move(path)) {
    open();
    sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    run("PRAGMA journal_mode=WAL");
    run("PRAGMA synchronous=FULL");
    run("PRAGMA foreign_keys=ON");
}

DatabaseFile::DatabaseFile(std::string path, ForRepair /*repair*/) : path_(std::move(path)) {
    open();
    sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr);
    run("PRAGMA writable_schema=ON");
    run("PRAGMA synchronous=FULL");
    run("PRAGMA temp_store=MEMORY");
}

void DatabaseFile::open() {
    requireFiles(path_);
    sqlite3 *handle = nullptr;
    const int result =
        sqlite3_open_v2(path_.c_str(), &handle,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX | SQLITE_OPEN_PRIVATECACHE, nullptr);
    handle_.reset(handle);
    if (result != SQLITE_OK) {
        fail("open");
    }
    sqlite3_extended_result_codes(handle, 1);
    sqlite3_busy_timeout(handle, kBusyMilliseconds);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr); // none is the platform's
}

void DatabaseFile::fail(const std::string &what) const {
    const int extended = handle_ ? sqlite3_extended_errcode(handle_.get()) : SQLITE_NOMEM;
    const int systemError = handle_ ? sqlite3_system_errno(handle_.get()) : 0;
    const char *text = handle_ ? sqlite3_errmsg(handle_.get()) : "out of memory";
    const Code code = codeOfResult(extended, systemError);
    std::string message = "database " + path_ + ": " + what + ": " + text;
    if (code == kCorrupt) {
        message += "; stop all panel processes, move the file and its -wal and -shm away, restore a copy";
    }
    throw Error(code, message);
}

void DatabaseFile::run(const char *sql) {
    if (sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(std::string(sql).substr(0, 40));
    }
}

Statement DatabaseFile::prepare(const char *sql) {
    return {*this, sql};
}

std::int64_t DatabaseFile::number(const char *sql) {
    auto query = prepare(sql);
    return query.step() ? query.number(0) : 0;
}

Statement::Statement(DatabaseFile &file, const char *sql) : file_(file) {
    sqlite3_stmt *statement = nullptr;
    check(sqlite3_prepare_v2(file.handle_.get(), sql, -1, &statement, nullptr));
    statement_.reset(statement);
}

void Statement::check(int result) const {
    if (result != SQLITE_OK) {
        const char *sql = statement_ ? sqlite3_sql(statement_.get()) : nullptr;
        file_.fail(sql != nullptr ? std::string(sql).substr(0, 40) : "statement");
    }
}

Statement &Statement::bind(std::int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), ++bound_, value));
    return *this;
}

Statement &Statement::bind(std::string_view value) {
    check(sqlite3_bind_text64(statement_.get(), ++bound_, value.data(), value.size(), SQLITE_TRANSIENT,
                              SQLITE_UTF8));
    return *this;
}

Statement &Statement::bind(const std::optional<int> &value) {
    if (value) {
        return bind(std::int64_t{*value});
    }
    check(sqlite3_bind_null(statement_.get(), ++bound_));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) {
        return true;
    }
    check(result == SQLITE_DONE ? SQLITE_OK : result);
    return false;
}

std::int64_t Statement::number(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string Statement::text(int column) const {
    // As UTF-8, whatever the file's own encoding. Converts, so the size comes after it.
    const unsigned char *bytes = sqlite3_column_text(statement_.get(), column);
    const int size = sqlite3_column_bytes(statement_.get(), column);
    return bytes == nullptr ? std::string() : std::string(bytes, bytes + size);
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

Transaction::~Transaction() {
    if (open_) {
        try {
            file_.run("ROLLBACK");
        } catch (const Error &) {
            // SQLite has rolled back by itself already.
            open_ = false;
        }
    }
}

void Transaction::commit() {
    file_.run("COMMIT");
    open_ = false;
}

} // namespace ozu::platform

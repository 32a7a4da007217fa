// A thin owning layer over SQLite's C interface. Every failure is an Error.
#pragma once

#include "errors.h"

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ozu::platform {

class Statement;

struct ForRepair {};

class DatabaseFile {
  public:
    // Opens or creates the file with the settings that every connection of the platform uses.
    explicit DatabaseFile(std::string path);
    // Opens a file that may be damaged, in such a way that its list of tables can be changed.
    DatabaseFile(std::string path, ForRepair repair);

    void run(const char *sql);
    [[nodiscard]] Statement prepare(const char *sql);
    [[nodiscard]] std::int64_t number(const char *sql); // first column of the first row
    [[nodiscard]] int changes() const noexcept { return sqlite3_changes(handle_.get()); }
    // Forgets the connection without touching the file, in a child process that inherited it.
    void abandon() noexcept { static_cast<void>(handle_.release()); }
    [[nodiscard]] const std::string &path() const noexcept { return path_; }
    [[noreturn]] void fail(const std::string &what) const;

  private:
    friend class Statement;
    void open();
    struct Close {
        void operator()(sqlite3 *handle) const noexcept { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Close> handle_;
    std::string path_;
};

class Statement {
  public:
    Statement(DatabaseFile &file, const char *sql);

    Statement &bind(std::int64_t value);
    Statement &bind(int value) { return bind(std::int64_t{value}); }
    Statement &bind(std::string_view value);
    Statement &bind(const std::optional<int> &value);
    // Moves to the next row; false after the last one.
    bool step();
    [[nodiscard]] std::int64_t number(int column) const;
    [[nodiscard]] int integer(int column) const { return static_cast<int>(number(column)); }
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] bool isNull(int column) const;

  private:
    void check(int result) const;
    struct Finalise {
        void operator()(sqlite3_stmt *statement) const noexcept { sqlite3_finalize(statement); }
    };
    DatabaseFile &file_;
    std::unique_ptr<sqlite3_stmt, Finalise> statement_;
    int bound_ = 0;
};

// Takes the write lock at once; rolls back unless committed.
class Transaction {
  public:
    explicit Transaction(DatabaseFile &file) : file_(file) { file_.run("BEGIN IMMEDIATE"); }
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    void commit();

  private:
    DatabaseFile &file_;
    bool open_ = true;
};

} // namespace ozu::platform

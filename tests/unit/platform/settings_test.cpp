// What lasts: severities, registrations, reboot reason, statistics, bypass, events, settings; and how a
// damaged, read-only or full database is reported.

#include "captured.h"
#include "data_folders.h"
#include "panel_folder.h"

#include "database_file.h"

#include <ozudb.h>
#include <ozulog.h>
#include <product_info.h>
#include <sqlite3.h>
#include <system_event_log.h>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno> // program_invocation_short_name
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

using namespace ozu::platform;
using namespace ozu::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Settings : public PanelFolder {
  protected:
    static std::string severityOf(const char *process) {
        std::array<char, 9> name{};
        EXPECT_EQ(ozudb_getSeverityNameByProcName(name.data(), 8, process), 0);
        return name.data();
    }
    static std::string query(const std::string &sql) {
        sqlite3 *handle = nullptr;
        std::string answer;
        EXPECT_EQ(sqlite3_open_v2(databaseFile().c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr),
                  SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(
                      handle, sql.c_str(),
                      [](void *out, int count, char **values, char **) {
                          for (int i = 0; i < count; ++i) {
                              *static_cast<std::string *>(out) +=
                                  std::string(values[i] ? values[i] : "NULL") + " ";
                          }
                          return 0;
                      },
                      &answer, nullptr),
                  SQLITE_OK)
            << sql << ": " << sqlite3_errmsg(handle);
        sqlite3_close(handle);
        return answer;
    }
};

mode_t modeOf(const std::string &path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
}

} // namespace

TEST_F(Settings, processWithoutRowHasTheGeneralSeverity) {
    EXPECT_EQ(severityOf("alarmd"), "INFO");
    ASSERT_EQ(setSeverity("alarmd", "CRITICAL"), 0);
    EXPECT_EQ(severityOf("alarmd"), "CRITICAL");
    ASSERT_EQ(setSeverity("*", "DEBUG"), 0);
    EXPECT_EQ(severityOf("other"), "DEBUG");
    EXPECT_EQ(severityOf("alarmd"), "CRITICAL");
}

TEST_F(Settings, withoutAnyRowTheSeverityIsNotFound) {
    ASSERT_EQ(removeSeverity("*"), 0);
    EXPECT_EQ(removeSeverity("*"), kNotFound);
    std::array<char, 8> name{};
    name.fill('#');
    EXPECT_EQ(ozudb_getSeverityNameByProcName(name.data(), 8, "alarmd"), kNotFound);
    EXPECT_EQ(std::string(name.data(), name.size()), "########");
}

TEST_F(Settings, severityFillsItsRoomExactly) {
    ASSERT_EQ(setSeverity("alarmd", "CRITICAL"), 0);
    std::array<char, 9> name{};
    name.fill('#');
    EXPECT_EQ(ozudb_getSeverityNameByProcName(name.data(), 8, "alarmd"), 0);
    EXPECT_EQ(std::string(name.data(), name.size()), "CRITICAL#");
    ASSERT_EQ(setSeverity("alarmd", "OFF"), 0);
    name.fill('#');
    EXPECT_EQ(ozudb_getSeverityNameByProcName(name.data(), 8, "alarmd"), 0);
    EXPECT_EQ(std::string(name.data(), name.size()), std::string("OFF\0\0\0\0\0#", 9));
}

TEST_F(Settings, argumentsAreChecked) {
    std::array<char, 8> name{};
    EXPECT_EQ(ozudb_getSeverityNameByProcName(nullptr, 8, "a"), kInvalidArgument);
    EXPECT_EQ(ozudb_getSeverityNameByProcName(name.data(), 0, "a"), kInvalidArgument);
    EXPECT_EQ(ozudb_getSeverityNameByProcName(name.data(), 8, nullptr), kInvalidArgument);
    for (const char *bad : {"", ".", "../x", "a/b", "a\nb"}) {
        EXPECT_EQ(ozudb_getSeverityNameByProcName(name.data(), 8, bad), kInvalidArgument) << bad;
        EXPECT_EQ(ozudb_addProc2Log(bad, "INFO", 1), kInvalidArgument) << bad;
        EXPECT_EQ(ozulog_init(bad), kInvalidArgument) << bad;
    }
    EXPECT_EQ(ozudb_addProc2Log("a", "LOUD", 1), kInvalidArgument);
    EXPECT_EQ(ozudb_addProc2Log("a", nullptr, 1), kInvalidArgument);
    EXPECT_EQ(ozudb_addProc2Log("a", "INFO", 0), kInvalidArgument);
    EXPECT_EQ(ozudb_isInFlightData(nullptr), kInvalidArgument);
    EXPECT_EQ(ozudb_ModifyBypassExpiry(-1, 0, -1), kInvalidArgument);
    EXPECT_EQ(ozudb_ModifyBypassExpiry(256, 0, -1), kInvalidArgument);
    EXPECT_EQ(ozudb_ModifyBypassExpiry(0, 2, -1), kInvalidArgument);
    EXPECT_EQ(ozudb_ModifyModemStatistics(1, 1, 1, 1, 1, 1, 1, 1, 2), kInvalidArgument);
    EXPECT_EQ(ozudb_ModifyModemStatistics(1, 1, 1, 1, 1, 1, 1, 1, -1), kInvalidArgument);
    EXPECT_EQ(LOG_system_event(1, nullptr), kInvalidArgument);
    EXPECT_EQ(limited_log_system_event(1, 1, nullptr), kInvalidArgument);
    EXPECT_EQ(setSeverity("a", "LOUD"), kInvalidArgument);
}

TEST_F(Settings, processesAreRegisteredOnce) {
    ASSERT_EQ(ozudb_addProc2Log("alarmd", "INFO", 1), 0);
    ASSERT_EQ(ozudb_addProc2Log("alarmd", "DEBUG", getpid()), 0);
    std::vector<LoggedProcess> processes;
    ASSERT_EQ(listProcesses(processes), 0);
    ASSERT_EQ(processes.size(), 1U);
    EXPECT_EQ(processes[0].process, "alarmd");
    EXPECT_EQ(processes[0].severity, "DEBUG");
    EXPECT_EQ(processes[0].pid, getpid());
    EXPECT_TRUE(processes[0].running);
}

TEST_F(Settings, changedSeverityReachesRegisteredProcesses) {
    ASSERT_EQ(ozudb_addProc2Log("own", "INFO", getpid()), 0);
    ASSERT_EQ(ozudb_addProc2Log("general", "INFO", getpid()), 0);
    ASSERT_EQ(setSeverity("own", "TRACE"), 0);
    ASSERT_EQ(setSeverity("*", "ERROR"), 0);
    std::map<std::string, std::string> severities;
    std::vector<LoggedProcess> processes;
    ASSERT_EQ(listProcesses(processes), 0);
    for (const auto &row : processes) {
        severities[row.process] = row.severity;
    }
    EXPECT_EQ(severities["own"], "TRACE");
    EXPECT_EQ(severities["general"], "ERROR");
    ASSERT_EQ(removeSeverity("own"), 0);
    ASSERT_EQ(listProcesses(processes), 0);
    EXPECT_EQ(processes[1].severity, "ERROR");
}

TEST_F(Settings, bypassGoesToRecordAndDatabase) {
    ASSERT_EQ(ozudb_ModifyBypassExpiry(255, 1, 1700000000), 0);
    const PanelSharedState *state = ozudb_getSharedMemory(0);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->zones[255].bypass[0].bypassed, 1);
    EXPECT_EQ(state->zones[255].bypass[0].bypassExpiry, 1700000000U);
    EXPECT_EQ(state->zones[255].bypass[1].bypassed, 0);
    EXPECT_EQ(query("SELECT * FROM bypass"), "255 1 1700000000 ");
    ASSERT_EQ(ozudb_ModifyBypassExpiry(255, 0, -1), 0);
    EXPECT_EQ(state->zones[255].bypass[0].bypassed, 0);
    EXPECT_EQ(state->zones[255].bypass[0].bypassExpiry, OZUDB_BYPASS_FOREVER);
    EXPECT_EQ(query("SELECT * FROM bypass"), "255 0 4294967295 ");
}

TEST_F(Settings, modemOneIsTheFirstStatisticsRecord) {
    ASSERT_EQ(ozudb_ModifyModemStatistics(1, 2, 3, 4, 5, 6, 7, 65535, 1), 0);
    ASSERT_EQ(ozudb_ModifyModemStatistics(11, 12, 13, 14, 15, 16, 17, 18, 0), 0);
    const PanelSharedState *state = ozudb_getSharedMemory(0);
    EXPECT_THAT(state->modemStatistics[0].counter, ElementsAre(1, 2, 3, 4, 5, 6, 7, 65535));
    EXPECT_THAT(state->modemStatistics[1].counter, ElementsAre(11, 12, 13, 14, 15, 16, 17, 18));
    EXPECT_EQ(query("SELECT * FROM modem_statistics ORDER BY modem"),
              "0 11 12 13 14 15 16 17 18 1 1 2 3 4 5 6 7 65535 ");
}

TEST_F(Settings, rebootReasonBecomesThatOfTheNextBoot) {
    std::optional<int> next;
    std::optional<int> last;
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    ASSERT_EQ(ozudb_updatePanelRebootReason(-7), 0);
    ASSERT_EQ(readRebootReasons(next, last), 0);
    EXPECT_EQ(next, -7);
    EXPECT_EQ(last, std::nullopt);
    boot();
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    ASSERT_EQ(readRebootReasons(next, last), 0);
    EXPECT_EQ(next, std::nullopt);
    EXPECT_EQ(last, -7);
}

TEST_F(Settings, productCodeIsASetting) {
    EXPECT_EQ(getProductCodename(), 0);
    ASSERT_EQ(setSetting("product.code", "1"), 0);
    EXPECT_EQ(getProductCodename(), 1);
    ASSERT_EQ(setSetting("product.code", "-3"), 0);
    EXPECT_EQ(getProductCodename(), -3);
    ASSERT_EQ(setSetting("product.code", "1x"), 0);
    EXPECT_EQ(getProductCodename(), 0);
    std::vector<Setting> settings;
    ASSERT_EQ(listSettings(settings), 0);
    ASSERT_EQ(settings.size(), 1U);
    EXPECT_EQ(settings[0].value, "1x");
}

TEST_F(Settings, eventsAreKeptInOrder) {
    ASSERT_EQ(LOG_system_event(7, "first"), 0);
    ASSERT_EQ(limited_log_system_event(7, 3, "second"), 0);
    ASSERT_EQ(LOG_system_event(-1, ""), 0);
    std::vector<SystemEvent> events;
    ASSERT_EQ(readEvents(0, 100, events), 0);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].text, "first");
    EXPECT_EQ(events[0].category, 7);
    EXPECT_EQ(events[0].subtype, std::nullopt);
    EXPECT_EQ(events[0].pid, getpid());
    EXPECT_EQ(events[1].subtype, 3);
    EXPECT_EQ(events[2].category, -1);
    ASSERT_EQ(readEvents(events[1].id, 100, events), 0);
    EXPECT_EQ(events.size(), 1U);
}

TEST_F(Settings, eventsCarryTheNameOfTheLog) {
    ASSERT_EQ(LOG_system_event(1, "before"), 0);
    ASSERT_EQ(ozudb_addProc2Log("alarmd", "INFO", getpid()), 0);
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    ASSERT_EQ(LOG_system_event(1, "after"), 0);
    ASSERT_EQ(limited_log_system_event(1, 1, "after"), 0);
    std::vector<SystemEvent> events;
    ASSERT_EQ(readEvents(0, 100, events), 0);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].process, program_invocation_short_name);
    EXPECT_EQ(events[1].process, "alarmd");
    EXPECT_EQ(events[2].process, "alarmd");
}

TEST_F(Settings, limitedEventsAreLimitedPerCategoryAndSubtype) {
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(limited_log_system_event(1, 1, "flood"), 0);
    }
    EXPECT_EQ(limited_log_system_event(1, 2, "other subtype"), 0);
    EXPECT_EQ(limited_log_system_event(2, 1, "other category"), 0);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(LOG_system_event(1, "never limited"), 0);
    }
    std::map<std::string, int> counts;
    std::vector<SystemEvent> events;
    ASSERT_EQ(readEvents(0, 100, events), 0);
    for (const auto &event : events) {
        ++counts[event.text];
    }
    EXPECT_EQ(counts["flood"], 5);
    EXPECT_EQ(counts["other subtype"], 1);
    EXPECT_EQ(counts["other category"], 1);
    EXPECT_EQ(counts["never limited"], 8);

    // A minute later the next line goes through and tells how many did not.
    query("UPDATE event_limits SET window_ms = window_ms - 60001");
    ASSERT_EQ(readEvents(events.back().id, 100, events), 0);
    ASSERT_TRUE(events.empty());
    EXPECT_EQ(limited_log_system_event(1, 1, "flood"), 0);
    ASSERT_EQ(readEvents(0, 100, events), 0);
    EXPECT_EQ(events.back().text, "flood");
    EXPECT_EQ(events.back().suppressed, 3);
}

TEST_F(Settings, deviceKindsComeFromTheDeviceTable) {
    PanelSharedState *state = ozudb_getSharedMemory(0);
    ASSERT_NE(state, nullptr);
    state->devices[1].deviceType = 37;  // TAG READER
    state->devices[2].deviceType = 21;  // RF_INPUT
    state->devices[3].deviceType = 85;  // W3
    state->devices[205].deviceType = 1; // PIR
    state->devices[4].deviceType = 87;  // DANALOCK
    state->devices[5].deviceType = 0xFFFFFFFF;
    const auto kinds = [](int device) {
        return std::to_string(ozudb_isTagReader(device)) + std::to_string(ozudb_isRfInput(device)) +
               std::to_string(ozudb_isRfDetector(device));
    };
    EXPECT_EQ(kinds(1), "100");
    EXPECT_EQ(kinds(2), "010");
    EXPECT_EQ(kinds(3), "001");
    EXPECT_EQ(kinds(205), "001");
    for (const int none : {4, 5, 6, 0, -1, 206, 65535, -2147483647 - 1, 2147483647}) {
        EXPECT_EQ(kinds(none), "000") << none;
    }
}

TEST_F(Settings, filesBelongToTheOwnerAlone) {
    rmdir(folder().c_str());
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    EXPECT_EQ(modeOf(folder()), 0700U);
    EXPECT_EQ(modeOf(folder() + "/ozu.db"), 0600U);
    EXPECT_EQ(modeOf(folder() + "/ozu.db-wal"), 0600U);
    EXPECT_EQ(modeOf(folder() + "/log"), 0700U);
    EXPECT_EQ(modeOf(folder() + "/log/alarmd.log"), 0600U);
    EXPECT_EQ(query("PRAGMA journal_mode"), "wal ");
}

TEST_F(Settings, rightsDoNotDependOnTheUmask) {
    for (const mode_t mask : {0777U, 0U, 077U}) {
        const int result = inChild([&] {
            const std::string parent = folder() + "/umask" + std::to_string(mask);
            setenv("OZU_PLATFORM_DIR", (parent + "/data").c_str(), 1);
            umask(mask);
            const bool works = ozulog_init("alarmd") == 0 && LOG_system_event(1, "x") == 0;
            const bool right = modeOf(parent) == 0755 && modeOf(parent + "/data") == 0700 &&
                               modeOf(logFolder()) == 0700 && modeOf(logFile("alarmd")) == 0600 &&
                               modeOf(databaseFile()) == 0600 && modeOf(databaseFile() + "-wal") == 0600 &&
                               modeOf(databaseFile() + "-shm") == 0600 &&
                               modeOf(parent + "/data/identity") == 0600;
            return works ? right ? 0 : 1 : 2;
        });
        EXPECT_EQ(result, 0) << mask;
    }
}

TEST_F(Settings, connectionsAreSafe) {
    DatabaseFile file(folder() + "/other.db");
    EXPECT_EQ(file.number("PRAGMA synchronous"), 2); // full
    EXPECT_EQ(file.number("PRAGMA busy_timeout"), 5000);
    EXPECT_EQ(file.number("PRAGMA trusted_schema"), 0);
    // Defensive: not even a writer of ours turns the schema into data.
    file.run("PRAGMA writable_schema=ON");
    EXPECT_THROW(file.run("UPDATE sqlite_schema SET sql = 'x'"), Error);
    EXPECT_EQ(modeOf(folder() + "/other.db"), 0600U);
}

TEST_F(Settings, linksAreNotFollowed) {
    const std::string target = folder() + "/target";
    rewriteFile(target, "");
    ASSERT_EQ(symlink(target.c_str(), (folder() + "/ozu.db").c_str()), 0);
    EXPECT_NE(ozudb_updatePanelRebootReason(1), 0);
    EXPECT_EQ(contentOf(target), "");
}

// ---- damage
// ----------------------------------------------------------------------------------------------------

TEST_F(Settings, damagedDatabaseOfARunningPanelIsReportedAndLeftAlone) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    closePlatform();
    const std::string rubbish(8192, 'x');
    rewriteFile(folder() + "/ozu.db", rubbish);
    std::array<char, 8> name{};
    EXPECT_EQ(ozudb_getSeverityNameByProcName(name.data(), 8, "alarmd"), kCorrupt);
    EXPECT_EQ(ozudb_addProc2Log("alarmd", "INFO", 1), kCorrupt);
    EXPECT_EQ(ozudb_updatePanelRebootReason(1), kCorrupt);
    EXPECT_EQ(LOG_system_event(1, "x"), kCorrupt);
    EXPECT_NE(ozudb_ModifyBypassExpiry(1, 0, -1), 0);
    EXPECT_EQ(getProductCodename(), 0);
    EXPECT_EQ(contentOf(folder() + "/ozu.db"), rubbish);
    // Once a good file is in its place, the next call works.
    unlink((folder() + "/ozu.db").c_str());
    EXPECT_EQ(ozudb_updatePanelRebootReason(1), 0);
}

// Damage costs the table that has it. The tables, what puts a row into each, and how to see it.
namespace {

struct Content {
    const char *table;
    std::function<int()> put;
    const char *seen;
};

const std::vector<Content> &contents() {
    static const std::vector<Content> all{
        {"severities", [] { return setSeverity("doord", "DEBUG"); },
         "SELECT count(*) FROM severities WHERE process = 'doord'"},
        {"processes", [] { return ozudb_addProc2Log("doord", "DEBUG", 1); },
         "SELECT count(*) FROM processes"},
        {"reboot", [] { return ozudb_updatePanelRebootReason(7); },
         "SELECT count(*) FROM reboot WHERE 7 IN (next_reason, last_reason)"},
        {"modem_statistics", [] { return ozudb_ModifyModemStatistics(1, 2, 3, 4, 5, 6, 7, 8, 0); },
         "SELECT count(*) FROM modem_statistics"},
        {"bypass", [] { return ozudb_ModifyBypassExpiry(3, 1, 99); }, "SELECT count(*) FROM bypass"},
        {"system_events", [] { return LOG_system_event(1, "event"); }, "SELECT count(*) FROM system_events"},
        {"event_limits", [] { return limited_log_system_event(9, 9, "limited"); },
         "SELECT count(*) FROM event_limits WHERE category = 9"},
        {"settings", [] { return setSetting("product.code", "5"); }, "SELECT count(*) FROM settings"},
    };
    return all;
}

} // namespace

class DamagedTable : public Settings {
  protected:
    void fill() {
        for (const auto &content : contents()) {
            ASSERT_EQ(content.put(), 0) << content.table;
        }
        query("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    // A process that starts gets a record; what was damaged works again, and everything else is as it was.
    void expectOnlyLost(const std::string &table) {
        ozu::test::captureStderr();
        boot();
        EXPECT_NE(ozudb_getSharedMemory(0), nullptr) << table;
        for (const auto &content : contents()) {
            EXPECT_EQ(content.put(), 0) << content.table << " of damaged " << table;
        }
        const std::string said = ozu::test::capturedStderr();
        EXPECT_THAT(said, HasSubstr(" 80000 C ")) << table;
        EXPECT_THAT(said, HasSubstr("table " + table + " of the database")) << table;
        EXPECT_EQ(said.find("of the database"), said.rfind("of the database")) << said;
        EXPECT_EQ(query("PRAGMA integrity_check"), "ok ") << table;
    }
};

TEST_F(DamagedTable, missingTableCostsItsContentAlone) {
    for (const auto &content : contents()) {
        fill();
        query(std::string("DROP TABLE ") + content.table);
        closePlatform();
        expectOnlyLost(content.table);
    }
}

TEST_F(DamagedTable, aToolThatOnlyLooksSeesTheOthers) {
    for (const auto &content : contents()) {
        const std::string name = content.table;
        fill();
        query("DROP TABLE " + name);
        closePlatform();
        openOnly(true);
        std::vector<SystemEvent> events;
        EXPECT_EQ(readEvents(0, 10, events), name == "system_events" ? kCorrupt : 0);
        std::vector<Setting> settings;
        EXPECT_EQ(listSettings(settings), name == "settings" ? kCorrupt : 0);
        openOnly(false);
        EXPECT_EQ(query("SELECT count(*) FROM sqlite_schema WHERE name = '" + name + "'"), "0 ");
        expectOnlyLost(name);
    }
}

TEST_F(DamagedTable, tableThatGoesWhileThePanelRunsComesBack) {
    for (const auto &content : contents()) {
        fill();
        query(std::string("DROP TABLE ") + content.table); // this process's connection stays open
        expectOnlyLost(content.table);
    }
}

TEST_F(DamagedTable, tableOfAnotherShapeCostsItsContentAlone) {
    for (const auto &content : contents()) {
        fill();
        const std::string name = content.table;
        query("DROP TABLE " + name + "; CREATE VIEW " + name + " AS SELECT 1 AS x");
        closePlatform();
        expectOnlyLost(name);
        fill();
        query("DROP TABLE " + name + "; CREATE TABLE " + name + " (x)");
        closePlatform();
        expectOnlyLost(name);
        // The right columns, without their types and without what makes a row unique.
        fill();
        query("CREATE TABLE other AS SELECT * FROM " + name + "; DROP TABLE " + name +
              "; ALTER TABLE other RENAME TO " + name);
        closePlatform();
        expectOnlyLost(name);
        fill();
        query("ALTER TABLE " + name + " ADD COLUMN more");
        closePlatform();
        expectOnlyLost(name);
    }
}

TEST_F(DamagedTable, damagedPagesCostTheirTableAlone) {
    for (const auto &content : contents()) {
        for (const char filling : {'\0', '\xA7'}) {
            fill();
            closePlatform();
            const std::string root =
                query(std::string("SELECT rootpage FROM sqlite_schema WHERE name = '") + content.table + "'");
            const int file = open(databaseFile().c_str(), O_RDWR | O_CLOEXEC);
            const std::string page(4096, filling);
            ASSERT_EQ(pwrite(file, page.data(), page.size(), (std::stol(root) - 1) * 4096), 4096);
            close(file);
            expectOnlyLost(content.table);
        }
    }
}

TEST_F(DamagedTable, othersContentIsKept) {
    fill();
    query("DROP TABLE bypass");
    boot();
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    for (const auto &content : contents()) {
        const bool lost = std::string(content.table) == "bypass";
        EXPECT_EQ(query(content.seen), lost                                            ? "0 "
                                       : std::string(content.table) == "system_events" ? "2 "
                                                                                       : "1 ")
            << content.table;
    }
    EXPECT_EQ(ozudb_getSharedMemory(0)->modemStatistics[1].counter[7], 8);
}

TEST_F(DamagedTable, cutDatabaseCostsWhatWasCutOff) {
    fill();
    closePlatform();
    const std::string whole = contentOf(databaseFile());
    constexpr std::size_t kStep = 2560; // within pages and at their ends
    for (std::size_t size = whole.size() - 512; size >= 4096; size -= kStep) {
        rewriteFile(databaseFile(), whole.substr(0, size));
        for (const char *suffix : {"-wal", "-shm"}) {
            unlink((databaseFile() + suffix).c_str());
        }
        ozu::test::captureStderr();
        boot();
        EXPECT_NE(ozudb_getSharedMemory(0), nullptr) << size;
        for (const auto &content : contents()) {
            EXPECT_EQ(content.put(), 0) << content.table << " " << size;
        }
        EXPECT_THAT(ozu::test::capturedStderr(), HasSubstr(" is damaged; it starts over")) << size;
        EXPECT_EQ(query("PRAGMA integrity_check"), "ok ") << size;
        closePlatform();
    }
}

TEST_F(DamagedTable, manyDamagedPagesCostTheirTables) {
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(LOG_system_event(1, std::string(500, 'e').c_str()), 0);
    }
    query("PRAGMA wal_checkpoint(TRUNCATE)");
    closePlatform();
    std::string content = contentOf(databaseFile());
    for (std::size_t i = 4096; i < content.size(); ++i) {
        content[i] = static_cast<char>(i * 7);
    }
    rewriteFile(databaseFile(), content);
    EXPECT_EQ(LOG_system_event(1, "x"), 0);
    EXPECT_EQ(query("SELECT text FROM system_events"), "x ");
}

TEST_F(DamagedTable, severityThatIsNoneCountsAsAbsent) {
    ASSERT_EQ(setSeverity("doord", "DEBUG"), 0);
    query("UPDATE severities SET severity = 'LOUD'");
    EXPECT_EQ(severityOf("doord"), "INFO");
    EXPECT_EQ(severityOf("other"), "INFO");
}

TEST_F(DamagedTable, emptiedDatabaseIsTold) {
    fill();
    closePlatform();
    for (const char *suffix : {"", "-wal", "-shm"}) {
        rewriteFile(databaseFile() + suffix, "");
    }
    ozu::test::captureStderr();
    boot();
    EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
    EXPECT_THAT(ozu::test::capturedStderr(),
                AllOf(HasSubstr(" 80000 C "), HasSubstr("is missing or empty; all its tables start over")));
}

TEST_F(DamagedTable, newFolderHasNothingToTell) {
    ozu::test::captureStderr();
    EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
    EXPECT_EQ(ozu::test::capturedStderr(), "");
}

// The mark stands behind the identity until the database has been made.
TEST_F(DamagedTable, firstStartThatWasCutShortHasLostNothing) {
    const std::string identity(32, 'a');
    for (const bool databaseWasBegun : {false, true}) {
        removeSegments(folder());
        closePlatform();
        rewriteFile(folder() + "/identity", identity + "\nnew\n");
        for (const char *suffix : {"", "-wal", "-shm"}) {
            std::filesystem::remove(databaseFile() + suffix);
        }
        if (databaseWasBegun) {
            rewriteFile(databaseFile(), "");
        }
        ozu::test::captureStderr();
        EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
        EXPECT_THAT(ozu::test::capturedStderr(), Not(HasSubstr(" 80000 C ")));
        EXPECT_EQ(contentOf(folder() + "/identity"), identity + "\n");
    }
}

TEST_F(DamagedTable, whatWasToldBeforeTheLogWasOpenedStandsInIt) {
    fill();
    query("DROP TABLE bypass");
    closePlatform();
    EXPECT_EQ(severityOf("alarmd"), "INFO");
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    EXPECT_THAT(contentOf(logFile("alarmd")), HasSubstr("table bypass of the database is missing"));
}

// ---- what others have put in the place of a file
// --------------------------------------------------------------------------

TEST_F(Settings, whateverStandsInThePlaceOfAFileIsRefusedAtOnce) {
    const std::string victim = folder() + "/victim";
    rewriteFile(victim, "precious");
    for (const char *name : {"identity", "ozu.db", "ozu.db-wal", "ozu.db-shm", "ozu.db-journal"}) {
        const std::string path = folder() + "/" + name;
        const std::vector<std::pair<const char *, std::function<int()>>> plants{
            {"is a link", [&] { return symlink(victim.c_str(), path.c_str()); }},
            {"is a FIFO", [&] { return mkfifo(path.c_str(), 0600); }},
            {"is a folder", [&] { return mkdir(path.c_str(), 0700); }},
            {"hard link", [&] { return link(victim.c_str(), path.c_str()); }},
        };
        for (const auto &[what, plant] : plants) {
            closePlatform();
            remove(path.c_str());
            ASSERT_EQ(plant(), 0) << name;
            alarm(20);
            ozu::test::captureStderr();
            EXPECT_EQ(LOG_system_event(1, "x"), kCannotOpen) << name << " " << what;
            EXPECT_THAT(ozu::test::capturedStderr(), AllOf(HasSubstr(path), HasSubstr(what)));
            alarm(0);
            EXPECT_EQ(contentOf(victim), "precious") << name << " " << what;
            remove(path.c_str());
        }
        EXPECT_EQ(LOG_system_event(1, "x"), 0) << name;
    }
}

TEST_F(Settings, filesOfOtherUsersAreRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make another user's file";
    }
    constexpr uid_t kOtherUser = 65534;
    for (const char *name : {"identity", "ozu.db", "ozu.db-wal", "ozu.db-shm", "ozu.db-journal", "log"}) {
        closePlatform();
        const std::string path = folder() + "/" + name;
        remove(path.c_str());
        if (std::string(name) == "log") {
            ASSERT_EQ(mkdir(path.c_str(), 0777), 0);
        } else {
            rewriteFile(path, "");
        }
        ASSERT_EQ(chown(path.c_str(), kOtherUser, kOtherUser), 0);
        ozu::test::captureStderr();
        EXPECT_EQ(std::string(name) == "log" ? ozulog_init("alarmd") : LOG_system_event(1, "x"), kCannotOpen)
            << name;
        EXPECT_THAT(ozu::test::capturedStderr(), HasSubstr(path + " belongs to user 65534"));
        ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
        remove(path.c_str());
    }
}

TEST_F(Settings, folderOfAnotherUserIsUsedByRootOnly) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    ASSERT_EQ(chown(folder().c_str(), 1234, 1234), 0);
    ASSERT_EQ(chmod(folder().c_str(), 0777), 0);
    EXPECT_EQ(inChild([] { return setuid(65534) == 0 ? LOG_system_event(1, "x") : 99; }), kCannotOpen);
    // What root makes there belongs to the folder's owner, who can use it.
    EXPECT_EQ(LOG_system_event(1, "x"), 0);
    struct stat found {};
    for (const char *name : {"/identity", "/ozu.db", "/ozu.db-wal"}) {
        ASSERT_EQ(stat((folder() + name).c_str(), &found), 0) << name;
        EXPECT_EQ(found.st_uid, 1234U) << name;
    }
    EXPECT_EQ(inChild([] { return setuid(1234) == 0 ? LOG_system_event(1, "x") : 99; }), 0);
}

TEST_F(Settings, filesThatOthersMayWriteAreClosedToThem) {
    ASSERT_EQ(LOG_system_event(1, "x"), 0);
    for (const char *name : {"/identity", "/ozu.db"}) {
        ASSERT_EQ(chmod((folder() + name).c_str(), 0666), 0);
    }
    closePlatform();
    ozu::test::captureStderr();
    EXPECT_EQ(LOG_system_event(1, "x"), 0);
    EXPECT_THAT(ozu::test::capturedStderr(), AllOf(HasSubstr("identity was open to other users"),
                                                   HasSubstr("ozu.db was open to other users")));
    EXPECT_EQ(modeOf(folder() + "/identity"), 0600U);
    EXPECT_EQ(modeOf(folder() + "/ozu.db"), 0600U);
}

TEST_F(Settings, lockThatAStoppedProcessHoldsIsNotWaitedForLong) {
    ASSERT_EQ(LOG_system_event(1, "x"), 0);
    closePlatform();
    const int held = open((folder() + "/identity").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    alarm(60);
    EXPECT_EQ(LOG_system_event(1, "x"), kBusy);
    alarm(0);
    close(held);
    EXPECT_EQ(LOG_system_event(1, "x"), 0);
}

// Rows that somebody has put into SQLite's list of tables.
TEST_F(DamagedTable, othersRowsInTheListOfTablesCostNothing) {
    const std::string into = "PRAGMA writable_schema=ON; INSERT INTO sqlite_schema VALUES";
    for (const std::string &strange :
         {into + "('table', 'junk', 'junk', 9999, 'garbage')",
          into + "('view', 'junk', 'junk', 0, 'garbage')",
          into + "('index', 'junk', 'bypass', 2, 'CREATE INDEX junk ON bypass (nothing)')",
          into + "('trigger', 'junk', 'bypass', 0, 'CREATE TRIGGER junk garbage')",
          into + "(NULL, NULL, NULL, NULL, NULL)"}) {
        fill();
        query(strange);
        closePlatform();
        ozu::test::captureStderr();
        boot();
        EXPECT_NE(ozudb_getSharedMemory(0), nullptr) << strange;
        EXPECT_EQ(getProductCodename(), 5) << strange;
        const std::string said = ozu::test::capturedStderr();
        EXPECT_THAT(said, HasSubstr(" 80000 C ")) << strange;
        EXPECT_THAT(said, HasSubstr("removed from the database")) << strange;
        EXPECT_EQ(said.find("its content is lost"), std::string::npos) << said;
        for (const auto &content : contents()) {
            EXPECT_NE(query(content.seen), "0 ") << content.table << " after " << strange;
        }
        EXPECT_EQ(query("PRAGMA integrity_check"), "ok ") << strange;
    }
}

TEST_F(DamagedTable, somethingElseOfTheNameCostsTheTableAlone) {
    for (const auto &content : contents()) {
        const std::string name = content.table;
        const std::string other = name == "settings" ? "bypass (zone)" : "settings (value)";
        std::string upper = name;
        std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
        for (const std::string &strange : {"DROP TABLE " + name + "; CREATE INDEX " + name + " ON " + other,
                                           "DROP TABLE " + name + "; CREATE TABLE " + upper + " (x)",
                                           "PRAGMA writable_schema=ON; INSERT INTO sqlite_schema SELECT * "
                                           "FROM sqlite_schema WHERE name = '" +
                                               name + "'"}) {
            fill();
            query(strange);
            closePlatform();
            expectOnlyLost(name);
        }
    }
}

TEST_F(DamagedTable, damagedTableOfSomebodyElseCostsNothing) {
    fill();
    query("CREATE TABLE other (x); INSERT INTO other VALUES (1); CREATE TABLE kept AS SELECT 2 AS x; "
          "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET rootpage = 9999 WHERE name = 'other'; "
          "UPDATE sqlite_schema SET rootpage = 9998 WHERE name = 'bypass'");
    closePlatform();
    expectOnlyLost("bypass");
    EXPECT_EQ(query("SELECT x FROM kept"), "2 ");
    EXPECT_EQ(query("SELECT count(*) FROM sqlite_schema WHERE name = 'other'"), "0 ");
}

TEST_F(Settings, othersTriggersAndIndexesChangeNothing) {
    ASSERT_EQ(ozudb_ModifyBypassExpiry(1, 0, 5), 0);
    query("CREATE TRIGGER emptied AFTER INSERT ON bypass BEGIN DELETE FROM bypass; END; "
          "CREATE TRIGGER refused BEFORE INSERT ON system_events BEGIN SELECT RAISE(ABORT, 'no'); END; "
          "CREATE UNIQUE INDEX one ON bypass (bypassed)");
    closePlatform();
    ozu::test::captureStderr();
    EXPECT_EQ(ozudb_ModifyBypassExpiry(2, 1, 5), 0);
    EXPECT_EQ(ozudb_ModifyBypassExpiry(3, 1, 5), 0);
    EXPECT_EQ(LOG_system_event(1, "event"), 0);
    EXPECT_THAT(ozu::test::capturedStderr(), HasSubstr("index one is not the platform's"));
    EXPECT_EQ(query("SELECT zone FROM bypass"), "1 2 3 ");
    EXPECT_EQ(query("SELECT text FROM system_events"), "event ");
}

TEST_F(Settings, databaseOfAnotherEncodingIsRead) {
    if (std::system("command -v sqlite3 > /dev/null") != 0) {
        GTEST_SKIP() << "no sqlite3 here";
    }
    ASSERT_EQ(setSetting("product.code", "7"), 0);
    closePlatform();
    const std::string script =
        "cd '" + folder() + "' && sqlite3 ozu.db .dump > dump && rm ozu.db* && " +
        "(echo \"PRAGMA encoding='UTF-16'; PRAGMA user_version=1;\"; cat dump) | sqlite3 ozu.db";
    ASSERT_EQ(std::system(script.c_str()), 0);
    ozu::test::captureStderr();
    EXPECT_EQ(getProductCodename(), 7);
    EXPECT_THAT(ozu::test::capturedStderr(), testing::Not(HasSubstr(" 80000 C ")));
}

TEST_F(Settings, eventsDoNotRunOutOfNumbers) {
    for (const char *end : {"UPDATE sqlite_sequence SET seq = 9223372036854775807",
                            "UPDATE system_events SET id = 9223372036854775807 WHERE id = (SELECT max(id) "
                            "FROM system_events)"}) {
        ASSERT_EQ(LOG_system_event(1, "first"), 0);
        ASSERT_EQ(LOG_system_event(1, "last"), 0);
        query(end);
        closePlatform();
        ozu::test::captureStderr();
        EXPECT_EQ(LOG_system_event(1, "next"), 0);
        EXPECT_THAT(ozu::test::capturedStderr(), HasSubstr("table system_events of the database"));
        EXPECT_THAT(query("SELECT text FROM system_events"), HasSubstr("first "));
    }
}

TEST_F(Settings, limitsOfAnyContentAreSurvived) {
    ASSERT_EQ(limited_log_system_event(9, 9, "first"), 0);
    query("UPDATE event_limits SET window_ms = -9223372036854775807 - 1, lines = 5, suppressed = 2147483647");
    EXPECT_EQ(limited_log_system_event(9, 9, "second"), 0);
    EXPECT_EQ(query("SELECT text FROM system_events WHERE category = 9"), "first second ");
}

TEST_F(Settings, newerDatabaseIsRefused) {
    ASSERT_EQ(ozudb_updatePanelRebootReason(1), 0);
    query("PRAGMA user_version=2");
    closePlatform();
    EXPECT_EQ(ozudb_updatePanelRebootReason(1), kWrongVersion);
}

TEST_F(Settings, databaseHeldTooLongIsBusy) {
    ASSERT_EQ(ozudb_updatePanelRebootReason(1), 0);
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open_v2(databaseFile().c_str(), &other, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(ozudb_updatePanelRebootReason(2), kBusy); // after the busy timeout of 5 seconds
    sqlite3_close(other);
    EXPECT_EQ(ozudb_updatePanelRebootReason(2), 0);
}

// A mount namespace of our own: what is mounted in the child is mounted for it alone.
namespace {

constexpr int kNoNamespace = 77;

bool enterNamespace() {
    const uid_t user = getuid();
    const gid_t group = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return false;
    }
    const auto put = [](const char *path, const std::string &text) {
        const int file = open(path, O_WRONLY | O_CLOEXEC);
        const bool done =
            file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        close(file);
        return done;
    };
    put("/proc/self/setgroups", "deny");
    return put("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
           put("/proc/self/gid_map", "0 " + std::to_string(group) + " 1") &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// @return 0, or the number of the step that went wrong
int useAFullDisk(const std::string &folder) {
    if (ozudb_ModifyBypassExpiry(3, 1, 99) != 0 || ozulog_init("alarmd") != 0) {
        return 1;
    }
    rewriteFile(folder + "/ballast", std::string(65536, 'b'));
    int code = 0;
    for (int i = 0; i < 5000 && code == 0; ++i) {
        code = LOG_system_event(1, std::string(1000, 'e').c_str());
    }
    if (code != kDiskFull) {
        return 2;
    }
    // Fill what is left, then nothing may end the process or change the record half.
    const int filler = open((folder + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    while (write(filler, "xxxxxxxx", 8) > 0) {
    }
    for (int i = 0; i < 100; ++i) {
        ozulog_printf(70000, "%s", std::string(1000, 'l').c_str());
    }
    // A few changes may still fit what the database's log has in store; the first that does not is told,
    // and the record stays with the last one that was stored.
    const PanelSharedState *state = ozudb_getSharedMemory(0);
    std::uint16_t stored = 0;
    std::uint16_t next = 0;
    do {
        stored = next++;
        code = ozudb_ModifyModemStatistics(next, 1, 1, 1, 1, 1, 1, 1, 0);
    } while (code == 0 && next < 5000);
    if (code != kDiskFull || state->modemStatistics[1].counter[0] != stored) {
        return 3;
    }
    if (ozudb_ModifyBypassExpiry(3, 0, -1) != kDiskFull || state->zones[3].bypass[0].bypassed != 1) {
        return 5;
    }
    close(filler);
    unlink((folder + "/ballast").c_str());
    return ozudb_ModifyBypassExpiry(3, 0, -1) == 0 ? 0 : 4;
}

} // namespace

TEST_F(Settings, readOnlyFolderIsReported) {
    ASSERT_EQ(ozudb_updatePanelRebootReason(1), 0);
    closePlatform();
    const int result = inChild([&] {
        if (!enterNamespace() || mount(folder().c_str(), folder().c_str(), nullptr, MS_BIND, nullptr) != 0 ||
            mount(nullptr, folder().c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
            return kNoNamespace;
        }
        const bool right =
            ozudb_updatePanelRebootReason(2) == kReadOnly && LOG_system_event(1, "x") == kReadOnly &&
            ozudb_addProc2Log("alarmd", "INFO", 1) == kReadOnly && ozulog_init("alarmd") == kReadOnly;
        return right ? 0 : 1;
    });
    if (result == kNoNamespace) {
        GTEST_SKIP() << "no private mount namespace here";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(Settings, fullDiskIsReportedAndLosesNothing) {
    const int result = inChild([&] {
        if (!enterNamespace() || mount("tmpfs", folder().c_str(), "tmpfs", 0, "size=512k") != 0) {
            return kNoNamespace;
        }
        const int wrong = useAFullDisk(folder());
        removeSegments(folder()); // only this process knows its name
        return wrong;
    });
    if (result == kNoNamespace) {
        GTEST_SKIP() << "no private mount namespace here";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(Settings, killedInTheMiddleOfWritesTheDatabaseStaysWhole) {
    SKIP_WITHOUT_ROBUST_LOCKS();
    ASSERT_EQ(ozudb_ModifyBypassExpiry(0, 0, -1), 0);
    for (int round = 0; round < 10; ++round) {
        const pid_t writer = startChild([] {
            for (int i = 1;; ++i) {
                const auto n = static_cast<std::uint16_t>(i);
                ozudb_ModifyModemStatistics(n, n, n, n, n, n, n, n, i & 1);
                ozudb_ModifyBypassExpiry(i & 255, 1, i);
                LOG_system_event(1, "x");
            }
            return 0;
        });
        pause(20 + round * 7);
        kill(writer, SIGKILL);
        ASSERT_EQ(waitForChild(writer), -SIGKILL);
        // The next writer works, and record and database agree.
        ASSERT_EQ(ozudb_ModifyBypassExpiry(0, 0, -1), 0);
        const PanelSharedState *state = ozudb_getSharedMemory(0);
        for (const int modem : {0, 1}) {
            const auto &counter = state->modemStatistics[modem == 1 ? 0 : 1].counter;
            const std::string row =
                query("SELECT c1, c8 FROM modem_statistics WHERE modem = " + std::to_string(modem));
            EXPECT_EQ(row,
                      row.empty() ? "" : std::to_string(counter[0]) + " " + std::to_string(counter[7]) + " ");
        }
    }
    EXPECT_EQ(query("PRAGMA integrity_check"), "ok ");
}

TEST_F(Settings, processesWriteAtTheSameTime) {
    std::vector<pid_t> children;
    for (int process = 0; process < 4; ++process) {
        children.push_back(startChild([process] {
            for (int i = 0; i < 25; ++i) {
                if (LOG_system_event(process, "x") != 0 || ozudb_ModifyBypassExpiry(process, 1, i) != 0) {
                    return 1;
                }
            }
            return 0;
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(waitForChild(child), 0);
    }
    std::vector<SystemEvent> events;
    ASSERT_EQ(readEvents(0, 1000, events), 0);
    EXPECT_EQ(events.size(), 100U);
    EXPECT_EQ(query("SELECT count(*), min(expiry), max(expiry) FROM bypass"), "4 24 24 ");
}

// What tools may ask of the reference platform beyond the interfaces of platform/include.
//
// Link the static library ozu_platform_tools; it holds the whole reference platform, so a tool that uses it
// needs no libozu_platform.so.0. Every function works on the data folder that OZU_PLATFORM_DIR names. Results
// are 0 or a Code; outputs are filled on 0 only. Nothing throws.
#pragma once

#include <ozudb.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ozu::platform {

// Results of every function of the reference platform other than 0.
enum Code : int {
    kInvalidArgument = 1,    // null, empty, out of range, or a name that cannot be a file's name
    kNoSharedRecord = 2,     // the shared segment cannot be used; the log says why
    kNotFound = 3,           // no such row
    kBusy = 4,               // another process held the database or the record for too long
    kReadOnly = 5,           // data folder or database cannot be written
    kDiskFull = 6,           // no room for the change; nothing was changed
    kCorrupt = 7,            // the database file is damaged or not a database
    kCannotOpen = 8,         // data folder, database or log file cannot be opened
    kInputOutput = 9,        // read or write error
    kOutOfMemory = 10,       //
    kInternal = 11,          // anything else
    kWrongVersion = 12,      // database written by a newer release
    kNothingThere = 13,      // openOnly: no panel process has used this data folder yet
    kNotConnected = 20,      // this process has no bus session, or the broker is gone for now
    kBrokerUnreachable = 21, // no connection, or no answer in time
    kBrokerRefused = 22,     // the broker refused the session or the subscription
    kQueueFull = 23,         // too many messages wait for their acknowledgement
    kAlreadyConnected = 24,  // this process has a session
    kTakenOver = 25,         // another process connected under the same name
};

// One short sentence for a code, 0 included.
const char *codeText(int code);

// With true, this process uses what is there and makes nothing: no data folder, no database, no shared
// segment. What would need one that is not there gives kNothingThere, and no line in the log. For tools that
// only look.
void openOnly(bool on);

// The data folder, its parts, and the shared segment's file.
std::string dataFolder();
std::string databaseFile();
std::string logFolder();
std::string logFile(const std::string &process); // current file; older ones end in .1, .2, ...
int segmentFile(std::string &out);               // kNotFound before the first process has run
// Whether a process uses a segment whose file was removed: what it shares is lost to all that start later.
bool usesRemovedSegment(int pid);

// Log severities, least severe first: TRACE DEBUG INFO NOTICE WARNING REMOTE ERROR CRITICAL OFF.
const std::vector<std::string> &severityNames();
// Lowest level that is kept under this severity; nothing for an unknown name.
std::optional<int> severityLevel(const std::string &name);

struct ProcessSeverity {
    std::string process; // "*": every process without a row of its own
    std::string severity;
};
// Whether the text can be the name of a process, or is "*".
bool canHaveSeverity(const std::string &process) noexcept;
int listSeverities(std::vector<ProcessSeverity> &out);
// Takes effect at once, in running processes too.
int setSeverity(const std::string &process, const std::string &severity);
int removeSeverity(const std::string &process);

struct LoggedProcess {
    std::string process;
    std::string severity; // that its lines are filtered by
    int pid = 0;
    std::int64_t sinceMs = 0; // UTC milliseconds
    bool running = false;     // a process with this number exists
};
int listProcesses(std::vector<LoggedProcess> &out);

struct SystemEvent {
    std::int64_t id = 0;     // increasing
    std::int64_t timeMs = 0; // UTC milliseconds
    int category = 0;
    std::optional<int> subtype;
    int pid = 0;
    std::string process;
    std::string text;
    int suppressed = 0; // lines of the same category and subtype that came too fast before this one
};
// Events with an id above afterId, oldest first, at most limit. To follow, ask again with the last id.
int readEvents(std::int64_t afterId, int limit, std::vector<SystemEvent> &out);

struct Setting {
    std::string name;
    std::string value;
};
int listSettings(std::vector<Setting> &out);
int setSetting(const std::string &name, const std::string &value);

// The reason stored for the next reboot, and the one that was stored when this boot began.
int readRebootReasons(std::optional<int> &next, std::optional<int> &last);

// The live record, read-only; never creates it. kNoSharedRecord with the reason in why.
int attachState(const PanelSharedState *&out, std::string &why);
// Changes the record under the writers' lock, creating it if need be. Fields that must last (bypass, modem
// statistics) are stored in the database in the same step; when that fails the record stays as it was. A
// process that dies in change leaves the record as it was, too. change must not call the platform.
int updateState(const std::function<void(PanelSharedState &)> &change);

struct InFlightSlot {
    std::string process;
    int pid = 0;
    unsigned unacknowledged = 0; // messages that wait for the broker
    bool connected = false;
    bool counted = false; // false: the broker is gone for so long that nobody waits for these messages
};
int readInFlight(std::vector<InFlightSlot> &out);

} // namespace ozu::platform

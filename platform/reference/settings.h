// What lasts: the tables of <data folder>/ozu.db and one function per question about them.
//
// One connection per process, opened on first use. Every function is one transaction and throws Error.
#pragma once

#include <ozu_platform_tools.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ozu::platform {

// Keeps other threads of this process away from the database while several operations belong together.
class SettingsLock {
  public:
    SettingsLock();
    ~SettingsLock();
    SettingsLock(const SettingsLock &) = delete;
    SettingsLock &operator=(const SettingsLock &) = delete;
};

// Opens the connection if it is not open.
void openSettings();
// Closes it, for tests that change the data folder.
void forgetSettings() noexcept;

// Severities. The process's own row, else that of "*"; nothing when neither exists.
std::optional<std::string> configuredSeverity(const std::string &process);
// What the process's lines are filtered by: its registration, else as configured.
std::optional<std::string> effectiveSeverity(const std::string &process);
void registerProcess(const std::string &process, const std::string &severity, int pid);
std::vector<ProcessSeverity> allSeverities();
void storeSeverity(const std::string &process, const std::string &severity);
bool dropSeverity(const std::string &process);
std::vector<LoggedProcess> allProcesses();

// Reboot reason.
void storeRebootReason(int reason);
std::pair<std::optional<int>, std::optional<int>> rebootReasons(); // for the next boot, of this one

// The part of the shared record that outlives a boot.
struct LastingBypass {
    int zone = 0;
    int bypassed = 0;
    std::uint32_t expiry = 0;
};
struct LastingStatistics {
    int modem = 0;
    std::array<std::uint16_t, OZUDB_MODEM_COUNTERS> counter{};
};
struct LastingState {
    std::vector<LastingBypass> bypass;
    std::vector<LastingStatistics> statistics;
    std::optional<int> rebootReason; // of this boot
};
LastingState readLastingState();
// A new boot begins: the reason stored for it becomes the reason of this boot.
void beginBoot();
void applyLastingState(const LastingState &lasting, PanelSharedState &state);
void storeBypass(const std::vector<LastingBypass> &rows);
void storeStatistics(const std::vector<LastingStatistics> &rows);
void storeLasting(const LastingState &rows);
// Position of a modem's statistics in the record: modem 1 comes first.
constexpr int statisticsPosition(int modem) noexcept {
    return modem == 1 ? 0 : 1;
}

// System events.
void appendEvent(int category, const std::string &text);
// False when the line came too fast and was only counted.
bool appendLimitedEvent(int category, int subtype, const std::string &text);
std::vector<SystemEvent> eventsAfter(std::int64_t id, int limit);

// Settings: free texts by name.
std::optional<std::string> setting(const std::string &name);
// As a whole number within the bounds; the default when it is absent, not a number or out of bounds.
int numericSetting(const std::string &name, int lowest, int highest, int otherwise);
std::vector<Setting> allSettings();
void storeSetting(const std::string &name, const std::string &value);

} // namespace ozu::platform

#include "report.h"

#include "archive.h"
#include "commands/processes.h"
#include "diagnosis.h"
#include "output.h"
#include "secrets.h"
#include "sources.h"
#include "text.h"

#include <ozu_platform_tools.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

constexpr std::size_t kMaxLogBytes = std::size_t{512} * 1024; // of each file, its end
constexpr std::size_t kMaxLogFiles = 64;
constexpr std::size_t kMaxReportEvents = 2000;

// Every member with a secret name loses its value, every text its secrets.
Json cleaned(const Json &value) {
    if (value.is_string()) {
        return withoutSecrets(value.get_ref<const std::string &>());
    }
    if (!value.is_structured()) {
        return value;
    }
    Json result = value.is_array() ? Json::array() : Json::object();
    for (const auto &[key, item] : value.items()) {
        if (value.is_array()) {
            result.push_back(cleaned(item));
        } else {
            result[key] = isSecretName(key) ? Json(kLeftOut) : cleaned(item);
        }
    }
    return result;
}

std::string jsonText(const Json &value) {
    return visibleJson(value.dump(2, ' ', false, Json::error_handler_t::replace)) + "\n";
}

void addDocument(Report &report, const char *name, const char *what, const std::function<Json()> &read) {
    try {
        report.entries.push_back({std::string(name) + ".json", what, jsonText(cleaned(read()))});
    } catch (const CommandError &error) {
        report.entries.push_back(
            {std::string(name) + ".json", what, jsonText({{"unreadable", withoutSecrets(error.what())}})});
    }
}

void requireRead(int code) {
    if (code != 0) {
        throw CommandError(kUnreachable, platform::codeText(code));
    }
}

Json settingRows() {
    std::vector<platform::Setting> settings;
    requireRead(platform::listSettings(settings));
    Json rows = Json::object();
    for (const auto &one : settings) {
        rows[one.name] = one.value;
    }
    return rows;
}

Json severityRows() {
    std::vector<platform::ProcessSeverity> severities;
    requireRead(platform::listSeverities(severities));
    Json rows = Json::array();
    for (const auto &one : severities) {
        rows.push_back({{"process", one.process}, {"severity", one.severity}});
    }
    return rows;
}

Json stateFields() {
    Timeline timeline(0);
    StateSource state(timeline);
    state.look();
    return state.snapshot()["fields"];
}

Json eventRows() {
    std::deque<Json> rows;
    std::vector<platform::SystemEvent> events;
    std::int64_t last = 0;
    do {
        requireRead(platform::readEvents(last, 1000, events));
        for (const auto &event : events) {
            last = event.id;
            Json row = {{"time", isoTimeMilliseconds(event.timeMs)}};
            row.update(eventRecord(event));
            rows.push_back(std::move(row));
        }
        while (rows.size() > kMaxReportEvents) {
            rows.pop_front();
        }
    } while (!events.empty());
    return Json(rows);
}

// The end of a plain file, from the start of a line on. Nothing for what is no plain file.
bool readEnd(const std::string &path, ReportEntry &entry) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat found = {};
    if (descriptor < 0 || fstat(descriptor, &found) != 0 || !S_ISREG(found.st_mode)) {
        close(descriptor);
        return false;
    }
    entry.cut = found.st_size > static_cast<off_t>(kMaxLogBytes);
    off_t at = entry.cut ? found.st_size - static_cast<off_t>(kMaxLogBytes) : 0;
    std::string content(kMaxLogBytes, '\0');
    std::size_t filled = 0;
    while (filled < content.size()) {
        const ssize_t count = pread(descriptor, content.data() + filled, content.size() - filled, at);
        if (count <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
        at += count;
    }
    close(descriptor);
    content.resize(filled);
    if (entry.cut) {
        const std::size_t line = content.find('\n');
        content.erase(0, line == std::string::npos ? 0 : line + 1);
    }
    entry.content = visibleLines(withoutSecrets(content));
    return true;
}

void addLogs(Report &report) {
    std::error_code error;
    std::vector<std::filesystem::path> paths;
    for (const auto &entry : std::filesystem::directory_iterator(platform::logFolder(), error)) {
        paths.push_back(entry.path());
    }
    std::ranges::sort(paths);
    std::size_t number = 0;
    for (const auto &path : paths) {
        if (number == kMaxLogFiles) {
            report.leftOut.push_back("log files beyond the first " + std::to_string(kMaxLogFiles));
            return;
        }
        const std::string name = path.filename();
        ReportEntry entry;
        if (!readEnd(path, entry)) {
            report.leftOut.push_back("log " + inQuotes(name) + ": no plain file, or not readable");
            continue;
        }
        // Names that become the same stay apart by their number.
        const std::string safe = safeName(name);
        ++number;
        entry.name = "log/" + (safe == name ? safe : std::to_string(number) + "-" + safe);
        entry.what = "log lines" + std::string(safe == name ? "" : " of " + inQuotes(name));
        report.entries.push_back(std::move(entry));
    }
}

} // namespace

Report gatherReport() {
    Report report;
    addDocument(report, "doctor", "versions, folders, broker, clock, rights", diagnosis);
    addDocument(report, "processes", "panel processes", runningProcesses);
    addDocument(report, "settings", "the platform's settings", settingRows);
    addDocument(report, "severities", "log severities", severityRows);
    addDocument(report, "state", "fields that differ from an untouched panel's", stateFields);
    addDocument(report, "events", "system events, the newest 2000", eventRows);
    addLogs(report);
    report.leftOut.emplace_back("the database file and its passphrase, the mask and the IV of this build");
    report.leftOut.emplace_back("the kernel's command line and log, the environment, the bus's messages");
    report.leftOut.emplace_back(
        "values named like a secret (key, mask, iv, token, secret, password, pin, serial, "
        "imsi and the like), users and passwords in URLs, and 32 hexadecimal digits or "
        "more in a row");
    return report;
}

} // namespace ozuctl

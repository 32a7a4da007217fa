#include "filter.h"

#include "arguments.h"
#include "log_line.h"
#include "numbers.h"
#include "state_fields.h"
#include "suggest.h"
#include "text.h"
#include "timeline.h"

#include <mosquitto.h>
#include <ozu_platform_tools.h>

#include <algorithm>
#include <cctype>

namespace ozuctl {

namespace {

bool contains(const std::vector<std::string> &words, const Json &word) {
    return word.is_string() && std::ranges::find(words, word.get_ref<const std::string &>()) != words.end();
}

bool matchesTopic(const std::vector<std::string> &filters, const std::string &topic) {
    return std::ranges::any_of(filters, [&topic](const std::string &filter) {
        bool matches = false;
        return mosquitto_topic_matches_sub(filter.c_str(), topic.c_str(), &matches) == MOSQ_ERR_SUCCESS &&
               matches;
    });
}

// "zones[1].bypass" holds "zones[1].bypass[0].bypassed", "zones" holds "zones[1].secondInputEnabled".
bool below(const std::string &path, const std::string &part) {
    return path.starts_with(part) &&
           (path.size() == part.size() || path[part.size()] == '.' || path[part.size()] == '[');
}

} // namespace

bool Filter::passesField(const std::string &path) const {
    return fields.empty() ||
           std::ranges::any_of(fields, [&path](const std::string &part) { return below(path, part); });
}

bool Filter::passesProcess(const Json &process) const {
    return processes.empty() || contains(processes, process);
}

bool Filter::passes(const Json &record) const {
    const auto kind = record.value("kind", "");
    if (kind == "bus") {
        return passesProcess(record["label"]) &&
               (topics.empty() || matchesTopic(topics, record["topic"].get<std::string>()));
    }
    if (kind == "state" && record.contains("field")) {
        return passesField(record["field"].get<std::string>());
    }
    if (kind != "log" && kind != "event" && kind != "process") {
        return true;
    }
    if (!passesProcess(record["process"])) {
        return false;
    }
    if (kind == "log" && level &&
        (!record.contains("level") || record["level"]["code"].get<int>() < *level)) {
        return false;
    }
    return kind == "process" || text.empty() ||
           record["text"].get_ref<const std::string &>().find(text) != std::string::npos;
}

int requireLevel(const std::string &what, const std::string &text) {
    if (const auto number = wholeNumber(text); number && *number >= 0 && *number <= kMaxInt) {
        return static_cast<int>(*number);
    }
    std::string name = text;
    std::ranges::transform(name, name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (const auto level = ozu::platform::severityLevel(name)) {
        return *level;
    }
    const auto &names = ozu::platform::severityNames();
    throw CommandError(kUsage, what + " must be a number or one of " + listed(names) + ", not " +
                                   inQuotes(text) + didYouMean(name, names));
}

std::int64_t requireSince(const std::string &what, const std::string &text) {
    if (const auto time = millisecondsOf(text)) {
        return *time;
    }
    static const std::vector<std::pair<char, double>> units = {
        {'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
    const auto unit =
        text.empty() ? units.end() : std::ranges::find(units, text.back(), &std::pair<char, double>::first);
    const std::string digits = unit == units.end() ? text : text.substr(0, text.size() - 1);
    const auto number = wholeNumber(digits);
    if (!number || *number < 0 || *number > kMaxInt) {
        throw CommandError(
            kUsage, what +
                        " must be a time like 2026-03-01T12:00:00Z or how long ago (90, 5m, 2h, 1d), not " +
                        inQuotes(text));
    }
    const double seconds = static_cast<double>(*number) * (unit == units.end() ? 1 : unit->second);
    return nowMilliseconds() - static_cast<std::int64_t>(seconds * 1000);
}

void addLogFilters(CLI::App &command, Filter &filter) {
    command.add_option("--process", filter.processes, "Of this process only; may be given again")
        ->allow_extra_args(false);
    addChecked(
        command, "--level", "LEVEL",
        [&filter](const std::string &what, const std::string &text) {
            filter.level = requireLevel(what, text);
        },
        "Log lines of this level and above: WARNING, 50000");
    command.add_option("--text", filter.text, "Lines that contain this text only");
}

} // namespace ozuctl

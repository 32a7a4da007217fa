#include "sources.h"

#include "panel_messages.h"
#include "text.h"

#include <cstring>

namespace ozuctl {

namespace platform = ozu::platform;

namespace {

constexpr int kEventsPerLook = 1000;

} // namespace

// --- the shared record ---

void StateSource::look() {
    if (live_ == nullptr) {
        std::string why;
        if (platform::attachState(live_, why) != 0) {
            return;
        }
        before_ = *live_;
        if (late_) {
            timeline_.add({nowMilliseconds(), snapshot(), "state  the shared record has appeared"});
        }
        return;
    }
    const PanelSharedState now = *live_;
    // Padding that differs only costs the comparison of the fields.
    if (memcmp(&now, &before_, sizeof now) == 0) { // NOLINT(bugprone-suspicious-memory-comparison)
        return;
    }
    for (const Field &field : fields_) {
        if (field.differs(before_, now)) {
            tell(field, field.read(before_), field.read(now));
        }
    }
    before_ = now;
}

Json StateSource::snapshot() {
    late_ = true;
    if (live_ == nullptr) {
        return {{"kind", "state"}, {"fields", nullptr}};
    }
    Json fields = Json::object();
    for (const Field &field : fields_) {
        if (!field.isUsual(before_)) {
            fields[field.path()] = field.read(before_);
        }
    }
    return {{"kind", "state"}, {"fields", std::move(fields)}};
}

void StateSource::tell(const Field &field, const Json &before, const Json &after) {
    timeline_.add({nowMilliseconds(),
                   {{"kind", "state"}, {"field", field.path()}, {"old", before}, {"new", after}},
                   "state  " + field.path() + " " + plainText(before) + " -> " + plainText(after)});
}

// --- log lines ---

Json logRecord(const LogLine &line) {
    return {{"kind", "log"},
            {"process", line.process},
            {"pid", line.pid},
            {"level", coded(line.level, line.letter)},
            {"source", line.placed ? Json(line.source) : Json(nullptr)},
            {"function", line.placed ? Json(line.function) : Json(nullptr)},
            {"line", line.placed ? Json(line.line) : Json(nullptr)},
            {"text", line.text}};
}

Happening logHappening(const std::string &file, const std::string &line) {
    const auto parts = splitLogLine(line);
    if (!parts) {
        return {nowMilliseconds(),
                {{"kind", "log"}, {"process", file}, {"text", line}},
                "log    " + visible(line)};
    }
    return {parts->timeMs, logRecord(*parts),
            "log    " + visible(parts->process) + " " + visible(parts->letter) + " " + visible(parts->text)};
}

// --- system events ---

Json eventRecord(const platform::SystemEvent &event) {
    return {{"kind", "event"},
            {"process", event.process},
            {"pid", event.pid},
            {"category", coded(event.category, eventCategoryName(event.category))},
            {"subtype", event.subtype ? Json(*event.subtype) : Json(nullptr)},
            {"suppressed", event.suppressed},
            {"text", event.text}};
}

EventSource::EventSource(Timeline &timeline) : timeline_(timeline) {
    std::vector<platform::SystemEvent> old;
    while (platform::readEvents(last_, kEventsPerLook, old) == 0 && !old.empty()) {
        last_ = old.back().id;
    }
}

void EventSource::look() {
    std::vector<platform::SystemEvent> events;
    if (platform::readEvents(last_, kEventsPerLook, events) != 0) {
        return;
    }
    for (const auto &event : events) {
        last_ = event.id;
        Json record = eventRecord(event);
        std::string text = "event  " + visible(event.process) + " " + plainText(record["category"]) + ": " +
                           visible(event.text);
        timeline_.add({event.timeMs, std::move(record), std::move(text)});
    }
}

// --- processes ---

std::map<ProcessSource::Key, std::int64_t> ProcessSource::running() {
    std::map<Key, std::int64_t> found;
    std::vector<platform::LoggedProcess> processes;
    static_cast<void>(platform::listProcesses(processes)); // none before the first one has made a database
    for (const auto &one : processes) {
        if (one.running) {
            found[{one.process, one.pid}] = one.sinceMs;
        }
    }
    return found;
}

ProcessSource::ProcessSource(Timeline &timeline) : timeline_(timeline), known_(running()) {}

void ProcessSource::look() {
    auto now = running();
    for (const auto &[key, since] : known_) {
        if (!now.contains(key)) {
            tell(key, "ended", nowMilliseconds());
        }
    }
    for (const auto &[key, since] : now) {
        if (!known_.contains(key)) {
            tell(key, "started", since);
        }
    }
    known_ = std::move(now);
}

void ProcessSource::tell(const Key &key, const char *what, std::int64_t timeMs) {
    timeline_.add({timeMs,
                   {{"kind", "process"}, {"process", key.first}, {"pid", key.second}, {"what", what}},
                   "process " + visible(key.first) + "[" + std::to_string(key.second) + "] " + what});
}

} // namespace ozuctl

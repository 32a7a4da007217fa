// Where happenings on the panel come from besides its bus: the shared record, log files, the event log, the
// list of processes. Each is asked to look and adds what is new to a timeline.
#pragma once

#include "log_line.h"
#include "state_fields.h"
#include "timeline.h"

#include <ozu_platform_tools.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ozuctl {

class StateSource {
  public:
    explicit StateSource(Timeline &timeline) : timeline_(timeline), fields_(fieldsBelow("")) {}

    // Attaches once there is a record; from then on tells every change.
    void look();

    // What differs from an untouched panel, or null while there is no record.
    Json snapshot();

  private:
    void tell(const Field &field, const Json &before, const Json &after);

    Timeline &timeline_;
    std::vector<Field> fields_;
    const PanelSharedState *live_ = nullptr;
    PanelSharedState before_ = {};
    bool late_ = false;
};

// System events from now on.
class EventSource {
  public:
    explicit EventSource(Timeline &timeline);
    void look();

  private:
    Timeline &timeline_;
    std::int64_t last_ = 0;
};

// Starts and ends of panel processes from now on.
class ProcessSource {
  public:
    explicit ProcessSource(Timeline &timeline);
    void look();

  private:
    using Key = std::pair<std::string, int>; // name and process ID
    [[nodiscard]] static std::map<Key, std::int64_t> running();
    void tell(const Key &key, const char *what, std::int64_t timeMs);

    Timeline &timeline_;
    std::map<Key, std::int64_t> known_; // with the time of the start
};

// A log line as a happening; one that is none of the log's goes by the file it stands in.
Json logRecord(const LogLine &line);
Happening logHappening(const std::string &file, const std::string &line);

Json eventRecord(const ozu::platform::SystemEvent &event);

} // namespace ozuctl

// One time-ordered stream of what happens on the panel, put together from several sources.
#pragma once

#include "output.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace ozuctl {

std::int64_t nowMilliseconds();

struct Happening {
    std::int64_t timeMs;
    Json record;            // without its time
    std::string text;       // for people, without its time; one line
    std::int64_t order = 0; // timeMs, but not in the future; set by the timeline
};

// Sources report with their own time stamps, some a little late. Happenings are held back for a moment, so
// that they leave in the order of their time stamps. A time stamp in the future counts as now: it must not
// hold a happening back for longer. Any thread may add.
class Timeline {
  public:
    explicit Timeline(std::int64_t holdMs) : holdMs_(holdMs) {}

    void add(Happening happening);

    // What is older than the hold-back time, in order; with everything set, all of it.
    std::vector<Happening> ripe(bool everything = false);

  private:
    std::mutex lock_;
    std::vector<Happening> waiting_;
    std::int64_t holdMs_;
};

} // namespace ozuctl

// The log that is there already: the lines of all processes, or of one, in the order of their times.
#pragma once

#include "filter.h"
#include "timeline.h"

#include <cstdint>
#include <deque>

namespace ozuctl {

// The lines from a time on (0: all) that pass, oldest first; at most the last so many. Rotated files are
// read, too. Throws kUnreachable when there is no log folder, or one that cannot be read.
std::deque<Happening> pastLogLines(const Filter &filter, std::int64_t sinceMs, std::size_t most);

} // namespace ozuctl

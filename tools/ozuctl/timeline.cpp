#include "timeline.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace ozuctl {

std::int64_t nowMilliseconds() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

void Timeline::add(Happening happening) {
    happening.order = std::min(happening.timeMs, nowMilliseconds());
    const std::lock_guard guard(lock_);
    waiting_.push_back(std::move(happening));
}

std::vector<Happening> Timeline::ripe(bool everything) {
    const std::lock_guard guard(lock_);
    std::stable_sort(waiting_.begin(), waiting_.end(),
                     [](const Happening &a, const Happening &b) { return a.order < b.order; });
    const std::int64_t limit = nowMilliseconds() - holdMs_;
    const auto end = everything ? waiting_.end()
                                : std::find_if(waiting_.begin(), waiting_.end(),
                                               [limit](const Happening &one) { return one.order > limit; });
    std::vector<Happening> ready(std::make_move_iterator(waiting_.begin()), std::make_move_iterator(end));
    waiting_.erase(waiting_.begin(), end);
    return ready;
}

} // namespace ozuctl

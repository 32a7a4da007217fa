// Messages that wait for the broker's acknowledgement, counted per process where every process sees them.
#pragma once

#include "shared_segment.h"

namespace ozu::platform {

// A session's place in the segment. Made, used and dropped by one thread, which must live as long: the place
// counts as abandoned when that thread is gone.
class InFlightPlace {
  public:
    // Without a segment or a free place the session's messages are not visible to other processes.
    InFlightPlace(Segment *segment, const char *process, std::uint32_t patienceSeconds) noexcept;
    ~InFlightPlace();
    InFlightPlace(const InFlightPlace &) = delete;
    InFlightPlace &operator=(const InFlightPlace &) = delete;

    [[nodiscard]] bool visible() const noexcept { return slot_ != nullptr; }
    void setConnected(bool connected) noexcept;
    // Other living sessions of the same name, in whatever state, and connected ones only. The broker has but
    // one session of a name, so with a connected rival one of the two is about to be thrown out.
    [[nodiscard]] bool hasRival() const noexcept { return findRival(false); }
    [[nodiscard]] bool hasConnectedRival() const noexcept { return findRival(true); }
    // May be called from any thread.
    void setCount(std::uint32_t unacknowledged) noexcept;

  private:
    [[nodiscard]] bool findRival(bool connected) const noexcept;

    Segment *segment_ = nullptr;
    SharedInFlight *slot_ = nullptr;
};

// Any process has messages that still count.
bool anyInFlight(Segment &segment) noexcept;
// The slot's messages count: the broker is there, or was lost only a moment ago.
bool stillCounts(const SharedInFlight &slot) noexcept;
// Its owner is alive. Frees the slot otherwise.
bool ownerLives(SharedInFlight &slot) noexcept;

} // namespace ozu::platform

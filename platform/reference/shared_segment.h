// The shared-memory segment: the panel's live record and what the platform itself shares between processes.
//
// It is a POSIX shared-memory object named after the layout version and the data folder's identity,
// /dev/shm/ozu-v1-<identity>. The first process after a boot creates it and fills it from the database.
#pragma once

#include "data_folder.h"

#include <ozudb.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace ozu::platform {

// Changes with every change of SegmentHeader or PanelSharedState.
inline constexpr std::uint32_t kLayoutVersion = 1;
inline constexpr std::array<char, 8> kSegmentMagic{'O', 'Z', 'U', 'S', 'T', 'A', 'T', 'E'};
inline constexpr std::size_t kInFlightSlots = 64;

// A robust mutex between processes, with room for the larger one of 64-bit machines.
union SharedMutex {
    pthread_mutex_t mutex;
    std::array<unsigned char, 64> room;
};
static_assert(sizeof(pthread_mutex_t) <= 64);

// One bus session and its unacknowledged messages. The session's thread holds the owner mutex while it lives,
// so a slot whose mutex can be taken belongs to nobody.
struct SharedInFlight {
    SharedMutex owner;
    std::atomic<std::uint32_t> used;
    std::atomic<std::uint32_t> unacknowledged;
    std::atomic<std::uint32_t> lostAt;   // seconds since boot; 0 while connected
    std::atomic<std::uint32_t> patience; // seconds from then on during which the messages still count
    std::atomic<std::uint32_t> reserved;
    std::int32_t pid;
    std::array<char, 72> process;
};
static_assert(sizeof(SharedInFlight) == 160);

struct SegmentHeader {
    // Fixed for every layout version.
    std::array<char, 8> magic;
    std::uint32_t layoutVersion;
    std::uint32_t segmentSize;
    // From here on as of this layout version.
    std::uint32_t stateSize;
    std::uint32_t stateOffset;
    std::uint32_t pointerBits;                  // the mutexes differ between 32-bit and 64-bit processes
    std::atomic<std::uint32_t> ready;           // 1 once the creator has filled everything in
    std::atomic<std::uint32_t> settingsChanges; // counts changes of severities and settings
    std::atomic<std::uint32_t> shadowValid;     // 1 while a change of the record is under way
    std::int32_t bootReason;                    // stored for this boot by the one before
    std::uint32_t hasBootReason;
    SharedMutex writers;
    std::array<SharedInFlight, kInFlightSlots> inFlight;
    PanelSharedState shadow; // the record before the change that is under way
    FolderMark folder;       // whose segment this is; all zero when an older release made it
};

struct Segment {
    SegmentHeader header;
    alignas(4096) PanelSharedState state;
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(offsetof(Segment, state) == 24576); // of layout version 1

// The mapped segment, created if need be; throws Error when it cannot be used. Never unmapped.
Segment &sharedSegment();
// The same for callers that do without: null when it cannot be used, after one line in the log.
Segment *trySharedSegment() noexcept;
// The segment if this process has mapped it already.
Segment *mappedSegment() noexcept;

// Serialises writers of all processes. When the last owner died in a change, that change is undone first.
class WriterLock {
  public:
    explicit WriterLock(Segment &segment);
    ~WriterLock();
    WriterLock(const WriterLock &) = delete;
    WriterLock &operator=(const WriterLock &) = delete;

  private:
    Segment &segment_;
};

// Changes the record under a held WriterLock so that a death halfway is undone by the next writer.
void changeRecord(Segment &segment, const std::function<void(PanelSharedState &)> &change);

// The identity under which a segment of the folder exists, whatever the folder's own file says: the one that
// is preferred where there are several. Empty when there is none.
std::string identityInUse(const std::string &folder, const std::string &preferred);

// The shared-memory object's file for a folder, and a read-only look at it: null and the reason otherwise.
std::string segmentPath(const std::string &identity, std::uint32_t layoutVersion = kLayoutVersion);
// The identity to look at the folder's segment with; empty when no panel process has run with the folder.
std::string identityForReading(const std::string &folder);
const Segment *mapReadOnly(std::string &why);

// Around a fork: no thread is attaching then.
void lockSegmentForFork() noexcept;
void unlockSegmentAfterFork() noexcept;

// Forgets the mapping of this process, for tests that change the data folder.
void forgetSegment() noexcept;

} // namespace ozu::platform

#include "in_flight.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace ozu::platform {

namespace {

std::uint32_t secondsSinceBoot() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(now.tv_sec) + 1; // never 0, which means connected
}

// Takes a mutex that nobody living holds.
bool takeOver(SharedMutex &shared) noexcept {
    const int error = pthread_mutex_trylock(&shared.mutex);
    if (error == EOWNERDEAD) {
        pthread_mutex_consistent(&shared.mutex);
        return true;
    }
    return error == 0;
}

} // namespace

InFlightPlace::InFlightPlace(Segment *segment, const char *process, std::uint32_t patienceSeconds) noexcept {
    if (segment == nullptr) {
        return;
    }
    for (auto &slot : segment->header.inFlight) {
        if (takeOver(slot.owner)) {
            slot.unacknowledged.store(0);
            slot.lostAt.store(secondsSinceBoot()); // not connected yet
            slot.patience.store(patienceSeconds);
            slot.pid = getpid();
            slot.process.fill('\0');
            std::strncpy(slot.process.data(), process, slot.process.size() - 1);
            slot.used.store(1, std::memory_order_release);
            slot_ = &slot;
            segment_ = segment;
            return;
        }
    }
}

InFlightPlace::~InFlightPlace() {
    if (slot_ != nullptr) {
        slot_->unacknowledged.store(0);
        slot_->used.store(0, std::memory_order_release);
        pthread_mutex_unlock(&slot_->owner.mutex);
    }
}

void InFlightPlace::setConnected(bool connected) noexcept {
    if (slot_ != nullptr) {
        if (connected) {
            slot_->lostAt.store(0);
        } else if (slot_->lostAt.load() == 0) {
            slot_->lostAt.store(secondsSinceBoot());
        }
    }
}

bool InFlightPlace::findRival(bool connected) const noexcept {
    if (slot_ == nullptr) {
        return false;
    }
    for (auto &other : segment_->header.inFlight) {
        if (&other != slot_ && other.used.load(std::memory_order_acquire) != 0 &&
            (!connected || other.lostAt.load() == 0) &&
            std::strncmp(other.process.data(), slot_->process.data(), other.process.size()) == 0 &&
            ownerLives(other)) {
            return true;
        }
    }
    return false;
}

void InFlightPlace::setCount(std::uint32_t unacknowledged) noexcept {
    if (slot_ != nullptr) {
        slot_->unacknowledged.store(unacknowledged, std::memory_order_release);
    }
}

bool stillCounts(const SharedInFlight &slot) noexcept {
    const std::uint32_t lostAt = slot.lostAt.load();
    return lostAt == 0 || secondsSinceBoot() - lostAt <= slot.patience.load();
}

bool ownerLives(SharedInFlight &slot) noexcept {
    if (!takeOver(slot.owner)) {
        return true;
    }
    slot.unacknowledged.store(0);
    slot.used.store(0);
    pthread_mutex_unlock(&slot.owner.mutex);
    return false;
}

bool anyInFlight(Segment &segment) noexcept {
    for (auto &slot : segment.header.inFlight) {
        if (slot.used.load(std::memory_order_acquire) != 0 && slot.unacknowledged.load() != 0 &&
            stillCounts(slot) && ownerLives(slot)) {
            return true;
        }
    }
    return false;
}

} // namespace ozu::platform

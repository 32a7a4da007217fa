// The panel is a 32-bit machine: long, time_t and size_t have 32 bits there. These give its results
// everywhere.
#pragma once

#include <cstdint>
#include <limits>

namespace ozu {

// Epoch seconds as the panel has them: -1 for a time that 32 bits cannot hold.
constexpr std::int32_t panelTime(std::int64_t seconds) noexcept {
    const bool fits = seconds >= std::numeric_limits<std::int32_t>::min() &&
                      seconds <= std::numeric_limits<std::int32_t>::max();
    return fits ? static_cast<std::int32_t>(seconds) : -1;
}

// A signed long as the panel's C library converts it: saturated at the 32-bit limits.
constexpr std::int32_t panelLong(std::int64_t value) noexcept {
    if (value > std::numeric_limits<std::int32_t>::max()) {
        return std::numeric_limits<std::int32_t>::max();
    }
    if (value < std::numeric_limits<std::int32_t>::min()) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(value);
}

} // namespace ozu

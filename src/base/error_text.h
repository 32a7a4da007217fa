// What the last failed call of the C library says about itself.
#pragma once

#include <cerrno>
#include <cstring>

namespace ozu {

// Apart, since every log line of a failure asks for it.
[[gnu::noinline]] inline const char *errorText() noexcept {
    return strerror(errno);
}

} // namespace ozu

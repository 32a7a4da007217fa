// What the C++ library's run-time checks end in; included before everything else of each source. Defined here
// it needs nothing of libstdc++, and the texts that the checks would tell never reach the binary.
#pragma once

#include <cstddef> // declares it where the checks are on
#include <cstdlib>

// Before release 12 the checks end in a function of the headers.
#if defined(_GLIBCXX_ASSERTIONS) && _GLIBCXX_RELEASE >= 12
[[gnu::noreturn, gnu::always_inline]] inline void
std::__glibcxx_assert_fail(const char * /*file*/, int /*line*/, const char * /*function*/,
                           const char * /*condition*/) noexcept {
    abort();
}
#endif

// What the C++ library's run-time checks end in; included before everything else of each source. Defined here
// it needs nothing of libstdc++, and the texts that the checks would tell never reach the binary.
#pragma once

#include <cstddef> // declares it where the checks are on
#include <cstdlib>

#ifdef _GLIBCXX_ASSERTIONS
[[gnu::noreturn, gnu::always_inline]] inline void
std::__glibcxx_assert_fail(const char * /*file*/, int /*line*/, const char * /*function*/,
                           const char * /*condition*/) noexcept {
    abort();
}
#endif

// The C++ library's run-time checks end in this function, which libstdc++ would bring; we do without it.
#include <cstddef> // declares it where the checks are on
#include <cstdlib>

#ifdef _GLIBCXX_ASSERTIONS
void std::__glibcxx_assert_fail(const char * /*file*/, int /*line*/, const char * /*function*/,
                                const char * /*condition*/) noexcept {
    abort();
}
#endif

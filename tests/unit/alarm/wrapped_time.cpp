#include "state_test.h"

#include <time.h>

namespace ozu::test {

std::int64_t now = kUsualNow;

} // namespace ozu::test

extern "C" time_t __wrap_time(time_t *out) {
    platform().journal.emplace_back("time()");
    const auto answer = static_cast<time_t>(ozu::test::now);
    if (out != nullptr) {
        *out = answer;
    }
    return answer;
}

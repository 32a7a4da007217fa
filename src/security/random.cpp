// Random bytes and bounded random numbers.

#include <utils_ozu/crypto.h>

#include <utils_ozu/results.h>

#include <base/log.h>
#include <security/cipher.h>

#include <openssl/rand.h>

#include <cstdint>
#include <cstdlib>

namespace {

constexpr std::int64_t kMaxRandom = 2147483647; // what rand() gives at most

} // namespace

unsigned ozuutils_rand_bytes(unsigned char *buf, int count) noexcept {
    if (count < 0) {
        OZU_LOG(OZULOG_ERROR, "Invalid number of random bytes requested: %d", count);
        return OZU_RESULT_INVALID;
    }
    const ozu::ErrorQueueGuard errors;
    const int result = RAND_bytes(buf, count);
    if (result != 1) {
        OZU_LOG(OZULOG_ERROR, "Error retrieving %d random bytes, returned: %d", count, result);
        return 2;
    }
    return 0;
}

int ozuutils_random(int min, int max) noexcept {
    const int number = std::rand();
    const std::int64_t span = std::int64_t{max} - min + 1;
    if (span == 0) {
        return min;
    }
    // The width of one bucket; for a span of 1 it is 2^31, for some reversed limits 0.
    const std::int64_t width = kMaxRandom / span + 1;
    if (width == 0) {
        return min;
    }
    // Reversed limits may carry the sum out of range.
    return static_cast<int>(number / width + min);
}

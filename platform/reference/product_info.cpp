// product_info.h: the product variant, a setting.

#include <product_info.h>

#include "errors.h"
#include "settings.h"
#include "shared_segment.h"

#include <atomic>
#include <climits>

using namespace ozu::platform;

namespace {

constexpr const char *kSettingName = "product.code";
constexpr int kDefaultCode = 0;

int readCode() noexcept {
    try {
        return numericSetting(kSettingName, INT_MIN, INT_MAX, kDefaultCode);
    } catch (const Error &error) {
        if (error.code() != kNothingThere) {
            note(OZULOG_ERROR, "getProductCodename", error.what());
        }
        return kDefaultCode;
    } catch (const std::exception &error) {
        note(OZULOG_ERROR, "getProductCodename", error.what());
        return kDefaultCode;
    }
}

// The code and the count of settings changes at which it was read, in one word: asked for with every radio
// message, it costs a load as long as no setting changes.
std::atomic<std::uint64_t> remembered{0};
constexpr std::uint64_t kKnown = std::uint64_t{1} << 63;

} // namespace

extern "C" int getProductCodename(void) {
    const Segment *segment = trySharedSegment();
    if (segment == nullptr) {
        return readCode();
    }
    const std::uint64_t changes =
        segment->header.settingsChanges.load(std::memory_order_acquire) & 0x7FFFFFFFU;
    const std::uint64_t stamp = kKnown | (changes << 32);
    const std::uint64_t word = remembered.load(std::memory_order_relaxed);
    if ((word & ~std::uint64_t{0xFFFFFFFF}) == stamp) {
        return static_cast<int>(static_cast<std::uint32_t>(word));
    }
    const int code = readCode();
    remembered.store(stamp | static_cast<std::uint32_t>(code), std::memory_order_relaxed);
    return code;
}

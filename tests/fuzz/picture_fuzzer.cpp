// The picture validation: the same verdict as a full decode with the decoder's default settings.

#include <utils_ozu/jpeg.h>

#include "../support/pictures.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

constexpr std::uint32_t kMostPixels = 1U << 18;

void *pixels; // the buffer of the running validation

// A frame header may claim any size. Large ones only take time here.
bool claimsTooMuch(const std::uint8_t *data, std::size_t size) {
    for (std::size_t at = 0; at + 9 <= size; ++at) {
        if (data[at] == 0xFF && (data[at + 1] & 0xF0) == 0xC0) {
            const std::uint32_t height = data[at + 5] * 256U + data[at + 6];
            const std::uint32_t width = data[at + 7] * 256U + data[at + 8];
            if (height * width > kMostPixels) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

extern "C" {

void *__real_malloc(std::size_t size);
void *__wrap_malloc(std::size_t size) {
    pixels = __real_malloc(size);
    return pixels;
}

void __real_free(void *block);
void __wrap_free(void *block) {
    if (block == pixels) {
        pixels = nullptr;
    }
    __real_free(block);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (claimsTooMuch(data, size)) {
        return -1;
    }
    pixels = nullptr;
    const int verdict = ozuutils_jpegValidator(data, size);
    // A failed decode leaves its buffer behind, by design.
    __real_free(pixels);
    pixels = nullptr;
    const bool clean = ozu::test::decodesCleanly(std::string(reinterpret_cast<const char *>(data), size));
    if (verdict != (clean ? 0 : 4)) {
        abort();
    }
    return 0;
}

} // extern "C"

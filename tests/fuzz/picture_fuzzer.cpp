// The picture validation: the same verdict as a full decode with the decoder's default settings.
//
// The decoder is the system's and not instrumented. In place of its branches the fuzzer is told what the
// decoder says of a picture: each of its messages (trace messages name every marker and table), with the scan
// and the rows it had come to.

#include <utils_ozu/jpeg.h>

#include "../support/pictures.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <jpeglib.h>

namespace {

constexpr std::uint32_t kMaxPixels = 1U << 18;

void *pixels; // the buffer of the running validation

// libFuzzer takes what stands in this section for coverage.
constexpr std::size_t kFeatures = 1U << 14;
__attribute__((section("__libfuzzer_extra_counters"), used)) std::uint8_t features[kFeatures];

void tell(unsigned kind, unsigned detail, unsigned place) {
    features[((kind * 16U + detail % 16U) * 8U + std::min(place, 7U)) % kFeatures] = 1;
}

// How far the decoder has come: which scan, and which eighth of the picture.
void tellMessage(j_common_ptr common) {
    const auto *decoder = static_cast<jpeg_decompress_struct *>(static_cast<void *>(common));
    const auto code = static_cast<unsigned>(common->err->msg_code);
    const auto rows = std::max(1U, static_cast<unsigned>(decoder->total_iMCU_rows));
    tell(code, static_cast<unsigned>(common->err->msg_parm.i[0]),
         static_cast<unsigned>(std::max(0, decoder->input_scan_number)));
    tell(code + 200, decoder->input_iMCU_row * 16U / rows, decoder->output_iMCU_row * 8U / rows);
}

// The decoder's own methods.
void (*formatMessage)(j_common_ptr, char *);
void (*emitMessage)(j_common_ptr, int);

void tellAndFormat(j_common_ptr common, char *buffer) {
    tellMessage(common);
    formatMessage(common, buffer);
}

void tellAndEmit(j_common_ptr common, int level) {
    tellMessage(common);
    emitMessage(common, level);
}

// A frame header may claim any size. Large ones only take time here.
bool claimsTooMuch(const std::uint8_t *data, std::size_t size) {
    for (std::size_t at = 0; at + 9 <= size; ++at) {
        if (data[at] == 0xFF && (data[at + 1] & 0xF0) == 0xC0) {
            const std::uint32_t height = data[at + 5] * 256U + data[at + 6];
            const std::uint32_t width = data[at + 7] * 256U + data[at + 8];
            if (height * width > kMaxPixels) {
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

jpeg_error_mgr *__real_jpeg_std_error(jpeg_error_mgr *errors);
jpeg_error_mgr *__wrap_jpeg_std_error(jpeg_error_mgr *errors) {
    __real_jpeg_std_error(errors);
    formatMessage = errors->format_message;
    emitMessage = errors->emit_message;
    errors->format_message = tellAndFormat;
    errors->emit_message = tellAndEmit;
    return errors;
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

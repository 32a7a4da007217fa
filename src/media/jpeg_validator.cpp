// Whether a picture decodes completely and cleanly.

#include <utils_ozu/jpeg.h>

#include <utils_ozu/results.h>

#include <base/log.h>
#include <media/jpeg_error_context.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>

// Every line of this file carries the name of the exported function.
#define OZU_LOG_STEP(format, ...) OZU_LOG_AS("ozuutils_jpegValidator", OZULOG_INFO, format, ##__VA_ARGS__)

namespace {

static_assert(JPEG_LIB_VERSION == 62, "the record is laid out for version 62 of the decoder's interface");

// All that lives across a jump. The hooks jump out of decode() and what it calls, where nothing has a
// destructor; volatile, so that the jump finds what was last written.
struct Validation {
    jpeg_decompress_struct decoder;
    ozu::JpegErrorContext errors;
    unsigned char *volatile pixels;
    volatile std::size_t size; // of pixels
    volatile bool headerRead;
    volatile int result;
};

enum class Outcome { Decoded, NoHeader, NoMemory };

void step(const char *text) noexcept {
    OZU_LOG_STEP("%s", text);
}

// Only the verdict counts, and only reading and decoding the entropy-coded data can find fault with a
// picture. So the decoder is asked for the smallest picture it makes: one sample of each block.
constexpr unsigned int kSmallest = 8;

// One buffer for the whole picture; null when its size fits no buffer.
unsigned char *allocatePixels(const jpeg_decompress_struct &decoder, volatile std::size_t &size) noexcept {
    const std::uint64_t bytes = std::uint64_t{decoder.image_width} * decoder.image_height *
                                static_cast<std::uint64_t>(decoder.output_components);
    if (bytes > std::numeric_limits<std::size_t>::max()) {
        return nullptr;
    }
    size = static_cast<std::size_t>(bytes);
    return static_cast<unsigned char *>(std::malloc(size));
}

void readScanlines(jpeg_decompress_struct &decoder, unsigned char *pixels) noexcept {
    const std::size_t stride =
        std::size_t{decoder.image_width} * static_cast<std::size_t>(decoder.output_components);
    while (decoder.output_scanline < decoder.output_height) {
        JSAMPROW row = pixels + decoder.output_scanline * stride;
        jpeg_read_scanlines(&decoder, &row, 1);
    }
}

Outcome decode(Validation &v, const unsigned char *data, unsigned long size) noexcept {
    step("Proc: Create Decompress struct");
    jpeg_CreateDecompress(&v.decoder, JPEG_LIB_VERSION, sizeof(v.decoder));
    step("Proc: Set memory buffer as source");
    jpeg_mem_src(&v.decoder, data, size);
    step("Proc: Read the JPEG header");
    if (jpeg_read_header(&v.decoder, TRUE) != JPEG_HEADER_OK) {
        return Outcome::NoHeader;
    }
    v.headerRead = true;
    step("Proc: Initiate JPEG decompression");
    v.decoder.scale_denom = kSmallest;
    jpeg_start_decompress(&v.decoder);
    OZU_LOG_STEP("Proc: Image is %d by %d with %d components", static_cast<int>(v.decoder.image_width),
                 static_cast<int>(v.decoder.image_height), v.decoder.output_components);
    v.pixels = allocatePixels(v.decoder, v.size);
    if (v.pixels == nullptr) {
        return Outcome::NoMemory;
    }
    step("Proc: Start reading scanlines");
    readScanlines(v.decoder, v.pixels);
    step("Proc: Done reading scanlines");
    jpeg_finish_decompress(&v.decoder);
    return Outcome::Decoded;
}

// Hands the memory behind the whole pages of a buffer back; the buffer itself stays allocated.
void dropPages(unsigned char *buffer, std::size_t size) noexcept {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE)); // a power of two
    const auto start = reinterpret_cast<std::uintptr_t>(buffer);
    const std::uintptr_t first = (start + page - 1) & -page;
    const std::uintptr_t end = (start + size) & -page;
    if (end > first) {
        static_cast<void>(madvise(buffer + (first - start), end - first, MADV_DONTNEED));
    }
}

// The way out of every decoding that did not come to its end. The buffer is freed only when the picture had
// been found invalid before; otherwise it stays allocated, without the memory behind it.
int giveUp(Validation &v) noexcept {
    jpeg_destroy_decompress(&v.decoder);
    if (v.result != OZU_RESULT_OK) {
        std::free(v.pixels);
    } else if (v.pixels != nullptr) {
        dropPages(v.pixels, v.size);
    }
    v.result = OZU_RESULT_INVALID;
    return v.result;
}

} // namespace

int ozuutils_jpegValidator(const unsigned char *data, unsigned long size) noexcept {
    Validation v = {};
    v.decoder.err = jpeg_std_error(&v.errors.manager);
    v.errors.manager.error_exit = error_exit;
    v.errors.manager.output_message = output_message;
    if (setjmp(v.errors.jump) != 0) { // NOLINT(cert-err52-cpp): the decoder is C
        if (!v.headerRead) {
            step("File does not seem to be a normal JPEG");
        }
        return giveUp(v);
    }
    switch (decode(v, data, size)) {
    case Outcome::NoHeader:
        // The decoder that did not complain keeps its record.
        step("File does not seem to be a normal JPEG");
        return OZU_RESULT_INVALID;
    case Outcome::NoMemory:
        return giveUp(v);
    case Outcome::Decoded:
        break;
    }
    if (v.errors.manager.num_warnings > 0) {
        step("JPEG validation failed");
        v.result = OZU_RESULT_INVALID;
    }
    jpeg_destroy_decompress(&v.decoder);
    std::free(v.pixels);
    step("End of decompression");
    return v.result;
}

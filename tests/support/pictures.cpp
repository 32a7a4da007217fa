#include "pictures.h"

#include <cstdio>

#include <jpeglib.h>

#include <csetjmp>
#include <cstdlib>
#include <utility>
#include <vector>

namespace ozu::test {

namespace {

J_COLOR_SPACE spaceOf(int components) {
    switch (components) {
    case 1:
        return JCS_GRAYSCALE;
    case 3:
        return JCS_RGB;
    case 4:
        return JCS_CMYK;
    default:
        return JCS_UNKNOWN;
    }
}

void fillRow(std::vector<JSAMPLE> &row, unsigned y, unsigned components) {
    for (std::size_t i = 0; i < row.size(); ++i) {
        const auto x = static_cast<unsigned>(i / components);
        row[i] = static_cast<JSAMPLE>((x * 7 + y * 5 + (x * y) % 31 + i % components * 60) & 0xFFU);
    }
}

struct JudgeErrors {
    jpeg_error_mgr manager;
    jmp_buf jump;
};

void leave(j_common_ptr decoder) {
    longjmp(static_cast<JudgeErrors *>(static_cast<void *>(decoder->err))->jump, 1); // NOLINT(cert-err52-cpp)
}

void countOnly(j_common_ptr decoder, int level) {
    if (level < 0) {
        ++decoder->err->num_warnings;
    }
}

struct PlainDecode {
    jpeg_decompress_struct decoder = {};
    jpeg_error_mgr errors = {};
    jmp_buf jump = {};
    std::vector<std::string> lines;
    bool headerRead = false;
    std::vector<JSAMPLE> row;
};

void complain(j_common_ptr decoder, const char *hook) {
    auto &plain = *static_cast<PlainDecode *>(decoder->client_data);
    char message[JMSG_LENGTH_MAX];
    decoder->err->format_message(decoder, message);
    plain.lines.push_back(std::string(hook) + " [" + message + "]");
    longjmp(plain.jump, 1); // NOLINT(cert-err52-cpp)
}

void decode(PlainDecode &plain, const std::string &jpeg) {
    jpeg_decompress_struct &decoder = plain.decoder;
    plain.lines.emplace_back("Proc: Set memory buffer as source");
    jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char *>(jpeg.data()), jpeg.size());
    plain.lines.emplace_back("Proc: Read the JPEG header");
    jpeg_read_header(&decoder, TRUE);
    plain.headerRead = true;
    plain.lines.emplace_back("Proc: Initiate JPEG decompression");
    jpeg_start_decompress(&decoder);
    plain.lines.push_back("Proc: Image is " + std::to_string(decoder.output_width) + " by " +
                          std::to_string(decoder.output_height) + " with " +
                          std::to_string(decoder.output_components) + " components");
    plain.row.resize(std::size_t{decoder.output_width} * static_cast<unsigned>(decoder.output_components));
    plain.lines.emplace_back("Proc: Start reading scanlines");
    while (decoder.output_scanline < decoder.output_height) {
        JSAMPROW rows = plain.row.data();
        jpeg_read_scanlines(&decoder, &rows, 1);
    }
    plain.lines.emplace_back("Proc: Done reading scanlines");
    jpeg_finish_decompress(&decoder);
    plain.lines.emplace_back("End of decompression");
}

} // namespace

std::ostream &operator<<(std::ostream &out, const PictureShape &shape) {
    return out << shape.label;
}

std::string picture(const PictureShape &shape) {
    jpeg_compress_struct encoder = {};
    jpeg_error_mgr errors = {};
    encoder.err = jpeg_std_error(&errors);
    jpeg_create_compress(&encoder);
    unsigned char *bytes = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&encoder, &bytes, &size);
    encoder.image_width = shape.width;
    encoder.image_height = shape.height;
    encoder.input_components = shape.components;
    encoder.in_color_space = spaceOf(shape.components);
    jpeg_set_defaults(&encoder);
    jpeg_set_quality(&encoder, shape.quality, TRUE);
    encoder.restart_interval = shape.restartInterval;
    encoder.arith_code = shape.arithmetic ? TRUE : FALSE;
    if (shape.components == 3) {
        encoder.comp_info[0].h_samp_factor = shape.sampling;
        encoder.comp_info[0].v_samp_factor = shape.sampling;
    }
    if (shape.progressive) {
        jpeg_simple_progression(&encoder);
    }
    if (shape.tune != nullptr) {
        shape.tune(encoder);
    }
    jpeg_start_compress(&encoder, TRUE);
    std::vector<JSAMPLE> row(std::size_t{shape.width} * static_cast<unsigned>(shape.components));
    while (encoder.next_scanline < encoder.image_height) {
        fillRow(row, encoder.next_scanline, static_cast<unsigned>(shape.components));
        JSAMPROW rows = row.data();
        jpeg_write_scanlines(&encoder, &rows, 1);
    }
    jpeg_finish_compress(&encoder);
    std::string jpeg(reinterpret_cast<char *>(bytes), size);
    jpeg_destroy_compress(&encoder);
    free(bytes);
    return jpeg;
}

std::string withDimensions(std::string jpeg, unsigned width, unsigned height) {
    for (std::size_t at = 2; at + 9 < jpeg.size();) {
        const auto byte = [&](std::size_t offset) { return static_cast<unsigned char>(jpeg[at + offset]); };
        const bool frame =
            byte(1) >= 0xC0 && byte(1) <= 0xCF && byte(1) != 0xC4 && byte(1) != 0xC8 && byte(1) != 0xCC;
        if (frame) {
            jpeg[at + 5] = static_cast<char>(height >> 8);
            jpeg[at + 6] = static_cast<char>(height);
            jpeg[at + 7] = static_cast<char>(width >> 8);
            jpeg[at + 8] = static_cast<char>(width);
            break;
        }
        at += 2U + (static_cast<std::size_t>(byte(2)) << 8) + byte(3);
    }
    return jpeg;
}

bool decodesCleanly(const std::string &jpeg) {
    jpeg_decompress_struct decoder = {};
    JudgeErrors errors = {};
    decoder.err = jpeg_std_error(&errors.manager);
    errors.manager.error_exit = leave;
    errors.manager.emit_message = countOnly;
    std::vector<JSAMPLE> row;
    if (setjmp(errors.jump) != 0) { // NOLINT(cert-err52-cpp)
        jpeg_destroy_decompress(&decoder);
        return false;
    }
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char *>(jpeg.data()), jpeg.size());
    jpeg_read_header(&decoder, TRUE);
    jpeg_start_decompress(&decoder);
    row.resize(std::size_t{decoder.output_width} * static_cast<unsigned>(decoder.output_components));
    while (decoder.output_scanline < decoder.output_height) {
        JSAMPROW rows = row.data();
        jpeg_read_scanlines(&decoder, &rows, 1);
    }
    jpeg_finish_decompress(&decoder);
    const bool clean = errors.manager.num_warnings == 0;
    jpeg_destroy_decompress(&decoder);
    return clean;
}

std::vector<std::string> linesOfPlainDecode(const std::string &jpeg) {
    PlainDecode plain;
    plain.decoder.err = jpeg_std_error(&plain.errors);
    plain.errors.error_exit = [](j_common_ptr decoder) { complain(decoder, "error_exit"); };
    plain.errors.output_message = [](j_common_ptr decoder) { complain(decoder, "output_message"); };
    plain.decoder.client_data = &plain;
    plain.lines.emplace_back("Proc: Create Decompress struct");
    jpeg_create_decompress(&plain.decoder);
    if (setjmp(plain.jump) == 0) { // NOLINT(cert-err52-cpp)
        decode(plain, jpeg);
    } else if (!plain.headerRead) {
        plain.lines.emplace_back("File does not seem to be a normal JPEG");
    }
    jpeg_destroy_decompress(&plain.decoder);
    return std::move(plain.lines);
}

} // namespace ozu::test

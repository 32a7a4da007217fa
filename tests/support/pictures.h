// Pictures made at test time, and an independent judge of them.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

struct jpeg_compress_struct;

namespace ozu::test {

struct PictureShape {
    unsigned width = 32;
    unsigned height = 24;
    int components = 3; // 1 grey, 3 colour, 4 CMYK, others without a meaning
    bool progressive = false;
    bool arithmetic = false;
    unsigned restartInterval = 0; // in blocks
    int quality = 75;
    int sampling = 2; // of the first component, horizontal and vertical
    const char *label = "";
    void (*tune)(jpeg_compress_struct &) = nullptr; // last changes to the encoder's settings
};

std::ostream &operator<<(std::ostream &out, const PictureShape &shape);

// A picture with content in every block.
std::string picture(const PictureShape &shape);

// The same picture with other dimensions in its frame header.
std::string withDimensions(std::string jpeg, unsigned width, unsigned height);

// Whether libjpeg, with its default settings, decodes the picture to its end without an error or a warning.
// Goes on after warnings, unlike the library.
bool decodesCleanly(const std::string &jpeg);

// What the validation logs when it decodes plainly: every option of libjpeg at its default, and the first
// complaint ends it. Made with the libjpeg at hand, so it holds whichever release that is.
std::vector<std::string> linesOfPlainDecode(const std::string &jpeg);

} // namespace ozu::test

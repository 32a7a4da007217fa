// Pictures of less usual kinds: what they are judged to be, and why. Each has the verdict of a full decode.

#include <utils_ozu/jpeg.h>

#include "fake_platform.h"
#include "pictures.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <cstdio>

#include <jpeglib.h>

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

using ozu::test::decodesCleanly;
using ozu::test::linesOfPlainDecode;
using ozu::test::LogLine;
using ozu::test::picture;
using ozu::test::PictureShape;
using ozu::test::platform;
using ozu::test::withDimensions;

#if defined(__SANITIZE_ADDRESS__)
// The buffer of a picture that did not decode stays allocated by design.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() {
    return "leak:allocatePixels\n";
}
#endif

namespace {

int verdict(const std::string &jpeg) {
    platform().log.clear();
    return ozuutils_jpegValidator(reinterpret_cast<const unsigned char *>(jpeg.data()), jpeg.size());
}

std::vector<std::string> lines() {
    std::vector<std::string> texts;
    for (const LogLine &line : platform().log) {
        texts.push_back(line.text);
    }
    return texts;
}

// Where a marker stands. Segments are walked, so that data is not taken for one.
std::size_t marker(const std::string &jpeg, unsigned code) {
    for (std::size_t at = 2; at + 4 <= jpeg.size();) {
        const auto byte = [&](std::size_t offset) { return static_cast<unsigned char>(jpeg[at + offset]); };
        if (byte(1) == code) {
            return at;
        }
        at += 2U + byte(2) * 256U + byte(3);
    }
    ADD_FAILURE() << "no marker " << code;
    return 0;
}

std::string with(std::string jpeg, std::size_t at, unsigned value) {
    jpeg.at(at) = static_cast<char>(value);
    return jpeg;
}

class JpegFormats : public ozu::test::PlatformTest {
  protected:
    static void expectRefused(const std::string &jpeg, const std::string &lastLine) {
        EXPECT_FALSE(decodesCleanly(jpeg));
        EXPECT_EQ(verdict(jpeg), 4);
        EXPECT_EQ(lines().back(), lastLine);
    }
    // By verdict, stage and complaint.
    static void expectAsPlainDecode(const std::string &jpeg) {
        const std::vector<std::string> expected = linesOfPlainDecode(jpeg);
        EXPECT_EQ(verdict(jpeg), expected.back() == "End of decompression" ? 0 : 4);
        EXPECT_EQ(lines(), expected);
    }
    // Refused while the header is read, so that two lines say so.
    static void expectNoHeader(const std::string &jpeg, const std::string &complaint) {
        expectRefused(jpeg, "File does not seem to be a normal JPEG");
        ASSERT_EQ(lines().size(), 5u);
        EXPECT_EQ(lines()[3], complaint);
    }
};

void sampled(jpeg_compress_struct &encoder, int first, int second) {
    encoder.comp_info[0].h_samp_factor = first;
    encoder.comp_info[0].v_samp_factor = second;
}

// One scan for each component.
void separateScans(jpeg_compress_struct &encoder) {
    static constexpr jpeg_scan_info kScans[] = {
        {1, {0}, 0, 63, 0, 0}, {1, {1}, 0, 63, 0, 0}, {1, {2}, 0, 63, 0, 0}};
    encoder.scan_info = kScans;
    encoder.num_scans = static_cast<int>(std::size(kScans));
}

struct Kind {
    PictureShape shape;
    int components;
};

void PrintTo(const Kind &kind, std::ostream *out) {
    *out << kind.shape.label;
}

const Kind kKinds[] = {
    {{33, 25, 4, false, false, 0, 75, 1, "ycck",
      [](jpeg_compress_struct &encoder) { jpeg_set_colorspace(&encoder, JCS_YCCK); }},
     4},
    {{33, 25, 3, false, false, 0, 75, 1, "storedAsRgb",
      [](jpeg_compress_struct &encoder) { jpeg_set_colorspace(&encoder, JCS_RGB); }},
     3},
    {{33, 25, 3, false, false, 0, 75, 1, "colourStoredAsGrey",
      [](jpeg_compress_struct &encoder) { jpeg_set_colorspace(&encoder, JCS_GRAYSCALE); }},
     1},
    {{33, 25, 2, false, false, 0, 75, 1, "twoComponents"}, 2},
    {{33, 25, 3, false, false, 0, 75, 1, "half_width_chroma",
      [](jpeg_compress_struct &encoder) { sampled(encoder, 2, 1); }},
     3},
    {{33, 25, 3, false, false, 0, 75, 1, "half_height_chroma",
      [](jpeg_compress_struct &encoder) { sampled(encoder, 1, 2); }},
     3},
    {{65, 25, 3, false, false, 0, 75, 1, "quarter_width_chroma",
      [](jpeg_compress_struct &encoder) { sampled(encoder, 4, 1); }},
     3},
    {{33, 25, 3, false, false, 0, 75, 2, "a_scan_for_each_component", separateScans}, 3},
    {{33, 25, 3, true, true, 0, 75, 2, "arithmetic_progressive"}, 3},
    {{33, 25, 3, false, false, 0, 75, 2, "optimised_tables",
      [](jpeg_compress_struct &encoder) { encoder.optimize_coding = TRUE; }},
     3},
    {{33, 25, 3, false, false, 0, 75, 2, "no_jfif_marker",
      [](jpeg_compress_struct &encoder) { encoder.write_JFIF_header = FALSE; }},
     3},
};

} // namespace

class JpegKind : public JpegFormats, public testing::WithParamInterface<Kind> {};

TEST_P(JpegKind, isValid) {
    const Kind &kind = GetParam();
    const std::string jpeg = picture(kind.shape);
    ASSERT_TRUE(decodesCleanly(jpeg));
    EXPECT_EQ(verdict(jpeg), 0);
    EXPECT_EQ(lines()[4], "Proc: Image is " + std::to_string(kind.shape.width) + " by " +
                              std::to_string(kind.shape.height) + " with " + std::to_string(kind.components) +
                              " components");
    EXPECT_EQ(lines().back(), "End of decompression");
    EXPECT_EQ(verdict(jpeg.substr(0, jpeg.size() - 2)), 4) << "without its end mark";
}

INSTANTIATE_TEST_SUITE_P(Kinds, JpegKind, testing::ValuesIn(kKinds),
                         [](const auto &instance) { return std::string(instance.param.shape.label); });

TEST_F(JpegFormats, sampleRatiosThatTheDecoderDoesNotKnow) {
    std::string jpeg = picture({33, 25, 3, false, false, 0, 75, 1});
    const std::size_t components = marker(jpeg, 0xC0) + 10; // three bytes each: name, sampling, table
    jpeg = with(with(jpeg, components + 1, 0x31), components + 4, 0x21);
    expectRefused(jpeg, "error_exit [Fractional sampling not implemented yet]");
    EXPECT_EQ(lines().size(), 5u) << "found out when the decompression is started";
}

// Later releases of the decoder know more kinds; each of them is judged as that release decodes it.
TEST_F(JpegFormats, twelveBitsASample) {
    const std::string jpeg = picture({});
    const std::string twelve = with(jpeg, marker(jpeg, 0xC0) + 4, 12);
    expectAsPlainDecode(twelve);
    EXPECT_THAT(lines(), testing::Contains("error_exit [Unsupported JPEG data precision 12]"));
}

TEST_F(JpegFormats, losslessAndHierarchicalProcesses) {
    const std::string jpeg = picture({});
    for (const unsigned code : {0xC3U, 0xC5U, 0xC6U, 0xC7U, 0xCBU, 0xCDU, 0xCEU, 0xCFU}) {
        const std::string other = with(jpeg, marker(jpeg, 0xC0) + 1, code);
        EXPECT_EQ(verdict(other), 4) << code;
        expectAsPlainDecode(other);
    }
}

// All differences are 0, so every sample is the same and takes one bit.
std::string losslessPicture(unsigned components, bool jfif) {
    const auto bytes = [](std::initializer_list<unsigned> list) {
        return std::string(list.begin(), list.end());
    };
    constexpr unsigned kSide = 16;
    std::string jpeg = bytes({0xFF, 0xD8});
    if (jfif) {
        jpeg += bytes({0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
    }
    jpeg += bytes({0xFF, 0xC3, 0, 8U + 3U * components, 8, 0, kSide, 0, kSide, components});
    for (unsigned i = 1; i <= components; ++i) {
        jpeg += bytes({i, 0x11, 0});
    }
    jpeg += bytes({0xFF, 0xC4, 0, 20, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    jpeg += bytes({0xFF, 0xDA, 0, 6U + 2U * components, components});
    for (unsigned i = 1; i <= components; ++i) {
        jpeg += bytes({i, 0});
    }
    constexpr unsigned kPredictor = 1;
    return jpeg + bytes({kPredictor, 0, 0}) + std::string(kSide * kSide * components / 8, '\0') +
           bytes({0xFF, 0xD9});
}

TEST_F(JpegFormats, losslessPictures) {
    for (const unsigned components : {1U, 3U, 4U}) {
        for (const bool jfif : {false, true}) {
            const std::string jpeg = losslessPicture(components, jfif);
            expectAsPlainDecode(jpeg);
            expectAsPlainDecode(jpeg.substr(0, jpeg.size() - 10));
        }
    }
}

TEST_F(JpegFormats, heightThatComesAfterTheScan) {
    // A height of 0 announces a DNL marker behind the first scan.
    std::string jpeg = withDimensions(picture({}), 32, 0);
    jpeg.insert(jpeg.size() - 2, std::string("\xFF\xDC\x00\x04\x00\x18", 6));
    expectNoHeader(jpeg, "error_exit [Empty JPEG image (DNL not supported)]");
    EXPECT_EQ(verdict(withDimensions(jpeg, 32, 24)), decodesCleanly(withDimensions(jpeg, 32, 24)) ? 0 : 4);
}

TEST_F(JpegFormats, tablesWithoutAPicture) {
    const std::string jpeg = picture({});
    expectNoHeader(jpeg.substr(0, marker(jpeg, 0xC0)) + "\xFF\xD9",
                   "error_exit [JPEG datastream contains no image]");
}

TEST_F(JpegFormats, scanBeforeItsFrame) {
    const std::string jpeg = picture({});
    const std::size_t frame = marker(jpeg, 0xC0);
    const std::size_t length = 2U + static_cast<unsigned char>(jpeg[frame + 3]);
    std::string without = jpeg;
    without.erase(frame, length);
    expectNoHeader(without, "error_exit [Invalid JPEG file structure: SOS before SOF]");
    std::string twice = jpeg;
    twice.insert(frame, jpeg, frame, length);
    expectNoHeader(twice, "error_exit [Invalid JPEG file structure: two SOF markers]");
}

TEST_F(JpegFormats, missingTables) {
    const std::string jpeg = picture({});
    // A table under a number that nobody uses.
    expectRefused(with(jpeg, marker(jpeg, 0xDB) + 4, 3),
                  "error_exit [Quantization table 0x00 was not defined]");
    EXPECT_EQ(lines().size(), 5u);
    // Cameras leave the standard Huffman tables out; a scan that asks for another one has none.
    const std::string standard = with(jpeg, marker(jpeg, 0xC4) + 4, 3);
    ASSERT_TRUE(decodesCleanly(standard));
    EXPECT_EQ(verdict(standard), 0);
    expectRefused(with(jpeg, marker(jpeg, 0xDA) + 6, 0x22),
                  "error_exit [Huffman table 0x02 was not defined]");
}

TEST_F(JpegFormats, restartMarkerThatIsMissing) {
    const std::string jpeg = picture({48, 48, 3, false, false, 1});
    const std::size_t restart = jpeg.find("\xFF\xD1");
    ASSERT_NE(restart, std::string::npos);
    std::string without = jpeg;
    without.erase(restart, 2);
    EXPECT_FALSE(decodesCleanly(without));
    EXPECT_EQ(verdict(without), 4);
    EXPECT_EQ(platform().log.back().function, "output_message");
    expectRefused(with(jpeg, restart + 1, 0xD3),
                  "output_message [Corrupt JPEG data: found marker 0xd3 instead of RST1]");
}

TEST_F(JpegFormats, progressiveOneThatBreaksOffIsFoundOutBeforeItsSizeIsSaid) {
    // All scans are read when the decompression is started.
    const std::string jpeg = picture({40, 40, 3, true});
    EXPECT_EQ(verdict(jpeg.substr(0, jpeg.size() - 30)), 4);
    EXPECT_THAT(lines(),
                testing::ElementsAre("Proc: Create Decompress struct", "Proc: Set memory buffer as source",
                                     "Proc: Read the JPEG header", "Proc: Initiate JPEG decompression",
                                     "output_message [Premature end of JPEG file]"));
}

TEST_F(JpegFormats, bytesBehindTheEndMarkDoNotCount) {
    const std::string jpeg = picture({});
    for (const std::string &behind :
         {std::string("x"), std::string(70000, '\xFF'), jpeg, jpeg.substr(0, 50)}) {
        EXPECT_EQ(verdict(jpeg + behind), 0);
    }
}

TEST_F(JpegFormats, bytesBeforeTheEndMark) {
    for (const bool progressive : {false, true}) {
        const std::string jpeg = picture({40, 40, 3, progressive});
        std::string few = jpeg, many = jpeg;
        expectAsPlainDecode(
            few.insert(jpeg.size() - 2, "ab")); // which may have been read ahead with the scan
        expectAsPlainDecode(many.insert(jpeg.size() - 2, 1000, 'a'));
        EXPECT_EQ(verdict(many), 4);
    }
}

// What is read ahead with the last bits of a scan is not seen: up to three bytes by a decoder that reads 32
// bits at a time, up to seven with 64.
TEST_F(JpegFormats, fewBytesBeforeTheEndMarkMayGoUnnoticed) {
    for (const bool progressive : {false, true}) {
        std::size_t fewest = 100, most = 0;
        for (unsigned width = 8; width <= 64; ++width) {
            const std::string jpeg = picture({width, 24, 3, progressive});
            std::size_t unnoticed = 0;
            for (std::string extra = jpeg; verdict(extra) == 0 && unnoticed < 100; ++unnoticed) {
                extra.insert(jpeg.size() - 2, "a");
            }
            fewest = std::min(fewest, unnoticed - 1);
            most = std::max(most, unnoticed - 1);
        }
        EXPECT_EQ(fewest, 0u);
        EXPECT_EQ(most, sizeof(std::size_t) - 1);
    }
}

TEST_F(JpegFormats, bytesBetweenMarkers) {
    const std::string jpeg = picture({});
    std::string filled = jpeg, garbage = jpeg, comment = jpeg;
    filled.insert(marker(jpeg, 0xC0), std::string(100, '\xFF'));
    EXPECT_EQ(verdict(filled), 0) << "a marker may have any number of leading FF";
    garbage.insert(marker(jpeg, 0xC0), "ab");
    expectRefused(garbage, "File does not seem to be a normal JPEG");
    EXPECT_EQ(lines()[3], "output_message [Corrupt JPEG data: 2 extraneous bytes before marker 0xc0]");
    comment.insert(2, std::string("\xFF\xFE\xFF\xFF", 4) + std::string(65533, 'c'));
    EXPECT_EQ(verdict(comment), 0) << "the longest comment";
    comment.erase(100, 1);
    EXPECT_EQ(verdict(comment), decodesCleanly(comment) ? 0 : 4);
}

// Many scans of a large, empty area stand in few bytes: a run tells that no block has anything to add.
TEST_F(JpegFormats, longRunsOfEmptyBlocksEndInTime) {
    constexpr unsigned kSide = 1024;
    const std::string jpeg =
        picture({kSide, kSide, 1, true, false, 0, 1, 1, "", [](jpeg_compress_struct &encoder) {
                     static jpeg_scan_info scans[64] = {{1, {0}, 0, 0, 0, 0}};
                     for (int i = 1; i < 64; ++i) {
                         scans[i] = {1, {0}, i, i, 0, 0};
                     }
                     encoder.scan_info = scans;
                     encoder.num_scans = 64;
                     for (auto &quantum : encoder.quant_tbl_ptrs[0]->quantval) {
                         quantum = 255;
                     }
                 }});
    EXPECT_LT(jpeg.size(), kSide * kSide / 8);
    const clock_t start = clock();
    EXPECT_EQ(verdict(jpeg), 0);
    EXPECT_LT(clock() - start, 10 * CLOCKS_PER_SEC);
    EXPECT_EQ(verdict(jpeg.substr(0, jpeg.size() / 2)), 4);
}

// Only of intact images: how far the decoder reads ahead is the machine's own, and with it now and then what
// a damaged one is found to be.
TEST_F(JpegFormats, sameResultsOfIntactImagesOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    for (const Kind &kind : kKinds) {
        for (int round = 0; round < 20; ++round) {
            PictureShape shape = kind.shape;
            shape.width = 1 + random.below(150);
            shape.height = 1 + random.below(150);
            shape.quality = static_cast<int>(1 + random.below(100));
            shape.restartInterval = random.below(3);
            digest.add(verdict(picture(shape)));
        }
    }
    digest.print("intact images");
}

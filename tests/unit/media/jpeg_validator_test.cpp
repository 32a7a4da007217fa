#include <utils_ozu/jpeg.h>

#include "emulation.h"
#include "fake_platform.h"
#include "pictures.h"
#include "test_files.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <jpeglib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

using ozu::test::decodesCleanly;
using ozu::test::extended;
using ozu::test::linesOfPlainDecode;
using ozu::test::LogLine;
using ozu::test::noise;
using ozu::test::picture;
using ozu::test::PictureShape;
using ozu::test::platform;
using ozu::test::sweepStride;
using ozu::test::withDimensions;
using testing::ElementsAre;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
// The buffer of a picture that did not decode stays allocated by design.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() {
    return "leak:allocatePixels\n";
}
#else
constexpr bool kSanitized = false;
#endif

namespace {

// The library's own calls; what libjpeg does inside is not seen here.
struct Calls {
    std::map<void *, std::size_t> blocks; // allocated and not freed
    int allocations = 0, frees = 0, destroyed = 0;
    std::size_t dropped = 0; // bytes of whole pages handed back
    bool failAllocation = false;
    int headerResult = -1; // instead of the decoder's
    long extraWarnings = 0;
    jpeg_decompress_struct abandoned = {};
    bool watched = false; // whoever writes into the decoder's record between its calls is found out
    jpeg_decompress_struct left = {}; // by the decoder's last call
    std::vector<std::ptrdiff_t> rows; // where they were read to, from the beginning of the buffer
} calls;

void expectAsLeft(const jpeg_decompress_struct &decoder) {
    if (calls.watched) {
        EXPECT_EQ(memcmp(&decoder, &calls.left, sizeof(decoder)), 0);
    }
}

LogLine step(const std::string &text) {
    return extended(30000, text, "ozuutils_jpegValidator");
}

int validate(const std::string &jpeg) {
    return ozuutils_jpegValidator(reinterpret_cast<const unsigned char *>(jpeg.data()), jpeg.size());
}

class JpegValidator : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        calls = {};
    }
    void TearDown() override {
        calls = {};
        PlatformTest::TearDown();
    }
    static std::vector<std::string> lines() {
        std::vector<std::string> texts;
        for (const LogLine &line : platform().log) {
            texts.push_back(line.text);
        }
        return texts;
    }
    // Validates without keeping what is logged.
    static int verdict(const std::string &jpeg) {
        platform().log.clear();
        platform().journal.clear();
        return validate(jpeg);
    }
    // By verdict, stage and complaint.
    static void expectJudgedAsByAFullDecode(const std::string &jpeg, const std::string &what) {
        const int result = verdict(jpeg);
        const std::vector<std::string> expected = linesOfPlainDecode(jpeg);
        ASSERT_EQ(result, expected.back() == "End of decompression" ? 0 : 4) << what;
        // A picture that claims a size for which there is no memory ends where its size is told.
        if (calls.blocks.count(nullptr) == 0) {
            ASSERT_EQ(lines(), expected) << what;
        }
        calls.blocks.erase(nullptr);
    }
    // Runs in a child with so much address space; gives its exit status, negative when it died.
    static int inChild(const std::string &jpeg, std::size_t addressSpace) {
        const pid_t child = fork();
        if (child == 0) {
            const struct rlimit limit = {addressSpace, addressSpace};
            setrlimit(RLIMIT_AS, &limit);
            _exit(validate(jpeg));
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
};

const std::vector<PictureShape> kShapes = {
    {32, 24, 3, false, false, 0, 75, 2, "baseline"},
    {32, 24, 3, false, false, 0, 75, 1, "fullChroma"},
    {33, 25, 3, false, false, 0, 75, 2, "oddSize"},
    {1, 1, 3, false, false, 0, 75, 2, "onePixel"},
    {1, 70, 1, false, false, 0, 75, 1, "oneColumn"},
    {70, 1, 3, false, false, 0, 75, 2, "oneRow"},
    {32, 24, 1, false, false, 0, 75, 1, "grey"},
    {32, 24, 4, false, false, 0, 75, 1, "cmyk"},
    {40, 40, 3, true, false, 0, 75, 2, "progressive"},
    {40, 40, 1, true, false, 0, 75, 1, "progressiveGrey"},
    {48, 48, 3, false, false, 1, 75, 2, "restartMarkers"},
    {48, 48, 3, true, false, 2, 75, 2, "progressiveRestart"},
    {32, 24, 3, false, true, 0, 75, 2, "arithmetic"},
    {37, 29, 3, false, false, 0, 100, 2, "bestQuality"},
    {37, 29, 3, false, false, 0, 1, 2, "worstQuality"},
};

} // namespace

extern "C" {

void *__real_malloc(std::size_t);
void *__wrap_malloc(std::size_t size) {
    ++calls.allocations;
    void *block = calls.failAllocation ? nullptr : __real_malloc(size);
    calls.blocks[block] = size;
    return block;
}

void __real_free(void *);
void __wrap_free(void *block) {
    if (calls.blocks.erase(block) != 0) {
        ++calls.frees;
    }
    __real_free(block);
}

int __real_madvise(void *, std::size_t, int);
int __wrap_madvise(void *start, std::size_t size, int advice) {
    EXPECT_EQ(advice, MADV_DONTNEED);
    calls.dropped += size;
    return __real_madvise(start, size, advice);
}

void __real_jpeg_destroy_decompress(j_decompress_ptr);
void __wrap_jpeg_destroy_decompress(j_decompress_ptr decoder) {
    ++calls.destroyed;
    __real_jpeg_destroy_decompress(decoder);
}

int __real_jpeg_read_header(j_decompress_ptr, boolean);
int __wrap_jpeg_read_header(j_decompress_ptr decoder, boolean requireImage) {
    EXPECT_EQ(requireImage, TRUE);
    if (calls.headerResult >= 0) {
        calls.abandoned = *decoder;
        return calls.headerResult;
    }
    const int result = __real_jpeg_read_header(decoder, requireImage);
    calls.left = *decoder;
    return result;
}

boolean __real_jpeg_start_decompress(j_decompress_ptr);
boolean __wrap_jpeg_start_decompress(j_decompress_ptr decoder) {
    calls.left.scale_denom = 8; // the one option that is set
    expectAsLeft(*decoder);
    const boolean result = __real_jpeg_start_decompress(decoder);
    calls.left = *decoder;
    return result;
}

JDIMENSION __real_jpeg_read_scanlines(j_decompress_ptr, JSAMPARRAY, JDIMENSION);
JDIMENSION __wrap_jpeg_read_scanlines(j_decompress_ptr decoder, JSAMPARRAY rows, JDIMENSION count) {
    expectAsLeft(*decoder);
    if (calls.watched) {
        EXPECT_EQ(count, 1u);
        calls.rows.push_back(rows[0] - static_cast<unsigned char *>(calls.blocks.begin()->first));
    }
    const JDIMENSION result = __real_jpeg_read_scanlines(decoder, rows, count);
    calls.left = *decoder;
    return result;
}

boolean __real_jpeg_finish_decompress(j_decompress_ptr);
boolean __wrap_jpeg_finish_decompress(j_decompress_ptr decoder) {
    expectAsLeft(*decoder);
    const boolean result = __real_jpeg_finish_decompress(decoder);
    decoder->err->num_warnings += calls.extraWarnings;
    return result;
}

} // extern "C"

TEST_F(JpegValidator, validPictureLogsEveryStep) {
    EXPECT_EQ(validate(picture({33, 25})), 0);
    EXPECT_THAT(platform().log,
                ElementsAre(step("Proc: Create Decompress struct"), step("Proc: Set memory buffer as source"),
                            step("Proc: Read the JPEG header"), step("Proc: Initiate JPEG decompression"),
                            step("Proc: Image is 33 by 25 with 3 components"),
                            step("Proc: Start reading scanlines"), step("Proc: Done reading scanlines"),
                            step("End of decompression")));
    for (const LogLine &line : platform().log) {
        EXPECT_TRUE(line.format == "%s" || line.format == "Proc: Image is %d by %d with %d components");
    }
    EXPECT_EQ(calls.allocations, 1);
    EXPECT_EQ(calls.frees, 1);
    EXPECT_EQ(calls.destroyed, 1);
    EXPECT_EQ(calls.dropped, 0u);
}

TEST_F(JpegValidator, oneBufferOfTheWholePicture) {
    for (const auto &[components, bytes] :
         std::map<int, std::size_t>{{1, 100 * 77}, {3, 3 * 100 * 77}, {4, 4 * 100 * 77}}) {
        const std::string jpeg = picture({100, 77, components});
        calls = {};
        EXPECT_EQ(validate(jpeg.substr(0, jpeg.size() - 40)), 4);
        EXPECT_EQ(calls.allocations, 1);
        ASSERT_EQ(calls.blocks.size(), 1u);
        EXPECT_EQ(calls.blocks.begin()->second, bytes);
    }
}

TEST_F(JpegValidator, nothingButTheScaleIsSetAndEveryRowHasItsPlace) {
    for (const PictureShape &shape : kShapes) {
        calls = {};
        calls.watched = true;
        EXPECT_EQ(validate(picture(shape)), 0) << shape.label;
        const auto stride = static_cast<std::ptrdiff_t>(shape.width) * shape.components;
        ASSERT_EQ(calls.rows.size(), (shape.height + 7) / 8) << shape.label;
        for (std::size_t row = 0; row < calls.rows.size(); ++row) {
            EXPECT_EQ(calls.rows[row], stride * static_cast<std::ptrdiff_t>(row)) << shape.label;
        }
    }
}

TEST_F(JpegValidator, noPictureAtAll) {
    EXPECT_EQ(validate("GIF89a and so on"), 4);
    EXPECT_THAT(
        platform().log,
        ElementsAre(step("Proc: Create Decompress struct"), step("Proc: Set memory buffer as source"),
                    step("Proc: Read the JPEG header"),
                    extended(30000, "error_exit [Not a JPEG file: starts with 0x47 0x49]", "error_exit"),
                    step("File does not seem to be a normal JPEG")));
    EXPECT_EQ(calls.destroyed, 1);
    EXPECT_EQ(calls.allocations, 0);
}

TEST_F(JpegValidator, emptyBuffer) {
    unsigned char byte = 0xFF;
    for (const unsigned char *data :
         {static_cast<const unsigned char *>(&byte), static_cast<const unsigned char *>(nullptr)}) {
        platform().log.clear();
        EXPECT_EQ(ozuutils_jpegValidator(data, 0), 4);
        EXPECT_THAT(platform().log,
                    ElementsAre(step("Proc: Create Decompress struct"),
                                step("Proc: Set memory buffer as source"),
                                extended(30000, "error_exit [Empty input file]", "error_exit"),
                                step("File does not seem to be a normal JPEG")));
    }
    platform().log.clear();
    EXPECT_EQ(ozuutils_jpegValidator(nullptr, 100), 4);
    EXPECT_EQ(lines().back(), "File does not seem to be a normal JPEG");
}

TEST_F(JpegValidator, headerThatIsNotCompleteKeepsTheRecord) {
    calls.headerResult = JPEG_HEADER_TABLES_ONLY;
    EXPECT_EQ(validate(picture({})), 4);
    EXPECT_THAT(platform().log,
                ElementsAre(step("Proc: Create Decompress struct"), step("Proc: Set memory buffer as source"),
                            step("Proc: Read the JPEG header"),
                            step("File does not seem to be a normal JPEG")));
    EXPECT_EQ(calls.destroyed, 0);
    __real_jpeg_destroy_decompress(&calls.abandoned);
}

TEST_F(JpegValidator, jumpInsideTheHeaderAlsoSaysSo) {
    const std::string jpeg = picture({});
    EXPECT_EQ(validate(jpeg.substr(0, 30)), 4);
    EXPECT_THAT(platform().log,
                ElementsAre(step("Proc: Create Decompress struct"), step("Proc: Set memory buffer as source"),
                            step("Proc: Read the JPEG header"),
                            extended(30000, "output_message [Premature end of JPEG file]", "output_message"),
                            step("File does not seem to be a normal JPEG")));
    EXPECT_EQ(calls.destroyed, 1);
}

TEST_F(JpegValidator, cutInTheScanDataEndsWithTheWarning) {
    const std::string jpeg = picture({100, 100});
    EXPECT_EQ(validate(jpeg.substr(0, jpeg.size() - 200)), 4);
    EXPECT_THAT(
        platform().log,
        ElementsAre(step("Proc: Create Decompress struct"), step("Proc: Set memory buffer as source"),
                    step("Proc: Read the JPEG header"), step("Proc: Initiate JPEG decompression"),
                    step("Proc: Image is 100 by 100 with 3 components"),
                    step("Proc: Start reading scanlines"),
                    extended(30000, "output_message [Premature end of JPEG file]", "output_message")));
    EXPECT_EQ(calls.destroyed, 1);
}

TEST_F(JpegValidator, bufferOfAFailedDecodeStaysAllocatedWithoutItsPages) {
    const std::string jpeg = picture({320, 240});
    EXPECT_EQ(validate(jpeg.substr(0, jpeg.size() - 100)), 4);
    EXPECT_EQ(calls.frees, 0);
    ASSERT_EQ(calls.blocks.size(), 1u);
    const std::size_t bytes = calls.blocks.begin()->second;
    EXPECT_EQ(bytes, 320u * 240 * 3);
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    EXPECT_LE(calls.dropped, bytes);
    EXPECT_GT(calls.dropped + 2 * page, bytes);
    EXPECT_EQ(calls.dropped % page, 0u);
    free(calls.blocks.begin()->first);
    // A buffer without a whole page in it is left as it is.
    calls = {};
    const std::string small = picture({});
    EXPECT_EQ(validate(small.substr(0, small.size() - 20)), 4);
    EXPECT_EQ(calls.frees, 0);
    EXPECT_EQ(calls.dropped, 0u);
}

TEST_F(JpegValidator, heapKeepsExactlyThatBuffer) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer has a heap of its own";
    }
    const std::string good = picture({64, 64}), cut = good.substr(0, good.size() - 60);
    const auto inUse = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    platform().log.reserve(1000);
    validate(good); // whatever is allocated once
    validate(cut);
    platform().log.clear();
    platform().journal.clear();
    platform().journal.shrink_to_fit();
    struct Measured {
        std::size_t before, after;
    };
    const auto measure = [&](const std::string &jpeg) {
        platform().log.clear();
        platform().journal.clear();
        const std::size_t before = inUse();
        validate(jpeg);
        platform().log.clear();
        platform().journal.clear();
        platform().journal.shrink_to_fit();
        return Measured{before, inUse()};
    };
    const Measured valid = measure(good);
    calls.blocks.clear();
    const Measured damaged = measure(cut);
    ASSERT_EQ(calls.blocks.size(), 1u);
    const std::size_t usable = malloc_usable_size(calls.blocks.begin()->first) + sizeof(std::size_t);
    // The map above holds one node for the block, in the second measurement only.
    EXPECT_EQ(valid.after, valid.before);
    EXPECT_GE(damaged.after, damaged.before + usable);
    EXPECT_LE(damaged.after, damaged.before + usable + 96);
}

TEST_F(JpegValidator, countedWarningsMakeItInvalidAndFreeEverything) {
    calls.extraWarnings = 1;
    EXPECT_EQ(validate(picture({})), 4);
    ASSERT_EQ(platform().log.size(), 9u);
    EXPECT_EQ(platform().log[6], step("Proc: Done reading scanlines"));
    EXPECT_EQ(platform().log[7], step("JPEG validation failed"));
    EXPECT_EQ(platform().log[8], step("End of decompression"));
    EXPECT_EQ(calls.frees, 1);
    EXPECT_EQ(calls.destroyed, 1);
}

TEST_F(JpegValidator, noMemoryForThePixels) {
    calls.failAllocation = true;
    EXPECT_EQ(validate(picture({})), 4);
    EXPECT_EQ(lines().back(), "Proc: Image is 32 by 24 with 3 components");
    EXPECT_EQ(platform().log.size(), 5u);
    EXPECT_EQ(calls.destroyed, 1);
    EXPECT_EQ(calls.dropped, 0u);
}

class JpegShape : public JpegValidator, public testing::WithParamInterface<PictureShape> {};

TEST_P(JpegShape, isValid) {
    const std::string jpeg = picture(GetParam());
    ASSERT_TRUE(decodesCleanly(jpeg));
    EXPECT_EQ(validate(jpeg), 0);
    EXPECT_EQ(lines().back(), "End of decompression");
}

TEST_P(JpegShape, isJudgedAsByAFullDecodeWhereverItIsCut) {
    const std::string jpeg = picture(GetParam());
    const std::size_t stride = sweepStride(1, 11);
    for (std::size_t size = 0; size < jpeg.size(); size += stride) {
        const std::string cut = jpeg.substr(0, size);
        ASSERT_NO_FATAL_FAILURE(expectJudgedAsByAFullDecode(cut, "cut at " + std::to_string(size)));
    }
    expectJudgedAsByAFullDecode(jpeg + "x", "one byte more");
}

TEST_P(JpegShape, isJudgedAsByAFullDecodeWhicheverBitIsFlipped) {
    const std::string jpeg = picture(GetParam());
    int valid = 0;
    // The larger ones take a sample, every bit position being met.
    const std::size_t stride = sweepStride(jpeg.size() < 900 && !kSanitized ? 1 : 13, 111);
    for (std::size_t bit = 0; bit < jpeg.size() * 8; bit += stride) {
        std::string flipped = jpeg;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        ASSERT_NO_FATAL_FAILURE(expectJudgedAsByAFullDecode(flipped, "bit " + std::to_string(bit)));
        valid += lines().back() == "End of decompression" ? 1 : 0;
    }
    EXPECT_GT(valid, 0) << "some bits do not matter to a decoder";
}

INSTANTIATE_TEST_SUITE_P(Pictures, JpegShape, testing::ValuesIn(kShapes),
                         [](const auto &instance) { return std::string(instance.param.label); });

TEST_F(JpegValidator, randomDamageIsJudgedAsByAFullDecode) {
    for (const PictureShape &shape : kShapes) {
        const std::string jpeg = picture(shape);
        const std::string random = noise(ozu::test::emulated() ? 40 : 400, 17);
        for (std::size_t round = 0; round + 3 < random.size(); ++round) {
            const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(random[round + i]); };
            std::string damaged = jpeg;
            const std::size_t at = (byte(0) * 256U + byte(1)) % damaged.size();
            if (byte(2) % 3 == 0) {
                damaged.erase(at, 1 + byte(3) % 8);
            } else if (byte(2) % 3 == 1) {
                damaged.insert(at, random, round, 1 + byte(3) % 8);
            } else {
                damaged[at] = random[round + 3];
            }
            ASSERT_NO_FATAL_FAILURE(
                expectJudgedAsByAFullDecode(damaged, shape.label + (' ' + std::to_string(round))));
        }
    }
}

struct Bomb {
    const char *label;
    unsigned width, height;
    int components;
    bool progressive;
};

void PrintTo(const Bomb &bomb, std::ostream *out) {
    *out << bomb.label;
}

class JpegBomb : public JpegValidator, public testing::WithParamInterface<Bomb> {};

TEST_P(JpegBomb, isRefusedIn256MegabytesOfAddressSpace) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer's shadow needs more address space";
    }
    const Bomb &bomb = GetParam();
    const std::string jpeg =
        withDimensions(picture({16, 16, bomb.components, bomb.progressive}), bomb.width, bomb.height);
    EXPECT_EQ(inChild(jpeg, 256U << 20), 4);
}

INSTANTIATE_TEST_SUITE_P(Dimensions, JpegBomb,
                         testing::Values(Bomb{"wrapsAt32Bits", 43691, 32768, 3, false},
                                         Bomb{"largestColour", 65500, 65500, 3, false},
                                         Bomb{"largestGrey", 65500, 65500, 1, false},
                                         Bomb{"largestCmyk", 65500, 65500, 4, false},
                                         Bomb{"largestProgressive", 65500, 65500, 3, true},
                                         Bomb{"cmykWrapsAt32Bits", 32769, 32768, 4, false},
                                         Bomb{"tooWide", 65535, 16, 3, false},
                                         Bomb{"tooHigh", 16, 65535, 3, false},
                                         Bomb{"noHeight", 16, 0, 3, false}, Bomb{"noWidth", 0, 16, 3, false}),
                         [](const auto &instance) { return std::string(instance.param.label); });

TEST_F(JpegValidator, sizeThatFitsNoBufferTakesTheErrorExit) {
    // On the 32-bit panel the product of these would wrap to a small block.
    const std::string jpeg = withDimensions(picture({16, 16}), 43691, 32768);
    calls.failAllocation = true; // where it fits, there shall be no memory for it
    EXPECT_EQ(validate(jpeg), 4);
    EXPECT_EQ(calls.allocations, sizeof(std::size_t) > 4 ? 1 : 0);
    EXPECT_EQ(lines().back(), "Proc: Image is 43691 by 32768 with 3 components");
    EXPECT_EQ(calls.destroyed, 1);
}

TEST_F(JpegValidator, residentMemoryStaysFlatOverAThousandDamagedPictures) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer's heap keeps freed memory";
    }
    const std::string jpeg = picture({320, 240}), cut = jpeg.substr(0, jpeg.size() - 10);
    const auto resident = [] {
        std::ifstream statm("/proc/self/statm");
        std::size_t total = 0, pages = 0;
        statm >> total >> pages;
        return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    };
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(verdict(cut), 4);
    }
    const std::size_t before = resident();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(verdict(cut), 4);
    }
    // 230,400 bytes are abandoned each time; at most the two pages at its ends stay resident.
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    EXPECT_LT(resident(), before + 1000 * 2 * page + (4U << 20));
    EXPECT_EQ(calls.blocks.size(), 1010u);
}

// A decoder that complains once more after the verdict: only then is the buffer of the error path freed.

#include <utils_ozu/jpeg.h>

#include "fake_platform.h"
#include "pictures.h"

#include <jpeglib.h>

#include <cstdlib>
#include <set>

using ozu::test::extended;
using ozu::test::platform;

namespace {

struct Decoder {
    bool warns = false; // counts a warning that it does not print
    int destroyed = 0;
    bool counting = false;
    std::set<void *> blocks; // that the library allocated and has not freed
    int frees = 0;
} decoder;

class JpegVerdict : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        decoder = Decoder();
    }
    static int validate() {
        const std::string jpeg = ozu::test::picture({});
        decoder.counting = true;
        const int result =
            ozuutils_jpegValidator(reinterpret_cast<const unsigned char *>(jpeg.data()), jpeg.size());
        decoder.counting = false;
        return result;
    }
    static void expectEnd(const std::vector<std::string> &last) {
        const auto &log = platform().log;
        ASSERT_GE(log.size(), last.size());
        for (std::size_t i = 0; i < last.size(); ++i) {
            const bool hook = last[i].rfind("error_exit", 0) == 0;
            EXPECT_EQ(log[log.size() - last.size() + i],
                      extended(30000, last[i], hook ? "error_exit" : "ozuutils_jpegValidator"));
        }
    }
};

} // namespace

extern "C" {

void *__real_malloc(std::size_t size);
void __real_free(void *block);
void __real_jpeg_destroy_decompress(j_decompress_ptr record);
boolean __real_jpeg_finish_decompress(j_decompress_ptr record);

void *__wrap_malloc(std::size_t size) {
    void *block = __real_malloc(size);
    if (decoder.counting) {
        decoder.blocks.insert(block);
    }
    return block;
}

void __wrap_free(void *block) {
    if (decoder.counting) {
        decoder.frees += decoder.blocks.erase(block) != 0 ? 1 : 0;
    }
    __real_free(block);
}

boolean __wrap_jpeg_finish_decompress(j_decompress_ptr record) {
    record->err->num_warnings += decoder.warns ? 1 : 0;
    return __real_jpeg_finish_decompress(record);
}

void __wrap_jpeg_destroy_decompress(j_decompress_ptr record) {
    if (++decoder.destroyed == 1) {
        record->err->msg_code = 0;
        record->err->error_exit(reinterpret_cast<j_common_ptr>(record));
    }
    __real_jpeg_destroy_decompress(record);
}

} // extern "C"

TEST_F(JpegVerdict, complaintAfterABadVerdictFreesTheBuffer) {
    decoder.warns = true;
    EXPECT_EQ(validate(), 4);
    expectEnd({"JPEG validation failed", "error_exit [Bogus message code 0]"});
    EXPECT_EQ(decoder.destroyed, 2);
    EXPECT_EQ(decoder.frees, 1);
    EXPECT_TRUE(decoder.blocks.empty());
}

TEST_F(JpegVerdict, complaintAfterAGoodVerdictKeepsTheBuffer) {
    EXPECT_EQ(validate(), 4);
    expectEnd({"Proc: Done reading scanlines", "error_exit [Bogus message code 0]"});
    EXPECT_EQ(decoder.destroyed, 2);
    EXPECT_EQ(decoder.frees, 0);
    ASSERT_EQ(decoder.blocks.size(), 1u);
    free(*decoder.blocks.begin()); // what the library leaves behind on purpose
}

#include <utils_ozu/jpeg.h>

#include "fake_platform.h"

#include <cstdio>

#include <jpeglib.h>

#include <csetjmp>
#include <cstring>
#include <string>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;

namespace {

using Hook = void (*)(jpeg_common_struct *);

// As another program would build it: the error manager, then the jump buffer.
struct Context {
    jpeg_error_mgr manager;
    jmp_buf jump;
};

std::string message; // what the decoder formats

void formatMessage(j_common_ptr /*decoder*/, char *buffer) {
    snprintf(buffer, JMSG_LENGTH_MAX, "%s", message.c_str());
}

class JpegHooks : public ozu::test::PlatformTest {
  protected:
    // Calls a hook; gives what setjmp() returned the second time.
    int jumped(Hook hook) {
        volatile int result = 0;
        decoder.err = jpeg_std_error(&context.manager);
        context.manager.format_message = formatMessage;
        result = setjmp(context.jump); // NOLINT(cert-err52-cpp)
        if (result == 0) {
            hook(reinterpret_cast<jpeg_common_struct *>(&decoder));
            ADD_FAILURE() << "the hook came back";
        }
        return result;
    }
    jpeg_decompress_struct decoder = {};
    Context context = {};
};

} // namespace

TEST_F(JpegHooks, errorExitLogsAndJumps) {
    message = "Corrupt %d thing %s";
    EXPECT_EQ(jumped(error_exit), 1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(30000, "error_exit [Corrupt %d thing %s]", "error_exit")));
    EXPECT_EQ(platform().log[0].format, "error_exit [%s]");
}

TEST_F(JpegHooks, outputMessageLogsAndJumps) {
    message = "Premature end";
    EXPECT_EQ(jumped(output_message), 1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(30000, "output_message [Premature end]", "output_message")));
    EXPECT_EQ(platform().log[0].format, "output_message [%s]");
}

TEST_F(JpegHooks, longestMessageFits) {
    message = std::string(JMSG_LENGTH_MAX - 1, 'x');
    EXPECT_EQ(jumped(error_exit), 1);
    EXPECT_EQ(platform().log[0].text, "error_exit [" + message + "]");
}

TEST_F(JpegHooks, theDecodersOwnMessageIsUsed) {
    decoder.err = jpeg_std_error(&context.manager);
    context.manager.error_exit = error_exit;
    context.manager.output_message = output_message;
    if (setjmp(context.jump) == 0) { // NOLINT(cert-err52-cpp)
        jpeg_create_decompress(&decoder);
        jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char *>("GIF89a"), 6);
        jpeg_read_header(&decoder, TRUE);
        ADD_FAILURE() << "no complaint";
    }
    jpeg_destroy_decompress(&decoder);
    EXPECT_THAT(
        platform().log,
        ElementsAre(extended(30000, "error_exit [Not a JPEG file: starts with 0x47 0x49]", "error_exit")));
}

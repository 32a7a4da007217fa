// The decoder's error hooks: every complaint is logged and ends the decoding.

#include <utils_ozu/jpeg.h>

#include <base/log.h>
#include <media/jpeg_error_context.h>

namespace {

[[noreturn]] void jumpBack(j_common_ptr cinfo) noexcept {
    // The decoder is C and knows no other way out. NOLINTNEXTLINE(cert-err52-cpp)
    std::longjmp(static_cast<ozu::JpegErrorContext *>(static_cast<void *>(cinfo->err))->jump, 1);
}

} // namespace

void error_exit(struct jpeg_common_struct *cinfo) noexcept {
    char message[JMSG_LENGTH_MAX];
    cinfo->err->format_message(cinfo, message);
    OZU_LOG(OZULOG_INFO, "error_exit [%s]", message);
    jumpBack(cinfo);
}

void output_message(struct jpeg_common_struct *cinfo) noexcept {
    char message[JMSG_LENGTH_MAX];
    cinfo->err->format_message(cinfo, message);
    OZU_LOG(OZULOG_INFO, "output_message [%s]", message);
    jumpBack(cinfo);
}

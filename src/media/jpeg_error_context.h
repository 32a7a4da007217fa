// What the JPEG decoder's error hooks find behind the decoder object's err pointer.
#pragma once

#include <cstdio>

#include <jpeglib.h>

#include <csetjmp>

namespace ozu {

struct JpegErrorContext {
    jpeg_error_mgr manager; // first: the decoder knows the context by its address
    std::jmp_buf jump;      // where both hooks return to
};

} // namespace ozu

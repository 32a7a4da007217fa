/*
 * JPEG validation and its decoder hooks.
 */
#ifndef UTILS_OZU_JPEG_H
#define UTILS_OZU_JPEG_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

struct jpeg_common_struct; /* the part that libjpeg's decoder and encoder records share; <jpeglib.h> */

/**
 * Tells whether a JPEG picture in memory decodes completely and cleanly. Any complaint of the decoder makes
 * it invalid, warnings included: truncated or corrupt data, superfluous bytes, a missing end mark.
 *
 * Each step is logged at 30000 ("Proc: ..."), and so is the decoder's complaint.
 *
 * Memory: one buffer of width x height x components bytes on top of what libjpeg takes. When the decoding of
 * a picture breaks off, that buffer is not freed: the process keeps the address range, not the memory behind
 * its whole pages. A process that judges very many damaged pictures should do so in a child.
 *
 * @param data  the picture
 * @param size  of the picture in bytes
 * @return 0 when the picture is valid; 4 when it is not, or when there is no memory for it
 *
 * Blocks for as long as the decoding takes. A picture declares its own size: check the dimensions first where
 * a stranger may send one. Reentrant.
 */
OZU_API int ozuutils_jpegValidator(const unsigned char *data, unsigned long size) OZU_NOEXCEPT;

/**
 * The error_exit hook of ozuutils_jpegValidator() for libjpeg's error manager: logs the decoder's message at
 * 30000 ("error_exit [...]") and jumps back to the caller. It does not return.
 *
 * The error manager (struct jpeg_error_mgr) must be followed directly by a jmp_buf, armed with setjmp() in
 * a function that has not returned; setjmp() then returns 1.
 *
 * @param cinfo  the decoder, whose err points at that error manager
 */
OZU_API void error_exit(struct jpeg_common_struct *cinfo) OZU_NOEXCEPT;

/**
 * The output_message hook: like error_exit() with "output_message [...]". So a mere warning ends the
 * decoding, too.
 *
 * @param cinfo  as for error_exit()
 */
OZU_API void output_message(struct jpeg_common_struct *cinfo) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_JPEG_H */

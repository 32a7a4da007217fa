/*
 * JPEG validation and its decoder hooks.
 */
#ifndef UTILS_OZU_JPEG_H
#define UTILS_OZU_JPEG_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

struct jpeg_common_struct; /* the part that libjpeg's decoder and encoder records share; <jpeglib.h> */

/**
 * Returns whether a JPEG image in memory decodes completely and cleanly. Any complaint of the decoder makes
 * it invalid, even a warning: truncated or corrupt data, extra bytes between markers, no end mark. A few
 * extra bytes at the end of a scan may go unnoticed, more of them on a 64-bit machine. What follows the end
 * mark is not looked at. Which kinds of JPEG are supported depends on libjpeg. A later release may accept one
 * that an earlier release refuses.
 *
 * Each step is logged at 30000 ("Proc: ..."), and so are the decoder's complaint, what makes the image
 * invalid and the end of a complete decoding.
 *
 * Memory: one buffer of width x height x components bytes on top of what libjpeg takes. When decoding fails
 * halfway, that buffer is not freed: the process keeps the address range, but not the memory of its whole
 * pages. A process that checks very many damaged images should do so in a child.
 *
 * @param data  the image; may be null when size is 0
 * @param size  size of the image in bytes
 * @return 0 when the image is valid; 4 when it is not, or when there is not enough memory for it
 *
 * Blocks for as long as decoding takes. An image states its own dimensions: check them first where the input
 * is untrusted. May run concurrently.
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
 * The output_message hook: like error_exit() with "output_message [...]". So even a warning ends
 * decoding.
 *
 * @param cinfo  as for error_exit()
 */
OZU_API void output_message(struct jpeg_common_struct *cinfo) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_JPEG_H */

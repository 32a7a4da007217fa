/*
 * Kernel log buffer.
 *
 * Clearing needs CAP_SYSLOG. So do the size and reading where kernel.dmesg_restrict is 1.
 */
#ifndef UTILS_OZU_KERNEL_LOG_H
#define UTILS_OZU_KERNEL_LOG_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Returns the size of the kernel log buffer.
 * @return its size in bytes plus one for a null terminator; 0 when the kernel refused (nothing is logged)
 */
OZU_API int get_ring_buffer_size(void) OZU_NOEXCEPT;

/**
 * Reads the kernel log and looks for a text in it.
 *
 * @param buffer      receives the newest messages since the last clear_ring_buffer() that fit into
 *                    bufferSize - 1 bytes, null-terminated. When the text is found, a zero also ends its line
 *                    there, at most 100 characters from the start of the match. Untouched on a refusal
 *                    and when there is nothing to read: not terminated then, either
 * @param bufferSize  size of buffer in bytes, best get_ring_buffer_size(); any other size is used as well and
 *                    logged at 50000
 * @param text        text to look for, not empty; case-sensitive
 * @return 1 found (logged at 70000: the line from the match on);
 *         0 not found, nothing to read (logged at 50000), refused by the kernel or a null, empty or
 *         non-positive argument (both logged at 70000)
 *
 * The log may have a few megabytes and is read in one go. May run concurrently on different buffers.
 */
OZU_API int locate_in_kernel_ring_buffer(char *buffer, int bufferSize, const char *text) OZU_NOEXCEPT;

/**
 * Clears the kernel log buffer: hides all messages so far from locate_in_kernel_ring_buffer() and dmesg, in
 * every process. The kernel keeps them: readers of /dev/kmsg, such as a system log, still get them.
 * @return 1 done; 0 refused by the kernel (logged at 70000)
 */
OZU_API int clear_ring_buffer(void) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_KERNEL_LOG_H */

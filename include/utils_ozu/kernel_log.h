/*
 * Kernel log buffer.
 *
 * Reading and clearing it needs the right to (CAP_SYSLOG, or a kernel that lets everybody read).
 */
#ifndef UTILS_OZU_KERNEL_LOG_H
#define UTILS_OZU_KERNEL_LOG_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Asks for the size of the kernel log buffer.
 * @return its size in bytes plus one for a terminating zero; 0 when the kernel refused (without a log line)
 */
OZU_API int get_ring_buffer_size(void) OZU_NOEXCEPT;

/**
 * Reads the kernel log and looks for a text in it.
 *
 * @param buffer      receives the newest bufferSize - 1 bytes of the log, terminated. When the text is found
 *                    a zero is also put at the end of its line, at most 100 characters after the match
 * @param bufferSize  bytes of buffer, best get_ring_buffer_size(); another size is logged at 50000 and used
 * @param text        what to look for, not empty
 * @return 1 found (the line, from the match on, is logged at 70000); 0 not found, nothing to read (50000),
 *         refused by the kernel, or a null, empty or non-positive argument (both 70000)
 *
 * The log may be a few megabytes and is read in one go. May run concurrently on different buffers.
 */
OZU_API int locate_in_kernel_ring_buffer(char *buffer, int bufferSize, const char *text) OZU_NOEXCEPT;

/**
 * Empties the kernel log buffer, for every reader.
 * @return 1 done; 0 refused by the kernel (logs at 70000)
 */
OZU_API int clear_ring_buffer(void) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_KERNEL_LOG_H */

/*
 * Files and processes.
 */
#ifndef UTILS_OZU_FILES_H
#define UTILS_OZU_FILES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

struct stat;
struct FTW;

/**
 * Callback for nftw() that empties a folder and keeps it:
 * nftw(folder, unlink_cb, 64, FTW_DEPTH | FTW_PHYS).
 *
 * @param path      entry to remove
 * @param sb        not used
 * @param typeflag  not used
 * @param ftw       position in the walk; level 0, the folder itself, is left alone
 * @return 0 to go on; the non-zero result of remove(), which ends the walk (logged at 70000)
 */
OZU_API int unlink_cb(const char *path, const struct stat *sb, int typeflag, struct FTW *ftw) OZU_NOEXCEPT;

/**
 * Returns whether a path lies in a temporary folder, by its text alone.
 * @param path  may be null
 * @return 1 when it begins with "/tmp/" or "/var/volatile/tmp/", otherwise 0
 */
OZU_API int ozuutils_is_temp_file(const char *path) OZU_NOEXCEPT;

/**
 * Finds a running process by the name it was started under.
 *
 * @param name  first word of the command line up to a space, exactly as it was started (with a path if it was
 *              started with one). Case-sensitive; a name of more than 511 characters matches nothing
 * @return the process ID of the first match in the order of /proc; -1 when there is none, and when /proc
 *         cannot be opened (reported on standard error, not in the log)
 *
 * A process chooses its own name: any user's process can carry any name, so never send a signal because of
 * the name alone. Kernel threads have no command line and are never found. Reads one file per process.
 */
OZU_API int ozuutils_findProcessId(const char *name) OZU_NOEXCEPT;

/**
 * Reads a whole file into a new buffer.
 *
 * @param path    a file that the process may read and write
 * @param buffer  receives the buffer, which the caller must free with free(). The bytes are not
 *                null-terminated. Untouched when stat() fails or the file is too large; null when memory
 *                runs out. When the file cannot be opened: a buffer of zeros, which must be freed, too
 * @return the size of the file in bytes as stat() gave it, however many bytes could be read;
 *         -1 when stat() failed, the file has 2 GiB or more, memory ran out or the file could not be opened
 *
 * The result is the size, not the number of bytes read. Bytes that could not be read are zero. A file that
 * grows meanwhile is truncated at its former size. Most files under /proc have size 0, so nothing of them is
 * kept. Most files under /sys have size 4096 and hold less: the rest is zero.
 *
 * Logs its steps at 20000, also a read that failed; other failures at 70000. Blocks while it reads, forever
 * on a FIFO or an endless device.
 */
OZU_API int allocFileToBuff(const char *path, void **buffer) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_FILES_H */

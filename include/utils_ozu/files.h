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
 * @return 0 to go on; the result of remove() when it failed, which ends the walk (logs at 70000)
 */
OZU_API int unlink_cb(const char *path, const struct stat *sb, int typeflag, struct FTW *ftw) OZU_NOEXCEPT;

/**
 * Tells whether a path lies in a temporary folder, by its text alone.
 * @param path  may be null
 * @return 1 when it begins with "/tmp/" or "/var/volatile/tmp/", otherwise 0
 */
OZU_API int ozuutils_is_temp_file(const char *path) OZU_NOEXCEPT;

/**
 * Finds a running process by the name it was started under.
 *
 * @param name  first word of the command line up to a blank, exactly as it was started (with a path if it was
 *              started with one), at most 510 characters
 * @return the process id of the first match in the order of /proc; -1 when there is none, and when /proc
 *         cannot be opened (reported on standard error, not in the log)
 *
 * The name is what a process says of itself: any user's process can carry any name, so do not let a signal
 * depend on it alone. Kernel threads have no command line and are never found. Reads one file per process.
 */
OZU_API int ozuutils_findProcessId(const char *name) OZU_NOEXCEPT;

/**
 * Reads a whole file into a new buffer.
 *
 * @param path    a file that may be read and written
 * @param buffer  receives the buffer, which the caller frees with free(); the bytes are not terminated.
 *                Untouched when the file cannot be examined; null when memory is short. When the file cannot
 *                be opened it holds a buffer all the same, to be freed
 * @return the size of the file in bytes when it was examined, however many bytes could be read then;
 *         -1 when it cannot be examined, allocated (both with *buffer as above) or opened
 *
 * A file that grows meanwhile is cut at that size. The size of files under /proc and /sys is 0. Files of 2
 * GiB and more are refused. Logs its steps at 20000, failures at 70000. Blocks as long as reading takes.
 */
OZU_API int allocFileToBuff(const char *path, void **buffer) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_FILES_H */

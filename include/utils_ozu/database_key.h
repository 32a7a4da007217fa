/*
 * Database cipher key.
 */
#ifndef UTILS_OZU_DATABASE_KEY_H
#define UTILS_OZU_DATABASE_KEY_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Derives the passphrase of the panel's encrypted database from the board's serial number.
 *
 * The serial number is the hexadecimal 32-bit value of "androidboot.serialno=" among the first 1023 bytes of
 * "/proc/cmdline"; the first such parameter counts. Its four bytes, least significant first, are repeated
 * over the 20-byte mask of the installation (build option OZU_DB_CIPHER_MASK) and XORed with it. A value of
 * more than 32 bits counts as FFFFFFFF; one that does not begin with a hexadecimal digit counts as 0, and the
 * call succeeds.
 *
 * Neither the serial number nor the passphrase is logged or stays in memory, other than in the caller's
 * buffer: wipe it after use.
 *
 * @param out  receives 40 upper-case hexadecimal digits and a terminator: at least 41 bytes. Untouched on
 * failure.
 * @return 0 on success;
 *         -1 when "/proc/cmdline" cannot be opened (logs at 80000), has no such parameter (not logged), or is
 *            empty, unreadable or has the parameter without a value (logs at 80000)
 */
OZU_API int ozuutils_getDBcypher(char *out) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_DATABASE_KEY_H */

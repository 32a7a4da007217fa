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
 * The serial number is the hexadecimal 32-bit value that follows the first "androidboot.serialno=" in the
 * first 1023 bytes of "/proc/cmdline". Its four bytes, least significant first, are repeated over the 20-byte
 * mask of the installation (build option OZU_DB_CIPHER_MASK) and XORed with it.
 *
 * The value is read as scanf() reads "%lX": white space, a sign and "0x" may come first. A value of more than
 * 32 bits counts as FFFFFFFF. A value without a hexadecimal digit counts as 0: the call succeeds, and the
 * passphrase is the bare mask. A parameter without a value takes the next word of the line as its value. The
 * line feed at the end of the line counts as a value without a digit.
 *
 * Neither the serial number nor the passphrase is logged or stays in memory, except in the caller's buffer:
 * wipe it after use. May run concurrently.
 *
 * @param out  receives 40 upper-case hexadecimal digits and a null terminator: at least 41 bytes. Untouched
 *             on failure
 * @return 0 on success;
 *         -1 when "/proc/cmdline" cannot be opened (logged at 80000), has no such parameter (not logged), is
 *            empty or unreadable, or has only spaces after the parameter (both logged at 80000)
 */
OZU_API int ozuutils_getDBcypher(char *out) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_DATABASE_KEY_H */

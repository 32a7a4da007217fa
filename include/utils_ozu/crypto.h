/*
 * AES files and random bytes.
 *
 * Both file ciphers obfuscate a file. They do not protect it: ECB shows repeated blocks, the video files
 * share one IV, and neither detects tampering.
 */
#ifndef UTILS_OZU_CRYPTO_H
#define UTILS_OZU_CRYPTO_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Encrypts or decrypts a file into another one with AES-128 in ECB mode and PKCS#7 padding.
 *
 * Encrypting adds 1 to 16 bytes, so an empty file becomes 16 bytes. Decrypting checks and strips them. The
 * output is created with mode 0666 less the umask, or truncated. When the cipher fails, the output keeps what
 * was written before. A wrong key usually shows in the last block only.
 *
 * Reads and writes are not checked. A read error counts as the end of the input. On a full disk the output is
 * cut short. In both cases the result is that of the cipher. Compare the sizes where that matters. The two
 * paths must not name the same file, since opening the output empties it.
 *
 * @param inPath   file to read
 * @param outPath  file to write
 * @param key      16 bytes
 * @param encrypt  1 to encrypt, 0 to decrypt; passed to OpenSSL unchanged
 * @return 0 when all that could be read went through the cipher;
 *         2 when the cipher context could not be made (logs at 70000) or the cipher failed, for example on
 *           a wrong padding (not logged);
 *         4 when a file could not be opened (logs at 70000)
 *
 * Blocks for as long as the files take. Uses about 66 KB of stack.
 */
OZU_API unsigned ozuutils_crypt_aes128ecb(const char *inPath, const char *outPath, const unsigned char *key,
                                          int encrypt) OZU_NOEXCEPT;

/**
 * Draws random bytes from OpenSSL's generator, which is fit for keys.
 *
 * @param buf    receives the bytes; after a failure its content is not defined
 * @param count  how many, 0 or more
 * @return 0 on success; 4 for a negative count; 2 when the generator failed. Both failures log at 70000.
 */
OZU_API unsigned ozuutils_rand_bytes(unsigned char *buf, int count) OZU_NOEXCEPT;

/**
 * Draws a number from the C library's rand(). Not for secrets. The generator is seeded only if the
 * process calls srand().
 *
 * The 2147483648 values of rand() are divided into buckets of equal width, rounded up. With up to 46,409
 * numbers from min to max each one has a bucket, and the last one may be smaller. With more, the rounding may
 * leave the highest numbers without one: from 0 to 2000000000 no number above 1073741823 ever comes.
 *
 * @param min  least number
 * @param max  greatest number, not below min
 * @return a number from min to max
 *
 * Shares the state of rand() with the whole process.
 */
OZU_API int ozuutils_random(int min, int max) OZU_NOEXCEPT;

/**
 * Decrypts a protected video file in place: AES in CBC mode from an offset on, with the IV of the
 * installation (build option OZU_VIDEO_IV). Logs nothing.
 *
 * The region is taken in chunks of keyLen bytes. A tail shorter than a chunk stays encrypted. With a
 * 24-byte key a chunk ends in half a block. It is padded with zeros to 32 bytes for the cipher, and the first
 * 24 bytes of the result are kept. The first chunk must decrypt to something that begins with "OZU";
 * otherwise nothing is written.
 *
 * A call that fails later, or a process that is killed, leaves a file that is decrypted up to some point,
 * usually the end of a chunk, and encrypted from there on. It cannot be resumed. Work on a copy where that
 * matters.
 *
 * @param path    file, writable
 * @param key     keyLen bytes
 * @param keyLen  16, 24 or 32
 * @param offset  where the encrypted region begins, in bytes; the region may be empty
 * @return 0 when every whole chunk is decrypted, also when there is none. A read error counts as the end of
 *           the file;
 *         1 when a seek, the cipher or a write failed, or the region does not begin with "OZU";
 *         2 for a null path or key; 4 for another keyLen; 70 when the file could not be opened
 *
 * Blocks for as long as the file takes. Uses about 66 KB of stack. Not to be called twice on the same file at
 * once.
 */
OZU_API unsigned decryptVideoFile(const char *path, const unsigned char *key, unsigned keyLen,
                                  long offset) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_CRYPTO_H */

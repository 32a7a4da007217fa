/*
 * String and number conversions.
 *
 * None of these functions logs, keeps state or uses the heap; all work in the caller's buffers. They may run
 * concurrently unless their description says otherwise.
 *
 * Hexadecimal text is written in upper case and read in both cases. The renderers
 * ozuutils_num2decstr(), ozuutils_num2hexstr(), ozuutils_String2Ascii() and ozuutils_Num2MinimalDecStr()
 * write digits only. The caller adds the terminator.
 *
 * A null pointer is accepted only where a description says what it does.
 */
#ifndef UTILS_OZU_TEXT_H
#define UTILS_OZU_TEXT_H

#include <utils_ozu/export.h>

#include <stdint.h>

OZU_BEGIN_DECLS

/* ---- Copies ---- */

/**
 * Copies the first characters of a text in lower case, by the C library's tolower() of the current locale.
 * @param dst  receives min(strlen(src), n) characters and a terminator, so it holds n + 1 bytes; may be src
 * @param src  text; at most n characters of it are read
 * @param n    most characters to copy
 * @return dst; null when dst or src is null
 */
OZU_API char *ozuutils_strncpy2Lower(char *dst, const char *src, unsigned int n) OZU_NOEXCEPT;

/**
 * Copies the first characters of a text in upper case, by the C library's toupper() of the current locale.
 * @param dst  receives min(strlen(src), n) characters and a terminator, so it holds n + 1 bytes; may be src
 * @param src  text; at most n characters of it are read
 * @param n    most characters to copy
 * @return dst; null when dst or src is null
 */
OZU_API char *ozuutils_strncpy2Upper(char *dst, const char *src, unsigned int n) OZU_NOEXCEPT;

/**
 * Copies as much of a text as fits, always terminated. The two may overlap.
 * @param dst   receives at most size - 1 characters and a terminator; nothing is written when it is null
 * @param src   text; null counts as the empty text
 * @param size  capacity of dst in bytes; nothing is written when it is 0
 * @return the length of src, which is size or more when the copy was truncated
 */
OZU_API unsigned int ozuutils_strlcpy(char *dst, const char *src, unsigned int size) OZU_NOEXCEPT;

/**
 * Copies a space-padded field of fixed length into a null-terminated text, without trailing spaces.
 * Only spaces are trimmed: tabs and zero bytes of the field stay.
 * @param dst      receives min(dstSize - 1, srcLen) bytes and a terminator
 * @param dstSize  capacity of dst in bytes, at least 1
 * @param src      field, not terminated
 * @param srcLen   its length in bytes
 */
OZU_API void ozuutils_FixedStringCopyAndTrimRight(char *dst, unsigned int dstSize, const char *src,
                                                  unsigned int srcLen) OZU_NOEXCEPT;

/**
 * Builds the upper-case short name of a module.
 * @param dst   receives at most size - 1 characters; all size bytes are written, the rest with zeros
 * @param name  name of the module, not inside dst; null: the running program's name without its path
 * @param size  capacity of dst in bytes, at least 1
 * @return dst; null when dst is null
 */
OZU_API char *ozuutils_getShortUpperModName(char *dst, const char *name, unsigned int size) OZU_NOEXCEPT;

/* ---- Editing ---- */

/**
 * Replaces the first occurrence of a text in another one.
 * @param str          text to change, in a buffer of bufSize bytes
 * @param find         text to look for, not empty
 * @param replacement  text to put in its place; null deletes the occurrence
 * @param bufSize      capacity of str in bytes; the caller makes sure that it holds the result
 * @return 0, also when nothing was found; 4 when str or find is null or find is empty
 *
 * Needs as many bytes of stack as the result has.
 */
OZU_API unsigned int ozuutils_replaceSubstrInStr(char *str, const char *find, const char *replacement,
                                                 unsigned int bufSize) OZU_NOEXCEPT;

/**
 * Replaces every occurrence of one byte in a text. The text's length is taken before the first change, so
 * replacing by 0 goes on to the end.
 * @param from  byte value to replace, 0 to 255; any other number occurs nowhere
 * @param to    byte to write, truncated to 8 bits
 * @param s     text to change; nothing happens when it is null
 */
OZU_API void replace_char_from_string(int from, int to, char *s) OZU_NOEXCEPT;

/* ---- Lists "a,b,c" ---- */

/**
 * Appends an item to a list of items separated by commas. Items that are already there are added again.
 * @param list      list to change, in a buffer of listSize bytes; may be empty
 * @param item      item to append
 * @param listSize  capacity of list in bytes
 * @return 1 when it was added; 0 when list or item is null, item is empty or the result does not fit
 */
OZU_API unsigned int ozuutils_addToCommaSeparatedStringList(char *list, const char *item,
                                                            unsigned int listSize) OZU_NOEXCEPT;

/**
 * Removes the first occurrence of an item, and one comma beside it, from a list of items separated by commas.
 * @param list    list to change
 * @param item    item to remove; only a whole item matches. Case-sensitive
 * @param maxLen  capacity of list in bytes; a list or an item without a null terminator within it is refused
 * @return 1 when it was removed; 0 when it was not found, list or item is null, maxLen is 0 or one of the two
 *         is not terminated within maxLen bytes
 *
 * Writes the trace "\n--N--" to stdout when it removed an item, N being the number of bytes from the end of
 * the item to the list's terminator, including the terminator.
 */
OZU_API unsigned int ozuutils_removeFromCommaSeparatedStringList(char *list, const char *item,
                                                                 unsigned int maxLen) OZU_NOEXCEPT;

/* ---- Decimal ---- */

/**
 * Converts the decimal number at the start of a text: white space, a sign, digits up to the first other
 * character.
 * @param s  text; null counts as 0
 * @return the number, -2147483648 or 2147483647 when it lies beyond them; 0 without digits
 */
OZU_API int safe_atoi(const char *s) OZU_NOEXCEPT;

/**
 * Converts the decimal number at the start of a text, as safe_atoi() does.
 * @param s  text; null counts as 0
 * @return the number, the nearest 64-bit number when it lies beyond; 0 without digits
 */
OZU_API long long safe_atoll(const char *s) OZU_NOEXCEPT;

/**
 * Writes a number with a fixed count of decimal digits and without terminator: leading zeros where it is
 * shorter, its higher digits dropped where it is longer (12345 in width 3 is "345").
 * @param num    number
 * @param dst    receives width characters
 * @param width  count of digits
 * @return width, truncated to 16 bits
 */
OZU_API unsigned short ozuutils_num2decstr(unsigned int num, char *dst, unsigned int width) OZU_NOEXCEPT;

/**
 * Writes a number in decimal without leading zeros and without terminator.
 * @param num     number
 * @param dst     receives the digits; holds 10 characters, or maxLen + 1 when that is less
 * @param maxLen  most digits, at least 10 to hold every number. A number with more digits than that is
 *                written as maxLen + 1 characters: one without meaning, then its last maxLen digits.
 * @return count of characters written; 0 when maxLen is 0 (nothing is written)
 */
OZU_API unsigned short ozuutils_Num2MinimalDecStr(unsigned int num, char *dst,
                                                  unsigned int maxLen) OZU_NOEXCEPT;

/* ---- Digits and radix ---- */

/**
 * Returns the value of a digit: '0' to '9' are 0 to 9, 'A' to 'Y' and 'a' to 'y' are 10 to 34.
 * @param c  character
 * @return its value, -1 for every other character ('Z' and 'z' included)
 */
OZU_API signed char ozuutils_Ascii2Digit(char c) OZU_NOEXCEPT;

/**
 * Returns the hexadecimal digit of a value.
 * @param d  value, 0 to 15
 * @return '0' to '9' or 'A' to 'F'; a zero byte for a value above 15
 */
OZU_API char ozuutils_Digit2Ascii(unsigned char d) OZU_NOEXCEPT;

/**
 * Converts the digits at the start of a text to a number, stopping at the first character that
 * ozuutils_Ascii2Digit() does not know. Digits are not checked against the radix ('9' in radix 8 counts 9).
 * @param s          text
 * @param maxDigits  most characters to read; above 32 counts as 32
 * @param radix      radix
 * @return the number modulo 2^32, as a signed number; 0 without digits or when s is null
 */
OZU_API int ozuutils_StringToNum(const char *s, unsigned int maxDigits, unsigned int radix) OZU_NOEXCEPT;

/**
 * Converts the digits at the start of a text to a number, as ozuutils_StringToNum() does.
 * @param s          text
 * @param maxDigits  most characters to read; above 64 counts as 64
 * @param radix      radix
 * @return the number modulo 2^64; 0 without digits or when s is null
 */
OZU_API uint64_t ozuutils_StringToLongNum(const char *s, unsigned int maxDigits,
                                          unsigned int radix) OZU_NOEXCEPT;

/**
 * Reads a byte of binary-coded decimals: 0x59 is 59. A half above 9 is not rejected; it counts with its value
 * (0x5A is 60).
 * @param bcd  two decimals, the higher one in the high half
 * @return high half * 10 + low half, 0 to 165
 */
OZU_API unsigned char ozuutils_bcd2num(unsigned char bcd) OZU_NOEXCEPT;

/* ---- Hexadecimal ---- */

/**
 * Writes bytes as hexadecimal digits, two for each, high half first, without terminator.
 * @param dst  receives 2 * n characters
 * @param src  bytes
 * @param n    count of bytes
 */
OZU_API void ozuutils_String2Ascii(char *dst, const unsigned char *src, unsigned short n) OZU_NOEXCEPT;

/**
 * Reads bytes from pairs of digits: each byte is 16 times the first digit plus the second, truncated to 8
 * bits. A character that ozuutils_Ascii2Digit() does not know counts -1.
 * @param dst  receives n bytes; may be the buffer of src
 * @param src  2 * n characters
 * @param n    count of bytes
 */
OZU_API void ozuutils_Ascii2String(unsigned char *dst, const char *src, unsigned short n) OZU_NOEXCEPT;

/**
 * Writes a number with a fixed count of hexadecimal digits and without terminator: leading zeros where it is
 * shorter, its higher digits dropped where it is longer (0x1ABC in width 2 is "BC").
 * @param num    number
 * @param dst    receives width characters
 * @param width  count of digits; nothing is written when it is negative
 * @return width, truncated to 16 bits
 */
OZU_API unsigned short ozuutils_num2hexstr(uint64_t num, char *dst, int width) OZU_NOEXCEPT;

/**
 * Reads the hexadecimal number at the start of a text (0-9, A-F, a-f), stopping at the first other character.
 * @param s       text
 * @param maxLen  most characters to read
 * @param outLen  receives the count of digits read, truncated to 8 bits; may be null
 * @return the number, its last eight digits when there are more; 0 without digits
 */
OZU_API unsigned int ozuutils_hexstr2numRetLen(const char *s, unsigned int maxLen,
                                               unsigned char *outLen) OZU_NOEXCEPT;

/**
 * Writes bytes as hexadecimal text with a separator between them, as many as surely fit: every byte, the last
 * one too, is budgeted with two digits and a separator.
 * @param data     bytes
 * @param len      count of bytes
 * @param dst      receives the null-terminated text
 * @param dstSize  capacity of dst in bytes, at least 1
 * @param sep      separator; null or empty for none
 * @return dst; null when dst is null
 */
OZU_API char *ozuutils_data2hexstr(const unsigned char *data, unsigned int len, char *dst,
                                   unsigned int dstSize, const char *sep) OZU_NOEXCEPT;

/**
 * Reads bytes from hexadecimal text, each pair as scanf() reads "%02hhx" from where the pair starts: white
 * space is skipped and a sign counts, so that a pair may read into the next one (" 12F" gives 12 2F). A pair
 * that does not scan leaves its byte as it was.
 * @param hex      text of pairs
 * @param out      receives half as many bytes as the text has characters
 * @param outSize  capacity of out in bytes
 * @param reverse  non-zero: the first pair goes to the last byte
 * @return count of bytes, 0 for the empty text; -1 when the text's length is odd; -2 when the bytes do not
 * fit (nothing is written in these two cases)
 */
OZU_API int ozuutils_hexStringToBinary(const char *hex, unsigned char *out, unsigned int outSize,
                                       int reverse) OZU_NOEXCEPT;

/* ---- Checks and searches ---- */

/**
 * Returns whether a text has only bytes below 128.
 * @param s  text
 * @return 1 when it has, also when it is empty; 0 otherwise, and when s is null
 */
OZU_API unsigned int ozuutils_isStringIsStandardAscii(const char *s) OZU_NOEXCEPT;

/**
 * Finds the first occurrence of some bytes in a buffer.
 * @param buf      buffer to search
 * @param pattern  bytes to look for
 * @param bufLen   length of buf in bytes
 * @param patLen   length of pattern in bytes, at least 1
 * @return where it starts in buf; null when it does not occur or patLen is above bufLen
 */
OZU_API unsigned char *ozuutils_searchInBuf(const unsigned char *buf, const unsigned char *pattern,
                                            unsigned int bufLen, unsigned int patLen) OZU_NOEXCEPT;

/* ---- Bits and byte order ---- */

/**
 * Reverses the order of four bytes.
 * @param p  four bytes, at any alignment
 */
OZU_API void swap_ptr32(void *p) OZU_NOEXCEPT;

/**
 * Counts the one bits of a number.
 * @param v  number
 * @return 0 to 32
 */
OZU_API unsigned int countSetBits(unsigned int v) OZU_NOEXCEPT;

/**
 * Sets one bit of a number.
 * @param v    number
 * @param bit  number of the bit, 0 the lowest
 * @return v with the bit set; v when bit is above 31
 */
OZU_API unsigned int SetBit(unsigned int v, unsigned int bit) OZU_NOEXCEPT;

/**
 * Clears one bit of a number.
 * @param v    number
 * @param bit  number of the bit, 0 the lowest
 * @return v with the bit cleared; v when bit is above 31
 */
OZU_API unsigned int ClearBit(unsigned int v, unsigned int bit) OZU_NOEXCEPT;

/**
 * Finds the highest one bit of a number.
 * @param v  number
 * @return its number, 0 to 31; 0 when v is 0
 */
OZU_API unsigned char msbSetBitNumber(unsigned int v) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_TEXT_H */

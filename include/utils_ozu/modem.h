/*
 * Modem versions and SIM identity.
 */
#ifndef UTILS_OZU_MODEM_H
#define UTILS_OZU_MODEM_H

#include <stddef.h>
#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Reads the modem's firmware version: the first line of "/var/run/version", with its line feed if it has one.
 *
 * @param out      receives the line up to its first zero byte, truncated to outSize - 1 bytes and terminated;
 *                 untouched on failure
 * @param outSize  capacity of out in bytes; with 0 nothing is written
 * @return 0; 2 when the file is not readable, cannot be opened or has no line. Logs nothing.
 */
OZU_API int ozuutils_readTelitFwFile(char *out, size_t outSize) OZU_NOEXCEPT;

/**
 * Takes the application version out of a modem version text: the digits after the first "A0F." and white
 * space that may follow it.
 *
 * @param text    modem version text; not null
 * @param out     receives the digits, terminated; needs digits + 1 bytes and at least 7
 * @param digits  number of digits the version has, 0 to 6; more are never found
 * @return 0; 2 when the marker or one of the digits is missing, with out empty. Logs nothing.
 */
OZU_API int getAppModemVersion(const char *text, char *out, size_t digits) OZU_NOEXCEPT;

/**
 * Takes the beta number out of a modem version text: after the first "A0F." at least one other character,
 * then "-B" at the first "-", then the digits, with white space before them if any.
 *
 * @param text    modem version text; not null
 * @param out     receives the digits, terminated; needs digits + 1 bytes and at least 4
 * @param digits  number of digits the beta number has, 0 to 3; more are never found
 * @return 0; 2 when a part is missing (out is empty) or a character is not a digit (out keeps those
 *         before it). Logs nothing.
 */
OZU_API int getAppBetaModemVersion(const char *text, char *out, size_t digits) OZU_NOEXCEPT;

/**
 * Splits a SIM's IMSI into mobile country code and mobile network code, whose length depends on the country.
 *
 * The characters are not checked: a text that does not begin with three digits is an unknown country.
 *
 * @param imsi  digits, at least 6; may be null
 * @param mcc   4 bytes; receives the first three characters, terminated; cleared when imsi is null or too
 *              short
 * @param mnc   4 bytes; receives the next two or three characters, terminated; cleared in the same cases
 * @return 3 or 2, the length of the network code (2 for an unknown country, which logs at 50000);
 *         0 when imsi is null or too short, and, with nothing written, when mcc or mnc is null
 */
OZU_API int ozuutils_IMSItoMccMnc(const char *imsi, char *mcc, char *mnc) OZU_NOEXCEPT;

/**
 * Returns whether the modem neither saves power nor works in CBank mode.
 *
 * @param psmMode  power-saving state of the modem; 0 and 4 mean no power saving
 * @return 1 when psmMode is 0 or 4 and the shared state's cBankModeActive is 0, otherwise 0; 0 also when the
 *         shared state is missing (logs at 70000)
 */
OZU_API int isNoPSMandNoCBankMode(int psmMode) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_MODEM_H */

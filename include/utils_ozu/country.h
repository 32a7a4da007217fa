/*
 * Country codes.
 *
 * Translates the name of a country into its ISO 3166 codes. Only the first 63 bytes of a name count, in the
 * file and in the call. Spaces and line ends among them are ignored. The comparison is case-insensitive for
 * ASCII letters.
 *
 * The optional file "/data/ozu/etc/countries_codes.csv" is searched first. Its lines hold name, two-letter,
 * three-letter and numeric code, separated by commas without spaces. Lines that begin with '#' are comments.
 * A name with commas is in double quotes and lists alternatives. It is found by the whole name or by its
 * first alternative. The first line with the whole name ends the search. Otherwise the last line whose first
 * alternative matches is used. A line of more than 127 bytes is read as several.
 *
 * A code is truncated to its 2 or 3 bytes first, then spaces and line ends are dropped and letters become
 * upper case: " GB" in the file gives "G". A missing code is empty. A numeric code that is then
 * shorter than 3 digits is padded with zeros. Without a number it is "000".
 *
 * The built-in rows come next: Spain, France, Portugal, Italy, United Kingdom, Argentina, Brazil, Peru,
 * Israel, Chile. Every other name gives the codes of Spain ("ES", "ESP", "724") and the result 0. It is
 * logged at 40000, unless it is null, empty or only spaces and line ends.
 *
 * Each call opens and reads the file. Calls may run concurrently.
 */
#ifndef UTILS_OZU_COUNTRY_H
#define UTILS_OZU_COUNTRY_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Looks up all codes of a country. Every output that is not null is always written.
 *
 * @param country  name, may be null
 * @param alpha2   receives the two-letter code, 3 bytes, or null
 * @param alpha3   receives the three-letter code, 4 bytes, or null
 * @param numeric  receives the three-digit code, 4 bytes, or null
 * @return 1 when the country was found; 0 when it was not (logged at 40000), or the name is null, empty or
 *         only spaces and line ends (not logged); the outputs then hold the codes of Spain
 */
OZU_API unsigned get_country_codes(const char *country, char alpha2[3], char alpha3[4],
                                   char numeric[4]) OZU_NOEXCEPT;

/** get_country_codes() for the two-letter code alone. */
OZU_API unsigned get_country_alpha2Code(const char *country, char alpha2[3]) OZU_NOEXCEPT;

/** get_country_codes() for the three-letter code alone. */
OZU_API unsigned get_country_alpha3Code(const char *country, char alpha3[4]) OZU_NOEXCEPT;

/** get_country_codes() for the numeric code alone. */
OZU_API unsigned get_country_numericCode(const char *country, char numeric[4]) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_COUNTRY_H */

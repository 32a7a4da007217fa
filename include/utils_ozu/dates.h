/*
 * Dates and the clock.
 *
 * The five parsers return 32-bit epoch seconds, and -1 for a null text (where they accept one), a text that
 * does not match, and a time that 32 bits cannot hold (before 13 December 1901 or after 19 January 2038). The
 * second before the epoch cannot be told from a failure. Fields that a layout does not carry are 0. Numbers
 * may carry blanks and a sign in front. The layouts differ on purpose in order of fields, year rule and time
 * base. "Local" is the zone of the process (TZ, or the system's), daylight saving included.
 */
#ifndef UTILS_OZU_DATES_H
#define UTILS_OZU_DATES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

struct tm;

/**
 * Reads "month-day-year hour:minute:second", e.g. "03-15-2024 10:20:30", as local time. Years 0 to 99 are
 * 2000 to 2099. Fields out of range run over into the next (month 13 is January). Trailing blanks are
 * allowed, anything else after the second is not. Logs nothing.
 *
 * @param text  may be null
 * @return epoch seconds, or -1
 */
OZU_API int date_string_to_time(const char *text) OZU_NOEXCEPT;

/**
 * Reads "day/month/year hour:minute" or "day/month/year", e.g. "15/03/2024 10:20", as UTC. Years 0 to 69 are
 * 2000 to 2069, 70 to 99 are 1970 to 1999. What follows the minute is ignored; after a date alone only blanks
 * may follow. Day, month, hour and minute must be in range, the day only in 1 to 31 (31/02 is 2 or 3 March).
 *
 * @param text  may be null
 * @return epoch seconds, or -1
 *
 * Logs what was read at 30000, a refusal at 70000.
 */
OZU_API int date_string_to_time_limited(const char *text) OZU_NOEXCEPT;

/**
 * Reads "DDMMYYYY", e.g. "15032024", as midnight UTC. The year rule is that of
 * date_string_to_time_limited(). Fields out of range run over; nothing may follow. Logs nothing.
 *
 * @param text  may be null
 * @return epoch seconds, or -1
 */
OZU_API int date_string_to_time_tools(const char *text) OZU_NOEXCEPT;

/**
 * Reads the C library's date text, e.g. "Fri Mar 15 10:20:30 2024", as local time. Names of days and months
 * are those of the process's locale. A text that does not match counts up to where it differs; without a year
 * that is the year 1900 and so -1. Logs nothing.
 *
 * @param text  may be null
 * @return epoch seconds, or -1
 */
OZU_API int bypass_string_to_time(const char *text) OZU_NOEXCEPT;

/**
 * Reads "YYMMDDhhmm", e.g. "2403151020", as local time. Years below 70 are 20YY, others 19YY. Fields out of
 * range run over; what follows is ignored.
 *
 * @param text  not null
 * @return epoch seconds, or -1. Fewer than five numbers are logged at 70000
 */
OZU_API int localTimeStrToTimeT(const char *text) OZU_NOEXCEPT;

/**
 * Turns calendar time, taken as UTC, into epoch seconds.
 *
 * @param utc  not null; its fields are brought into range, as mktime() does
 * @return epoch seconds; -1 for a time that 32 bits cannot hold
 *
 * Changes the environment variable TZ for the duration of the call and puts it back. Not to be called while
 * another thread uses the environment or local time.
 */
OZU_API int ozuutils_timegm_to_epoch(struct tm *utc) OZU_NOEXCEPT;

/**
 * Tells whether the clock can be trusted.
 *
 * @param now  current time in epoch seconds
 * @return 0 while both PanelSharedState.timeSourceFlagA and timeSourceFlagB are 0. Otherwise, and without
 *         shared state, 1 when now is above 400000000 (September 1982), else 0
 */
OZU_API unsigned int ozuutils_isSystemTimeOk(int now) OZU_NOEXCEPT;

/**
 * Tells whether the clock has been set since the panel was made.
 * @return 1 when the local year is 2021 or later (logs the year at 40000), else 0
 *
 * Uses the C library's shared calendar record: not to be called while another thread uses localtime().
 */
OZU_API unsigned int _RTC_is_synched(void) OZU_NOEXCEPT;

/**
 * Reads how long the system has been up.
 *
 * @param uptime  receives seconds since boot; not null, may be written on failure
 * @param idle    receives the idle seconds of all processors together; may be null
 * @return 1 read, 0 "/proc/uptime" cannot be read or understood. In a locale with a decimal comma it cannot.
 */
OZU_API unsigned int utils_get_cp_uptime(double *uptime, double *idle) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_DATES_H */

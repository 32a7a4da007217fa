/*
 * Dates and the clock.
 *
 * The five parsers return 32-bit epoch seconds. They return -1 for a null text (where they accept one), a
 * text that does not match, and a time that 32 bits cannot hold: before 13 December 1901, 20:45:52, or after
 * 19 January 2038, 03:14:07 (UTC). The second before the epoch cannot be told from a failure. Fields that a
 * layout does not carry are 0. Numbers may have white space and a sign in front; in the calendar text of
 * bypass_string_to_time() they have no sign. The layouts differ on purpose in field order, year rule and time
 * base.
 *
 * "Local" is the zone of the process (TZ, or the system's), daylight saving time included. A local time may
 * occur twice when clocks go back, or never when they go forward. Which way it is read then depends on what
 * the process converted before. Do not rely on it.
 */
#ifndef UTILS_OZU_DATES_H
#define UTILS_OZU_DATES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

struct tm;

/**
 * Reads "month-day-year hour:minute:second", e.g. "03-15-2024 10:20:30", as local time. Years 0 to 99 are
 * 2000 to 2099. Fields out of range carry over into the next one (month 13 is January of the next year).
 * Trailing white space is allowed, anything else after the second is not. Logs nothing.
 *
 * @param text  may be null
 * @return epoch seconds, or -1
 */
OZU_API int date_string_to_time(const char *text) OZU_NOEXCEPT;

/**
 * Reads "day/month/year hour:minute" or "day/month/year", e.g. "15/03/2024 10:20", as UTC. Years 0 to 69 are
 * 2000 to 2069, 70 to 99 are 1970 to 1999. What follows the minute is ignored; after a date alone only white
 * space may follow. Month, hour and minute must be in range. The day must be 1 to 31 in every month: 31/02 is
 * 2 or 3 March.
 *
 * @param text  may be null
 * @return epoch seconds, or -1
 *
 * Logs what was read at 30000; null, a text that does not match and fields out of range at 70000. A year that
 * 32 bits cannot hold is not logged as a failure.
 */
OZU_API int date_string_to_time_limited(const char *text) OZU_NOEXCEPT;

/**
 * Reads "DDMMYYYY", e.g. "15032024", as midnight UTC. The year rule is that of
 * date_string_to_time_limited(). Fields out of range carry over; nothing may follow. Logs nothing.
 *
 * @param text  may be null
 * @return epoch seconds, or -1
 */
OZU_API int date_string_to_time_tools(const char *text) OZU_NOEXCEPT;

/**
 * Reads the C library's date text, e.g. "Fri Mar 15 10:20:30 2024", as local time. Names of days and months
 * are those of the process's locale. A text that does not match counts up to where it differs. Without a year
 * that is the year 1900, so -1. What follows the year is ignored. Logs nothing.
 *
 * @param text  may be null
 * @return epoch seconds, or -1
 */
OZU_API int bypass_string_to_time(const char *text) OZU_NOEXCEPT;

/**
 * Reads "YYMMDDhhmm", e.g. "2403151020", as local time. Years below 70 are 20YY, others 19YY. Fields out of
 * range carry over; what follows is ignored.
 *
 * @param text  not null
 * @return epoch seconds, or -1. Fewer than five numbers are logged at 70000
 */
OZU_API int localTimeStrToTimeT(const char *text) OZU_NOEXCEPT;

/**
 * Turns calendar time, taken as UTC, into epoch seconds.
 *
 * @param utc  not null. Its tm_isdst should be 0: a positive one may subtract an hour, as in mktime().
 *             Its fields are brought into range, as mktime() does; untouched when the result is -1
 * @return epoch seconds; -1 for a time that 32 bits cannot hold and for the second before the epoch
 *
 * Sets the environment variable TZ for the duration of the call and restores it. Not to be called while
 * another thread uses the environment or local time. Logs nothing.
 */
OZU_API int ozuutils_timegm_to_epoch(struct tm *utc) OZU_NOEXCEPT;

/**
 * Returns whether the clock can be trusted.
 *
 * @param now  current time in epoch seconds
 * @return 0 while both PanelSharedState.timeSourceFlagA and timeSourceFlagB are 0. Otherwise, and without
 *         shared state, 1 when now is above 400000000 (September 1982), else 0
 */
OZU_API unsigned int ozuutils_isSystemTimeOk(int now) OZU_NOEXCEPT;

/**
 * Returns whether the clock has been set: until then it shows an earlier year than 2021.
 * @return 1 when the local year is 2021 or later (logs the year at 40000), else 0
 *
 * Overwrites the C library's calendar record, which localtime(), gmtime() and ctime() share: copy what they
 * returned before, and do not call it while another thread uses them.
 */
OZU_API unsigned int _RTC_is_synched(void) OZU_NOEXCEPT;

/**
 * Reads how long the system has been up.
 *
 * @param uptime  receives the seconds since boot; not null, may be written on failure
 * @param idle    receives the idle seconds of all processors together; may be null, untouched on failure
 * @return 1 read; 0 when "/proc/uptime" cannot be read or parsed. In a locale with a decimal comma it cannot
 *         be parsed. Logs nothing
 */
OZU_API unsigned int utils_get_cp_uptime(double *uptime, double *idle) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_DATES_H */

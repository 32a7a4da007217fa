// Date texts into epoch seconds. Each layout has its own field order, year rule and time base.

#include <utils_ozu/dates.h>

#include <base/log.h>
#include <base/panel_width.h>

#include <cstdio>
#include <ctime>

// The layouts are defined by what sscanf takes for a number.
// NOLINTBEGIN(cert-err34-c)

namespace {

// Fields run to the limits of int, and the panel's arithmetic wraps there.
constexpr int sum(int a, int b) noexcept {
    return static_cast<int>(static_cast<unsigned int>(a) + static_cast<unsigned int>(b));
}

constexpr bool inRange(int value, int last) noexcept {
    return static_cast<unsigned int>(value) <= static_cast<unsigned int>(last);
}

constexpr int yearOfThisCentury(int year) noexcept {
    return inRange(year, 99) ? year + 2000 : year;
}

// 70 to 99 belong to the last century, 0 to 69 to this one.
constexpr int yearAround1970(int year) noexcept {
    if (!inRange(year, 99)) {
        return year;
    }
    return year > 69 ? year + 1900 : year + 2000;
}

struct Date {
    int day = 0;
    int month = 0; // as written, from 1
    int year = 0;  // as written, all digits
};

tm calendar(const Date &date) noexcept {
    tm time = {};
    time.tm_mday = date.day;
    time.tm_mon = sum(date.month, -1);
    time.tm_year = sum(date.year, -1900);
    return time;
}

int localSeconds(tm time) noexcept {
    time.tm_isdst = -1; // the zone decides
    return ozu::panelTime(mktime(&time));
}

int utcSeconds(tm time) noexcept {
    return ozu::panelTime(timegm(&time));
}

// Both scans read into long and saturate at the panel's limits: with "%d" a number beyond them would come out
// differently on machines whose long is wider.
int scanned(long value) noexcept {
    return ozu::panelLong(value);
}

// True when the text is day/month/year and trailing spaces, and nothing else.
bool scanDateOnly(const char *text, Date &date) noexcept {
    long day = 0;
    long month = 0;
    long year = 0;
    int consumed = 0;
    sscanf(text, "%ld/%ld/%ld %n", &day, &month, &year, &consumed);
    if (consumed == 0 || text[consumed] != '\0') {
        return false;
    }
    date = {scanned(day), scanned(month), scanned(year)};
    return true;
}

} // namespace

int date_string_to_time(const char *text) noexcept {
    if (text == nullptr) {
        return -1;
    }
    long month = 0;
    long day = 0;
    long year = 0;
    long hour = 0;
    long minute = 0;
    long second = 0;
    int consumed = 0;
    sscanf(text, "%ld-%ld-%ld %ld:%ld:%ld %n", &month, &day, &year, &hour, &minute, &second, &consumed);
    if (consumed == 0 || text[consumed] != '\0') {
        return -1;
    }
    tm time = calendar({scanned(day), scanned(month), yearOfThisCentury(scanned(year))});
    time.tm_hour = scanned(hour);
    time.tm_min = scanned(minute);
    time.tm_sec = scanned(second);
    return localSeconds(time);
}

int date_string_to_time_limited(const char *text) noexcept {
    if (text == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "Date string is NULL");
        return -1;
    }
    Date date;
    int hour = 0;
    int minute = 0;
    if (sscanf(text, "%2d/%2d/%4d %2d:%2d", &date.day, &date.month, &date.year, &hour, &minute) == 5) {
        OZU_LOG(OZULOG_INFO, "Parsed date with time: %02d-%02d-%04d %02d:%02d", date.day, date.month,
                date.year, hour, minute);
    } else if (scanDateOnly(text, date)) {
        hour = 0;
        minute = 0;
        OZU_LOG(OZULOG_INFO, "Parsed date without time: %02d/%02d/%04d", date.day, date.month, date.year);
    } else {
        OZU_LOG_TEXT(OZULOG_ERROR, "Invalid date format, expected 'DD/MM/YYYY' or 'DD-MM-YYYY HH:mm'");
        return -1;
    }
    date.year = yearAround1970(date.year);
    if (!inRange(hour, 23) || !inRange(minute, 59)) {
        OZU_LOG(OZULOG_ERROR, "Invalid time values: hour=%d, min=%d", hour, minute);
        return -1;
    }
    if (!inRange(sum(date.day, -1), 30) || !inRange(sum(date.month, -1), 11)) {
        OZU_LOG(OZULOG_ERROR, "Invalid date values: year=%d, day=%d, month=%d", date.year, date.day,
                date.month);
        return -1;
    }
    tm time = calendar(date);
    time.tm_hour = hour;
    time.tm_min = minute;
    return utcSeconds(time);
}

int date_string_to_time_tools(const char *text) noexcept {
    if (text == nullptr) {
        return -1;
    }
    Date date;
    int consumed = 0;
    sscanf(text, "%2d%2d%4d%n", &date.day, &date.month, &date.year, &consumed);
    if (consumed == 0 || text[consumed] != '\0') {
        return -1;
    }
    date.year = yearAround1970(date.year);
    return utcSeconds(calendar(date));
}

int bypass_string_to_time(const char *text) noexcept {
    if (text == nullptr) {
        return -1;
    }
    // What was read before a mismatch counts.
    tm time = {};
    static_cast<void>(strptime(text, "%a %b %d %H:%M:%S %Y", &time));
    return localSeconds(time);
}

int localTimeStrToTimeT(const char *text) noexcept {
    tm time = {};
    const int fields = sscanf(text, "%2d%2d%2d%2d%2d", &time.tm_year, &time.tm_mon, &time.tm_mday,
                              &time.tm_hour, &time.tm_min);
    if (fields < 5) {
        OZU_LOG_TEXT(OZULOG_ERROR, "invalid date time provided");
        return -1;
    }
    if (time.tm_year < 70) {
        time.tm_year += 100;
    }
    time.tm_mon -= 1;
    return localSeconds(time);
}

// NOLINTEND(cert-err34-c)

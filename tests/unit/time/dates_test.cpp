// Date texts against a calendar of the test's own.
#include <utils_ozu/dates.h>

#include "fake_platform.h"

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kIntMax = 2147483647;

// Days since 1970 of a date of the Gregorian calendar, counted from March so that leap days come last.
constexpr std::int64_t days(std::int64_t year, std::int64_t month, std::int64_t day) {
    year += (month - 1) / 12;
    month = (month - 1) % 12 + 1;
    if (month < 1) {
        month += 12;
        --year;
    }
    if (month <= 2) {
        month += 12;
        --year;
    }
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t yearOfEra = year - era * 400;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + (153 * (month - 3) + 2) / 5 +
           day - 1 - 719468;
}

constexpr std::int64_t seconds(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour = 0,
                               std::int64_t minute = 0, std::int64_t second = 0) {
    return days(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
}

constexpr int panel(std::int64_t value) {
    return value < -2147483647LL - 1 || value > kIntMax ? -1 : static_cast<int>(value);
}

static_assert(days(1970, 1, 1) == 0 && days(2000, 2, 29) == 11016 && days(2038, 1, 19) == 24855);

// Weekday of a day since 1970, 0 is Sunday.
constexpr std::int64_t weekday(std::int64_t day) {
    return ((day + 4) % 7 + 7) % 7;
}

// The n-th Sunday of a month, 5 for the last, as days since 1970.
std::int64_t sunday(std::int64_t year, std::int64_t month, int nth) {
    if (nth == 5) {
        const std::int64_t last = days(year, month + 1, 1) - 1;
        return last - weekday(last);
    }
    const std::int64_t first = days(year, month, 1);
    return first + (7 - weekday(first)) % 7 + 7 * (nth - 1);
}

// A zone with its rules for daylight saving; switches happen at local wall-clock hours.
struct Zone {
    const char *title;
    const char *tz;
    int offset; // seconds east of Greenwich
    int summer; // added in summer; 0 for none
    int fromMonth, fromSunday, fromHour;
    int toMonth, toSunday, toHour;
};

constexpr std::array kZones = {
    Zone{"Utc", "UTC0", 0, 0, 0, 0, 0, 0, 0, 0},
    Zone{"Berlin", "CET-1CEST,M3.5.0/2,M10.5.0/3", 3600, 3600, 3, 5, 2, 10, 5, 3},
    Zone{"NewYork", "EST5EDT,M3.2.0/2,M11.1.0/2", -18000, 3600, 3, 2, 2, 11, 1, 2},
    Zone{"Sydney", "AEST-10AEDT,M10.1.0/2,M4.1.0/3", 36000, 3600, 10, 1, 2, 4, 1, 3},
    Zone{"LordHowe", "<+1030>-10:30<+11>-11,M10.1.0/2,M4.1.0/2", 37800, 1800, 10, 1, 2, 4, 1, 2},
    Zone{"Kathmandu", "<+0545>-5:45", 20700, 0, 0, 0, 0, 0, 0, 0},
};

void PrintTo(const Zone &zone, std::ostream *out) {
    *out << zone.title;
}

struct Wall {
    int year, month, day, hour, minute, second;
};

enum class Kind { Clear, Skipped, Doubled };

// What the wall clock's reading is in UTC seconds, and whether it exists once.
Kind model(const Zone &zone, const Wall &wall, std::int64_t &utc) {
    const std::int64_t local = seconds(wall.year, wall.month, wall.day, wall.hour, wall.minute, wall.second);
    utc = local - zone.offset;
    if (zone.summer == 0) {
        return Kind::Clear;
    }
    const std::int64_t from =
        sunday(wall.year, zone.fromMonth, zone.fromSunday) * 86400 + zone.fromHour * 3600;
    const std::int64_t to = sunday(wall.year, zone.toMonth, zone.toSunday) * 86400 + zone.toHour * 3600;
    if (local >= from && local < from + zone.summer) {
        return Kind::Skipped;
    }
    if (local >= to - zone.summer && local < to) {
        return Kind::Doubled;
    }
    const bool summer = from < to ? local >= from && local < to : local >= from || local < to;
    utc -= summer ? zone.summer : 0;
    return Kind::Clear;
}

class Dates : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        setZone("CET-1CEST,M3.5.0/2,M10.5.0/3");
    }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
        PlatformTest::TearDown();
    }
    static void setZone(const char *tz) {
        setenv("TZ", tz, 1);
        tzset();
    }
};

__attribute__((format(printf, 1, 2))) std::string text(const char *format, ...) {
    char buffer[200];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    return buffer;
}

} // namespace

// --- month-day-year hour:minute:second, local

TEST_F(Dates, americanOrderIsLocalTime) {
    EXPECT_EQ(date_string_to_time("03-15-24 10:20:30"), seconds(2024, 3, 15, 9, 20, 30));
    EXPECT_EQ(date_string_to_time("07-15-2024 10:20:30"), seconds(2024, 7, 15, 8, 20, 30));
    EXPECT_EQ(date_string_to_time("3-5-24 1:2:3"), seconds(2024, 3, 5, 0, 2, 3));
    EXPECT_EQ(date_string_to_time("  03-15-24 10:20:30 \t\n "), seconds(2024, 3, 15, 9, 20, 30));
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Dates, americanOrderTakesWholeTextsOnly) {
    for (const char *wrong :
         {"", " ", "x", "03-15-2024", "03-15-2024 10:20", "03-15-2024 10:20:", "03-15-2024 10:20:30 x",
          "03-15-2024 10:20:30.5", "03/15/2024 10:20:30", "03-15-2024T10:20:30", "03 -15-2024 10:20:30"}) {
        EXPECT_EQ(date_string_to_time(wrong), -1) << wrong;
    }
    EXPECT_EQ(date_string_to_time(nullptr), -1);
}

TEST_F(Dates, americanOrderWidensYearsOfTwoDigits) {
    setZone("UTC0");
    EXPECT_EQ(date_string_to_time("01-01-00 00:00:00"), seconds(2000, 1, 1));
    EXPECT_EQ(date_string_to_time("01-01-37 00:00:00"), seconds(2037, 1, 1));
    EXPECT_EQ(date_string_to_time("01-01-99 00:00:00"), -1); // 2099
    EXPECT_EQ(date_string_to_time("01-01-100 00:00:00"), -1);
    EXPECT_EQ(date_string_to_time("01-01--1 00:00:00"), -1);
    EXPECT_EQ(date_string_to_time("01-01-1970 00:00:01"), 1);
}

TEST_F(Dates, americanOrderRunsOver) {
    setZone("UTC0");
    EXPECT_EQ(date_string_to_time("13-01-2023 00:00:00"), seconds(2024, 1, 1));
    EXPECT_EQ(date_string_to_time("0-00-2024 00:00:00"), seconds(2023, 11, 30));
    EXPECT_EQ(date_string_to_time("02-31-2024 24:60:60"), seconds(2024, 3, 3, 1, 1, 0));
    EXPECT_EQ(date_string_to_time("01-01-2024 -1:-1:-1"), seconds(2024, 1, 1) - 3661);
    EXPECT_EQ(date_string_to_time("+1-+2-+2024 +3:+4:+5"), seconds(2024, 1, 2, 3, 4, 5));
    EXPECT_EQ(date_string_to_time("01-01-2024 00:00:1000000"), seconds(2024, 1, 1) + 1000000);
}

TEST_F(Dates, onlyThirtyTwoBitsOfTime) {
    setZone("UTC0");
    EXPECT_EQ(date_string_to_time("01-19-2038 03:14:07"), kIntMax);
    EXPECT_EQ(date_string_to_time("01-19-2038 03:14:08"), -1);
    EXPECT_EQ(date_string_to_time("12-13-1901 20:45:52"), -kIntMax - 1);
    EXPECT_EQ(date_string_to_time("12-13-1901 20:45:51"), -1);
    EXPECT_EQ(date_string_to_time("12-31-1969 23:59:58"), -2);
}

// Numbers beyond 32 bits saturate; a wider machine's own scan would cut them to something else.
TEST_F(Dates, hugeNumbersCountAsOnThePanel) {
    setZone("UTC0");
    const std::int64_t base = seconds(1970, 1, 1);
    for (const char *huge : {"2147483647", "2147483648", "4294967295", "4294967296", "4294967297",
                             "9223372036854775807", "9223372036854775808", "99999999999999999999999"}) {
        EXPECT_EQ(date_string_to_time(text("1-1-1970 0:0:%s", huge).c_str()), panel(base + kIntMax)) << huge;
        // Far out of range as a day or a year, whatever is left of the number.
        EXPECT_EQ(date_string_to_time(text("1-%s-1970 0:0:0", huge).c_str()), -1) << huge;
        EXPECT_EQ(date_string_to_time(text("1-1-%s 0:0:0", huge).c_str()), -1) << huge;
        EXPECT_EQ(date_string_to_time_limited(text("1/1/%s", huge).c_str()), -1) << huge;
    }
    for (const char *huge : {"-2147483648", "-2147483649", "-4294967296", "-99999999999999999999999"}) {
        EXPECT_EQ(date_string_to_time(text("1-1-1970 0:0:%s", huge).c_str()), -kIntMax - 1) << huge;
        EXPECT_EQ(date_string_to_time(text("1-1-%s 0:0:0", huge).c_str()), -1) << huge;
    }
    platform().log.clear();
    EXPECT_EQ(date_string_to_time_limited("4294967297/1/2024"), -1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(30000, "Parsed date without time: 2147483647/01/2024",
                                     "date_string_to_time_limited"),
                            extended(70000, "Invalid date values: year=2024, day=2147483647, month=1",
                                     "date_string_to_time_limited")));
}

// --- day/month/year, UTC

namespace {
auto limited(int level, const std::string &line) {
    return extended(level, line, "date_string_to_time_limited");
}
} // namespace

TEST_F(Dates, europeanOrderIsUtc) {
    EXPECT_EQ(date_string_to_time_limited("15/03/2024 10:20"), seconds(2024, 3, 15, 10, 20));
    EXPECT_EQ(date_string_to_time_limited("15/07/2024"), seconds(2024, 7, 15));
    EXPECT_EQ(date_string_to_time_limited("1/2/24 3:4"), seconds(2024, 2, 1, 3, 4));
    EXPECT_EQ(date_string_to_time_limited("1/2/24  \n"), seconds(2024, 2, 1));
    EXPECT_THAT(platform().log, ElementsAre(limited(30000, "Parsed date with time: 15-03-2024 10:20"),
                                            limited(30000, "Parsed date without time: 15/07/2024"),
                                            limited(30000, "Parsed date with time: 01-02-0024 03:04"),
                                            limited(30000, "Parsed date without time: 01/02/0024")));
}

TEST_F(Dates, europeanOrderIgnoresWhatFollowsTheMinute) {
    for (const char *longer :
         {"15/03/2024 10:20:59", "15/03/2024 10:20 x", "15/03/2024 10:200", "15/03/202410:20"}) {
        EXPECT_EQ(date_string_to_time_limited(longer), seconds(2024, 3, 15, 10, 20)) << longer;
    }
}

TEST_F(Dates, europeanOrderRefusesOtherTexts) {
    for (const char *wrong : {"", "5", "x", "15-03-2024 10:20", "15.03.2024", "15/03/2024 x", "15/03/2024 10",
                              "15/03/2024 10:", "15/03", "x15/03/2024", "15/03/x"}) {
        platform().log.clear();
        EXPECT_EQ(date_string_to_time_limited(wrong), -1) << wrong;
        EXPECT_THAT(
            platform().log,
            ElementsAre(limited(70000, "Invalid date format, expected 'DD/MM/YYYY' or 'DD-MM-YYYY HH:mm'")))
            << wrong;
        EXPECT_EQ(platform().log[0].format, "%s");
    }
    platform().log.clear();
    EXPECT_EQ(date_string_to_time_limited(nullptr), -1);
    EXPECT_THAT(platform().log, ElementsAre(limited(70000, "Date string is NULL")));
    EXPECT_EQ(platform().log[0].format, "%s");
}

TEST_F(Dates, aDateAloneIsMidnight) {
    // The timed reading fails halfway here, with an hour already taken from the year's digits.
    EXPECT_EQ(date_string_to_time_limited("1/1/02024"), seconds(2024, 1, 1));
    EXPECT_EQ(date_string_to_time_limited("1/1/+2024"), seconds(2024, 1, 1));
    // And here widths of two digits do not fit.
    EXPECT_EQ(date_string_to_time_limited("001/001/2024"), seconds(2024, 1, 1));
}

TEST_F(Dates, europeanYearsOfTwoDigitsTurnAtSeventy) {
    EXPECT_EQ(date_string_to_time_limited("15/03/75"), seconds(1975, 3, 15));
    EXPECT_EQ(date_string_to_time_limited("15/03/70"), seconds(1970, 3, 15));
    EXPECT_EQ(date_string_to_time_limited("15/03/99"), seconds(1999, 3, 15));
    EXPECT_EQ(date_string_to_time_limited("15/03/00"), seconds(2000, 3, 15));
    EXPECT_EQ(date_string_to_time_limited("15/03/37"), seconds(2037, 3, 15));
    EXPECT_EQ(date_string_to_time_limited("15/03/69"), -1); // 2069
    EXPECT_EQ(date_string_to_time_limited("15/03/100"), -1);
    EXPECT_EQ(date_string_to_time_limited("15/03/-1"), -1);
}

struct Refusal {
    const char *title;
    const char *text;
    const char *line;
};
void PrintTo(const Refusal &refusal, std::ostream *out) {
    *out << refusal.title;
}

class OutOfRange : public Dates, public testing::WithParamInterface<Refusal> {};

TEST_P(OutOfRange, isNamed) {
    EXPECT_EQ(date_string_to_time_limited(GetParam().text), -1);
    ASSERT_EQ(platform().log.size(), 2u);
    EXPECT_EQ(platform().log[1], limited(70000, GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, OutOfRange,
    testing::Values(Refusal{"month13", "15/13/2024", "Invalid date values: year=2024, day=15, month=13"},
                    Refusal{"month0", "15/0/2024", "Invalid date values: year=2024, day=15, month=0"},
                    Refusal{"monthNegative", "15/-1/2024",
                            "Invalid date values: year=2024, day=15, month=-1"},
                    Refusal{"day32", "32/01/2024 10:20", "Invalid date values: year=2024, day=32, month=1"},
                    Refusal{"day0", "0/01/75", "Invalid date values: year=1975, day=0, month=1"},
                    Refusal{"dayNegative", "-1/01/24", "Invalid date values: year=2024, day=-1, month=1"},
                    Refusal{"hour24", "15/03/2024 24:00", "Invalid time values: hour=24, min=0"},
                    Refusal{"hourNegative", "15/03/2024 -1:00", "Invalid time values: hour=-1, min=0"},
                    Refusal{"minute60", "15/03/2024 23:60", "Invalid time values: hour=23, min=60"},
                    Refusal{"minuteNegative", "15/03/2024 23:-1", "Invalid time values: hour=23, min=-1"},
                    Refusal{"timeBeforeDate", "99/99/2024 99:99", "Invalid time values: hour=99, min=99"},
                    Refusal{"yearNegative", "0/0/-5", "Invalid date values: year=-5, day=0, month=0"},
                    Refusal{"yearSaturated", "0/0/-99999999999",
                            "Invalid date values: year=-2147483648, day=0, month=0"}),
    [](const auto &instance) { return std::string(instance.param.title); });

TEST_F(Dates, dayIsNotHeldAgainstItsMonth) {
    EXPECT_EQ(date_string_to_time_limited("31/02/2024"), seconds(2024, 3, 2));
    EXPECT_EQ(date_string_to_time_limited("31/02/2023"), seconds(2023, 3, 3));
    EXPECT_EQ(date_string_to_time_limited("29/02/2024 23:59"), seconds(2024, 2, 29, 23, 59));
    EXPECT_EQ(date_string_to_time_limited("29/02/2100"), -1);
}

// --- DDMMYYYY, UTC

TEST_F(Dates, digitsAreUtcMidnight) {
    EXPECT_EQ(date_string_to_time_tools("15032024"), seconds(2024, 3, 15));
    EXPECT_EQ(date_string_to_time_tools("01010070"), seconds(1970, 1, 1));
    EXPECT_EQ(date_string_to_time_tools("01010069"), -1); // 2069
    EXPECT_EQ(date_string_to_time_tools("010137"), seconds(2037, 1, 1));
    EXPECT_EQ(date_string_to_time_tools("15 3 2024"), seconds(2024, 3, 15));
    EXPECT_EQ(date_string_to_time_tools("31022024"), seconds(2024, 3, 2));
    EXPECT_EQ(date_string_to_time_tools("99992024"), seconds(2024, 99, 99));
    EXPECT_EQ(date_string_to_time_tools("00002024"), seconds(2023, 11, 30));
    EXPECT_EQ(date_string_to_time_tools("-1-12024"), seconds(2023, 10, 30));
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Dates, digitsTakeWholeTextsOnly) {
    for (const char *wrong : {"", "1503", "150", "15032024Z", "15032024 ", "150320245", "15/03/2024", "x"}) {
        EXPECT_EQ(date_string_to_time_tools(wrong), -1) << wrong;
    }
    EXPECT_EQ(date_string_to_time_tools("1503202"), -1); // the year 202
    EXPECT_EQ(date_string_to_time_tools(nullptr), -1);
}

// --- the C library's date text, local

TEST_F(Dates, calendarTextIsLocalTime) {
    EXPECT_EQ(bypass_string_to_time("Mon Jan 02 15:04:05 2023"), seconds(2023, 1, 2, 14, 4, 5));
    EXPECT_EQ(bypass_string_to_time("Mon Jul  3 15:04:05 2023"), seconds(2023, 7, 3, 13, 4, 5));
    // The weekday is not checked against the date; what follows is ignored; names may be long.
    EXPECT_EQ(bypass_string_to_time("Sun Jan 02 15:04:05 2023 and more"), seconds(2023, 1, 2, 14, 4, 5));
    EXPECT_EQ(bypass_string_to_time("monday january 2 15:04:05 2023"), seconds(2023, 1, 2, 14, 4, 5));
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Dates, calendarTextTakesNoSigns) {
    EXPECT_EQ(bypass_string_to_time("Mon Jan  2 15:04:05  2023"), seconds(2023, 1, 2, 14, 4, 5));
    for (const char *text :
         {"Mon Jan +2 15:04:05 2023", "Mon Jan 02 +15:04:05 2023", "Mon Jan 02 15:04:05 +2023"}) {
        EXPECT_EQ(bypass_string_to_time(text), -1) << text;
    }
}

// The C library remembers which zone it answered with last.
TEST_F(Dates, hourThatOccursTwiceGoesByEarlierConversions) {
    const auto after = [](const char *former) {
        date_string_to_time(former);
        return date_string_to_time("10-27-2024 02:30:00");
    };
    EXPECT_EQ(after("07-15-2024 12:00:00"), seconds(2024, 10, 27, 0, 30));
    EXPECT_EQ(after("01-15-2024 12:00:00"), seconds(2024, 10, 27, 1, 30));
}

TEST_F(Dates, calendarTextThatEndsEarlyIsTheYear1900) {
    for (const char *wrong : {"", "x", "Mon", "Mon Jan", "Mon Jan 02", "Mon Jan 02 15:04:05", "2023-01-02"}) {
        EXPECT_EQ(bypass_string_to_time(wrong), -1) << wrong;
    }
    EXPECT_EQ(bypass_string_to_time(nullptr), -1);
    EXPECT_EQ(bypass_string_to_time("Mon Jan 02 15:04:05 2039"), -1);
}

// --- YYMMDDhhmm, local

TEST_F(Dates, tenDigitsAreLocalTime) {
    EXPECT_EQ(localTimeStrToTimeT("2403151230"), seconds(2024, 3, 15, 11, 30));
    EXPECT_EQ(localTimeStrToTimeT("2407151230"), seconds(2024, 7, 15, 10, 30));
    EXPECT_EQ(localTimeStrToTimeT("3712312359"), seconds(2037, 12, 31, 22, 59));
    EXPECT_EQ(localTimeStrToTimeT("2403151230 and more"), seconds(2024, 3, 15, 11, 30));
    EXPECT_EQ(localTimeStrToTimeT("24 3 1 2 3"), seconds(2024, 3, 1, 1, 3));
    setZone("UTC0");
    EXPECT_EQ(localTimeStrToTimeT("7001010000"), 0);
    EXPECT_EQ(localTimeStrToTimeT("8501010000"), seconds(1985, 1, 1));
    EXPECT_EQ(localTimeStrToTimeT("6901010000"), -1); // 2069
    EXPECT_EQ(localTimeStrToTimeT("9912312359"), seconds(1999, 12, 31, 23, 59));
    EXPECT_EQ(localTimeStrToTimeT("2499999999"), seconds(2024, 99, 99, 99, 99));
    EXPECT_EQ(localTimeStrToTimeT("-501010000"), seconds(1995, 1, 1)); // below 70, so 100 years on
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Dates, fewerThanTenDigitsAreRefused) {
    for (const char *wrong : {"", "85", "24031512", "24.03.15", "x"}) {
        platform().log.clear();
        EXPECT_EQ(localTimeStrToTimeT(wrong), -1) << wrong;
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, "invalid date time provided", "localTimeStrToTimeT")));
        EXPECT_EQ(platform().log[0].format, "%s");
    }
    EXPECT_NE(localTimeStrToTimeT("240315123"), -1); // a minute of one digit is one
}

// --- all of them against the calendar, in six zones

class DatesIn : public Dates, public testing::WithParamInterface<Zone> {};

TEST_P(DatesIn, everyZoneAgreesWithTheCalendar) {
    const Zone &zone = GetParam();
    setZone(zone.tz);
    static constexpr const char *kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::mt19937 random(20241120);
    const auto upTo = [&random](int last) {
        return static_cast<int>(random() % static_cast<unsigned>(last + 1));
    };
    int switches = 0;
    for (int round = 0; round < 6000; ++round) {
        Wall wall = {1971 + upTo(65), 1 + upTo(11), 1 + upTo(27), upTo(23), upTo(59), upTo(59)};
        if (zone.summer != 0 && round % 3 == 0) {
            // Close to a switch.
            const bool spring = upTo(1) == 0;
            wall.month = spring ? zone.fromMonth : zone.toMonth;
            const auto day = sunday(wall.year, wall.month, spring ? zone.fromSunday : zone.toSunday);
            wall.day = static_cast<int>(day - days(wall.year, wall.month, 1)) + 1;
            wall.hour = upTo(5);
        }
        std::int64_t utc = 0;
        const Kind kind = model(zone, wall, utc);
        std::vector<std::int64_t> allowed = {utc};
        if (kind != Kind::Clear) {
            ++switches;
            allowed.push_back(utc - zone.summer); // either reading of a time that is there twice or never
        }
        const auto is = testing::AnyOfArray(allowed);
        const std::string american = text("%02d-%02d-%04d %02d:%02d:%02d", wall.month, wall.day, wall.year,
                                          wall.hour, wall.minute, wall.second);
        ASSERT_THAT(date_string_to_time(american.c_str()), is) << american;
        const std::string calendar =
            text("%s %s %02d %02d:%02d:%02d %04d", kDays[weekday(days(wall.year, wall.month, wall.day))],
                 kMonths[wall.month - 1], wall.day, wall.hour, wall.minute, wall.second, wall.year);
        ASSERT_THAT(bypass_string_to_time(calendar.c_str()), is) << calendar;
        const std::string digits =
            text("%02d%02d%02d%02d%02d", wall.year % 100, wall.month, wall.day, wall.hour, wall.minute);
        ASSERT_THAT(localTimeStrToTimeT(digits.c_str()) + wall.second, is) << digits;

        // These two know no zone.
        const std::string european =
            text("%02d/%02d/%04d %02d:%02d", wall.day, wall.month, wall.year, wall.hour, wall.minute);
        ASSERT_EQ(date_string_to_time_limited(european.c_str()),
                  seconds(wall.year, wall.month, wall.day, wall.hour, wall.minute))
            << european;
        const std::string tools = text("%02d%02d%04d", wall.day, wall.month, wall.year);
        ASSERT_EQ(date_string_to_time_tools(tools.c_str()), seconds(wall.year, wall.month, wall.day))
            << tools;
        platform().log.clear();
        platform().journal.clear();
    }
    EXPECT_EQ(switches > 0, zone.summer != 0);
}

INSTANTIATE_TEST_SUITE_P(Zones, DatesIn, testing::ValuesIn(kZones),
                         [](const auto &instance) { return std::string(instance.param.title); });

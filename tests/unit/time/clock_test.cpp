#include <utils_ozu/dates.h>

#include "fake_platform.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>

using ozu::test::platform;
using ozu::test::shortLine;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Faults {
    bool active = false;
    bool failCopy = false;
    int failSetenv = 0; // the n-th fails
    int setenvs = 0;
    bool failOpen = false;
    bool failRead = false;
    std::optional<std::string> uptime; // instead of the real text
    long long now = 0;
    bool virtualClock = false;
    std::vector<std::string> calls;
    int copies = 0;
    int frees = 0;
    char *copy = nullptr;
};
Faults faults;

class Clock : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        faults = Faults();
    }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
        PlatformTest::TearDown();
    }
};

tm calendar(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    tm time = {};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    return time;
}

int epoch(tm time) {
    faults.active = true;
    const int result = ozuutils_timegm_to_epoch(&time);
    faults.active = false;
    return result;
}

} // namespace

extern "C" {

char *__real_strdup(const char *text);
int __real_setenv(const char *name, const char *value, int overwrite);
int __real_unsetenv(const char *name);
void __real_tzset();
int __real_open(const char *path, int flags, ...);
ssize_t __real_read(int fd, void *buffer, size_t count);
time_t __real_time(time_t *out);
void __real_free(void *memory);

char *__wrap_strdup(const char *text) {
    if (!faults.active) {
        return __real_strdup(text);
    }
    if (faults.failCopy) {
        errno = ENOMEM;
        return nullptr;
    }
    ++faults.copies;
    faults.copy = __real_strdup(text);
    return faults.copy;
}

void __wrap_free(void *memory) {
    if (faults.active && memory != nullptr && memory == faults.copy) {
        ++faults.frees;
    }
    __real_free(memory);
}

int __wrap_setenv(const char *name, const char *value, int overwrite) {
    if (faults.active) {
        faults.calls.push_back("setenv(" + std::string(name) + ", \"" + value + "\", " +
                               std::to_string(overwrite) + ")");
        if (++faults.setenvs == faults.failSetenv) {
            errno = ENOMEM;
            return -1;
        }
    }
    return __real_setenv(name, value, overwrite);
}

int __wrap_unsetenv(const char *name) {
    if (faults.active) {
        faults.calls.push_back("unsetenv(" + std::string(name) + ")");
    }
    return __real_unsetenv(name);
}

void __wrap_tzset() {
    if (faults.active) {
        faults.calls.emplace_back("tzset()");
    }
    __real_tzset();
}

int __wrap_open(const char *path, int flags, ...) {
    if (!faults.active) {
        return __real_open(path, flags, 0644);
    }
    EXPECT_STREQ(path, "/proc/uptime");
    EXPECT_EQ(flags & O_CLOEXEC, O_CLOEXEC);
    EXPECT_EQ(flags & O_ACCMODE, O_RDONLY);
    if (faults.failOpen) {
        errno = ENOENT;
        return -1;
    }
    return __real_open(path, flags);
}

ssize_t __wrap_read(int fd, void *buffer, size_t count) {
    if (!faults.active) {
        return __real_read(fd, buffer, count);
    }
    EXPECT_EQ(count, 128u);
    if (faults.failRead) {
        errno = EIO;
        return -1;
    }
    if (!faults.uptime) {
        return __real_read(fd, buffer, count);
    }
    const auto length = std::min(count, faults.uptime->size());
    memcpy(buffer, faults.uptime->data(), length);
    return static_cast<ssize_t>(length);
}

time_t __wrap_time(time_t *out) {
    if (!faults.virtualClock) {
        return __real_time(out);
    }
    const auto now = static_cast<time_t>(faults.now);
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

} // extern "C"

// --- calendar time as UTC

TEST_F(Clock, calendarTimeIsUtcWhateverTheZone) {
    for (const char *zone : {"UTC0", "CET-1CEST,M3.5.0/2,M10.5.0/3", "", ":Nowhere/AtAll", "AEST-10",
                             "garbage!", "Europe/Berlin"}) {
        setenv("TZ", zone, 1);
        tzset();
        EXPECT_EQ(epoch(calendar(2024, 3, 15, 10, 20, 30)), 1710498030) << zone;
        EXPECT_EQ(epoch(calendar(2024, 7, 15)), 1721001600) << zone;
        EXPECT_EQ(epoch(calendar(1970, 1, 1)), 0) << zone;
        EXPECT_STREQ(getenv("TZ"), zone);
    }
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Clock, zoneIsSavedChangedAndRestoredInOrder) {
    setenv("TZ", "CET-1", 1);
    epoch(calendar(2024, 1, 1));
    EXPECT_THAT(faults.calls,
                ElementsAre("setenv(TZ, \"\", 1)", "tzset()", "setenv(TZ, \"CET-1\", 1)", "tzset()"));
    EXPECT_EQ(faults.copies, 1);
    EXPECT_EQ(faults.frees, 1);
    EXPECT_EQ(timezone, -3600);

    faults.calls.clear();
    unsetenv("TZ");
    tzset();
    epoch(calendar(2024, 1, 1));
    EXPECT_THAT(faults.calls, ElementsAre("setenv(TZ, \"\", 1)", "tzset()", "unsetenv(TZ)", "tzset()"));
    EXPECT_EQ(getenv("TZ"), nullptr);
    EXPECT_EQ(faults.copies, 1);
}

TEST_F(Clock, emptyAndLongZonesComeBackAsTheyWere) {
    const std::string longZone = ":" + std::string(500, 'z');
    for (const std::string &zone : {std::string(), longZone}) {
        setenv("TZ", zone.c_str(), 1);
        EXPECT_EQ(epoch(calendar(2024, 1, 1)), 1704067200);
        ASSERT_NE(getenv("TZ"), nullptr);
        EXPECT_EQ(getenv("TZ"), zone);
    }
}

TEST_F(Clock, fieldsAreBroughtIntoRange) {
    tm time = calendar(2024, 14, 32, 25, 61, 61);
    EXPECT_EQ(ozuutils_timegm_to_epoch(&time), 1741140121);
    EXPECT_EQ(time.tm_year, 125);
    EXPECT_EQ(time.tm_mon, 2);
    EXPECT_EQ(time.tm_mday, 5);
    EXPECT_EQ(time.tm_hour, 2);
    EXPECT_EQ(time.tm_wday, 3);
}

TEST_F(Clock, aDaylightSavingFlagCountsAsTheCLibraryCountsIt) {
    setenv("TZ", "", 1);
    tzset();
    for (const int flag : {-1, 0, 1}) {
        tm expected = calendar(2024, 7, 15, 12);
        expected.tm_isdst = flag;
        tm time = expected;
        const time_t seconds = mktime(&expected);
        EXPECT_EQ(ozuutils_timegm_to_epoch(&time), seconds) << flag;
        EXPECT_EQ(time.tm_hour, expected.tm_hour) << flag;
        EXPECT_EQ(time.tm_isdst, expected.tm_isdst) << flag;
    }
}

TEST_F(Clock, onlyThirtyTwoBitsOfTime) {
    EXPECT_EQ(epoch(calendar(2038, 1, 19, 3, 14, 7)), 2147483647);
    EXPECT_EQ(epoch(calendar(2038, 1, 19, 3, 14, 8)), -1);
    EXPECT_EQ(epoch(calendar(1901, 12, 13, 20, 45, 52)), -2147483647 - 1);
    EXPECT_EQ(epoch(calendar(1901, 12, 13, 20, 45, 51)), -1);
    EXPECT_EQ(epoch(calendar(9999, 1, 1)), -1);
}

TEST_F(Clock, whatHasNoResultStaysAsItCame) {
    // With fields out of range, which a conversion would bring into it.
    tm tooLate = calendar(2037, 13, 20, 0, 0, 0), tooEarly = calendar(1901, 12, 0);
    tm beforeTheEpoch = calendar(1970, 1, 1, 0, 0, -1), farAway = calendar(2024, 1, 1);
    farAway.tm_year = 2147483647;
    for (tm *time : {&tooLate, &tooEarly, &beforeTheEpoch, &farAway}) {
        time->tm_wday = 42;
        time->tm_isdst = -1;
        for (const bool shortOfMemory : {false, true}) {
            setenv("TZ", "CET-1", 1);
            faults.failCopy = shortOfMemory;
            const tm before = *time;
            faults.active = true;
            EXPECT_EQ(ozuutils_timegm_to_epoch(time), -1);
            faults.active = false;
            EXPECT_EQ(memcmp(time, &before, sizeof(before)), 0) << before.tm_year;
        }
    }
    tm epochItself = calendar(1969, 12, 31, 24);
    EXPECT_EQ(ozuutils_timegm_to_epoch(&epochItself), 0);
    EXPECT_EQ(epochItself.tm_year, 70);
}

TEST_F(Clock, shortMemoryLeavesTheZoneAlone) {
    setenv("TZ", "CET-1CEST,M3.5.0/2,M10.5.0/3", 1);
    tzset();
    faults.failCopy = true;
    EXPECT_EQ(epoch(calendar(2024, 7, 15)), 1721001600);
    EXPECT_THAT(faults.calls, IsEmpty());
    EXPECT_STREQ(getenv("TZ"), "CET-1CEST,M3.5.0/2,M10.5.0/3");

    faults.failCopy = false;
    for (const int failing : {1, 2}) {
        faults.setenvs = 0;
        faults.failSetenv = failing;
        EXPECT_EQ(epoch(calendar(2024, 7, 15)), 1721001600);
        EXPECT_STREQ(getenv("TZ"), "CET-1CEST,M3.5.0/2,M10.5.0/3") << failing;
        EXPECT_EQ(timezone, -3600) << failing;
    }
    EXPECT_EQ(faults.copies, faults.frees);
}

// --- whether the clock can be trusted

TEST_F(Clock, flagsComeBeforeTheTime) {
    for (const int now : {-2147483647 - 1, -1, 0, 399999999, 400000000, 400000001, 2147483647}) {
        const unsigned int late = now > 400000000 ? 1 : 0;
        for (const int a : {0, 1, 255}) {
            for (const int b : {0, 1, 255}) {
                platform().state.timeSourceFlagA = static_cast<uint8_t>(a);
                platform().state.timeSourceFlagB = static_cast<uint8_t>(b);
                EXPECT_EQ(ozuutils_isSystemTimeOk(now), a == 0 && b == 0 ? 0 : late)
                    << now << ' ' << a << ' ' << b;
            }
        }
        platform().stateMissing = true;
        EXPECT_EQ(ozuutils_isSystemTimeOk(now), late) << now;
        platform().stateMissing = false;
    }
    EXPECT_THAT(platform().log, IsEmpty());
    EXPECT_EQ(platform().journal[0], "ozudb_getSharedMemory(0)");
    EXPECT_EQ(platform().callCount("ozudb_getSharedMemory"), 7 * 10);
}

TEST_F(Clock, setClocksShowTheYear2021) {
    faults.virtualClock = true;
    setenv("TZ", "EST5", 1);
    tzset();
    faults.now = 1609459200 + 5 * 3600 - 1; // the last second of 2020 in the west
    EXPECT_EQ(_RTC_is_synched(), 0u);
    EXPECT_THAT(platform().log, IsEmpty());
    ++faults.now;
    EXPECT_EQ(_RTC_is_synched(), 1u);
    EXPECT_THAT(platform().log, ElementsAre(shortLine(40000, "local time [2021]")));
    for (const long long past : {0LL, -1LL, -2147483648LL, 1LL}) {
        faults.now = past;
        EXPECT_EQ(_RTC_is_synched(), 0u) << past;
    }
    faults.now = 2147483647;
    EXPECT_EQ(_RTC_is_synched(), 1u);
    EXPECT_EQ(platform().log.back(), shortLine(40000, "local time [2038]"));
    // The same moment is another year in the east.
    setenv("TZ", "XXX-14", 1);
    tzset();
    faults.now = 1609459200 - 14 * 3600;
    EXPECT_EQ(_RTC_is_synched(), 1u);
}

TEST_F(Clock, yearComesFromTheCalendarRecordThatTheProcessShares) {
    const time_t noon = 43200;
    const tm *former = gmtime(&noon);
    ASSERT_EQ(former->tm_year, 70);
    faults.virtualClock = true;
    faults.now = 1700000000;
    EXPECT_EQ(_RTC_is_synched(), 1u);
    EXPECT_EQ(former->tm_year, 123) << "what gmtime() returned before";
}

// --- uptime

namespace {

unsigned int uptimeOf(const char *text, double *uptime, double *idle) {
    faults.active = true;
    faults.uptime = text;
    const unsigned int result = utils_get_cp_uptime(uptime, idle);
    faults.active = false;
    return result;
}

} // namespace

TEST_F(Clock, uptimeIsRead) {
    double uptime = -1;
    double idle = -1;
    EXPECT_EQ(uptimeOf("12345.67 54321.09\n", &uptime, &idle), 1u);
    EXPECT_EQ(uptime, 12345.67);
    EXPECT_EQ(idle, 54321.09);
    EXPECT_EQ(uptimeOf("1 2", &uptime, nullptr), 1u);
    EXPECT_EQ(uptime, 1.0);
    EXPECT_EQ(idle, 54321.09);
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Clock, oddUptimesFail) {
    for (const char *wrong : {"", "\n", "12345.67", "12345.67\n", "x 1", "1 x"}) {
        double uptime = -1;
        double idle = -1;
        EXPECT_EQ(uptimeOf(wrong, &uptime, &idle), 0u) << wrong;
        EXPECT_EQ(idle, -1) << wrong;
    }
}

TEST_F(Clock, uptimeStopsAt128Bytes) {
    double uptime = 0;
    double idle = -1;
    EXPECT_EQ(uptimeOf((std::string(127, ' ') + "1 2").c_str(), &uptime, &idle), 0u);
    EXPECT_EQ(uptimeOf((std::string(125, ' ') + "1 2345").c_str(), &uptime, &idle), 1u);
    EXPECT_EQ(idle, 2.0);
}

TEST_F(Clock, unreadableUptimeFails) {
    double uptime = -1;
    double idle = -1;
    faults.active = true;
    faults.failOpen = true;
    EXPECT_EQ(utils_get_cp_uptime(&uptime, &idle), 0u);
    faults.failOpen = false;
    faults.failRead = true;
    EXPECT_EQ(utils_get_cp_uptime(&uptime, &idle), 0u);
    faults.active = false;
    EXPECT_EQ(uptime, -1);
    EXPECT_EQ(idle, -1);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Clock, theRealUptimeGrows) {
    double first = -1;
    double second = -1;
    double idle = -1;
    ASSERT_EQ(utils_get_cp_uptime(&first, &idle), 1u);
    ASSERT_EQ(utils_get_cp_uptime(&second, nullptr), 1u);
    EXPECT_GT(first, 0);
    EXPECT_GE(second, first);
    EXPECT_GE(idle, 0);
}

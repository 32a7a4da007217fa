#include "scenarios.h"

#include <utils_ozu/dates.h>
#include <utils_ozu/time_zone.h>

#include "injection.h"

#include <cstdlib>
#include <ctime>

namespace ozu::test {

namespace {

// A zone that shows whether the time base was UTC; left as it was found.
std::string inZone(const std::function<int()> &convert) {
    injection().pause();
    setenv("TZ", "XXX-2", 1);
    tzset();
    injection().resume();
    const int result = convert();
    const std::string zone = getenv("TZ");
    unsetenv("TZ");
    tzset();
    return told(returns(result), "TZ " + zone);
}

int secondsOfUtc() {
    tm time = {};
    time.tm_year = 100;
    time.tm_mday = 1;
    return ozuutils_timegm_to_epoch(&time);
}

} // namespace

std::vector<Scenario> timeScenarios() {
    return {
        {"ozuutils_timegm_to_epoch", [] { return inZone(secondsOfUtc); }},
        {"ozuutils_timegm_to_epoch without TZ",
         [] {
             const int result = secondsOfUtc();
             return told(returns(result), getenv("TZ") == nullptr ? "no TZ" : "TZ is set");
         }},
        {"date_string_to_time",
         [] { return inZone([] { return date_string_to_time("01-01-2000 02:00:00"); }); }},
        {"date_string_to_time_limited",
         [] { return inZone([] { return date_string_to_time_limited("01/01/2000 00:00"); }); }},
        {"date_string_to_time_tools",
         [] { return inZone([] { return date_string_to_time_tools("01012000"); }); }},
        {"bypass_string_to_time",
         [] { return inZone([] { return bypass_string_to_time("Sat Jan 01 02:00:00 2000"); }); }},
        {"localTimeStrToTimeT", [] { return inZone([] { return localTimeStrToTimeT("0001010200"); }); }},
        {"ozuutils_isSystemTimeOk", [] { return returns(ozuutils_isSystemTimeOk(400000001)); }},
        {"_RTC_is_synched", [] { return returns(_RTC_is_synched()); }},
        {"utils_get_cp_uptime",
         [] {
             double uptime = -7;
             double idle = -7;
             const unsigned int result = utils_get_cp_uptime(&uptime, &idle);
             return told(returns(result), uptime == -7 ? "uptime untouched" : "uptime told",
                         idle == -7 ? "idle time untouched" : "idle time told");
         }},
        {"applyTimeZone", [] { return returns(applyTimeZone("Europe/Berlin", 1)); }},
    };
}

} // namespace ozu::test

#include "device_types.h"

#include "context.h"
#include "named_numbers.h"
#include "numbers.h"
#include "suggest.h"
#include "text.h"

#include <utils_ozu/names.h>

#include <climits>

namespace ozuctl {

int requireDeviceType(const std::string &name) {
    constexpr int kNoType = 255;
    const int code = getDeviceTypeEnum(name.c_str());
    if (code == kNoType) {
        throw CommandError(
            kNo, "no device type is called " + inQuotes(name) + didYouMean(name, namesIn(deviceTypes())),
            "'ozuctl names device' lists them.");
    }
    return code;
}

int deviceTypeOf(const std::string &codeOrName) {
    // Some names begin with digits; only what is a number throughout counts as one.
    const bool digits = codeOrName.find_first_not_of("-0123456789") == std::string::npos;
    if (digits || wholeNumber(codeOrName)) {
        return static_cast<int>(requireNumber("TYPE", codeOrName, INT_MIN, INT_MAX));
    }
    return requireDeviceType(codeOrName);
}

} // namespace ozuctl

#include "device_types.h"

#include "context.h"

#include <utils_ozu/names.h>

#include <climits>
#include <cstdlib>

namespace ozuctl {

int requireDeviceType(const std::string &name) {
    constexpr int kNoType = 255;
    const int code = getDeviceTypeEnum(name.c_str());
    if (code == kNoType) {
        throw CommandError(kNo, "no device type is called '" + name + "'; 'ozuctl names device' lists them");
    }
    return code;
}

int deviceTypeOf(const std::string &codeOrName) {
    char *end = nullptr;
    const long number = strtol(codeOrName.c_str(), &end, 0);
    const bool isNumber = !codeOrName.empty() && *end == '\0' && number >= INT_MIN && number <= INT_MAX;
    return isNumber ? static_cast<int>(number) : requireDeviceType(codeOrName);
}

} // namespace ozuctl

// The panel's time zone: a link into its own zone database.

#include <utils_ozu/time_zone.h>

#include <base/error_text.h>
#include <base/log.h>

#include <mqttc.h>
#include <product_info.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils_ozu/messages.h>
#include <utils_ozu/results.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view kZoneFolder = "/data/timezone/zoneinfo/";
constexpr const char *kLink = "/data/timezone/localtime";
constexpr const char *kDefaultZone = "UTC";

using ZonePath = std::array<char, 128>;

// A name that does not fit ends the process; silently cut it would name another zone.
void appendZone(ZonePath &path, const char *name) noexcept {
    const std::size_t length = strlen(name);
    if (kZoneFolder.size() + length >= path.size()) {
        abort();
    }
    memcpy(path.data() + kZoneFolder.size(), name, length);
}

} // namespace

int applyTimeZone(const char *timeZoneString, int notify) noexcept {
    if (timeZoneString == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "Timezone not applied, argument timeZoneString is null");
        return OZU_RESULT_INVALID;
    }
    ZonePath zoneFile = {};
    memcpy(zoneFile.data(), kZoneFolder.data(), kZoneFolder.size());
    if (*timeZoneString == '\0') {
        OZU_LOG_TEXT(OZULOG_WARNING, "Time zone not defined, setting default UTC");
        appendZone(zoneFile, kDefaultZone);
    } else {
        appendZone(zoneFile, timeZoneString);
        OZU_LOG_SHORT(OZULOG_NOTICE, "Applying timezone: [%s]", timeZoneString);
    }

    int result = OZU_RESULT_OK;
    if (access(zoneFile.data(), F_OK) != 0) {
        OZU_LOG(OZULOG_WARNING, "Time zone file doesn't exist: '%s'", zoneFile.data());
        result = OZU_RESULT_NO_FILE;
    } else {
        struct stat status = {};
        if (lstat(kLink, &status) == 0) {
            static_cast<void>(unlink(kLink));
        }
        if (symlink(zoneFile.data(), kLink) == -1) {
            OZU_LOG(OZULOG_ERROR, "Failed to create localtime symlink: %s <-- %s, Error: %s", zoneFile.data(),
                    kLink, ozu::errorText());
            return OZU_RESULT_INVALID;
        }
    }

    if (getProductCodename() != PANEL_PRODUCT_LUM_PLUS && result == OZU_RESULT_OK && (notify & 1) != 0) {
        OZU_LOG_TEXT(OZULOG_INFO, "Sending a broadcast mqtt message to all processes to notify "
                                  "them that the time zone has changed");
        const int rc = ozumqttc_messagePublish(OZU_TOPIC_ALL, 0, "", OZU_MESSAGE_TIME_ZONE_CLASS,
                                               OZU_MESSAGE_TIME_ZONE_COMMAND, nullptr);
        OZU_LOG(OZULOG_INFO, "The SYS_BROADCAST_TIMEZONE_CHANGED message was sent (result=%d)", rc);
    }
    return result;
}

// system_event_log.h: lines for the installer and the monitoring centre, a table of the database.

#include <system_event_log.h>

#include "errors.h"
#include "settings.h"

using namespace ozu::platform;

extern "C" {

int LOG_system_event(int category, const char *text) {
    return guarded(__func__, [&]() -> int {
        if (text == nullptr) {
            return kInvalidArgument;
        }
        appendEvent(category, text);
        return 0;
    });
}

int limited_log_system_event(int category, int subtype, const char *text) {
    return guarded(__func__, [&]() -> int {
        if (text == nullptr) {
            return kInvalidArgument;
        }
        appendLimitedEvent(category, subtype, text);
        return 0;
    });
}

} // extern "C"

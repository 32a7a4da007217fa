// Questions about safety events: flood, smoke, gas.

#include <utils_ozu/state.h>

#include <base/log.h>
#include <base/panel_state.h>
#include <base/panel_width.h>

#include <time.h>

#include <cstdint>

namespace {

constexpr std::int32_t kFreeSlot = 0;

} // namespace

int ozuutils_isSafetyEventInProgress() noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return 0;
    }
    for (const PanelSafetyEvent &event : state->safetyEvents) {
        if (ozu::readOnce(event.startTime) != kFreeSlot && ozu::readOnce(event.ended) == 0) {
            OZU_LOG(OZULOG_NOTICE, "Safety event in progress because of the device RfId %d of type 0x%02X.",
                    ozu::readOnce(event.rfId), ozu::readOnce(event.deviceType));
            return 1;
        }
    }
    return 0;
}

unsigned char ozuutils_isSafetySirenInProgress() noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return 0;
    }
    const time_t now = ozu::panelTime(time(nullptr));
    double newest = SAFETY_SIREN_PERIOD; // age in seconds
    for (const PanelSafetyEvent &event : state->safetyEvents) {
        const std::int32_t startTime = ozu::readOnce(event.startTime);
        if (startTime == kFreeSlot) {
            continue;
        }
        const double age = difftime(now, startTime);
        if (age > 0 && age < newest) {
            OZU_LOG(OZULOG_NOTICE,
                    "Safety alarm is running for %.0lf sec for the device RfId %d of type 0x%02X.", age,
                    ozu::readOnce(event.rfId), ozu::readOnce(event.deviceType));
            newest = age;
        }
    }
    return static_cast<unsigned char>(static_cast<unsigned int>(SAFETY_SIREN_PERIOD - newest));
}

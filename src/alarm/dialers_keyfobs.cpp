// Lookups in the tables of dialers, keyfobs and devices.

#include <utils_ozu/identity.h>

#include <base/log.h>
#include <base/panel_state.h>

#include <product_info.h>

#include <cstdint>

namespace {

// Firmware 1.3.2 brought the profiles.
constexpr bool hasProfiles(unsigned int major, unsigned int minor, unsigned int build) noexcept {
    return major > 1 || (major == 1 && minor > 3) || (major == 1 && minor == 3 && build > 1);
}

} // namespace

int check_dial_table_id(unsigned int id, unsigned int checkB, unsigned int checkA) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "failure allocating shmem");
        return -1;
    }
    if (id == 0 || id > OZUDB_DIALERS) {
        OZU_LOG(OZULOG_ERROR, "zero or not in range index: [%d]", static_cast<int>(id));
        return -1;
    }
    for (int index = 0; index < OZUDB_DIALERS; ++index) {
        const PanelDialer &dialer = state->dialers[index];
        if (ozu::readOnce(dialer.dialerId) != id) {
            continue;
        }
        const bool matches =
            ozu::readOnce(dialer.dialerCheckA) == checkA && ozu::readOnce(dialer.dialerCheckB) == checkB;
        return matches ? index : -1;
    }
    OZU_LOG_TEXT(OZULOG_ERROR, "dialer id not found in Data base");
    return -1;
}

int getSY9IdFromUser(unsigned int userId) noexcept {
    if (getProductCodename() == PANEL_PRODUCT_LUM_PLUS) {
        OZU_LOG(OZULOG_CRITICAL, "%s not available on the project Lum+.", __func__);
        return 0;
    }
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return 0;
    }
    for (int keyfob = 1; keyfob < OZUDB_SY9_KEYFOBS; ++keyfob) {
        if (ozu::readOnce(state->sy9Keyfobs[keyfob].userId) == static_cast<std::uint8_t>(userId)) {
            OZU_LOG(OZULOG_INFO, "Found SY9 Id %d for the user ID %d", keyfob, static_cast<int>(userId));
            return keyfob;
        }
    }
    OZU_LOG(OZULOG_NOTICE, "Can't find any corresponding KeyFob for the user %d", static_cast<int>(userId));
    return 0;
}

int isUmkrlVersionSupportProfile(int deviceIndex) noexcept {
    const PanelDevice *device = ozu::deviceAt(ozu::panelState(), static_cast<unsigned int>(deviceIndex));
    if (device == nullptr || ozu::readOnce(device->deviceType) != PANEL_DEVICE_UMKRL) {
        return 0;
    }
    return hasProfiles(ozu::readOnce(device->fwMajor), ozu::readOnce(device->fwMinor),
                       ozu::readOnce(device->fwBuild))
               ? 1
               : 0;
}

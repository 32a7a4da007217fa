// Questions about the panel's devices: kinds, contacts, bypass, enrolment.

#include <utils_ozu/state.h>

#include <base/panel_state.h>
#include <base/panel_width.h>

#include <messenger.h>
#include <time.h>

#include <cstdint>

namespace {

static_assert(MAX_DEVICE_INDEX == OZUDB_DEVICES);

// The indexes that door locks get.
constexpr int kFirstLockIndex = 164;
constexpr int kLastLockIndex = 196;

constexpr int kNoPartition = 0;
constexpr int kFirstInput = 0;
constexpr int kSecondInput = 1;
constexpr int kNotBypassed = 0;
constexpr int kNoExpiry = -1;

bool isMagnet(std::uint32_t deviceType) noexcept {
    return deviceType == PANEL_DEVICE_W3 || deviceType == PANEL_DEVICE_TQSX;
}

const PanelDevice *deviceAt(const PanelSharedState *state, int deviceIndex) noexcept {
    // A negative index becomes one that is too high.
    return ozu::deviceAt(state, static_cast<unsigned int>(deviceIndex));
}

// Type code of a device, 0 when there is none at the index.
std::uint32_t deviceTypeAt(int deviceIndex) noexcept {
    const PanelDevice *device = deviceAt(ozu::panelState(), deviceIndex);
    return device == nullptr ? 0 : ozu::readOnce(device->deviceType);
}

// What the questions about one device need of the record, read once.
struct Detector {
    int index;
    std::uint32_t deviceType;
    std::uint8_t tableIndex;
    std::uint8_t firstInputEnabled; // of the zone; without meaning where the device is no detector

    Detector(const PanelSharedState &state, int deviceIndex, const PanelDevice &device) noexcept
        : index(deviceIndex), deviceType(ozu::readOnce(device.deviceType)),
          tableIndex(ozu::readOnce(device.tableIndex)),
          firstInputEnabled(ozu::readOnce(state.zones[tableIndex].firstInputEnabled)) {}
};

void endBypass(const Detector &detector) noexcept {
    static_cast<void>(ozudb_ModifyBypassExpiry(detector.tableIndex, kNotBypassed, kNoExpiry));
    static_cast<void>(MESSENGER_SendTBBEvent(detector.index, static_cast<int>(detector.deviceType),
                                             MESSENGER_EVENT_BYPASS, MESSENGER_BYPASS_ENDED, kNoPartition,
                                             kFirstInput, MESSENGER_NO_USER));
}

bool hasRunOut(const PanelBypass &bypass) noexcept {
    const std::uint32_t expiry = ozu::readOnce(bypass.bypassExpiry);
    return expiry != OZUDB_BYPASS_FOREVER &&
           static_cast<std::int32_t>(expiry) <= ozu::panelTime(time(nullptr));
}

int zoneBypassed(const PanelZone &zone, const Detector &detector, int input) noexcept {
    const bool magnet = isMagnet(detector.deviceType);
    if (magnet && input == kFirstInput && detector.firstInputEnabled == 0) {
        return 1;
    }
    if (magnet && input == kSecondInput && ozu::readOnce(zone.secondInputEnabled) == 0) {
        return 1;
    }
    const PanelBypass &bypass = zone.bypass[magnet && input != kFirstInput ? 1 : 0];
    const std::uint8_t bypassed = ozu::readFirst(bypass.bypassed);
    if (bypassed != 0 && input != kSecondInput && hasRunOut(bypass)) {
        endBypass(detector);
        return 0;
    }
    return bypassed;
}

int isBypassed(const PanelSharedState &state, const Detector &detector, int input) noexcept {
    if (ozudb_isTagReader(detector.index) != 0) {
        return ozu::readOnce(state.tagReaders[detector.tableIndex].bypassed);
    }
    if (ozudb_isRfInput(detector.index) != 0) {
        return ozu::readOnce(state.rfInputs[detector.tableIndex].enabled) == 0 ? 1 : 0;
    }
    if (ozudb_isRfDetector(detector.index) != 0) {
        return zoneBypassed(state.zones[detector.tableIndex], detector, input);
    }
    return 0;
}

} // namespace

int IsDeviceMagnetType(int deviceIndex) noexcept {
    return isMagnet(deviceTypeAt(deviceIndex)) ? 1 : 0;
}

int ozuutils_isCameraDevice(int deviceIndex) noexcept {
    const std::uint32_t deviceType = deviceTypeAt(deviceIndex);
    return deviceType == PANEL_DEVICE_UMK || deviceType == PANEL_DEVICE_UMKRL ||
                   deviceType == PANEL_DEVICE_UMKR || deviceType == PANEL_DEVICE_CHEV
               ? 1
               : 0;
}

int IsMagnetOpen(int deviceIndex) noexcept {
    const PanelSharedState *state = ozu::panelState();
    const PanelDevice *device = deviceAt(state, deviceIndex);
    if (device == nullptr) {
        return 0;
    }
    const Detector detector(*state, deviceIndex, *device);
    if (!isMagnet(detector.deviceType) || detector.firstInputEnabled == 0 ||
        ozu::readOnce(device->openState) == 0) {
        return 0;
    }
    return isBypassed(*state, detector, kFirstInput) == 0 ? 1 : 0;
}

int IsCameraLidClosed(int deviceIndex) noexcept {
    const PanelSharedState *state = ozu::panelState();
    const PanelDevice *device = deviceAt(state, deviceIndex);
    if (device == nullptr || ozu::readOnce(device->openState) != 0) {
        return 0;
    }
    const Detector detector(*state, deviceIndex, *device);
    if (detector.deviceType != PANEL_DEVICE_UMKRL) {
        return 0;
    }
    return isBypassed(*state, detector, kFirstInput) == 0 ? 1 : 0;
}

int ozuutils_isZoneBypassed(int deviceIndex, int input) noexcept {
    const PanelSharedState *state = ozu::panelState();
    const PanelDevice *device = deviceAt(state, deviceIndex);
    return device == nullptr ? 0 : isBypassed(*state, Detector(*state, deviceIndex, *device), input);
}

int ozuutils_isDeviceExistsAndActive(std::uint32_t rfId, std::int32_t deviceType) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return -1;
    }
    for (int index = 1; index < MAX_DEVICE_INDEX; ++index) {
        const PanelDevice &device = state->devices[index];
        if (ozu::readOnce(device.rfId) == rfId &&
            ozu::readOnce(device.deviceType) == static_cast<std::uint32_t>(deviceType) &&
            ozu::readOnce(device.active) == 1) {
            return index;
        }
    }
    return -1;
}

int isDanalockExistAndActived() noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return 0;
    }
    for (int index = kFirstLockIndex; index <= kLastLockIndex; ++index) {
        const PanelDevice &device = state->devices[index];
        if (ozu::readOnce(device.deviceType) == PANEL_DEVICE_DANALOCK && ozu::readOnce(device.active) == 1) {
            return 1;
        }
    }
    return 0;
}

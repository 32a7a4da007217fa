// Which device types are detectors, tag readers and RF inputs: where their bypass is kept.
//
// A type that is not in the table is of none of the three kinds: keypads, keyfobs, sirens, outputs, locks,
// repeaters and the panel itself have no zone.
#pragma once

#include <panel_codes.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace ozu::platform {

enum class DeviceKind : std::uint8_t { None, RfDetector, TagReader, RfInput };

struct DeviceKindRow {
    std::uint32_t type;
    DeviceKind kind;
};

inline constexpr std::array kDeviceKinds{
    DeviceKindRow{PANEL_DEVICE_PIR, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_MAG, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_SHOCK, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_TQF, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_SMOKE, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_RF_INPUT, DeviceKind::RfInput},
    DeviceKindRow{PANEL_DEVICE_XGD, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_OUTSIDE_VIDEO_PIR, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_RF_VIDEO_PIR, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_TQD, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_T8F, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_TAG_READER, DeviceKind::TagReader},
    DeviceKindRow{PANEL_DEVICE_UMK, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_TQP, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_WLM, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_CHEB, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_EL7, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_TQSX, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_UMKRL, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_UMKR, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_CHEB_WR, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_CHEV, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_EL9, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_W3, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_TQS, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_UMK_2, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_EL7_2, DeviceKind::RfDetector},
    DeviceKindRow{PANEL_DEVICE_EL8, DeviceKind::RfDetector},
};
static_assert(std::is_sorted(kDeviceKinds.begin(), kDeviceKinds.end(),
                             [](const auto &a, const auto &b) { return a.type < b.type; }));

constexpr DeviceKind deviceKind(std::uint32_t type) noexcept {
    const auto *row =
        std::lower_bound(kDeviceKinds.begin(), kDeviceKinds.end(), type,
                         [](const DeviceKindRow &a, std::uint32_t wanted) { return a.type < wanted; });
    return row != kDeviceKinds.end() && row->type == type ? row->kind : DeviceKind::None;
}

} // namespace ozu::platform

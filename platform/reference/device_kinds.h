// Which device types are detectors, tag readers and RF inputs: where their bypass is kept.
//
// A type that is not in the table is of none of the three kinds: keypads, keyfobs, sirens, outputs, locks,
// repeaters and the panel itself have no zone.
#pragma once

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
    DeviceKindRow{1, DeviceKind::RfDetector},   // PIR
    DeviceKindRow{2, DeviceKind::RfDetector},   // MAG
    DeviceKindRow{3, DeviceKind::RfDetector},   // SHOCK
    DeviceKindRow{4, DeviceKind::RfDetector},   // TQF
    DeviceKindRow{7, DeviceKind::RfDetector},   // SMOKE
    DeviceKindRow{21, DeviceKind::RfInput},     // RF_INPUT
    DeviceKindRow{24, DeviceKind::RfDetector},  // XGD
    DeviceKindRow{29, DeviceKind::RfDetector},  // OUTSIDE_VIDEO_PIR
    DeviceKindRow{32, DeviceKind::RfDetector},  // RF_VIDEO_PIR
    DeviceKindRow{35, DeviceKind::RfDetector},  // TQD
    DeviceKindRow{36, DeviceKind::RfDetector},  // T8F
    DeviceKindRow{37, DeviceKind::TagReader},   // TAG READER
    DeviceKindRow{38, DeviceKind::RfDetector},  // UMK
    DeviceKindRow{39, DeviceKind::RfDetector},  // TQP
    DeviceKindRow{43, DeviceKind::RfDetector},  // WLM
    DeviceKindRow{45, DeviceKind::RfDetector},  // CHEB
    DeviceKindRow{55, DeviceKind::RfDetector},  // EL7
    DeviceKindRow{57, DeviceKind::RfDetector},  // TQSX
    DeviceKindRow{59, DeviceKind::RfDetector},  // UMKRL
    DeviceKindRow{60, DeviceKind::RfDetector},  // UMKR
    DeviceKindRow{62, DeviceKind::RfDetector},  // CHEB_WR
    DeviceKindRow{67, DeviceKind::RfDetector},  // CHEV
    DeviceKindRow{83, DeviceKind::RfDetector},  // EL9
    DeviceKindRow{85, DeviceKind::RfDetector},  // W3
    DeviceKindRow{132, DeviceKind::RfDetector}, // TQS
    DeviceKindRow{134, DeviceKind::RfDetector}, // UMK
    DeviceKindRow{138, DeviceKind::RfDetector}, // EL7
    DeviceKindRow{147, DeviceKind::RfDetector}, // EL8
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

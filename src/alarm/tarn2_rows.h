// Names of Tarn-2 radio messages.
#pragma once

#include <base/name_table.h>

namespace ozu::tarn2 {

// clang-format off
inline constexpr NameRow kMessageTypes[] = {
    {0, "STATUS"},
    {1, "HS"},
    {2, "SLAVE_LEARN"},
    {3, "MASTER_LEARN"},
    {4, "CONST_DATA"},
    {5, "SUPERVISORY"},
    {33, "VIDEO_CONFIGURATION_PARAMETERS"},
    {34, "PANEL_ARMED"},
    {35, "PANEL_ARMED_ACK"},
    {50, "KF_ARM"},
    {51, "KF_NIGHT_ARM"},
    {52, "KF_DISARM"},
    {53, "KF_GET_STATUS"},
    {54, "KF_FORCE_ARM"},
    {55, "KF_PANIC"},
    {57, "KF_FORCE_DAY_ARM"},
    {58, "KF_FORCE_NIGHT_ARM"},
    {59, "KF_DAY_ARM"},
    {65, "VIDEO_GET"},
    {66, "VIDEO_CONTROL"},
    {67, "VIDEO_TAKE"},
    {68, "VIDEO_KILL"},
    {70, "VIDEO_READY"},
    {71, "VIDEO_MESSAGE"},
    {91, "SIREN_SEND"},
    {113, "READY"},
    {115, "DOWNLOAD_END"},
    {117, "UPGRADE_END"},
    {160, "MY2_FULL_ARM"},
    {161, "MY2_DAY_ARM"},
    {162, "MY2_TAG_PRESENT"},
    {163, "MY2_SOS"},
    {164, "MY2_STATUS"},
    {165, "MY2_NIGHT_ARM"},
    {166, "MY2_UNSET_REQUEST_APPROVED"},
    {167, "MY2_REQUEST_APPROVED_BY_MASTER"},
    {168, "MY2_REQUEST_NOT_APPROVED_BY_MASTER"},
    {173, "MY2_TAG_NOT_APPROVED"},
    {177, "MY2_STATUS_REPLY"},
    {178, "MY2_POLL_SOS"},
    {179, "MY2_CHECK_SOS"},
    {181, "MYQGT_CODE_AND_OR_TAG_PRESENT"},
    {192, "EL7_SUPERVISORY_HANDSHAKE"},
    {243, "DEVICE_INFO"},
    {244, "DEVICE_INFO_ACK"},
};
// clang-format on

} // namespace ozu::tarn2

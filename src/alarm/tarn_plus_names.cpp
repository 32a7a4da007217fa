// Names of Tarn-Plus radio messages: opcodes and sub-opcodes.

#include <utils_ozu/names.h>

#include <base/name_table.h>

namespace {

// clang-format off
constexpr ozu::NameRow kOpcodes[] = {
    {0, "DEBUG"},
    {1, "FILE_TRANSFER"},
    {3, "MAGNET"},
    {4, "MAINTENANCE"},
    {5, "USER_INTERFACE"},
    {6, "GENERAL"},
    {7, "RSU"},
    {9, "CONFIGURATION"},
    {10, "SIREN"},
    {11, "PZ"},
    {12, "VOICE"},
    {13, "MONITOR"},
    {14, "FG"},
    {15, "BIT"},
    {16, "HHW"},
    {17, "LSB"},
    {18, "DATA"},
    {19, "MYQGT"},
    {20, "VOICE_EXTENDER"},
    {21, "DANALOCK"},
    {22, "EL9"},
    {32, "CYBER"},
};

constexpr ozu::PairRow kSubOpcodes[] = {
    {1, 1, "GET_FILE"},
    {1, 3, "CREATE_CONTENT"},
    {1, 4, "FILE_READY"},
    {1, 5, "FILE_PACKET"},
    {1, 6, "FILE_PCKT_RESP"},
    {1, 32, "FILE_RESULT"},
    {1, 33, "FILE_FAIL"},
    {1, 34, "FILE_TRNSFR_CMPLT"},
    {1, 35, "DELETE_CONTENT"},
    {1, 36, "DELETE_CNTNT_RSLT"},
    {4, 14, "EN_RX_COUNT_ACK"},
    {4, 17, "ERROR_CODE"},
    {4, 20, "ENTER_RF_WALK_TEST"},
    {4, 21, "CONFIG_DEVICE"},
    {4, 22, "CONFIG_DEVICE_RESP"},
    {4, 24, "GET_DEVICE_INFO_RESP"},
    {4, 25, "DEBUG_DATA"},
    {4, 32, "ASK_FOR_DEVICE_LOG_DATA"},
    {4, 33, "DEVICE_LOG_READY"},
    {4, 34, "DEVICE_LOG_DATA"},
    {4, 36, "RF_SNIFF_MEASURE_TEST"},
    {4, 39, "ASK_FOR_TIMESTAMP"},
    {4, 40, "CURRENT_PANEL_TIMESTAMP"},
    {4, 48, "GET_FIRMWARE_INFO"},
    {4, 49, "FIRMWARE_INFO_REPORT"},
    {4, 50, "GET_CONFIG"},
    {4, 51, "GET_CONFIG_RESP"},
    {4, 54, "GET_LID_STATE"},
    {4, 64, "CERTIFICATE_PACKET"},
    {4, 65, "CRTF_PACKET_ACK"},
    {4, 66, "CRTF_CLEAR_RX_COUNT"},
    {4, 69, "SET_ARM_MODE"},
    {6, 1, "BATTERY_REMOVE"},
    {6, 6, "EVENT"},
    {6, 7, "CONST_DATA"},
    {6, 8, "SLAVE_LEARN"},
    {6, 9, "MASTER_LEARN"},
    {7, 1, "START"},
    {7, 3, "READY_STATE"},
    {7, 4, "FILE_DATA"},
    {7, 5, "DATA_RESPONSE"},
    {7, 6, "VALIDATE_RSLT"},
    {7, 7, "START_BURN"},
    {7, 8, "ABORT"},
    {7, 9, "KILL_UPDATE"},
    {7, 12, "VALIDATE_FILE"},
    {7, 13, "UPGRADE_RSLT"},
    {15, 1, "RUN_NOW"},
    {15, 2, "RESULT"},
    {15, 3, "RUN_SPECIFIC_TEST"},
    {19, 0, "ACTION_REQ"},
    {19, 1, "ACTION_TAG_CODE_PRESENT"},
    {19, 2, "ACTION_RESPONSE"},
    {20, 0, "ACTION_START"},
    {20, 1, "ACTION_STOP"},
    {20, 2, "ACTION_STREAMING_SU"},
    {20, 3, "ACTION_STREAMING_SU"},
    {20, 4, "SIREN_START"},
    {20, 5, "SIREN_STOP"},
    {21, 1, "ACTION_LOCK_STATUS"},
    {21, 2, "ACTION_AUTO_CALIBRATION_IN_PROCESS"},
    {21, 4, "ACTION_LOCK_UNLOCK"},
    {21, 5, "GET_DOOR_STATUS"},
    {21, 6, "ACTIVATION_ERROR"},
    {21, 7, "START_AUTO_CALIB"},
    {22, 1, "RF_API_EL9_SIREN_START_SUBOPCODE"},
    {22, 2, "RF_API_EL9_SIREN_STOP_SUBOPCODE"},
    {22, 3, "RF_API_EL9_HUSH_SUBOPCODE"},
    {22, 4, "RF_API_EL9_SMOKE_LEVEL_REQUEST_SUBOPCODE"},
    {22, 5, "RF_API_EL9_SMOKE_LEVEL_REPORT_SUBOPCODE"},
    {22, 6, "RF_API_EL9_HEAT_LEVEL_REQUEST_SUBOPCODE"},
    {22, 7, "RF_API_EL9_HEAT_LEVEL_REPORT_SUBOPCODE"},
    {32, 1, "UPDATE_REQ"},
    {32, 2, "UPDATE_RSLT"},
};
// clang-format on

constexpr auto kText = ozu::packedText<kOpcodes, kSubOpcodes>();
constexpr auto kOpcodeNames = ozu::nameTable<kOpcodes>(kText);
constexpr auto kSubOpcodeNames = ozu::pairTable<kSubOpcodes>(kText);

} // namespace

const char *getTarnPlusOpcodeName(unsigned int opcode) noexcept {
    return kText.at(kOpcodeNames.id(opcode));
}

const char *getTarnPlusSubOpcodeName(int opcode, int subOpcode) noexcept {
    return kText.at(
        kSubOpcodeNames.id(static_cast<unsigned int>(opcode), static_cast<unsigned int>(subOpcode)));
}

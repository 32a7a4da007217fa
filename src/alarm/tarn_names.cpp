// Names of radio messages of the three Tarn generations.

#include <utils_ozu/names.h>

#include "tarn1_rows.h"
#include "tarn2_rows.h"
#include "tarn_plus_rows.h"

namespace {

constexpr auto kTarn1Opcodes = ozu::nameTable<ozu::tarn1::kOpcodes>();
constexpr auto kTarn1SubOpcodes = ozu::nameTable<ozu::tarn1::kSubOpcodes>();
constexpr auto kTarn1OldTypes = ozu::nameTable<ozu::tarn1::kOldMessageTypes>();
constexpr auto kTarn2Types = ozu::nameTable<ozu::tarn2::kMessageTypes>();
constexpr auto kPlusOpcodes = ozu::nameTable<ozu::tarn_plus::kOpcodes>();
constexpr auto kPlusSubOpcodes = ozu::nameTable<ozu::tarn_plus::kSubOpcodes>();

} // namespace

const char *getTarn1OpcodeName(unsigned int opcode) noexcept {
    return kTarn1Opcodes.name(opcode);
}

const char *getTarn1SubOpcodeName(int opcode, int subOpcode) noexcept {
    return kTarn1SubOpcodes.name(static_cast<unsigned int>(opcode), static_cast<unsigned int>(subOpcode));
}

const char *getTarn1OldMessageTypeString(unsigned int type) noexcept {
    return kTarn1OldTypes.name(type);
}

const char *getTarn2MessageTypeName(unsigned int type) noexcept {
    return kTarn2Types.name(type);
}

const char *getTarnPlusOpcodeName(unsigned int opcode) noexcept {
    return kPlusOpcodes.name(opcode);
}

const char *getTarnPlusSubOpcodeName(int opcode, int subOpcode) noexcept {
    return kPlusSubOpcodes.name(static_cast<unsigned int>(opcode), static_cast<unsigned int>(subOpcode));
}

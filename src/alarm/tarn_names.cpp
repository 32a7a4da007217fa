// Names of radio messages of the three Tarn generations, which share many of their names and so one text.

#include <utils_ozu/names.h>

#include "tarn1_rows.h"
#include "tarn2_rows.h"
#include "tarn_plus_rows.h"

namespace {

namespace tarn1 = ozu::tarn1;
namespace tarn2 = ozu::tarn2;
namespace plus = ozu::tarn_plus;

constexpr auto kText = ozu::packedText<tarn1::kOpcodes, tarn1::kSubOpcodes, tarn1::kOldMessageTypes,
                                       tarn2::kMessageTypes, plus::kOpcodes, plus::kSubOpcodes>();

constexpr auto kTarn1 = ozu::nameList<kText, tarn1::kOpcodes, tarn1::kSubOpcodes, tarn1::kOldMessageTypes>();
constexpr auto kTarn1Opcodes = ozu::nameTable<tarn1::kOpcodes>(kTarn1);
constexpr auto kTarn1SubOpcodes = ozu::pairTable<tarn1::kSubOpcodes>(kTarn1);
constexpr auto kTarn1OldTypes = ozu::nameTable<tarn1::kOldMessageTypes>(kTarn1);

constexpr auto kTarn2 = ozu::nameList<kText, tarn2::kMessageTypes>();
constexpr auto kTarn2Types = ozu::nameTable<tarn2::kMessageTypes>(kTarn2);

constexpr auto kPlus = ozu::nameList<kText, plus::kOpcodes, plus::kSubOpcodes>();
constexpr auto kPlusOpcodes = ozu::nameTable<plus::kOpcodes>(kPlus);
constexpr auto kPlusSubOpcodes = ozu::pairTable<plus::kSubOpcodes>(kPlus);

// Negative numbers are large here, and no row has them.
template <typename Table>
ozu::NameId pairId(const Table &table, int opcode, int subOpcode) noexcept {
    return table.id(static_cast<unsigned int>(opcode), static_cast<unsigned int>(subOpcode));
}

} // namespace

const char *getTarn1OpcodeName(unsigned int opcode) noexcept {
    return kTarn1.at(kTarn1Opcodes.id(opcode));
}

const char *getTarn1SubOpcodeName(int opcode, int subOpcode) noexcept {
    return kTarn1.at(pairId(kTarn1SubOpcodes, opcode, subOpcode));
}

const char *getTarn1OldMessageTypeString(unsigned int type) noexcept {
    return kTarn1.at(kTarn1OldTypes.id(type));
}

const char *getTarn2MessageTypeName(unsigned int type) noexcept {
    return kTarn2.at(kTarn2Types.id(type));
}

const char *getTarnPlusOpcodeName(unsigned int opcode) noexcept {
    return kPlus.at(kPlusOpcodes.id(opcode));
}

const char *getTarnPlusSubOpcodeName(int opcode, int subOpcode) noexcept {
    return kPlus.at(pairId(kPlusSubOpcodes, opcode, subOpcode));
}

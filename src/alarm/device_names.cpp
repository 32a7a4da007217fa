// Names of device types, both ways.

#include <utils_ozu/names.h>

#include <base/name_table.h>

#include <product_info.h>

#include <cstring>
#include <string_view>

namespace {

constexpr int kVariantType = 59; // has another name on product variant 1
constexpr int kVariantProduct = 1;
constexpr unsigned int kNotFound = ozu::kNoSuchName;

// clang-format off
constexpr ozu::NameRow kDeviceTypes[] = {
    {1, "PIR"},
    {2, "MAG"},
    {3, "SHOCK"},
    {4, "TQF"},
    {5, "QGT"},
    {6, "SIREN"},
    {7, "SMOKE"},
    {8, "CP"},
    {9, "KEYSAFE"},
    {10, "ACCESS"},
    {12, "KEYFOB"},
    {21, "RF_INPUT"},
    {22, "RF_OUTPUT"},
    {23, "REPEATER"},
    {24, "XGD"},
    {29, "OUTSIDE_VIDEO_PIR"},
    {32, "RF_VIDEO_PIR"},
    {33, "DOORLOCK"},
    {34, "BJU"},
    {35, "TQD"},
    {36, "T8F"},
    {37, "TAG READER"},
    {38, "UMK"},
    {39, "TQP"},
    {40, "MY2"},
    {41, "VBX"},
    {42, "QAM"},
    {43, "WLM"},
    {44, "YMNL"},
    {45, "CHEB"},
    {47, "RZD"},
    {49, "SY8"},
    {50, "QWF"},
    {51, "VIDEO_REPEATER"},
    {52, "LFF"},
    {53, "MYLY"},
    {54, "RAAN"},
    {55, "EL7"},
    {56, "NGY"},
    {57, "TQSX"},
    {59, "UMKRL"},
    {60, "UMKR"},
    {61, "SY9"},
    {62, "CHEB_WR"},
    {65, "QJ"},
    {66, "PZ"},
    {67, "CHEV"},
    {68, "HHW"},
    {69, "LSB"},
    {70, "FOG"},
    {71, "HHW_A"},
    {72, "HHW_B"},
    {73, "RDK"},
    {80, "LVAFCLPA"},
    {83, "EL9"},
    {85, "W3"},
    {87, "DANALOCK"},
    {132, "TQS"},
    {133, "JEQ"},
    {134, "UMK"},
    {135, "SY8"},
    {138, "EL7"},
    {145, "MYQGT"},
    {147, "EL8"},
    {253, "ZWAVE"},
    {254, "SNIFFER"},
};
// clang-format on

constexpr std::string_view kVariantName = "WQFW";
// What a search by name finds besides the rows: code 0 is the first that calls itself "UNKNOWN".
constexpr ozu::NameRow kMoreNames[] = {{0, ozu::kUnknownName}, {kVariantType, kVariantName}};

constexpr auto kText = ozu::packedText<kDeviceTypes, kMoreNames>();
constexpr auto kList = ozu::nameList<kText, kDeviceTypes, kMoreNames>();
constexpr auto kNames = ozu::nameTable<kDeviceTypes>(kList);
constexpr auto kCodes = ozu::nameIndex<kDeviceTypes, kMoreNames>(kList);
constexpr ozu::NameId kVariantId = kList.idOf(kVariantName);

const char *variantTypeName() noexcept {
    return kList.at(getProductCodename() == kVariantProduct ? kVariantId : kNames.id(kVariantType));
}

} // namespace

const char *getDeviceTypeName(int type) noexcept {
    return type == kVariantType ? variantTypeName() : kList.at(kNames.id(static_cast<unsigned int>(type)));
}

// Answers like a search through the names of codes 0, 1, 2, ... that stops at the first match: such a search
// asks for the product variant once, when it passes code 59, and not at all when it ends before.
int getDeviceTypeEnum(const char *name) noexcept {
    if (name == nullptr) {
        return kNotFound;
    }
    const unsigned int code = kCodes.find(kList, name);
    if (code < kVariantType) {
        return static_cast<int>(code);
    }
    const char *variantName = variantTypeName();
    if (code != kVariantType) {
        return static_cast<int>(code);
    }
    return std::strcmp(variantName, name) == 0 ? kVariantType : static_cast<int>(kNotFound);
}

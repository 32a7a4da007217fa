// Names of device types, both ways.

#include <utils_ozu/names.h>

#include <base/name_table.h>

#include <panel_codes.h>
#include <product_info.h>

#include <cstring>

namespace {

constexpr int kVariantType = PANEL_DEVICE_UMKRL; // has another name on Lum+
constexpr int kNotFound = 255;

// clang-format off
constexpr ozu::NameRow kDeviceTypes[] = {
    {0, ozu::kUnknownName}, // the first code that a search for this name finds
    {PANEL_DEVICE_PIR, "PIR"},
    {PANEL_DEVICE_MAG, "MAG"},
    {PANEL_DEVICE_SHOCK, "SHOCK"},
    {PANEL_DEVICE_TQF, "TQF"},
    {PANEL_DEVICE_QGT, "QGT"},
    {PANEL_DEVICE_SIREN, "SIREN"},
    {PANEL_DEVICE_SMOKE, "SMOKE"},
    {PANEL_DEVICE_CP, "CP"},
    {PANEL_DEVICE_KEYSAFE, "KEYSAFE"},
    {PANEL_DEVICE_ACCESS, "ACCESS"},
    {PANEL_DEVICE_KEYFOB, "KEYFOB"},
    {PANEL_DEVICE_RF_INPUT, "RF_INPUT"},
    {PANEL_DEVICE_RF_OUTPUT, "RF_OUTPUT"},
    {PANEL_DEVICE_REPEATER, "REPEATER"},
    {PANEL_DEVICE_XGD, "XGD"},
    {PANEL_DEVICE_OUTSIDE_VIDEO_PIR, "OUTSIDE_VIDEO_PIR"},
    {PANEL_DEVICE_RF_VIDEO_PIR, "RF_VIDEO_PIR"},
    {PANEL_DEVICE_DOORLOCK, "DOORLOCK"},
    {PANEL_DEVICE_BJU, "BJU"},
    {PANEL_DEVICE_TQD, "TQD"},
    {PANEL_DEVICE_T8F, "T8F"},
    {PANEL_DEVICE_TAG_READER, "TAG READER"},
    {PANEL_DEVICE_UMK, "UMK"},
    {PANEL_DEVICE_TQP, "TQP"},
    {PANEL_DEVICE_MY2, "MY2"},
    {PANEL_DEVICE_VBX, "VBX"},
    {PANEL_DEVICE_QAM, "QAM"},
    {PANEL_DEVICE_WLM, "WLM"},
    {PANEL_DEVICE_YMNL, "YMNL"},
    {PANEL_DEVICE_CHEB, "CHEB"},
    {PANEL_DEVICE_RZD, "RZD"},
    {PANEL_DEVICE_SY8, "SY8"},
    {PANEL_DEVICE_QWF, "QWF"},
    {PANEL_DEVICE_VIDEO_REPEATER, "VIDEO_REPEATER"},
    {PANEL_DEVICE_LFF, "LFF"},
    {PANEL_DEVICE_MYLY, "MYLY"},
    {PANEL_DEVICE_RAAN, "RAAN"},
    {PANEL_DEVICE_EL7, "EL7"},
    {PANEL_DEVICE_NGY, "NGY"},
    {PANEL_DEVICE_TQSX, "TQSX"},
    {PANEL_DEVICE_UMKRL, "UMKRL"},
    {PANEL_DEVICE_UMKR, "UMKR"},
    {PANEL_DEVICE_SY9, "SY9"},
    {PANEL_DEVICE_CHEB_WR, "CHEB_WR"},
    {PANEL_DEVICE_QJ, "QJ"},
    {PANEL_DEVICE_PZ, "PZ"},
    {PANEL_DEVICE_CHEV, "CHEV"},
    {PANEL_DEVICE_HHW, "HHW"},
    {PANEL_DEVICE_LSB, "LSB"},
    {PANEL_DEVICE_FOG, "FOG"},
    {PANEL_DEVICE_HHW_A, "HHW_A"},
    {PANEL_DEVICE_HHW_B, "HHW_B"},
    {PANEL_DEVICE_RDK, "RDK"},
    {PANEL_DEVICE_LVAFCLPA, "LVAFCLPA"},
    {PANEL_DEVICE_EL9, "EL9"},
    {PANEL_DEVICE_W3, "W3"},
    {PANEL_DEVICE_DANALOCK, "DANALOCK"},
    {PANEL_DEVICE_TQS, "TQS"},
    {PANEL_DEVICE_JEQ, "JEQ"},
    {PANEL_DEVICE_UMK_2, "UMK"},
    {PANEL_DEVICE_SY8_2, "SY8"},
    {PANEL_DEVICE_EL7_2, "EL7"},
    {PANEL_DEVICE_MYQGT, "MYQGT"},
    {PANEL_DEVICE_EL8, "EL8"},
    {PANEL_DEVICE_ZWAVE, "ZWAVE"},
    {PANEL_DEVICE_SNIFFER, "SNIFFER"},
};
// clang-format on

constexpr auto kNames = ozu::nameTable<kDeviceTypes>();
constexpr auto kByName = ozu::codesByName<kDeviceTypes>();

// The code of a row's name, the lower one where two rows share it.
int codeOf(const char *name) noexcept {
    std::size_t first = 0;
    std::size_t end = kByName.size();
    while (first < end) {
        const std::size_t middle = (first + end) / 2;
        const char *held = kNames.name(kByName[middle]);
        // Most names differ at once, which is cheaper to see here.
        int order = static_cast<unsigned char>(*name) - static_cast<unsigned char>(*held);
        if (order == 0) {
            order = std::strcmp(name, held);
        }
        if (order == 0) {
            return kByName[middle];
        }
        if (order < 0) {
            end = middle;
        } else {
            first = middle + 1;
        }
    }
    return kNotFound;
}

} // namespace

const char *getDeviceTypeName(int type) noexcept {
    if (type == kVariantType && getProductCodename() == PANEL_PRODUCT_LUM_PLUS) {
        return "WQFW";
    }
    return kNames.name(static_cast<unsigned int>(type));
}

// Answers like a search through the names of codes 0, 1, 2, ... that stops at the first match: such a search
// asks for the product variant once, when it passes code 59, and not at all when it ends before.
int getDeviceTypeEnum(const char *name) noexcept {
    if (name == nullptr) {
        return kNotFound;
    }
    const int code = codeOf(name);
    if (code < kVariantType) {
        return code;
    }
    if (std::strcmp(getDeviceTypeName(kVariantType), name) == 0) {
        return kVariantType;
    }
    return code == kVariantType ? kNotFound : code;
}

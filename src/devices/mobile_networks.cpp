// Length of the mobile network code, country by country.

#include <utils_ozu/modem.h>

#include <base/log.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kMinImsi = 6;
constexpr std::size_t kCode = 3;   // digits of a country code
constexpr std::size_t kOutput = 4; // a code and its terminator

struct CountryRange {
    std::uint16_t first;
    std::uint16_t last;
};

// Countries whose networks have two digits, the last country of a range included.
constexpr CountryRange kTwoDigits[] = {
    {202, 202}, {204, 204}, {206, 206}, {208, 208}, {212, 214}, {216, 216}, {218, 222}, {226, 226},
    {228, 228}, {230, 232}, {234, 235}, {238, 238}, {240, 240}, {242, 242}, {244, 244}, {246, 248},
    {255, 255}, {257, 257}, {259, 260}, {262, 262}, {266, 266}, {268, 268}, {270, 270}, {272, 272},
    {274, 274}, {276, 276}, {278, 278}, {280, 280}, {282, 284}, {286, 286}, {288, 290}, {292, 295},
    {297, 297}, {308, 308}, {340, 340}, {350, 350}, {362, 364}, {368, 368}, {370, 370}, {372, 372},
    {400, 402}, {404, 404}, {410, 410}, {412, 422}, {424, 429}, {432, 432}, {434, 434}, {436, 438},
    {440, 441}, {450, 450}, {452, 452}, {454, 457}, {460, 460}, {466, 466}, {470, 470}, {472, 472},
    {505, 505}, {510, 510}, {514, 515}, {520, 520}, {525, 525}, {528, 528}, {530, 530}, {536, 537},
    {539, 555}, {602, 643}, {645, 655}, {657, 659}, {702, 702}, {704, 704}, {706, 706}, {710, 710},
    {712, 712}, {716, 716}, {724, 724}, {730, 730}, {734, 734}, {736, 736}, {740, 740}, {744, 744},
    {746, 746}, {748, 748}, {901, 902}, {991, 991}, {995, 995},
};

// Countries whose networks have three digits.
constexpr CountryRange kThreeDigits[] = {
    {302, 302}, {311, 316}, {330, 330}, {334, 334}, {338, 338}, {342, 342}, {344, 344},
    {346, 346}, {348, 348}, {352, 352}, {354, 354}, {356, 356}, {358, 358}, {360, 360},
    {365, 366}, {376, 376}, {708, 708}, {722, 722}, {732, 732}, {750, 750},
};

// Countries with both. The first pattern that the digits after the country code match decides ('?' is any
// character); a country's last row, "???", holds for all its other networks.
struct NetworkRule {
    std::uint16_t country;
    char pattern[kCode + 1];
    std::uint8_t length;
};
constexpr NetworkRule kMixed[] = {
    {250, "811", 3}, {250, "???", 2}, {310, "590", 3}, {310, "59?", 2}, {310, "???", 3}, {374, "12?", 2},
    {374, "???", 3}, {405, "02?", 3}, {405, "03?", 3}, {405, "04?", 3}, {405, "75?", 3}, {405, "79?", 3},
    {405, "8??", 3}, {405, "9??", 3}, {405, "???", 2}, {467, "193", 3}, {467, "???", 2}, {502, "15?", 3},
    {502, "???", 2}, {714, "020", 3}, {714, "???", 2}, {738, "002", 3}, {738, "003", 3}, {738, "???", 2},
};

template <std::size_t Count>
bool contains(const CountryRange (&ranges)[Count], long country) noexcept {
    return std::ranges::any_of(
        ranges, [country](const auto &range) { return range.first <= country && country <= range.last; });
}

bool matches(const char *digits, const char *pattern) noexcept {
    for (std::size_t i = 0; i < kCode; ++i) {
        if (pattern[i] != '?' && pattern[i] != digits[i]) {
            return false;
        }
    }
    return true;
}

// Length of the network code that begins at network, 0 for an unknown country.
std::size_t networkLength(long country, const char *network) noexcept {
    for (const auto &rule : kMixed) {
        if (rule.country == country && matches(network, rule.pattern)) {
            return rule.length;
        }
    }
    if (contains(kTwoDigits, country)) {
        return 2;
    }
    return contains(kThreeDigits, country) ? 3 : 0;
}

} // namespace

int ozuutils_IMSItoMccMnc(const char *imsi, char *mcc, char *mnc) noexcept {
    if (mcc == nullptr || mnc == nullptr) {
        return 0;
    }
    std::memset(mcc, 0, kOutput);
    std::memset(mnc, 0, kOutput);
    if (imsi == nullptr || strnlen(imsi, kMinImsi) < kMinImsi) {
        return 0;
    }
    std::memcpy(mcc, imsi, kCode);
    std::size_t length = networkLength(std::strtol(mcc, nullptr, 10), imsi + kCode);
    if (length == 0) {
        OZU_LOG(OZULOG_WARNING, "Unknown MCC code %s", mcc);
        length = 2;
    }
    std::memcpy(mnc, imsi + kCode, length);
    return static_cast<int>(length);
}

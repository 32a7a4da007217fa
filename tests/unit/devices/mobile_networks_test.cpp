#include <utils_ozu/modem.h>

#include "fake_platform.h"

#include <cstring>
#include <set>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What the whole million of codes is compared with: an independent list, country by country.
const std::set<int> kThreeDigits = {302, 311, 312, 313, 314, 315, 316, 330, 334, 338, 342, 344, 346,
                                    348, 352, 354, 356, 358, 360, 365, 366, 376, 708, 722, 732, 750};
const std::set<int> kMixed = {250, 310, 374, 405, 467, 502, 714, 738};

std::set<int> twoDigitCountries() {
    std::set<int> countries = {
        202, 204, 206, 208, 212, 213, 214, 216, 218, 219, 220, 221, 222, 226, 228, 230, 231, 232, 234,
        235, 238, 240, 242, 244, 246, 247, 248, 255, 257, 259, 260, 262, 266, 268, 270, 272, 274, 276,
        278, 280, 282, 283, 284, 286, 288, 289, 290, 292, 293, 294, 295, 297, 308, 340, 350, 362, 363,
        364, 368, 370, 372, 400, 401, 402, 404, 410, 432, 434, 436, 437, 438, 440, 441, 450, 452, 454,
        455, 456, 457, 460, 466, 470, 472, 505, 510, 514, 515, 520, 525, 528, 530, 536, 537, 657, 658,
        659, 702, 704, 706, 710, 712, 716, 724, 730, 734, 736, 740, 744, 746, 748, 901, 902, 991, 995};
    const int ranges[][2] = {{412, 422}, {424, 429}, {539, 555}, {602, 643}, {645, 655}};
    for (const auto &range : ranges) {
        for (int country = range[0]; country <= range[1]; ++country) {
            countries.insert(country);
        }
    }
    return countries;
}

bool mixedHasThreeDigits(int country, const std::string &digits) {
    const std::string two = digits.substr(0, 2);
    switch (country) {
    case 250:
        return digits == "811";
    case 310:
        return two != "59" || digits == "590";
    case 374:
        return two != "12";
    case 405:
        return two == "02" || two == "03" || two == "04" || two == "75" || two == "79" || digits[0] == '8' ||
               digits[0] == '9';
    case 467:
        return digits == "193";
    case 502:
        return two == "15";
    case 714:
        return digits == "020";
    default:
        return digits == "002" || digits == "003";
    }
}

std::string threeDigits(int number) {
    char text[4];
    snprintf(text, sizeof text, "%03d", number);
    return text;
}

// Both outputs with the byte behind them.
struct Split {
    int result = -1;
    char mcc[5] = {'#', '#', '#', '#', '#'};
    char mnc[5] = {'#', '#', '#', '#', '#'};

    explicit Split(const char *imsi) {
        result = ozuutils_IMSItoMccMnc(imsi, mcc, mnc);
        EXPECT_EQ(mcc[4], '#');
        EXPECT_EQ(mnc[4], '#');
        EXPECT_EQ(mcc[3], '\0');
        EXPECT_EQ(mnc[3], '\0');
    }
};

using MobileNetworks = ozu::test::PlatformTest;

TEST_F(MobileNetworks, everyCountryAndNetwork) {
    const std::set<int> two = twoDigitCountries();
    ASSERT_EQ(two.size(), 201u);
    ASSERT_EQ(kThreeDigits.size(), 26u);
    for (int country = 0; country < 1000; ++country) {
        const bool known = two.count(country) + kThreeDigits.count(country) + kMixed.count(country) == 1;
        platform().log.clear();
        platform().journal.clear();
        for (int network = 0; network < 1000; ++network) {
            const std::string mcc = threeDigits(country);
            const std::string digits = threeDigits(network);
            const bool three = kThreeDigits.count(country) != 0 ||
                               (kMixed.count(country) != 0 && mixedHasThreeDigits(country, digits));
            const Split split((mcc + digits + "0123456").c_str());
            ASSERT_EQ(split.result, three ? 3 : 2) << mcc << ' ' << digits;
            ASSERT_EQ(mcc, split.mcc);
            ASSERT_EQ(digits.substr(0, three ? 3 : 2), split.mnc);
        }
        ASSERT_EQ(platform().log.size(), known ? 0u : 1000u) << country;
    }
}

TEST_F(MobileNetworks, unknownCountryIsReported) {
    const Split split("999011234567890");
    EXPECT_EQ(split.result, 2);
    EXPECT_STREQ(split.mcc, "999");
    EXPECT_STREQ(split.mnc, "01");
    EXPECT_THAT(platform().log,
                ElementsAre(extended(50000, "Unknown MCC code 999", "ozuutils_IMSItoMccMnc")));
    EXPECT_EQ(platform().log.at(0).format, "Unknown MCC code %s");
}

TEST_F(MobileNetworks, examples) {
    EXPECT_EQ(Split("310590000").result, 3);
    EXPECT_STREQ(Split("310590000").mnc, "590");
    EXPECT_STREQ(Split("310591000").mnc, "59");
    EXPECT_STREQ(Split("310260000").mnc, "260");
    EXPECT_STREQ(Split("405803000").mnc, "803");
    EXPECT_STREQ(Split("405123000").mnc, "12");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(MobileNetworks, countryThatIsNoNumber) {
    // As strtol reads it: spaces and a sign are skipped, the first other character ends the number.
    const std::pair<const char *, const char *> table[] = {{"abcdef", "abc"},
                                                           {"-31020", "-31"},
                                                           {"+50234", "+50"},
                                                           {" 50234", " 50"},
                                                           {"31a260", "31a"},
                                                           {"\xFF\xFF\xFF"
                                                            "999",
                                                            "\xFF\xFF\xFF"}};
    for (const auto &[imsi, mcc] : table) {
        platform().log.clear();
        const Split split(imsi);
        EXPECT_EQ(split.result, 2) << imsi;
        EXPECT_STREQ(split.mcc, mcc);
        EXPECT_EQ(platform().log.at(0).text, std::string("Unknown MCC code ") + mcc);
    }
}

TEST_F(MobileNetworks, networkMayBeAnyCharacters) {
    EXPECT_STREQ(Split("31059a").mnc, "59");
    EXPECT_STREQ(Split("310a0c").mnc, "a0c");
    EXPECT_STREQ(Split("25081a").mnc, "81");
    EXPECT_STREQ(Split("405??\x80").mnc, "??");
}

TEST_F(MobileNetworks, sixCharactersAreEnough) {
    const std::string imsi = "310260";
    for (std::size_t length = 0; length <= 6; ++length) {
        const Split split(imsi.substr(0, length).c_str());
        EXPECT_EQ(split.result, length < 6 ? 0 : 3) << length;
        EXPECT_STREQ(split.mcc, length < 6 ? "" : "310");
        EXPECT_STREQ(split.mnc, length < 6 ? "" : "260");
    }
    EXPECT_EQ(Split(std::string(5000, '2').c_str()).result, 2);
}

TEST_F(MobileNetworks, badInputClearsBothOutputs) {
    for (const char *imsi : {static_cast<const char *>(nullptr), "", "31026"}) {
        const Split split(imsi);
        EXPECT_EQ(split.result, 0);
        EXPECT_EQ(std::string(split.mcc, 4), std::string(4, '\0'));
        EXPECT_EQ(std::string(split.mnc, 4), std::string(4, '\0'));
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(MobileNetworks, missingOutputTouchesNothing) {
    char out[5] = {'#', '#', '#', '#', '#'};
    EXPECT_EQ(ozuutils_IMSItoMccMnc("310260", out, nullptr), 0);
    EXPECT_EQ(ozuutils_IMSItoMccMnc("310260", nullptr, out), 0);
    EXPECT_EQ(ozuutils_IMSItoMccMnc("310260", nullptr, nullptr), 0);
    EXPECT_EQ(ozuutils_IMSItoMccMnc(nullptr, nullptr, out), 0);
    EXPECT_EQ(std::string(out, 5), "#####");
    EXPECT_THAT(platform().log, IsEmpty());
}

} // namespace

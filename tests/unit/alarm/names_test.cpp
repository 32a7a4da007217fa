// Every row and every gap of the name tables, against lists that are kept apart from the library.

#include <base/name_table.h>
#include <utils_ozu/names.h>

#include "fake_platform.h"

#include <array>
#include <climits>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <vector>

using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Names by code, or by opcode and sub-opcode.
using Codes = std::vector<int>;
using Names = std::map<Codes, std::string>;
using NameOf = std::function<const char *(const Codes &)>;

struct Table {
    const char *file;
    std::size_t numbers; // columns before the name
    std::size_t rows;
    NameOf nameOf;
};

void PrintTo(const Table &table, std::ostream *out) {
    *out << table.file;
}

unsigned int asUnsigned(int code) {
    return static_cast<unsigned int>(code);
}

const std::array<Table, 7> kTables = {{
    {"device_types", 1, 66, [](const Codes &c) { return getDeviceTypeName(c[0]); }},
    {"tarn2_message_types", 1, 45, [](const Codes &c) { return getTarn2MessageTypeName(asUnsigned(c[0])); }},
    {"tarn_plus_opcodes", 1, 22, [](const Codes &c) { return getTarnPlusOpcodeName(asUnsigned(c[0])); }},
    {"tarn_plus_sub_opcodes", 2, 74, [](const Codes &c) { return getTarnPlusSubOpcodeName(c[0], c[1]); }},
    {"tarn1_opcodes", 1, 19, [](const Codes &c) { return getTarn1OpcodeName(asUnsigned(c[0])); }},
    {"tarn1_sub_opcodes", 2, 119, [](const Codes &c) { return getTarn1SubOpcodeName(c[0], c[1]); }},
    {"tarn1_old_message_types", 1, 86,
     [](const Codes &c) { return getTarn1OldMessageTypeString(asUnsigned(c[0])); }},
}};

Names namesOf(const Table &table) {
    std::ifstream file(std::string(OZU_TEST_DATA "/") + table.file + ".txt");
    Names names;
    std::string line;
    while (std::getline(file, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream columns(line);
        Codes codes(table.numbers);
        for (int &code : codes) {
            columns >> code;
        }
        std::string name;
        std::getline(columns >> std::ws, name);
        EXPECT_TRUE(names.emplace(codes, name).second) << line;
    }
    return names;
}

std::string expected(const Names &names, const Codes &codes) {
    const auto row = names.find(codes);
    return row == names.end() ? "UNKNOWN" : row->second;
}

// 0 to 300, negative numbers, and both ends of the type.
std::vector<int> codesToTry() {
    std::vector<int> codes = {INT_MIN, INT_MIN + 1, -65536, -32769,     511,
                              512,     65535,       65536,  65536 + 38, INT_MAX};
    for (int code = -300; code <= 300; ++code) {
        codes.push_back(code);
    }
    return codes;
}

class NameTables : public ozu::test::PlatformTest, public testing::WithParamInterface<Table> {};

TEST_P(NameTables, listHasAllRows) {
    EXPECT_EQ(namesOf(GetParam()).size(), GetParam().rows);
}

TEST_P(NameTables, everyRowAndEveryGap) {
    const Names names = namesOf(GetParam());
    std::size_t found = 0;
    for (const int first : codesToTry()) {
        const std::vector<int> seconds = GetParam().numbers == 2 ? codesToTry() : std::vector<int>{0};
        for (const int second : seconds) {
            const Codes codes = GetParam().numbers == 2 ? Codes{first, second} : Codes{first};
            const char *name = GetParam().nameOf(codes);
            ASSERT_NE(name, nullptr);
            if (expected(names, codes) != name) {
                ADD_FAILURE() << testing::PrintToString(codes) << " is " << name;
            }
            found += std::string(name) != "UNKNOWN" ? 1U : 0U;
        }
    }
    EXPECT_EQ(found, names.size());
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_P(NameTables, everyNameLeadsBackToItsCodes) {
    const Names names = namesOf(GetParam());
    std::map<std::string, std::set<Codes>> listed;
    std::map<std::string, std::set<Codes>> answered;
    for (const auto &[codes, name] : names) {
        listed[name].insert(codes);
        answered[GetParam().nameOf(codes)].insert(codes);
    }
    EXPECT_EQ(answered, listed);
}

TEST_P(NameTables, namesAreConstantText) {
    for (const auto &[codes, name] : namesOf(GetParam())) {
        EXPECT_EQ(GetParam().nameOf(codes), GetParam().nameOf(codes)) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(All, NameTables, testing::ValuesIn(kTables),
                         [](const auto &instance) { return std::string(instance.param.file); });

class DeviceTypes : public ozu::test::PlatformTest {
  protected:
    const Names names = namesOf(kTables[0]);

    // What the search through all codes answers, one comparison at a time, and how often it asks for the
    // product.
    struct Answer {
        int code;
        int productCalls;
        bool operator==(const Answer &) const = default;
        friend void PrintTo(const Answer &answer, std::ostream *out) {
            *out << answer.code << " after " << answer.productCalls << " calls";
        }
    };
    [[nodiscard]] Answer scan(const char *name, int product) const {
        int calls = 0;
        if (name == nullptr) {
            return {255, 0};
        }
        if (std::string("CP") == name) {
            return {8, 0};
        }
        for (int code = 0; code <= 254; ++code) {
            std::string candidate = expected(names, {code});
            if (code == 59) {
                ++calls;
                candidate = product == 1 ? "WQFW" : "UMKRL";
            }
            if (candidate == name) {
                return {code, calls};
            }
        }
        return {255, calls};
    }
    static Answer answer(const char *name, int product) {
        platform().results["getProductCodename"] = product;
        platform().journal.clear();
        const int code = getDeviceTypeEnum(name);
        return {code, platform().callCount("getProductCodename")};
    }
    void expectLikeScan(const char *name) const {
        for (const int product : {0, 1, 2, -1}) {
            EXPECT_EQ(answer(name, product), scan(name, product))
                << (name == nullptr ? "null" : name) << " on product " << product;
        }
    }
};

TEST_F(DeviceTypes, type59DependsOnTheProduct) {
    for (const int product : {0, 2, 3, 255, -1}) {
        platform().results["getProductCodename"] = product;
        EXPECT_STREQ(getDeviceTypeName(59), "UMKRL");
    }
    platform().results["getProductCodename"] = 1;
    EXPECT_STREQ(getDeviceTypeName(59), "WQFW");
    EXPECT_EQ(platform().callCount("getProductCodename"), 6) << "nothing is cached";
}

TEST_F(DeviceTypes, onlyType59AsksForTheProduct) {
    for (int type = -1; type < 300; ++type) {
        platform().journal.clear();
        getDeviceTypeName(type);
        EXPECT_EQ(platform().journal.size(), type == 59 ? 1u : 0u) << type;
    }
}

TEST_F(DeviceTypes, everyNameIsFoundLikeByTheScan) {
    for (const auto &[codes, name] : names) {
        expectLikeScan(name.c_str());
    }
    for (const char *name : {"UNKNOWN", "CP", "WQFW", "UMKRL"}) {
        expectLikeScan(name);
    }
    expectLikeScan(nullptr);
}

TEST_F(DeviceTypes, whatIsNoNameIsFoundLikeByTheScan) {
    for (const auto &[codes, name] : names) {
        std::string lower = name;
        for (char &c : lower) {
            c = static_cast<char>(tolower(c));
        }
        expectLikeScan(lower.c_str());
        expectLikeScan((name + " ").c_str());
        expectLikeScan((name + "\x80").c_str());
        expectLikeScan(name.substr(1).c_str());
        expectLikeScan(name.substr(0, name.size() - 1).c_str());
        for (std::size_t at = 0; at < name.size(); ++at) {
            std::string other = name;
            other[at] = static_cast<char>(other[at] ^ 1);
            expectLikeScan(other.c_str());
        }
    }
    for (const std::string &name : {std::string(), std::string("?"), std::string(17, 'X'),
                                    std::string(18, 'X'), std::string(5000, 'U')}) {
        expectLikeScan(name.c_str());
    }
}

TEST_F(DeviceTypes, everyTextOfThreeLettersIsFoundLikeByTheScan) {
    std::map<std::string, int> first;
    for (int code = 254; code >= 0; --code) {
        if (code != 59) {
            first[expected(names, {code})] = code;
        }
    }
    platform().results["getProductCodename"] = 0;
    for (char a = 'A'; a <= 'Z'; ++a) {
        for (char b = '0'; b <= 'Z'; ++b) {
            for (char c = '0'; c <= 'Z'; ++c) {
                const std::string name = {a, b, c};
                const auto row = first.find(name);
                ASSERT_EQ(getDeviceTypeEnum(name.c_str()), row == first.end() ? 255 : row->second) << name;
            }
        }
    }
}

TEST_F(DeviceTypes, namesWithTwoCodesGiveTheLowerOne) {
    EXPECT_EQ(getDeviceTypeEnum("UMK"), 38);
    EXPECT_EQ(getDeviceTypeEnum("SY8"), 49);
    EXPECT_EQ(getDeviceTypeEnum("EL7"), 55);
    EXPECT_EQ(getDeviceTypeEnum("UNKNOWN"), 0);
    EXPECT_EQ(getDeviceTypeEnum("tag reader"), 255);
    EXPECT_EQ(getDeviceTypeEnum("TAG READER"), 37);
    EXPECT_THAT(platform().journal, ElementsAre("getProductCodename()"))
        << "for the name that does not exist";
}

TEST_F(DeviceTypes, readsOneCharacterPastTheLongestNameAtMost) {
    char text[18]; // not terminated
    std::fill(std::begin(text), std::end(text), 'O');
    EXPECT_EQ(getDeviceTypeEnum(text), 255);
}

TEST(SpotChecks, oddNamesAreKept) {
    EXPECT_STREQ(getDeviceTypeName(0), "UNKNOWN");
    EXPECT_STREQ(getDeviceTypeName(255), "UNKNOWN");
    EXPECT_STREQ(getDeviceTypeName(-1), "UNKNOWN");
    EXPECT_STREQ(getDeviceTypeName(11), "UNKNOWN");
    EXPECT_STREQ(getDeviceTypeName(37), "TAG READER");
    EXPECT_STREQ(getTarnPlusSubOpcodeName(20, 2), "ACTION_STREAMING_SU");
    EXPECT_STREQ(getTarnPlusSubOpcodeName(20, 3), "ACTION_STREAMING_SU");
    EXPECT_STREQ(getTarn1SubOpcodeName(0, 1), "UNKNOWN");
    EXPECT_STREQ(getTarn1SubOpcodeName(254, 12), "CLONED_TAG_UID");
    EXPECT_STREQ(getTarn1SubOpcodeName(5, 12), "CLONED_TAG_UID");
    EXPECT_STREQ(getTarn1OldMessageTypeString(250), "NEW_PROTOCOL");
    EXPECT_STREQ(getTarn1OldMessageTypeString(251), "UNKNOWN");
}

// The machinery itself.

constexpr ozu::NameRow kRows[] = {{0, "zero"}, {2, "two"}, {5, "UNKNOWN"}, {7, "two"}};
constexpr ozu::NameRow kUnsorted[] = {{2, "two"}, {0, "zero"}};
constexpr ozu::NameRow kTwice[] = {{2, "two"}, {2, "zwei"}};
constexpr ozu::PairRow kPairs[] = {{1, 3, "two"}, {4, 0, "zero"}, {4, 1, "four"}};
constexpr ozu::PairRow kPairTwice[] = {{1, 3, "two"}, {1, 3, "zero"}};
constexpr auto kTable = ozu::nameTable<kRows>();
constexpr auto kPairTable = ozu::nameTable<kPairs>();

TEST(NameTable, rowsMustBeSortedAndUnique) {
    static_assert(ozu::sortedAndUnique<kRows>());
    static_assert(!ozu::sortedAndUnique<kUnsorted>());
    static_assert(!ozu::sortedAndUnique<kTwice>());
    static_assert(ozu::sortedAndUnique<kPairs>());
    static_assert(!ozu::sortedAndUnique<kPairTwice>());
}

TEST(NameTable, givesNames) {
    EXPECT_STREQ(kTable.name(0), "zero");
    EXPECT_STREQ(kTable.name(1), "UNKNOWN");
    EXPECT_STREQ(kTable.name(7), "two");
    EXPECT_STREQ(kTable.name(8), "UNKNOWN");
    EXPECT_STREQ(kTable.name(UINT_MAX), "UNKNOWN");
}

TEST(NameTable, hasItsRowsOnly) {
    for (const unsigned int code : {0U, 2U, 5U, 7U}) {
        EXPECT_TRUE(kTable.has(code)) << code;
    }
    for (const unsigned int code : {1U, 6U, 8U, UINT_MAX}) {
        EXPECT_FALSE(kTable.has(code)) << code;
    }
}

TEST(NameTable, givesNamesOfPairs) {
    EXPECT_STREQ(kPairTable.name(1, 3), "two");
    EXPECT_STREQ(kPairTable.name(4, 0), "zero");
    EXPECT_STREQ(kPairTable.name(4, 1), "four");
    // Pairs beside a row, and some that would be a row's if only their low bits counted.
    for (const auto &[group, code] : std::vector<std::pair<unsigned, unsigned>>{{0, 0},
                                                                                {0, 259},
                                                                                {1, 2},
                                                                                {1, 4},
                                                                                {2, 0},
                                                                                {3, 3},
                                                                                {3, 256},
                                                                                {4, 2},
                                                                                {5, 0},
                                                                                {257, 3},
                                                                                {UINT_MAX, 0},
                                                                                {1, UINT_MAX},
                                                                                {4, UINT_MAX}}) {
        EXPECT_STREQ(kPairTable.name(group, code), "UNKNOWN") << group << ' ' << code;
    }
}

TEST(NameTable, ordersCodesByName) {
    static_assert(ozu::codesByName<kRows>() == std::array<std::uint8_t, 4>{5, 2, 2, 0});
}

} // namespace

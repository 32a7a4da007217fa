#include <utils_ozu/country.h>

#include <media/country_csv.h>

#include "country_model.h"
#include "fake_platform.h"
#include "test_files.h"

#include <sys/stat.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

using ozu::test::CountryAnswer;
using ozu::test::countryModel;
using ozu::test::platform;
using ozu::test::shortLine;
using ozu::test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The file that stands for the panel's country file.
std::string countryFile;
int opened = 0, closed = 0;

const char *const kUnknown = "Unknown country %s. The country codes for %s (%s, %s, %s) will be used.";

const CountryAnswer kNotFound = {0, "ES", "ESP", "724"};

class CountryCodes : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        countryFile = directory.file("countries_codes.csv");
        opened = closed = 0;
    }
    void TearDown() override {
        EXPECT_EQ(opened, closed);
        PlatformTest::TearDown();
    }
    static CountryAnswer codes(const char *country) {
        char text[16];
        memset(text, 0x5a, sizeof(text));
        CountryAnswer answer = {};
        answer.result = get_country_codes(country, text, text + 4, text + 9);
        EXPECT_EQ(text[3], 0x5a);
        EXPECT_EQ(text[8], 0x5a);
        EXPECT_EQ(text[13], 0x5a);
        answer.alpha2 = text;
        answer.alpha3 = text + 4;
        answer.numeric = text + 9;
        return answer;
    }
    void file(const std::string &content) { writeFile(countryFile, content); }
    ozu::test::TemporaryDirectory directory;
};

} // namespace

extern "C" {

FILE *__real_fopen(const char *, const char *);
FILE *__wrap_fopen(const char *path, const char *mode) {
    EXPECT_STREQ(path, "/data/ozu/etc/countries_codes.csv");
    EXPECT_STREQ(mode, "re");
    FILE *stream = __real_fopen(countryFile.c_str(), mode);
    opened += stream != nullptr ? 1 : 0;
    return stream;
}

int __real_fclose(FILE *);
int __wrap_fclose(FILE *stream) {
    ++closed;
    return __real_fclose(stream);
}

} // extern "C"

TEST_F(CountryCodes, builtInRows) {
    const std::vector<std::pair<const char *, CountryAnswer>> rows = {
        {"Spain", {1, "ES", "ESP", "724"}},          {"France", {1, "FR", "FRA", "250"}},
        {"Portugal", {1, "PT", "PRT", "620"}},       {"Italy", {1, "IT", "ITA", "380"}},
        {"United Kingdom", {1, "GB", "GBR", "826"}}, {"Argentina", {1, "AR", "ARG", "032"}},
        {"Brazil", {1, "BR", "BRA", "076"}},         {"Peru", {1, "PE", "PER", "604"}},
        {"Israel", {1, "IL", "ISR", "376"}},         {"Chile", {1, "CL", "CHL", "152"}},
    };
    for (const auto &[name, answer] : rows) {
        EXPECT_EQ(codes(name), answer) << name;
    }
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(CountryCodes, blanksLineEndsAndCaseDoNotCount) {
    for (const char *name : {"spain", " Spain ", "SPAIN\n", "s p\ra\ni n", "\r\nSpAiN"}) {
        EXPECT_EQ(codes(name), (CountryAnswer{1, "ES", "ESP", "724"})) << name;
    }
    for (const char *name : {"UNITED KINGDOM", "unitedkingdom", "United  Kingdom\r\n"}) {
        EXPECT_EQ(codes(name), (CountryAnswer{1, "GB", "GBR", "826"})) << name;
    }
    EXPECT_EQ(codes("Spain\t"), kNotFound) << "a tab counts";
    EXPECT_EQ(codes("Spa"), kNotFound);
    EXPECT_EQ(codes("Spains"), kNotFound);
}

TEST_F(CountryCodes, unknownCountryIsLogged) {
    EXPECT_EQ(codes("Atlantis"), kNotFound);
    EXPECT_THAT(platform().log,
                ElementsAre(shortLine(40000, "Unknown country Atlantis. The country codes for Spain (ES, "
                                             "ESP, 724) will be used.")));
    EXPECT_EQ(platform().log[0].format, kUnknown);
    platform().log.clear();
    EXPECT_EQ(codes(" At%s lantis\n"), kNotFound);
    EXPECT_THAT(platform().log, ElementsAre(shortLine(
                                    40000, "Unknown country  At%s lantis\n. The country codes for Spain (ES, "
                                           "ESP, 724) will be used.")))
        << "the text is logged as given";
}

TEST_F(CountryCodes, missingAndBlankNamesAreNotLogged) {
    file("Nowhere,NW,NOW,001\n");
    for (const char *name : {static_cast<const char *>(nullptr), "", " ", "\n", " \r\n "}) {
        EXPECT_EQ(codes(name), kNotFound);
    }
    EXPECT_EQ(opened, 0) << "the file is not needed";
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(CountryCodes, nameThatIsBlankForItsFirst63Characters) {
    EXPECT_EQ(codes((std::string(63, ' ') + "France").c_str()), kNotFound);
    EXPECT_THAT(platform().journal, IsEmpty()) << "an empty key";
    EXPECT_EQ(codes((std::string(57, ' ') + "France").c_str()), (CountryAnswer{1, "FR", "FRA", "250"}));
    EXPECT_EQ(codes((std::string(58, ' ') + "France").c_str()), kNotFound) << "truncated to FRANC";
    EXPECT_EQ(codes(("France" + std::string(57, ' ') + "x").c_str()), (CountryAnswer{1, "FR", "FRA", "250"}))
        << "the 64th character is not looked at";
}

TEST_F(CountryCodes, everyOutputMayBeNull) {
    char text[4] = {};
    EXPECT_EQ(get_country_codes("France", nullptr, nullptr, nullptr), 1u);
    EXPECT_EQ(get_country_codes(nullptr, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(get_country_codes("Atlantis", nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(get_country_codes("France", nullptr, text, nullptr), 1u);
    EXPECT_STREQ(text, "FRA");
    file("Utopia,UT,UTO,7\n");
    EXPECT_EQ(get_country_codes("Utopia", nullptr, nullptr, nullptr), 1u);
    EXPECT_EQ(get_country_codes("Utopia", nullptr, nullptr, text), 1u);
    EXPECT_STREQ(text, "007");
}

TEST_F(CountryCodes, singleCodes) {
    char alpha2[3] = {}, alpha3[4] = {}, numeric[4] = {};
    EXPECT_EQ(get_country_alpha2Code("italy", alpha2), 1u);
    EXPECT_EQ(get_country_alpha3Code("italy", alpha3), 1u);
    EXPECT_EQ(get_country_numericCode("italy", numeric), 1u);
    EXPECT_STREQ(alpha2, "IT");
    EXPECT_STREQ(alpha3, "ITA");
    EXPECT_STREQ(numeric, "380");
    EXPECT_EQ(get_country_alpha2Code("Atlantis", alpha2), 0u);
    EXPECT_EQ(get_country_alpha3Code("", alpha3), 0u);
    EXPECT_EQ(get_country_numericCode(nullptr, numeric), 0u);
    EXPECT_STREQ(alpha2, "ES");
    EXPECT_STREQ(alpha3, "ESP");
    EXPECT_STREQ(numeric, "724");
    EXPECT_EQ(platform().log.size(), 1u);
    EXPECT_EQ(get_country_alpha2Code("Italy", nullptr), 1u);
}

TEST_F(CountryCodes, fileComesFirst) {
    file("# countries\nFrance,FX,FXX,999\r\nGermany,DE,DEU,276\n");
    EXPECT_EQ(codes("france"), (CountryAnswer{1, "FX", "FXX", "999"}));
    EXPECT_EQ(codes("GERMANY"), (CountryAnswer{1, "DE", "DEU", "276"}));
    EXPECT_EQ(codes("Italy"), (CountryAnswer{1, "IT", "ITA", "380"}));
    EXPECT_EQ(codes("Atlantis"), kNotFound);
    EXPECT_EQ(opened, 4);
}

TEST_F(CountryCodes, alternativeNames) {
    file("\"Great Britain,UK\",GB,GBR,826\n");
    EXPECT_EQ(codes("Great Britain,UK"), (CountryAnswer{1, "GB", "GBR", "826"}));
    EXPECT_EQ(codes("GreatBritain"), (CountryAnswer{1, "GB", "GBR", "826"}));
    EXPECT_EQ(codes("UK"), kNotFound);
}

TEST_F(CountryCodes, firstAlternativeIsOnlyKeptUntilAFullNameComes) {
    file("\"Utopia,U\",AA,AAA,1\n\"Utopia,V\",BB,BBB,2\n");
    EXPECT_EQ(codes("Utopia"), (CountryAnswer{1, "BB", "BBB", "002"})) << "the last one counts";
    file("\"Utopia,U\",AA,AAA,1\nUtopia,CC,CCC,3\n\"Utopia,V\",BB,BBB,2\nUtopia,DD,DDD,4\n");
    EXPECT_EQ(codes("Utopia"), (CountryAnswer{1, "CC", "CCC", "003"}))
        << "the first full name ends the search";
    file("\"France,F\",FX,FXX,9\n");
    EXPECT_EQ(codes("France"), (CountryAnswer{1, "FX", "FXX", "009"})) << "before the built-in rows";
}

struct FileCase {
    const char *label;
    std::string content;
    std::string country;
    CountryAnswer answer;
};

void PrintTo(const FileCase &fileCase, std::ostream *out) {
    *out << fileCase.label;
}

class CountryFile : public CountryCodes, public testing::WithParamInterface<FileCase> {};

TEST_P(CountryFile, gives) {
    file(GetParam().content);
    EXPECT_EQ(codes(GetParam().country.c_str()), GetParam().answer);
}

const CountryAnswer kU = {1, "UT", "UTO", "123"};

INSTANTIATE_TEST_SUITE_P(
    Lines, CountryFile,
    testing::Values(
        FileCase{"empty", "", "Utopia", kNotFound},
        FileCase{"emptyLines", "\n\n\r\n\nUtopia,UT,UTO,123\n", "Utopia", kU},
        FileCase{"noFinalLineFeed", "Utopia,UT,UTO,123", "Utopia", kU},
        FileCase{"carriageReturns", "Utopia,UT,UTO,123\r\n", "Utopia", kU},
        FileCase{"lowerCase", "utopia,ut,uto,123\n", "UTOPIA", kU},
        FileCase{"comment", "#Utopia,UT,UTO,123\n", "Utopia", kNotFound},
        FileCase{"commentSign", "#Utopia,UT,UTO,123\n", "#Utopia", kNotFound},
        FileCase{"blankBeforeCommentSign", " #Utopia,UT,UTO,123\n", "#Utopia", kU},
        FileCase{"byteOrderMark", "\xef\xbb\xbfUtopia,UT,UTO,123\n", "Utopia", kNotFound},
        FileCase{"fifthField", "Utopia,UT,UTO,123,rest\n", "Utopia", kU},
        FileCase{"longCodes", "Utopia,UTXX,UTOXX,12345\n", "Utopia", kU},
        FileCase{"shortCodes", "Utopia,U,UT,1\n", "Utopia", {1, "U", "UT", "001"}},
        FileCase{"nameOnly", "Utopia\n", "Utopia", {1, "", "", "000"}},
        FileCase{"nameAndComma", "Utopia,\n", "Utopia", {1, "", "", "000"}},
        FileCase{"twoFields", "Utopia,UT\n", "Utopia", {1, "UT", "", "000"}},
        FileCase{"threeFields", "Utopia,UT,UTO\n", "Utopia", {1, "UT", "UTO", "000"}},
        FileCase{"emptyFields", "Utopia,,,\n", "Utopia", {1, "", "", "000"}},
        FileCase{"twoDigits", "Utopia,UT,UTO,32\n", "Utopia", {1, "UT", "UTO", "032"}},
        FileCase{"notNumeric", "Utopia,UT,UTO,x\n", "Utopia", {1, "UT", "UTO", "000"}},
        FileCase{"threeLetters", "Utopia,UT,UTO,xyz\n", "Utopia", {1, "UT", "UTO", "XYZ"}},
        FileCase{"digitAndLetter", "Utopia,UT,UTO,4x\n", "Utopia", {1, "UT", "UTO", "004"}},
        FileCase{"minus", "Utopia,UT,UTO,-5\n", "Utopia", {1, "UT", "UTO", "-05"}},
        FileCase{"minusAlone", "Utopia,UT,UTO,-\n", "Utopia", {1, "UT", "UTO", "000"}},
        FileCase{"plus", "Utopia,UT,UTO,+5\n", "Utopia", {1, "UT", "UTO", "005"}},
        FileCase{"hugeNumber", "Utopia,UT,UTO,99999999999\n", "Utopia", {1, "UT", "UTO", "999"}},
        // A space takes the place of a character, since so many of the source are looked at.
        FileCase{"blankBeforeCodes", "Utopia, UT, UTO, 123\n", "Utopia", {1, "U", "UT", "012"}},
        FileCase{"twoBlanksBeforeCodes", "Utopia,  UT,   UTO,   123\n", "Utopia", {1, "", "", "000"}},
        FileCase{"tabBeforeNumber", "Utopia,UT,UTO,\t5\n", "Utopia", {1, "UT", "UTO", "005"}},
        FileCase{"quotedFields", "\"Utopia\",\"UT\",\"UTO\",\"123\"\n", "Utopia", kU},
        FileCase{"textAroundQuotes", "a\"Utopia\"b,UT,UTO,123\n", "Utopia", kU},
        FileCase{"textAroundQuotesIsCut", "a\"Utopia\"b,UT,UTO,123\n", "aUtopiab", kNotFound},
        FileCase{"fourQuotes", "\"Uto\"\"pia\",UT,UTO,123\n", "Uto\"\"pia", kU},
        FileCase{"emptyQuotes", "\"\",UT,UTO,123\n", "\"\"", kNotFound},
        FileCase{"threeQuotesKeepTheLine",
                 "\"\"\"Utopia,UT,UTO,123\n",
                 "\"\"\"Utopia,UT,UTO,123",
                 {1, "", "", "000"}},
        FileCase{"unbalancedFirstAlternative", "\"Utopia,UT,UTO,123\n", "\"Utopia", {1, "", "", "000"}},
        FileCase{"unbalancedLastField", "Utopia,UT,UTO,\"12,3\n", "Utopia", {1, "UT", "UTO", "\"12"}},
        FileCase{"quoteInTheMiddle", "Uto\"pia,x\"y,UT,UTO,123\n", "pia,x", kU},
        FileCase{"quotedComma", "Utopia,\"U,T\",\"U,T\",\"1,2\"\n", "Utopia", {1, "U,", "U,T", "1,2"}},
        FileCase{"zeroByteEndsTheLine",
                 "Utopia,UT,U" + std::string(1, '\0') + "TO,123\n",
                 "Utopia",
                 {1, "UT", "U", "000"}},
        FileCase{"zeroByteFirst", std::string(1, '\0') + "x\nUtopia,UT,UTO,123\n", "Utopia", kU},
        FileCase{"emptyNameIsSkipped", ",XX,XXX,9\nUtopia,UT,UTO,123\n", "Utopia", kU},
        FileCase{"blankName", "  ,XX,XXX,9\n", ",", kNotFound},
        FileCase{"commaNameHasEmptyFirstAlternative", "\",UK\",XX,XXX,9\n", ",UK", {1, "XX", "XXX", "009"}},
        FileCase{"commaOnlyKey", "\",\",XX,XXX,9\n", ",", {1, "XX", "XXX", "009"}},
        FileCase{"nameOf63", std::string(63, 'a') + ",UT,UTO,123\n", std::string(63, 'A'), kU},
        FileCase{"nameOf64MatchesItsFirst63", std::string(64, 'a') + ",UT,UTO,123\n",
                 std::string(63, 'A') + "zzz", kU},
        FileCase{"firstAlternativeCutAt63", "\"" + std::string(62, 'a') + ",b\",UT,UTO,123\n",
                 std::string(62, 'A'), kU},
        FileCase{"commaBeyondThe63", "\"" + std::string(63, 'a') + ",b\",UT,UTO,123\n", std::string(63, 'A'),
                 kU},
        FileCase{"latinLetters", "\xe9utopie,UT,UTO,123\n", "\xe9UTOPIE", kU},
        FileCase{"otherLatinCase", "\xe9utopie,UT,UTO,123\n", "\xc9utopie", kNotFound}),
    [](const auto &instance) { return std::string(instance.param.label); });

TEST_F(CountryCodes, lineOf127CharactersIsOneLineAndOf128IsTwo) {
    const std::string row = "Utopia,UT,UTO,123";
    // 127 characters with the line feed: one line.
    file(row + std::string(126 - row.size(), ' ') + "\nFrance,FX,FXX,1\n");
    EXPECT_EQ(codes("Utopia"), kU);
    EXPECT_EQ(codes("France"), (CountryAnswer{1, "FX", "FXX", "001"}));
    // The limit falls behind the last character; the line feed is a line of its own.
    file(row + std::string(127 - row.size(), ' ') + "\nFrance,FX,FXX,1\n");
    EXPECT_EQ(codes("Utopia"), kU);
    EXPECT_EQ(codes("France"), (CountryAnswer{1, "FX", "FXX", "001"}));
    // What stands beyond is another line.
    file(std::string(127, 'x') + row + "\n");
    EXPECT_EQ(codes("Utopia"), kU);
    file(std::string(126, 'x') + row + "\n");
    EXPECT_EQ(codes("Utopia"), kNotFound);
    EXPECT_EQ(codes("topia"), kU);
    file("#" + std::string(126, 'x') + row + "\n");
    EXPECT_EQ(codes("Utopia"), kU) << "the rest of a long comment is a line";
    file(std::string(127, ' ') + "#" + row + "\n");
    EXPECT_EQ(codes("#Utopia"), kNotFound) << "and may be a comment";
    file(std::string(300, 'x'));
    EXPECT_EQ(codes("Utopia"), kNotFound);
}

TEST_F(CountryCodes, unreadableFileIsNoFile) {
    ASSERT_EQ(mkdir(countryFile.c_str(), 0700), 0);
    EXPECT_EQ(codes("France"), (CountryAnswer{1, "FR", "FRA", "250"})) << "a directory";
}

// Fields and names, one character at a time.

std::vector<std::string> split(std::string line, std::size_t most = 4) {
    std::vector<char *> fields(most + 1);
    const std::size_t count = ozu::splitCsvFields(line.data(), fields.data(), most);
    return {fields.begin(), fields.begin() + static_cast<std::ptrdiff_t>(count)};
}

TEST(CountryCsv, fields) {
    EXPECT_THAT(split(""), ElementsAre(""));
    EXPECT_THAT(split("a,b,c,d"), ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(split("a,b,c,d,e"), ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(split("a,b,c,d,e", 2), ElementsAre("a", "b"));
    EXPECT_THAT(split("a", 0), IsEmpty());
    EXPECT_THAT(split("a,"), ElementsAre("a", ""));
    EXPECT_THAT(split("\"a,b\",c\n"), ElementsAre("a,b", "c\n"));
    EXPECT_THAT(split("x\"a\"y,c"), ElementsAre("a", "c"));
    EXPECT_THAT(split("a,\"b,c"), ElementsAre("a", "\"b,c"));
    EXPECT_THAT(split("\"a\"b\"c\",d"), ElementsAre("a\"b\"c", "d"));
}

std::string normalized(const char *text, std::size_t size) {
    std::string buffer(size + 1, '\x5a');
    ozu::normalizeCountryField(buffer.data(), text, size);
    EXPECT_EQ(buffer[size], '\x5a');
    return buffer.substr(0, buffer.find('\0'));
}

TEST(CountryCsv, normalizedFields) {
    EXPECT_EQ(normalized(nullptr, 8), "");
    EXPECT_EQ(normalized("a b\r\nc", 8), "ABC");
    EXPECT_EQ(normalized("abcdef", 4), "ABC");
    EXPECT_EQ(normalized(" abcdef", 4), "AB");
    EXPECT_EQ(normalized("   abc", 4), "");
    EXPECT_EQ(normalized("abc", 1), "");
    EXPECT_EQ(normalized("a\tb{z}\x80", 16), "A\tB{Z}\x80");
}

TEST_F(CountryCodes, agreesWithTheModelOnRandomFiles) {
    static constexpr const char *kParts[] = {
        "ab",  "AB",   "a b",
        "\"",  "\"",   ",",
        ",",   ",",    ",",
        "\n",  "\n",   "#",
        "12",  "1",    "\r",
        "-5",  "ab,c", "\"ab,c\"",
        "XYZ", "é",    "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"};
    unsigned state = 99;
    const auto random = [&](unsigned limit) {
        state = state * 1664525U + 1013904223U;
        return (state >> 10) % limit;
    };
    int hits = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string content;
        for (unsigned part = random(40); part > 0; --part) {
            content += kParts[random(std::size(kParts))];
        }
        if (random(20) == 0) {
            content.insert(random(static_cast<unsigned>(content.size()) + 1), 1, '\0');
        }
        file(content);
        for (const char *key : {"ab", "ab,c", "12", "\"ab", "xyz"}) {
            const auto expected = countryModel(content, key);
            ASSERT_EQ(codes(key), expected.value_or(kNotFound)) << key << " in:\n" << content;
            hits += expected.has_value() ? 1 : 0;
        }
    }
    EXPECT_GT(hits, 1000);
}

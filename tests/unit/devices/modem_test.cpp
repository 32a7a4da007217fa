#include <utils_ozu/modem.h>

#include "fake_platform.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <limits>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *kVersionFile = "/var/run/version";

// The version file that the tests see.
struct VersionFile {
    bool readable = true;
    bool opens = true;
    std::string content;
} versionFile;

FILE *openVersionFile(const char *path) {
    EXPECT_STREQ(path, kVersionFile);
    platform().journal.emplace_back("fopen");
    if (!versionFile.opens) {
        errno = EMFILE;
        return nullptr;
    }
    FILE *file = tmpfile();
    EXPECT_NE(file, nullptr);
    fwrite(versionFile.content.data(), 1, versionFile.content.size(), file);
    rewind(file);
    return file;
}

} // namespace

extern "C" int __real_access(const char *path, int mode);
extern "C" int __wrap_access(const char *path, int mode) {
    EXPECT_STREQ(path, kVersionFile);
    EXPECT_EQ(mode, R_OK);
    platform().journal.emplace_back("access");
    return versionFile.readable ? 0 : -1;
}

extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    EXPECT_STREQ(mode, "re") << "closed in programs that the process starts";
    return openVersionFile(path);
}

namespace {

class ModemFile : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        versionFile = VersionFile();
    }
    // What a call leaves in a buffer of that size, with the byte behind it.
    static std::string read(std::size_t size, int expectedResult) {
        std::string buffer(size + 1, '#');
        EXPECT_EQ(ozuutils_readTelitFwFile(buffer.data(), size), expectedResult);
        EXPECT_EQ(buffer[size], '#');
        return buffer.substr(0, size);
    }
};

TEST_F(ModemFile, firstLineWithItsLineFeed) {
    versionFile.content = "25.30.226-A0F.123456\nsecond\n";
    EXPECT_STREQ(read(100, 0).c_str(), "25.30.226-A0F.123456\n");
    EXPECT_THAT(platform().journal, ElementsAre("access", "fopen"));
    versionFile.content = "no line feed";
    EXPECT_STREQ(read(100, 0).c_str(), "no line feed");
    versionFile.content = "\nsecond\n";
    EXPECT_STREQ(read(100, 0).c_str(), "\n");
}

TEST_F(ModemFile, isBoundedByTheBuffer) {
    versionFile.content = "0123456789\n";
    for (std::size_t size = 1; size < 14; ++size) {
        EXPECT_STREQ(read(size, 0).c_str(), versionFile.content.substr(0, size - 1).c_str()) << size;
    }
    EXPECT_EQ(read(0, 0), "");
}

TEST_F(ModemFile, sizeBeyondAnyBuffer) {
    versionFile.content = "0123456789\n";
    std::array<char, 13> buffer;
    buffer.fill('#');
    EXPECT_EQ(ozuutils_readTelitFwFile(buffer.data(), std::numeric_limits<std::size_t>::max()), 0);
    EXPECT_EQ(std::string(buffer.data(), buffer.size()), std::string("0123456789\n\0#", 13));
}

TEST_F(ModemFile, longLineAndOddBytes) {
    versionFile.content = std::string(100000, 'v') + "\n";
    EXPECT_STREQ(read(200000, 0).c_str(), versionFile.content.c_str());
    EXPECT_EQ(read(5, 0), std::string("vvvv\0", 5));
    versionFile.content = std::string("ab\0cd\n", 6);
    EXPECT_STREQ(read(10, 0).c_str(), "ab");
}

TEST_F(ModemFile, failuresLeaveTheBufferAlone) {
    versionFile.content = "";
    EXPECT_EQ(read(4, 2), "####");
    EXPECT_THAT(platform().journal, ElementsAre("access", "fopen"));
    platform().journal.clear();
    versionFile.opens = false;
    EXPECT_EQ(read(4, 2), "####");
    EXPECT_THAT(platform().journal, ElementsAre("access", "fopen"));
    platform().journal.clear();
    versionFile.readable = false;
    EXPECT_EQ(read(4, 2), "####");
    EXPECT_THAT(platform().journal, ElementsAre("access"));
    EXPECT_THAT(platform().log, IsEmpty());
}

// Result and the whole buffer of a call, the byte behind it included.
using VersionOf = int (*)(const char *, char *, std::size_t);

struct Version {
    int result = -1;
    std::string out = std::string(12, '#');

    Version(VersionOf function, const std::string &text, std::size_t digits) {
        result = function(text.c_str(), out.data(), digits);
    }
    [[nodiscard]] std::string text() const { return out.c_str(); }
    bool operator==(const std::pair<int, std::string> &expected) const {
        return result == expected.first && text() == expected.second;
    }
    friend void PrintTo(const Version &version, std::ostream *out) {
        *out << version.result << " \"" << version.text() << '"';
    }
};

using Expected = std::pair<int, std::string>;
using ModemVersion = ozu::test::PlatformTest;

Version app(const std::string &text, std::size_t digits) {
    return {[](const char *t, char *out, std::size_t n) { return getAppModemVersion(t, out, n); }, text,
            digits};
}
Version beta(const std::string &text, std::size_t digits) {
    return {[](const char *t, char *out, std::size_t n) { return getAppBetaModemVersion(t, out, n); }, text,
            digits};
}

TEST_F(ModemVersion, appDigitsAfterTheMarker) {
    EXPECT_EQ(app("A0F.123456", 6), Expected(0, "123456"));
    EXPECT_EQ(app("25.30.226-A0F.123456-B7", 6), Expected(0, "123456"));
    EXPECT_EQ(app("A0F.1234567", 6), Expected(0, "123456"));
    EXPECT_EQ(app("A0F.123456", 4), Expected(0, "1234"));
    EXPECT_EQ(app("A0F.1234xy", 4), Expected(0, "1234"));
    EXPECT_EQ(app("A0F. \t\n12", 2), Expected(0, "12")) << "spaces before the token are skipped";
    EXPECT_EQ(app("A0F.77A0F.88", 2), Expected(0, "77")) << "the first marker counts";
    EXPECT_EQ(app("A0FA0F.5", 1), Expected(0, "5"));
    EXPECT_EQ(app("A0F.x", 0), Expected(0, ""));
}

TEST_F(ModemVersion, appFailureEmptiesTheResult) {
    for (const char *text : {"", "A0F", "a0f.123456", "A0F.", "A0F.   ", "A0F.12345 ", "A0F.12345",
                             "A0F.12345x", "A0F.x23456", "A0F.-23456", "A0F.12 456",
                             "A0F.1234\xB2"
                             "6"}) {
        EXPECT_EQ(app(text, 6), Expected(2, "")) << text;
    }
    EXPECT_EQ(app("A0F.1234567890", 7), Expected(2, "")) << "no more than six characters are read";
}

TEST_F(ModemVersion, appWritesNoFurtherThanItSays) {
    EXPECT_EQ(app("A0F.123456", 6).out.substr(7), "#####");
    EXPECT_EQ(app("A0F.12", 2).out.substr(3), std::string(9, '#'));
    EXPECT_EQ(app("none", 6).out, std::string(6, '\0') + "######") << "the digits are cleared, and no more";
    EXPECT_EQ(app("none", 0).out, std::string(1, '\0') + std::string(11, '#'));
}

TEST_F(ModemVersion, betaDigits) {
    EXPECT_EQ(beta("A0F.123456-B7", 1), Expected(0, "7"));
    EXPECT_EQ(beta("A0F.123456-B07", 2), Expected(0, "07"));
    EXPECT_EQ(beta("A0F.123456-B1234", 3), Expected(0, "123"));
    EXPECT_EQ(beta("A0F.123456-B1234", 2), Expected(0, "12"));
    EXPECT_EQ(beta("x-B9A0F.1-B 5", 1), Expected(0, "5"));
    EXPECT_EQ(beta("A0F.12 34-B5", 1), Expected(0, "5")) << "spaces may stand before the hyphen";
    EXPECT_EQ(beta("A0F.1-Bx", 0), Expected(0, ""));
}

TEST_F(ModemVersion, betaFailureKeepsTheDigitsBeforeIt) {
    EXPECT_EQ(beta("A0F.123456-B7a", 2), Expected(2, "7"));
    EXPECT_EQ(beta("A0F.123456-B12x", 3), Expected(2, "12"));
    EXPECT_EQ(beta("A0F.123456-B12", 3), Expected(2, "12"));
    EXPECT_EQ(beta("A0F.123456-Bx12", 3), Expected(2, ""));
    EXPECT_EQ(beta("A0F.1-B7 8", 2), Expected(2, "7"));
    EXPECT_EQ(beta("A0F.1-B123", 4), Expected(2, "123")) << "no more than three characters are read";
}

TEST_F(ModemVersion, betaNeedsAllItsParts) {
    for (const char *text : {"", "A0F.", "A0F.123456", "A0F.123456-", "A0F.123456-B", "A0F.123456-B  ",
                             "A0F.-B7", "A0F.123456-b7", "A0F.123456B7", "A0F.12-34-B7", "123456-B7"}) {
        EXPECT_EQ(beta(text, 2), Expected(2, "")) << text;
    }
    EXPECT_EQ(beta("none", 3).out, std::string(3, '\0') + std::string(9, '#'));
    EXPECT_EQ(beta("A0F.1-B123", 3).out.substr(4), std::string(8, '#'));
}

using ModemPower = ozu::test::PlatformTest;

TEST_F(ModemPower, neitherSavingNorCBank) {
    for (const int psm : {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 8, 256, 260, INT_MAX}) {
        for (const int bank : {0, 1, 128, 255}) {
            platform().state.cBankModeActive = static_cast<std::uint8_t>(bank);
            EXPECT_EQ(isNoPSMandNoCBankMode(psm), (psm == 0 || psm == 4) && bank == 0 ? 1 : 0)
                << psm << ' ' << bank;
        }
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(ModemPower, noState) {
    platform().stateMissing = true;
    for (const int psm : {0, 2, 4}) {
        platform().log.clear();
        EXPECT_EQ(isNoPSMandNoCBankMode(psm), 0);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, "Shared memory pointer is null in isNoPSMandNoCBankMode",
                                         "isNoPSMandNoCBankMode")));
        EXPECT_EQ(platform().log.at(0).format, "%s");
    }
}

} // namespace

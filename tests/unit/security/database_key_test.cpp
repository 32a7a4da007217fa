#include <utils_ozu/database_key.h>

#include <security/serial_number.h>

#include "fake_platform.h"
#include "random_numbers.h"
#include "recorded_digest.h"
#include "test_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <string>

using ozu::test::extended;
using ozu::test::platform;
using ozu::test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kMask = ozu::test::bytesOf(OZU_TEST_DB_MASK);
const std::string kName = "androidboot.serialno=";

// The file that stands for /proc/cmdline; empty: the real one.
std::string commandLine;
int readError = 0;
int opens = 0;
int openFlags = 0;

std::string keyFor(std::uint32_t serial) {
    std::string text;
    for (unsigned i = 0; i < 20; ++i) {
        char digits[3];
        snprintf(
            digits, sizeof(digits), "%02X",
            static_cast<unsigned char>(static_cast<unsigned char>(kMask[i]) ^ (serial >> (8 * (i % 4)))));
        text += digits;
    }
    return text;
}

class DatabaseKey : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        commandLine = directory.file("cmdline");
        readError = 0;
        opens = 0;
        memset(out, 0x5a, sizeof(out));
    }
    void TearDown() override {
        commandLine.clear();
        PlatformTest::TearDown();
    }
    int runOn(const std::string &line) {
        writeFile(commandLine, line);
        return ozuutils_getDBcypher(out);
    }
    std::string keyOf(const std::string &line) {
        EXPECT_EQ(runOn(line), 0) << line;
        EXPECT_EQ(out[40], '\0');
        EXPECT_EQ(std::string(out + 41, 7), std::string(7, '\x5a'));
        return out;
    }
    void expectUntouched() { EXPECT_EQ(std::string(out, sizeof(out)), std::string(sizeof(out), '\x5a')); }
    ozu::test::TemporaryDirectory directory;
    char out[48] = {};
};

} // namespace

extern "C" int __real_open(const char *, int, ...);

static int openInstead(const char *path, int flags, int mode) {
    if (strcmp(path, "/proc/cmdline") != 0 || commandLine.empty()) {
        return __real_open(path, flags, mode);
    }
    ++opens;
    openFlags = flags;
    return __real_open(commandLine.c_str(), flags, mode);
}

extern "C" {

int __wrap_open(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    return openInstead(path, flags, mode);
}

ssize_t __real_read(int, void *, size_t);
ssize_t __wrap_read(int fd, void *buffer, size_t size) {
    if (readError != 0) {
        errno = readError;
        return -1;
    }
    return __real_read(fd, buffer, size);
}

} // extern "C"

TEST_F(DatabaseKey, serialBytesMeetTheMaskInLittleEndianOrder) {
    const std::string key = keyOf("console=ttymxc0 androidboot.serialno=1A2B3C4D quiet\n");
    EXPECT_EQ(key, keyFor(0x1A2B3C4D));
    for (std::size_t i = 0; i < 20; ++i) {
        static constexpr unsigned kSerial[] = {0x4D, 0x3C, 0x2B, 0x1A};
        EXPECT_EQ(std::stoul(key.substr(2 * i, 2), nullptr, 16) ^ static_cast<unsigned char>(kMask[i]),
                  kSerial[i % 4]);
    }
    EXPECT_EQ(opens, 1);
    EXPECT_EQ(openFlags & O_ACCMODE, O_RDONLY);
    EXPECT_NE(openFlags & O_CLOEXEC, 0);
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(DatabaseKey, developmentMaskGivesThisText) {
    if (std::string(OZU_TEST_DB_MASK) != "000102030405060708090A0B0C0D0E0F10111213") {
        GTEST_SKIP() << "built with another mask";
    }
    EXPECT_EQ(keyOf(kName + "1A2B3C4D"), "4D3D291949392D1D4535211141312515"
                                         "5D2D3909");
}

struct Line {
    const char *label;
    std::string text;
    std::uint32_t serial;
};

void PrintTo(const Line &line, std::ostream *out) {
    *out << line.label;
}

class DatabaseKeyLine : public DatabaseKey, public testing::WithParamInterface<Line> {};

TEST_P(DatabaseKeyLine, givesThisSerialNumber) {
    EXPECT_EQ(keyOf(GetParam().text), keyFor(GetParam().serial));
    EXPECT_THAT(platform().journal, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Lines, DatabaseKeyLine,
    testing::Values(
        Line{"first", kName + "1A2B3C4D quiet", 0x1A2B3C4D},
        Line{"last", "quiet " + kName + "1A2B3C4D", 0x1A2B3C4D},
        Line{"lastWithLineFeed", "quiet " + kName + "1A2B3C4D\n", 0x1A2B3C4D},
        Line{"lowerCase", kName + "1a2b3c4d\n", 0x1A2B3C4D}, Line{"prefix", kName + "0x1A2B\n", 0x1A2B},
        Line{"upperPrefix", kName + "0X1A2B\n", 0x1A2B}, Line{"prefixAlone", kName + "0x\n", 0},
        Line{"prefixAndOther", kName + "0xG1\n", 0}, Line{"doublePrefix", kName + "0x0x12\n", 0},
        Line{"zero", kName + "0\n", 0}, Line{"leadingZeros", kName + "0000000000001234\n", 0x1234},
        Line{"largest", kName + "FFFFFFFF\n", 0xFFFFFFFF},
        Line{"tooLarge", kName + "100000000\n", 0xFFFFFFFF},
        Line{"farTooLarge", kName + std::string(200, '9') + "\n", 0xFFFFFFFF},
        Line{"sixteenDigits", kName + "123456789ABCDEF0\n", 0xFFFFFFFF},
        Line{"seventeenDigits", kName + "10000000000000001\n", 0xFFFFFFFF},
        Line{"minus", kName + "-5\n", 0xFFFFFFFB}, Line{"minusOne", kName + "-1\n", 0xFFFFFFFF},
        Line{"minusLargest", kName + "-FFFFFFFF\n", 1},
        Line{"minusTooLarge", kName + "-100000000\n", 0xFFFFFFFF},
        Line{"minusPrefix", kName + "-0x10\n", 0xFFFFFFF0}, Line{"plus", kName + "+10\n", 0x10},
        Line{"twoSigns", kName + "+-10\n", 0}, Line{"stopsAtOther", kName + "12G4\n", 0x12},
        Line{"stopsAtTab", kName + "12\t34\n", 0x12}, Line{"stopsAtComma", kName + "AB,CD\n", 0xAB},
        Line{"stopsAtLineFeed", kName + "12\n34 5\n", 0x12}, Line{"noDigits", kName + "unknown\n", 0},
        Line{"lineFeedOnly", kName + "\n", 0}, Line{"tabFirst", kName + "\t1A quiet", 0x1A},
        Line{"whiteSpaceFirst", kName + "\r\v\f\n1A quiet", 0x1A},
        // A space ends nothing before a value has begun: the next word is taken.
        Line{"nextWord", kName + " beef quiet\n", 0xBEEF},
        Line{"blanksThenWord", kName + "   cafe\n", 0xCAFE}, Line{"secondEqualSign", kName + "=12\n", 0},
        Line{"equalSignInside", kName + "12=34\n", 0x12}, Line{"quoted", kName + "\"12\"\n", 0},
        Line{"twice", kName + "11 " + kName + "22\n", 0x11},
        Line{"partOfAnotherName", "x" + kName + "33 " + kName + "44\n", 0x33},
        Line{"otherCaseIsAnother", "Androidboot.serialno=11 " + kName + "55\n", 0x55},
        Line{"nameWithoutEqualSign", "androidboot.serialno 11 " + kName + "66\n", 0x66},
        Line{"endsAtZeroByte", kName + "12" + std::string(1, '\0') + "34\n", 0x12},
        Line{"byteAbove127", kName + "12\xff\n", 0x12},
        // 1023 bytes are read.
        Line{"cutInTheValue", std::string(1023 - 21 - 2, 'a') + kName + "1234\n", 0x12},
        Line{"endsAtTheLimit", std::string(1023 - 21 - 4, 'a') + kName + "1234", 0x1234},
        Line{"longLineAfterIt", kName + "1234 " + std::string(100000, 'b'), 0x1234}),
    [](const auto &instance) { return std::string(instance.param.label); });

class DatabaseKeyMissing : public DatabaseKey, public testing::WithParamInterface<Line> {};

TEST_P(DatabaseKeyMissing, parameterIsNotThere) {
    EXPECT_EQ(runOn(GetParam().text), -1);
    expectUntouched();
    EXPECT_THAT(platform().journal, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Lines, DatabaseKeyMissing,
    testing::Values(Line{"otherParameters", "quiet console=ttymxc0\n", 0}, Line{"lineFeed", "\n", 0},
                    Line{"blank", " ", 0}, Line{"nameOnly", "androidboot.serialno", 0},
                    Line{"nameAndBlank", "androidboot.serialno =12", 0},
                    Line{"upperCase", "ANDROIDBOOT.SERIALNO=12", 0},
                    Line{"behindZeroByte", std::string(1, '\0') + kName + "12", 0},
                    Line{"cutInTheName", std::string(1023 - 20, 'a') + kName + "12", 0},
                    Line{"beyondTheLimit", std::string(2000, 'a') + " " + kName + "12", 0}),
    [](const auto &instance) { return std::string(instance.param.label); });

class DatabaseKeyNoValue : public DatabaseKey, public testing::WithParamInterface<Line> {};

TEST_P(DatabaseKeyNoValue, isLogged) {
    EXPECT_EQ(runOn(GetParam().text), -1);
    expectUntouched();
    EXPECT_THAT(platform().log,
                ElementsAre(extended(80000, "The serial number is missing", "ozuutils_getDBcypher")));
    EXPECT_EQ(platform().log[0].format, "%s");
}

INSTANTIATE_TEST_SUITE_P(Lines, DatabaseKeyNoValue,
                         testing::Values(Line{"emptyFile", "", 0}, Line{"emptyValue", "quiet " + kName, 0},
                                         Line{"blanksOnly", kName + "    ", 0},
                                         Line{"zeroByte", kName + std::string(1, '\0') + "12", 0},
                                         Line{"endsAtTheLimit", std::string(1023 - 21, 'a') + kName + "1234",
                                              0}),
                         [](const auto &instance) { return std::string(instance.param.label); });

TEST_F(DatabaseKey, fileThatCannotBeOpened) {
    EXPECT_EQ(ozuutils_getDBcypher(out), -1);
    expectUntouched();
    EXPECT_THAT(platform().log,
                ElementsAre(extended(80000, "open() error: /proc/cmdline", "ozuutils_getDBcypher")));
    EXPECT_EQ(platform().log[0].format, "%s");
}

TEST_F(DatabaseKey, failedReadHasNoSerialNumber) {
    writeFile(commandLine, kName + "12\n");
    readError = EIO;
    EXPECT_EQ(ozuutils_getDBcypher(out), -1);
    readError = 0;
    expectUntouched();
    EXPECT_THAT(platform().log,
                ElementsAre(extended(80000, "The serial number is missing", "ozuutils_getDBcypher")));
}

TEST_F(DatabaseKey, samePanelSameKeyOtherPanelOtherKey) {
    const std::string first = keyOf(kName + "1234\n");
    EXPECT_EQ(keyOf(kName + "1234\n"), first);
    EXPECT_NE(keyOf(kName + "1235\n"), first);
}

// Where long has 32 bits, the C library itself is the judge.
TEST_F(DatabaseKey, scansLikeTheCLibraryOfThePanel) {
    unsigned state = 12345;
    static constexpr char kAlphabet[] = "0123456789abcdefABCDEFxX+-gG,\t\n=";
    for (int round = 0; round < 200000; ++round) {
        std::string text;
        state = state * 1664525U + 1013904223U;
        for (unsigned length = (state >> 20) % 14; length > 0; --length) {
            state = state * 1664525U + 1013904223U;
            text += (state >> 8) % 3 == 0 ? kAlphabet[(state >> 16) % 16] : kAlphabet[(state >> 16) % 32];
        }
        unsigned long number = 0;
        if (sscanf(text.c_str(), "%lX", &number) != 1) { // NOLINT(cert-err34-c)
            number = 0;
        }
        // A wider long saturates later, and negates what the panel has saturated before.
        if (sizeof(long) > 4) {
            const auto magnitude = static_cast<long>(number) < 0 ? 0UL - number : number;
            const bool negative = text.find('-') < text.find_first_of("0123456789abcdefABCDEF");
            number = magnitude > 0xFFFFFFFFUL ? 0xFFFFFFFFUL : negative ? 0UL - magnitude : number;
        }
        ASSERT_EQ(ozu::scanHexadecimal(text), static_cast<std::uint32_t>(number)) << '"' << text << '"';
    }
}

TEST_F(DatabaseKey, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    for (int round = 0; round < 1000; ++round) {
        std::string line = random.text(random.below(30), "abc =");
        line += round % 16 == 0 ? "" : kName;
        line += random.text(random.below(14), "0123456789abcdefABCDEFxX+- \t\n");
        memset(out, 0x5a, sizeof(out));
        digest.add(runOn(line), std::string_view(out, sizeof(out)));
    }
    digest.print("database keys");
}

#include "text_test.h"

#include <algorithm>
#include <climits>
#include <cstdio>

namespace {

// Value of a character as a digit, written down once more.
int digitModel(int c) {
    static const std::string kUpper = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXY";
    static const std::string kLower = "0123456789abcdefghijklmnopqrstuvwxy";
    for (std::size_t value = 0; value < kUpper.size(); ++value) {
        if (c == kUpper[value] || c == kLower[value]) {
            return static_cast<int>(value);
        }
    }
    return -1;
}

std::string hexModel(const std::string &bytes) {
    std::string text;
    for (const char byte : bytes) {
        char pair[3];
        snprintf(pair, sizeof(pair), "%02X", static_cast<unsigned char>(byte));
        text += pair;
    }
    return text;
}

} // namespace

// ---- Digits ----

TEST(Digit, everyCharacter) {
    for (int c = 0; c < 256; ++c) {
        EXPECT_EQ(ozuutils_Ascii2Digit(static_cast<char>(c)), digitModel(c)) << c;
    }
    EXPECT_EQ(ozuutils_Ascii2Digit('Y'), 34);
    EXPECT_EQ(ozuutils_Ascii2Digit('y'), 34);
    EXPECT_EQ(ozuutils_Ascii2Digit('g'), 16);
    EXPECT_EQ(ozuutils_Ascii2Digit('Z'), -1);
    EXPECT_EQ(ozuutils_Ascii2Digit('z'), -1);
}

TEST(Digit, everyValue) {
    for (int value = 0; value < 256; ++value) {
        const char expected = value < 16 ? "0123456789ABCDEF"[value] : '\0';
        EXPECT_EQ(ozuutils_Digit2Ascii(static_cast<unsigned char>(value)), expected) << value;
    }
}

// ---- ozuutils_StringToNum, ozuutils_StringToLongNum ----

TEST(AnyRadix, readsDigitsWhateverTheRadix) {
    EXPECT_EQ(ozuutils_StringToNum("1G", 2, 16), 32);
    EXPECT_EQ(ozuutils_StringToNum("12x", 10, 10), 153);
    EXPECT_EQ(ozuutils_StringToNum("9", 1, 8), 9);
    EXPECT_EQ(ozuutils_StringToNum("12z9", 10, 10), 12);
    EXPECT_EQ(ozuutils_StringToNum("-1", 10, 10), 0);
    EXPECT_EQ(ozuutils_StringToNum(" 1", 10, 10), 0);
    EXPECT_EQ(ozuutils_StringToNum("123", 2, 10), 12);
    EXPECT_EQ(ozuutils_StringToNum("123", 0, 10), 0);
    EXPECT_EQ(ozuutils_StringToNum("123", 3, 0), 3);
    EXPECT_EQ(ozuutils_StringToNum("123", 3, 0xFFFFFFFF), 1 - 2 + 3);
    EXPECT_EQ(ozuutils_StringToNum(nullptr, 3, 10), 0);
    EXPECT_EQ(ozuutils_StringToLongNum(nullptr, 3, 10), 0u);
    EXPECT_EQ(ozuutils_StringToNum("FFFFFFFF", 8, 16), -1);
    EXPECT_EQ(ozuutils_StringToNum("4294967297", 10, 10), 1);
    EXPECT_EQ(ozuutils_StringToLongNum("4294967297", 10, 10), 4294967297u);
    EXPECT_EQ(ozuutils_StringToLongNum("FFFFFFFFFFFFFFFF", 16, 16), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(ozuutils_StringToLongNum("12345678901234567890123", 23, 16), 0x8901234567890123u);
}

TEST(AnyRadix, readsAtMost32Or64Characters) {
    const GuardedBuffer binary32("1"s + std::string(31, '0'));
    EXPECT_EQ(ozuutils_StringToNum(binary32.chars(), 33, 2), INT_MIN);
    EXPECT_EQ(ozuutils_StringToNum(binary32.chars(), UINT_MAX, 2), INT_MIN);
    const GuardedBuffer binary64("1"s + std::string(63, '0'));
    EXPECT_EQ(ozuutils_StringToLongNum(binary64.chars(), 65, 2), 0x8000000000000000u);
    EXPECT_EQ(ozuutils_StringToLongNum(binary64.chars(), UINT_MAX, 2), 0x8000000000000000u);
}

TEST(AnyRadix, agreesWithItsModel) {
    Random random(31);
    for (int round = 0; round < 20000; ++round) {
        const std::string text =
            random.text(random.below(70), "0123456789abcdefXYyGzZ\xB0"s.substr(0, 21 + random.below(3)));
        const unsigned int maxDigits = random.below(70);
        const unsigned int radix = round % 4 == 0 ? random() : random.below(37);
        const GuardedBuffer s(terminated(text), kEdges[round % 2]);
        std::uint32_t narrow = 0;
        std::uint64_t wide = 0;
        for (std::size_t i = 0; i < std::min<std::size_t>({text.size(), maxDigits, 64}); ++i) {
            const int digit = digitModel(static_cast<unsigned char>(text[i]));
            if (digit < 0) {
                break;
            }
            wide = wide * radix + static_cast<unsigned int>(digit);
            narrow = i < 32 ? narrow * radix + static_cast<unsigned int>(digit) : narrow;
        }
        ASSERT_EQ(static_cast<std::uint32_t>(ozuutils_StringToNum(s.chars(), maxDigits, radix)), narrow)
            << text;
        ASSERT_EQ(ozuutils_StringToLongNum(s.chars(), maxDigits, radix), wide) << text;
    }
}

// ---- ozuutils_bcd2num ----

TEST(Bcd, everyByte) {
    for (int bcd = 0; bcd < 256; ++bcd) {
        EXPECT_EQ(ozuutils_bcd2num(static_cast<unsigned char>(bcd)), (bcd >> 4) * 10 + (bcd & 15)) << bcd;
    }
    EXPECT_EQ(ozuutils_bcd2num(0x59), 59);
    EXPECT_EQ(ozuutils_bcd2num(0x5A), 60);
    EXPECT_EQ(ozuutils_bcd2num(0xA5), 105);
}

// ---- ozuutils_String2Ascii, ozuutils_Ascii2String ----

TEST(BytesToDigits, everyByteWithoutTerminator) {
    std::string bytes(256, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i);
    }
    for (unsigned int n = 0; n <= 256; ++n) {
        const Edge edge = kEdges[n % 2];
        const GuardedBuffer src(bytes.substr(256 - n), edge);
        const GuardedBuffer dst(2 * n, edge);
        ozuutils_String2Ascii(dst.chars(), src.bytes(), static_cast<unsigned short>(n));
        ASSERT_EQ(dst.view(), hexModel(bytes.substr(256 - n)));
    }
}

TEST(BytesToDigits, theLargestCount) {
    const GuardedBuffer src(65535, Edge::Back, 0x9E);
    const GuardedBuffer dst(131070);
    ozuutils_String2Ascii(dst.chars(), src.bytes(), 65535);
    EXPECT_EQ(dst.view(), hexModel(std::string(65535, '\x9E')));
    ozuutils_Ascii2String(src.bytes(), dst.chars(), 65535);
    EXPECT_EQ(src.view(), std::string(65535, '\x9E'));
}

TEST(DigitsToBytes, everyPairOfCharacters) {
    for (int high = 0; high < 256; ++high) {
        for (int low = 0; low < 256; ++low) {
            const char src[2] = {static_cast<char>(high), static_cast<char>(low)};
            unsigned char dst = 0x77;
            ozuutils_Ascii2String(&dst, src, 1);
            ASSERT_EQ(dst, static_cast<unsigned char>(digitModel(high) * 16 + digitModel(low)));
            dst = 0x77;
            ozuutils_Ascii2String(&dst, src, 0);
            ASSERT_EQ(dst, 0x77);
        }
    }
}

TEST(DigitsToBytes, goesBackWhereItCameFrom) {
    Random random(32);
    for (unsigned int n = 0; n < 300; ++n) {
        std::string bytes(n, '\0');
        random.fill(bytes.data(), n);
        const GuardedBuffer text(hexModel(bytes), kEdges[n % 2]);
        const GuardedBuffer back(n, kEdges[n % 2]);
        ozuutils_Ascii2String(back.bytes(), text.chars(), static_cast<unsigned short>(n));
        ASSERT_EQ(back.view(), bytes);
        ozuutils_Ascii2String(text.bytes(), text.chars(), static_cast<unsigned short>(n)); // in place
        ASSERT_EQ(text.view().substr(0, n), bytes);
    }
}

// ---- ozuutils_num2hexstr ----

TEST(FixedHex, padsAndDrops) {
    char text[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(ozuutils_num2hexstr(0x1ABC, text, 2), 2);
    EXPECT_EQ(std::string(text, 4), "BCxx");
    EXPECT_EQ(ozuutils_num2hexstr(0x1ABC, text, 3), 3);
    EXPECT_EQ(std::string(text, 4), "ABCx");
    EXPECT_EQ(ozuutils_num2hexstr(0x1ABC, text, 0), 0);
    EXPECT_EQ(ozuutils_num2hexstr(0x1ABC, text, -1), 65535);
    EXPECT_EQ(ozuutils_num2hexstr(0x1ABC, text, INT_MIN), 0);
    EXPECT_EQ(std::string(text, 4), "ABCx");
}

TEST(FixedHex, agreesWithItsModelAtEveryWidth) {
    Random random(33);
    for (int round = 0; round < 2000; ++round) {
        const std::uint64_t number =
            (static_cast<std::uint64_t>(random()) << 32 | random()) >> random.below(64);
        char digits[40];
        snprintf(digits, sizeof(digits), "%036llX", static_cast<unsigned long long>(number));
        for (int width = 0; width <= 20; ++width) {
            const GuardedBuffer dst(static_cast<std::size_t>(width), kEdges[width % 2]);
            ASSERT_EQ(ozuutils_num2hexstr(number, dst.chars(), width), width);
            ASSERT_EQ(dst.view(), std::string_view(digits + 36 - width));
        }
    }
}

TEST(FixedHex, resultIsCutTo16Bits) {
    const GuardedBuffer dst(65536);
    EXPECT_EQ(ozuutils_num2hexstr(0xFEDCBA9876543210u, dst.chars(), 65536), 0);
    EXPECT_EQ(dst.view(), std::string(65520, '0') + "FEDCBA9876543210");
}

// ---- ozuutils_hexstr2numRetLen ----

TEST(HexNumber, countsItsDigits) {
    unsigned char count = 77;
    EXPECT_EQ(ozuutils_hexstr2numRetLen("1fZ", 10, &count), 31u);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(ozuutils_hexstr2numRetLen("G1", 10, &count), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(ozuutils_hexstr2numRetLen("", 10, &count), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(ozuutils_hexstr2numRetLen("123456789", 10, &count), 0x23456789u);
    EXPECT_EQ(count, 9);
    EXPECT_EQ(ozuutils_hexstr2numRetLen("0x1", 10, &count), 0u);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(ozuutils_hexstr2numRetLen("aBcD", 4, nullptr), 0xABCDu);
    EXPECT_EQ(ozuutils_hexstr2numRetLen("123", 0, &count), 0u);
    EXPECT_EQ(count, 0);
}

TEST(HexNumber, countIsCutTo8Bits) {
    for (const unsigned int length : {255u, 256u, 257u}) {
        const GuardedBuffer digits(std::string(length - 1, '0') + "7");
        unsigned char count = 77;
        EXPECT_EQ(ozuutils_hexstr2numRetLen(digits.chars(), length, &count), 7u);
        EXPECT_EQ(count, length & 0xFF);
    }
}

TEST(HexNumber, everyCharacter) {
    for (int c = 0; c < 256; ++c) {
        const char text[] = {static_cast<char>(c)};
        unsigned char count = 77;
        const bool digit = digitModel(c) >= 0 && digitModel(c) < 16;
        EXPECT_EQ(ozuutils_hexstr2numRetLen(text, 1, &count),
                  digit ? static_cast<unsigned>(digitModel(c)) : 0u);
        EXPECT_EQ(count, digit ? 1 : 0) << c;
    }
}

// ---- ozuutils_data2hexstr ----

TEST(HexText, budgetsASeparatorForEveryByte) {
    const unsigned char data[] = {0x01, 0xAB};
    char text[16];
    EXPECT_STREQ(ozuutils_data2hexstr(data, 2, text, 16, ":"), "01:AB");
    EXPECT_STREQ(ozuutils_data2hexstr(data, 2, text, 5, ":"), "01");
    EXPECT_STREQ(ozuutils_data2hexstr(data, 2, text, 6, ":"), "01");
    EXPECT_STREQ(ozuutils_data2hexstr(data, 2, text, 7, ":"), "01:AB");
    EXPECT_STREQ(ozuutils_data2hexstr(data, 2, text, 5, ""), "01AB");
    EXPECT_STREQ(ozuutils_data2hexstr(data, 2, text, 5, nullptr), "01AB");
    EXPECT_STREQ(ozuutils_data2hexstr(data, 2, text, 1, nullptr), "");
    EXPECT_STREQ(ozuutils_data2hexstr(data, 0, text, 16, ":"), "");
    EXPECT_STREQ(ozuutils_data2hexstr(nullptr, 0, text, 16, ":"), "");
    EXPECT_EQ(ozuutils_data2hexstr(data, 2, nullptr, 16, ":"), nullptr);
}

TEST(HexText, agreesWithItsModelAtEverySize) {
    Random random(34);
    for (const std::string sep : {"", ":", ", ", "%02X", "\xFF\xFE\xFD"}) {
        for (unsigned int len = 0; len <= 9; ++len) {
            for (unsigned int size = 1; size <= 70; ++size) {
                std::string bytes(len, '\0');
                random.fill(bytes.data(), len);
                const std::size_t count = std::min<std::size_t>((size - 1) / (sep.size() + 2), len);
                std::string expected;
                for (std::size_t i = 0; i < count; ++i) {
                    expected += (i > 0 ? sep : "") + hexModel(bytes.substr(i, 1));
                }
                const Edge edge = kEdges[size % 2];
                const GuardedBuffer data(bytes, edge);
                const GuardedBuffer dst(size, edge);
                const GuardedBuffer between(terminated(sep), edge);
                ASSERT_EQ(ozuutils_data2hexstr(data.bytes(), len, dst.chars(), size, between.chars()),
                          dst.chars());
                ASSERT_EQ(dst.text(), expected);
                ASSERT_EQ(dst.view().find_first_not_of('\xA5', expected.size() + 1), std::string_view::npos);
            }
        }
    }
}

// ---- ozuutils_hexStringToBinary ----

TEST(HexToBinary, bothDirections) {
    unsigned char out[3] = {0xEE, 0xEE, 0xEE};
    EXPECT_EQ(ozuutils_hexStringToBinary("0A0B", out, 2, 0), 2);
    EXPECT_EQ(out[0], 0x0A);
    EXPECT_EQ(out[1], 0x0B);
    EXPECT_EQ(ozuutils_hexStringToBinary("0A0B", out, 2, 1), 2);
    EXPECT_EQ(out[0], 0x0B);
    EXPECT_EQ(out[1], 0x0A);
    EXPECT_EQ(ozuutils_hexStringToBinary("fFeD", out, 3, -1), 2);
    EXPECT_EQ(out[0], 0xED);
    EXPECT_EQ(out[1], 0xFF);
    EXPECT_EQ(out[2], 0xEE);
}

TEST(HexToBinary, refusesOddAndLongTexts) {
    unsigned char out[2] = {0xEE, 0xEE};
    EXPECT_EQ(ozuutils_hexStringToBinary("0ABC0", out, 2, 0), -1);
    EXPECT_EQ(ozuutils_hexStringToBinary("0", out, 0, 0), -1);
    EXPECT_EQ(ozuutils_hexStringToBinary("0A0B0C", out, 2, 0), -2);
    EXPECT_EQ(ozuutils_hexStringToBinary("0A", out, 0, 0), -2);
    EXPECT_EQ(ozuutils_hexStringToBinary("0A0B0", out, 1, 0), -1) << "the odd length comes first";
    EXPECT_EQ(ozuutils_hexStringToBinary("", out, 0, 0), 0);
    EXPECT_EQ(ozuutils_hexStringToBinary("", nullptr, 0, 1), 0);
    EXPECT_EQ(out[0], 0xEE);
    EXPECT_EQ(out[1], 0xEE);
}

TEST(HexToBinary, pairThatDoesNotScanLeavesItsByte) {
    unsigned char out[4] = {0xE0, 0xE1, 0xE2, 0xE3};
    EXPECT_EQ(ozuutils_hexStringToBinary("01zz--04", out, 4, 0), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 4), "\x01\xE1\xE2\x04");
    EXPECT_EQ(ozuutils_hexStringToBinary("01zzxx04", out, 4, 1), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 4), "\x04\xE1\xE2\x01");
}

TEST(HexToBinary, everyPairScansAsTheLibraryScansIt) {
    for (int high = 1; high < 256; ++high) {
        for (int low = 1; low < 256; ++low) {
            const char text[] = {static_cast<char>(high), static_cast<char>(low), '\0'};
            unsigned char expected = 0x77;
            static_cast<void>(sscanf(text, "%02hhx", &expected));
            unsigned char out = 0x77;
            ASSERT_EQ(ozuutils_hexStringToBinary(text, &out, 1, 0), 1);
            ASSERT_EQ(out, expected) << text;
        }
    }
    // Among them these.
    unsigned char out[1] = {};
    EXPECT_EQ(ozuutils_hexStringToBinary("1G", out, 1, 0), 1);
    EXPECT_EQ(out[0], 0x01);
    EXPECT_EQ(ozuutils_hexStringToBinary("-1", out, 1, 0), 1);
    EXPECT_EQ(out[0], 0xFF);
    EXPECT_EQ(ozuutils_hexStringToBinary("+a", out, 1, 0), 1);
    EXPECT_EQ(out[0], 0x0A);
}

TEST(HexToBinary, blanksInFrontAreSkipped) {
    unsigned char out[3] = {0xE0, 0xE1, 0xE2};
    EXPECT_EQ(ozuutils_hexStringToBinary("  0A 1", out, 3, 0), 3);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 3), "\x0A\x0A\x01");
    out[1] = 0xE1;
    EXPECT_EQ(ozuutils_hexStringToBinary("0A  ", out, 2, 0), 2);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 2), "\x0A\xE1");
}

TEST(HexToBinary, goesBackWhereItCameFrom) {
    Random random(35);
    for (unsigned int n = 0; n < 200; ++n) {
        std::string bytes(n, '\0');
        random.fill(bytes.data(), n);
        const GuardedBuffer text(terminated(hexModel(bytes)), kEdges[n % 2]);
        const GuardedBuffer out(n, kEdges[n % 2]);
        ASSERT_EQ(ozuutils_hexStringToBinary(text.chars(), out.bytes(), n, 0), static_cast<int>(n));
        ASSERT_EQ(out.view(), bytes);
        ASSERT_EQ(ozuutils_hexStringToBinary(text.chars(), out.bytes(), n + 5, 1), static_cast<int>(n));
        ASSERT_EQ(out.view(), std::string(bytes.rbegin(), bytes.rend()));
    }
}

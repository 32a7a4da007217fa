#include "text_test.h"

#include <cctype>
#include <cerrno>

// ---- ozuutils_strncpy2Lower, ozuutils_strncpy2Upper ----

using CaseCopy = char *(*)(char *, const char *, unsigned int);

struct CaseFunction {
    const char *name;
    CaseCopy copy;
    int (*map)(int);
};

void PrintTo(const CaseFunction &function, std::ostream *out) {
    *out << function.name;
}

class CaseCopies : public testing::TestWithParam<CaseFunction> {};

TEST_P(CaseCopies, refuseNull) {
    char dst[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(GetParam().copy(dst, nullptr, 4), nullptr);
    EXPECT_EQ(GetParam().copy(nullptr, "abc", 4), nullptr);
    EXPECT_EQ(GetParam().copy(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(std::string(dst, 4), "xxxx");
}

TEST_P(CaseCopies, mapEveryByteAsTheLibraryDoes) {
    for (int byte = 1; byte < 256; ++byte) {
        const char src[] = {static_cast<char>(byte), '\0'};
        char dst[2] = {};
        EXPECT_EQ(GetParam().copy(dst, src, 1), dst);
        EXPECT_EQ(static_cast<unsigned char>(dst[0]), GetParam().map(byte)) << byte;
    }
}

TEST_P(CaseCopies, copyAtMostNAndTerminate) {
    const std::string text = "aBc\xE9Z-1";
    for (const Edge edge : kEdges) {
        for (unsigned int n = 0; n <= text.size() + 2; ++n) {
            const std::size_t copied = std::min<std::size_t>(n, text.size());
            const GuardedBuffer src(terminated(text), edge);
            const GuardedBuffer dst(copied + 1, edge);
            EXPECT_EQ(GetParam().copy(dst.chars(), src.chars(), n), dst.chars());
            for (std::size_t i = 0; i < copied; ++i) {
                EXPECT_EQ(dst.bytes()[i], GetParam().map(static_cast<unsigned char>(text[i])));
            }
            EXPECT_EQ(dst.chars()[copied], '\0');
        }
    }
}

TEST_P(CaseCopies, readNoFurtherThanN) {
    const GuardedBuffer src("abcd"sv); // not terminated
    char dst[8] = "-------";
    GetParam().copy(dst, src.chars(), 4);
    EXPECT_EQ(std::string_view(dst).size(), 4u);
    EXPECT_EQ(std::string(dst + 5), "--");
}

TEST_P(CaseCopies, workInPlaceAndWithTheLargestCount) {
    char text[] = "MiXed";
    EXPECT_EQ(GetParam().copy(text, text, 0xFFFFFFFFU), text);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(text[i], GetParam().map("MiXed"[i]));
    }
    EXPECT_EQ(text[5], '\0');
}

INSTANTIATE_TEST_SUITE_P(Both, CaseCopies,
                         testing::Values(CaseFunction{"Lower", ozuutils_strncpy2Lower, tolower},
                                         CaseFunction{"Upper", ozuutils_strncpy2Upper, toupper}),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST(CaseCopy, cutsAfterTwo) {
    char dst[4] = "xyz";
    EXPECT_EQ(ozuutils_strncpy2Upper(dst, "abc", 2), dst);
    EXPECT_EQ(std::string(dst, 4), "AB\0\0"s);
}

// ---- ozuutils_strlcpy ----

TEST(BoundedCopy, agreesWithItsModel) {
    Random random(1);
    for (const Edge edge : kEdges) {
        for (std::size_t length = 0; length < 12; ++length) {
            for (unsigned int size = 0; size < 14; ++size) {
                const std::string text = random.text(length);
                const GuardedBuffer src(terminated(text), edge);
                const GuardedBuffer dst(size, edge);
                EXPECT_EQ(ozuutils_strlcpy(dst.chars(), src.chars(), size), length);
                if (size > 0) {
                    const std::string kept = text.substr(0, size - 1);
                    EXPECT_EQ(dst.view().substr(0, kept.size() + 1), terminated(kept));
                    EXPECT_EQ(dst.view().find_first_not_of('\xA5', kept.size() + 1), std::string_view::npos);
                }
            }
        }
    }
}

TEST(BoundedCopy, takesNullOnBothSides) {
    char dst[] = "abc";
    EXPECT_EQ(ozuutils_strlcpy(nullptr, "hello", 10), 5u);
    EXPECT_EQ(ozuutils_strlcpy(nullptr, nullptr, 10), 0u);
    EXPECT_EQ(ozuutils_strlcpy(dst, nullptr, 0), 0u);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(ozuutils_strlcpy(dst, nullptr, 4), 0u);
    EXPECT_EQ(std::string(dst, 4), "\0bc\0"s);
}

TEST(BoundedCopy, writesNothingForSizeZero) {
    char dst[] = "abc";
    EXPECT_EQ(ozuutils_strlcpy(dst, "hello", 0), 5u);
    EXPECT_STREQ(dst, "abc");
}

TEST(BoundedCopy, survivesOverlap) {
    char up[] = "0123456789";
    EXPECT_EQ(ozuutils_strlcpy(up + 2, up, 9), 10u);
    EXPECT_STREQ(up, "0101234567");
    char down[] = "0123456789";
    EXPECT_EQ(ozuutils_strlcpy(down, down + 3, 11), 7u);
    EXPECT_STREQ(down, "3456789");
    char same[] = "0123456789";
    EXPECT_EQ(ozuutils_strlcpy(same, same, 5), 10u);
    EXPECT_STREQ(same, "0123");
}

TEST(BoundedCopy, takesTheLargestSize) {
    char dst[8] = "-------";
    EXPECT_EQ(ozuutils_strlcpy(dst, "abc", 0xFFFFFFFFU), 3u);
    EXPECT_EQ(std::string(dst, 8), "abc\0---\0"s);
}

// ---- ozuutils_FixedStringCopyAndTrimRight ----

TEST(TrimmedField, dropsSpacesAtTheEnd) {
    char dst[8];
    ozuutils_FixedStringCopyAndTrimRight(dst, 8, "AB  ", 4);
    EXPECT_STREQ(dst, "AB");
    ozuutils_FixedStringCopyAndTrimRight(dst, 8, "    ", 4);
    EXPECT_STREQ(dst, "");
    ozuutils_FixedStringCopyAndTrimRight(dst, 8, " A B ", 5);
    EXPECT_STREQ(dst, " A B");
    ozuutils_FixedStringCopyAndTrimRight(dst, 1, "AB", 2);
    EXPECT_STREQ(dst, "");
    ozuutils_FixedStringCopyAndTrimRight(dst, 8, "AB\t ", 4);
    EXPECT_STREQ(dst, "AB\t");
}

TEST(TrimmedField, worksInPlace) {
    char field[] = "AB  ";
    ozuutils_FixedStringCopyAndTrimRight(field, sizeof(field), field, 4);
    EXPECT_EQ(std::string(field, sizeof(field)), "AB\0\0\0"s);
}

TEST(TrimmedField, agreesWithItsModel) {
    Random random(2);
    const std::string alphabet = "A \t\0"s;
    for (int round = 0; round < 4000; ++round) {
        const Edge edge = kEdges[round % 2];
        std::string field(random() % 9, ' ');
        for (char &c : field) {
            c = alphabet[random() % alphabet.size()];
        }
        const auto size = static_cast<unsigned int>(1 + random() % 10);
        const std::size_t copied = std::min<std::size_t>(size - 1, field.size());
        std::string expected = field.substr(0, copied);
        while (!expected.empty() && expected.back() == ' ') {
            expected.pop_back();
        }
        expected.resize(copied + 1, '\0'); // every trimmed space becomes a zero byte

        const GuardedBuffer src(field, edge);
        const GuardedBuffer dst(size, edge);
        ozuutils_FixedStringCopyAndTrimRight(dst.chars(), size, src.chars(),
                                             static_cast<unsigned int>(field.size()));
        ASSERT_EQ(dst.view().substr(0, copied + 1), expected);
        ASSERT_EQ(dst.view().find_first_not_of('\xA5', copied + 1), std::string_view::npos);
    }
}

// ---- ozuutils_getShortUpperModName ----

TEST(ModuleName, isCutPaddedAndUpperCase) {
    for (const Edge edge : kEdges) {
        for (unsigned int size = 1; size < 12; ++size) {
            const GuardedBuffer name("alarmd\0"sv, edge);
            const GuardedBuffer dst(size, edge);
            EXPECT_EQ(ozuutils_getShortUpperModName(dst.chars(), name.chars(), size), dst.chars());
            std::string expected = "ALARMD"s.substr(0, size - 1);
            expected.resize(size, '\0');
            EXPECT_EQ(dst.view(), expected);
        }
    }
    EXPECT_EQ(ozuutils_getShortUpperModName(nullptr, "alarmd", 8), nullptr);
    EXPECT_EQ(ozuutils_getShortUpperModName(nullptr, nullptr, 8), nullptr);
}

TEST(ModuleName, readsNoMoreOfTheNameThanItKeeps) {
    const GuardedBuffer name("abc"sv); // not terminated
    char dst[4];
    EXPECT_STREQ(ozuutils_getShortUpperModName(dst, name.chars(), 4), "ABC");
}

TEST(ModuleName, defaultsToTheRunningProgram) {
    std::string expected = program_invocation_short_name;
    for (char &c : expected) {
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    }
    for (unsigned int size = 1; size <= expected.size() + 3; ++size) {
        const GuardedBuffer dst(size, kEdges[size % 2]);
        EXPECT_EQ(ozuutils_getShortUpperModName(dst.chars(), nullptr, size), dst.chars());
        std::string kept = expected.substr(0, size - 1);
        kept.resize(size, '\0');
        EXPECT_EQ(dst.view(), kept);
    }
    char empty[2] = {'x', 'x'};
    EXPECT_STREQ(ozuutils_getShortUpperModName(empty, "", 2), "");
    EXPECT_EQ(empty[1], '\0');
}

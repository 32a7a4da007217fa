#include "text_test.h"

#include <climits>

// ---- ozuutils_isStringIsStandardAscii ----

TEST(StandardAscii, everyByteAtEveryPlace) {
    EXPECT_EQ(ozuutils_isStringIsStandardAscii(nullptr), 0u);
    EXPECT_EQ(ozuutils_isStringIsStandardAscii(""), 1u);
    for (int byte = 1; byte < 256; ++byte) {
        for (std::size_t length = 1; length < 20; ++length) {
            for (const std::size_t at : {std::size_t{0}, length / 2, length - 1}) {
                std::string content(length, 'a');
                content[at] = static_cast<char>(byte);
                const GuardedBuffer text(terminated(content));
                ASSERT_EQ(ozuutils_isStringIsStandardAscii(text.chars()), byte < 128 ? 1u : 0u);
            }
        }
    }
    const GuardedBuffer cut("abc\0\xFF"sv);
    EXPECT_EQ(ozuutils_isStringIsStandardAscii(cut.chars()), 1u);
}

// ---- ozuutils_searchInBuf ----

TEST(SearchInBuffer, findsTheFirst) {
    const unsigned char buf[] = {1, 2, 0, 2, 0, 3};
    const unsigned char twoZero[] = {2, 0};
    EXPECT_EQ(ozuutils_searchInBuf(buf, twoZero, 6, 2), buf + 1);
    EXPECT_EQ(ozuutils_searchInBuf(buf, buf, 6, 6), buf);
    EXPECT_EQ(ozuutils_searchInBuf(buf, buf + 5, 6, 1), buf + 5);
    EXPECT_EQ(ozuutils_searchInBuf(buf, buf + 5, 5, 1), nullptr);
    EXPECT_EQ(ozuutils_searchInBuf(buf, buf, 5, 6), nullptr);
    EXPECT_EQ(ozuutils_searchInBuf(nullptr, nullptr, 0, 1), nullptr);
    EXPECT_EQ(ozuutils_searchInBuf(buf, nullptr, 5, UINT_MAX), nullptr);
}

TEST(SearchInBuffer, agreesWithTryingEveryStart) {
    Random random(42);
    for (int round = 0; round < 20000; ++round) {
        const Edge edge = kEdges[round % 2];
        const std::string alphabet = round % 3 == 0 ? std::string("\0\xFF", 2) : std::string("ab\0", 3);
        const std::string content = random.text(random.below(round % 10 == 0 ? 400 : 24), alphabet);
        const std::string wanted = random.text(1 + random.below(round % 10 == 0 ? 80 : 6), alphabet);
        const GuardedBuffer buf(content, edge);
        const GuardedBuffer pattern(wanted, edge);
        const unsigned char *expected = nullptr;
        for (std::size_t start = 0; start + wanted.size() <= content.size(); ++start) {
            if (content.compare(start, wanted.size(), wanted) == 0) {
                expected = buf.bytes() + start;
                break;
            }
        }
        ASSERT_EQ(ozuutils_searchInBuf(buf.bytes(), pattern.bytes(),
                                       static_cast<unsigned int>(content.size()),
                                       static_cast<unsigned int>(wanted.size())),
                  expected);
    }
}

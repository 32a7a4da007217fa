#include "text_test.h"

// ---- ozuutils_replaceSubstrInStr ----

TEST(ReplaceSubstring, replacesTheFirstOccurrenceOnly) {
    char text[16] = "a-b-c";
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text, "-", "+", 16), 0u);
    EXPECT_STREQ(text, "a+b-c");
}

TEST(ReplaceSubstring, refusesWhatItCannotLookFor) {
    char text[8] = "a-b";
    EXPECT_EQ(ozuutils_replaceSubstrInStr(nullptr, "-", "+", 8), 4u);
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text, nullptr, "+", 8), 4u);
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text, "", "+", 8), 4u);
    EXPECT_EQ(ozuutils_replaceSubstrInStr(nullptr, nullptr, nullptr, 0), 4u);
    EXPECT_STREQ(text, "a-b");
}

TEST(ReplaceSubstring, deletesWithoutReplacement) {
    char text[8] = "a--b";
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text, "--", nullptr, 8), 0u);
    EXPECT_STREQ(text, "ab");
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text, "ab", "", 8), 0u);
    EXPECT_STREQ(text, "");
}

TEST(ReplaceSubstring, takesAReplacementInsideTheText) {
    char text[16] = "abc";
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text, "b", text, 16), 0u);
    EXPECT_STREQ(text, "aabcc");
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text, text + 3, text + 2, 16), 0u);
    EXPECT_STREQ(text, "aabbcc");
}

TEST(ReplaceSubstring, agreesWithItsModelInAnExactBuffer) {
    Random random(11);
    for (int round = 0; round < 6000; ++round) {
        const Edge edge = kEdges[round % 2];
        const std::string text = random.text(random.below(10), "ab\xFF");
        const std::string find = random.text(1 + random.below(3), "ab\xFF");
        const std::string replacement = random.text(random.below(5), "xab");
        std::string expected = text;
        if (const auto at = text.find(find); at != std::string::npos) {
            expected.replace(at, find.size(), replacement);
        }
        const std::size_t size = std::max(text.size(), expected.size()) + 1;
        const GuardedBuffer buffer(size, edge);
        buffer.set(terminated(text));
        const GuardedBuffer needle(terminated(find), edge);
        const GuardedBuffer put(terminated(replacement), edge);
        ASSERT_EQ(ozuutils_replaceSubstrInStr(buffer.chars(), needle.chars(), put.chars(),
                                              static_cast<unsigned int>(size)),
                  0u);
        ASSERT_EQ(buffer.text(), expected) << text << " " << find << " " << replacement;
    }
}

TEST(ReplaceSubstring, leavesATextWithoutOccurrenceAlone) {
    const GuardedBuffer text("abc\0rest"sv);
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text.chars(), "rest", "x", 8), 0u);
    EXPECT_EQ(text.view(), "abc\0rest"sv);
    EXPECT_EQ(ozuutils_replaceSubstrInStr(text.chars(), "abcd", "x", 8), 0u);
    EXPECT_EQ(text.view(), "abc\0rest"sv);
}

// ---- replace_char_from_string ----

TEST(ReplaceCharacter, everyByteByEveryOther) {
    for (int from = -300; from <= 300; ++from) {
        std::string all(255, '\0');
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i] = static_cast<char>(i + 1);
        }
        const GuardedBuffer text(terminated(all), kEdges[from & 1]);
        const int to = (from * 7) & 0x1FF;
        replace_char_from_string(from, to, text.chars());
        for (int i = 1; i <= 255; ++i) {
            const int expected = i == from ? to & 0xFF : i;
            ASSERT_EQ(text.bytes()[i - 1], expected) << from;
        }
        ASSERT_EQ(text.bytes()[255], 0);
    }
}

TEST(ReplaceCharacter, goesOnAfterWritingZero) {
    char text[] = "a.b.c";
    replace_char_from_string('.', 0, text);
    EXPECT_EQ(std::string(text, 6), "a\0b\0c\0"s);
    replace_char_from_string(0, 'x', text); // the length is 1 now
    EXPECT_EQ(std::string(text, 6), "a\0b\0c\0"s);
}

TEST(ReplaceCharacter, ignoresNull) {
    replace_char_from_string('a', 'b', nullptr);
    char text[] = "";
    replace_char_from_string(0, 'b', text);
    EXPECT_EQ(text[0], '\0');
}

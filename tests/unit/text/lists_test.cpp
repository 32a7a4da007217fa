#include "captured.h"
#include "text_test.h"

#include <unistd.h>

#include <cstdio>
#include <functional>

namespace {

// What goes to descriptor 1 through stdio while the action runs.
std::string printed(const std::function<void()> &action) {
    ozu::test::captureStdout();
    action();
    return ozu::test::capturedStdout();
}

struct Removal {
    unsigned int result = 0;
    std::string list;
    std::string trace;
    bool operator==(const Removal &) const = default;
};

void PrintTo(const Removal &removal, std::ostream *out) {
    *out << removal.result << " \"" << removal.list << "\" trace \"" << removal.trace << '"';
}

// Takes the item out as one would by hand: split, find, join the bytes around it.
Removal removalModel(const std::string &list, const std::string &item) {
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t end = list.find(',', start);
        end = end == std::string::npos ? list.size() : end;
        if (end > start && list.substr(start, end - start) == item) {
            const std::size_t left = list.size() - start - item.size() + 1;
            std::string rest = list;
            if (start > 0) {
                rest.erase(start - 1, item.size() + 1);
            } else {
                rest.erase(0, item.size() + 1);
            }
            return {1, rest, "\n--" + std::to_string(left) + "--"};
        }
        start = end + 1;
    }
    return {0, list, ""};
}

Removal remove(const std::string &list, const std::string &item, Edge edge, std::size_t slack = 0) {
    const GuardedBuffer buffer(list.size() + 1 + slack, edge, 0x5A);
    buffer.set(terminated(list));
    // The item's own buffer ends behind its terminator.
    const GuardedBuffer wanted(terminated(item), edge);
    const auto size = static_cast<unsigned int>(std::max(buffer.size(), item.size() + 1));
    Removal removal;
    removal.trace = printed([&] {
        removal.result = ozuutils_removeFromCommaSeparatedStringList(buffer.chars(), wanted.chars(), size);
    });
    removal.list = std::string(buffer.text());
    EXPECT_EQ(buffer.view().find_first_not_of('\x5A', list.size() + 1), std::string_view::npos);
    return removal;
}

} // namespace

// ---- ozuutils_addToCommaSeparatedStringList ----

TEST(ListAdd, appendsWithAComma) {
    char list[8] = "";
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "x", 8), 1u);
    EXPECT_STREQ(list, "x");
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "y", 8), 1u);
    EXPECT_STREQ(list, "x,y");
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "x", 8), 1u);
    EXPECT_STREQ(list, "x,y,x");
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "yz", 8), 0u);
    EXPECT_STREQ(list, "x,y,x");
}

TEST(ListAdd, refusesNullAndEmptyItems) {
    char list[8] = "x";
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(nullptr, "x", 8), 0u);
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, nullptr, 8), 0u);
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "", 8), 0u);
    EXPECT_STREQ(list, "x");
}

TEST(ListAdd, countsTheTerminator) {
    char list[8] = "x";
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "yz", 4), 0u);
    EXPECT_STREQ(list, "x");
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "yz", 5), 1u);
    EXPECT_STREQ(list, "x,yz");
}

TEST(ListAdd, doesNotReadItemsAsFormats) {
    char list[16] = "";
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "%s%n", 16), 1u);
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "%d", 16), 1u);
    EXPECT_STREQ(list, "%s%n,%d");
}

TEST(ListAdd, agreesWithItsModelAtEverySize) {
    for (const std::string list : {"", "a", "ab,c", ",", "a,"}) {
        for (const std::string item : {"x", "xy", "x,y", ",", "\xFF\xFE"}) {
            const std::string joined = list.empty() ? item : list + "," + item;
            for (std::size_t size = list.size() + 1; size <= joined.size() + 3; ++size) {
                for (const Edge edge : kEdges) {
                    const GuardedBuffer buffer(size, edge);
                    buffer.set(terminated(list));
                    const GuardedBuffer added(terminated(item), edge);
                    const bool fits = joined.size() < size;
                    ASSERT_EQ(ozuutils_addToCommaSeparatedStringList(buffer.chars(), added.chars(),
                                                                     static_cast<unsigned int>(size)),
                              fits ? 1u : 0u);
                    ASSERT_EQ(buffer.text(), fits ? joined : list);
                    ASSERT_EQ(buffer.view().find_first_not_of('\xA5', (fits ? joined : list).size() + 1),
                              std::string_view::npos);
                }
            }
        }
    }
}

TEST(ListAdd, sizeBelowTheListIsTooSmall) {
    char list[8] = "abc";
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "x", 0), 0u);
    EXPECT_EQ(ozuutils_addToCommaSeparatedStringList(list, "x", 2), 0u);
    EXPECT_STREQ(list, "abc");
}

// ---- ozuutils_removeFromCommaSeparatedStringList ----

TEST(ListRemove, takesOutOneItemAndOneComma) {
    EXPECT_EQ(remove("a,b,c", "b", Edge::Back), (Removal{1, "a,c", "\n--3--"}));
    EXPECT_EQ(remove("a,b,c", "a", Edge::Back), (Removal{1, "b,c", "\n--5--"}));
    EXPECT_EQ(remove("a,b,c", "c", Edge::Back), (Removal{1, "a,b", "\n--1--"}));
    EXPECT_EQ(remove("a", "a", Edge::Back), (Removal{1, "", "\n--1--"}));
    EXPECT_EQ(remove("a,b,a,b", "b", Edge::Back), (Removal{1, "a,a,b", "\n--5--"}));
}

TEST(ListRemove, matchesWholeItemsOnly) {
    EXPECT_EQ(remove("a,b", "ab", Edge::Back), (Removal{0, "a,b", ""}));
    EXPECT_EQ(remove("ab,a", "a", Edge::Back), (Removal{1, "ab", "\n--1--"}));
    EXPECT_EQ(remove("a,b", "a,b", Edge::Back), (Removal{0, "a,b", ""}));
    EXPECT_EQ(remove("a,b", "", Edge::Back), (Removal{0, "a,b", ""}));
    EXPECT_EQ(remove("a,b", "A", Edge::Back), (Removal{0, "a,b", ""}));
    EXPECT_EQ(remove("", "a", Edge::Back), (Removal{0, "", ""}));
    EXPECT_EQ(remove("a,b", "a-very-long-item", Edge::Back), (Removal{0, "a,b", ""}));
}

TEST(ListRemove, skipsEmptyFields) {
    EXPECT_EQ(remove(",,a,b", "a", Edge::Back), (Removal{1, ",,b", "\n--3--"}));
    EXPECT_EQ(remove("a,,b", "a", Edge::Back), (Removal{1, ",b", "\n--4--"}));
    EXPECT_EQ(remove("a,", "a", Edge::Back), (Removal{1, "", "\n--2--"}));
    EXPECT_EQ(remove(",a", "a", Edge::Back), (Removal{1, "", "\n--1--"}));
    EXPECT_EQ(remove(",,", "", Edge::Back), (Removal{0, ",,", ""}));
}

TEST(ListRemove, refusesNullAndUnterminated) {
    char list[] = "a,b";
    char item[] = "a";
    const auto none = printed([&] {
        EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(nullptr, item, 4), 0u);
        EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(list, nullptr, 4), 0u);
        EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(list, item, 0), 0u);
        EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(list, item, 3), 0u);
        const GuardedBuffer open("a,b"sv);
        EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(open.chars(), item, 3), 0u);
        const GuardedBuffer openItem("aaaa"sv);
        EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(list, openItem.chars(), 4), 0u);
    });
    EXPECT_EQ(none, "");
    EXPECT_STREQ(list, "a,b");
    EXPECT_EQ(printed([&] { EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(list, item, 4), 1u); }),
              "\n--3--");
    EXPECT_EQ(printed([&] { EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(list, item, 4), 0u); }),
              "");
    EXPECT_STREQ(list, "b");
}

TEST(ListRemove, leavesTheBytesBehindTheListAlone) {
    char list[] = "ab,c\0XY";
    EXPECT_EQ(printed([&] { EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(list, "ab", 8), 1u); }),
              "\n--3--");
    EXPECT_EQ(std::string(list, 8), "c\0,c\0XY\0"s);
}

TEST(ListRemove, leavesTheCallersTokenizerAlone) {
    char words[] = "one two three";
    char list[] = "a,b,c";
    EXPECT_STREQ(strtok(words, " "), "one"); // NOLINT(concurrency-mt-unsafe): its state is what is looked at
    EXPECT_EQ(printed([&] { EXPECT_EQ(ozuutils_removeFromCommaSeparatedStringList(list, "b", 6), 1u); }),
              "\n--3--");
    EXPECT_STREQ(strtok(nullptr, " "), "two"); // NOLINT(concurrency-mt-unsafe)
}

TEST(ListRemove, agreesWithItsModel) {
    Random random(12);
    for (int round = 0; round < 3000; ++round) {
        const std::string list = random.text(random.below(9), "ab,,\xFF");
        const std::string item = random.text(random.below(3), "ab\xFF");
        ASSERT_EQ(remove(list, item, kEdges[round % 2], random.below(3)), removalModel(list, item))
            << list << " without " << item;
    }
}

TEST(ListRemove, worksOnLongLists) {
    std::string list;
    for (int i = 0; i < 20000; ++i) {
        list += "item" + std::to_string(i) + ",";
    }
    EXPECT_EQ(remove(list, "item19999", Edge::Back), removalModel(list, "item19999"));
    EXPECT_EQ(remove(list, "item0", Edge::Front), removalModel(list, "item0"));
}

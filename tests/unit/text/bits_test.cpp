#include "text_test.h"

#include <climits>

namespace {

std::vector<unsigned int> numbers() {
    std::vector<unsigned int> all = {0, 0xFFFFFFFF, 0xAAAAAAAA, 0x55555555};
    for (unsigned int bit = 0; bit < 32; ++bit) {
        all.insert(all.end(), {1U << bit, (1U << bit) - 1, ~(1U << bit)});
    }
    return ozu::test::withRandomNumbers(all, 41, 1000);
}

} // namespace

TEST(Bits, countedAndFoundOneByOne) {
    for (const unsigned int v : numbers()) {
        unsigned int count = 0;
        unsigned int highest = 0;
        for (unsigned int bit = 0; bit < 32; ++bit) {
            if ((v >> bit) % 2 == 1) {
                ++count;
                highest = bit;
            }
        }
        ASSERT_EQ(countSetBits(v), count) << v;
        ASSERT_EQ(msbSetBitNumber(v), highest) << v;
    }
    EXPECT_EQ(msbSetBitNumber(0), 0);
    EXPECT_EQ(msbSetBitNumber(1), 0);
    EXPECT_EQ(msbSetBitNumber(0x80000000), 31);
}

TEST(Bits, setAndCleared) {
    for (const unsigned int v : numbers()) {
        for (unsigned int bit = 0; bit < 32; ++bit) {
            const bool isSet = (v >> bit) % 2 == 1;
            ASSERT_EQ(SetBit(v, bit), isSet ? v : v + (1U << bit));
            ASSERT_EQ(ClearBit(v, bit), isSet ? v - (1U << bit) : v);
        }
        for (const unsigned int bit : {32U, 33U, 63U, 64U, 255U, 256U, 0x80000000U, UINT_MAX}) {
            ASSERT_EQ(SetBit(v, bit), v);
            ASSERT_EQ(ClearBit(v, bit), v);
        }
    }
    EXPECT_EQ(SetBit(5, 32), 5u);
}

TEST(SwapBytes, atEveryAlignment) {
    for (std::size_t offset = 0; offset < 4; ++offset) {
        for (const Edge edge : kEdges) {
            const GuardedBuffer memory(offset + 4, edge);
            memory.set(std::string(offset, '-') + "\x01\x02\xFE\xFF");
            swap_ptr32(memory.bytes() + offset);
            EXPECT_EQ(memory.view(), std::string(offset, '-') + "\xFF\xFE\x02\x01");
        }
    }
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

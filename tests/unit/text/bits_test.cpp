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

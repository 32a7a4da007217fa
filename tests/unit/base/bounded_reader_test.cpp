#include <base/bounded_reader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

using ozu::BoundedReader;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::array<std::uint8_t, 8> kBytes = {1, 2, 3, 4, 5, 6, 7, 8};

std::vector<std::uint8_t> copy(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

} // namespace

TEST(BoundedReader, numbersInNetworkOrder) {
    BoundedReader reader(kBytes);
    EXPECT_EQ(reader.u8(), 1);
    EXPECT_EQ(reader.u16be(), 0x0203);
    EXPECT_EQ(reader.u32be(), 0x04050607u);
    EXPECT_EQ(reader.position(), 7u);
    EXPECT_EQ(reader.remaining(), 1u);
    EXPECT_TRUE(reader.ok());
}

TEST(BoundedReader, recordInTheMachinesOrder) {
    struct Record {
        std::uint16_t first;
        std::uint8_t second;
        std::uint8_t third;
    };
    BoundedReader reader(kBytes);
    reader.skip(1);
    std::uint16_t expected = 0;
    std::memcpy(&expected, kBytes.data() + 1, sizeof expected);
    const auto record = reader.record<Record>();
    EXPECT_EQ(record.first, expected);
    EXPECT_EQ(record.second, 4);
    EXPECT_EQ(record.third, 5);
    EXPECT_EQ(reader.position(), 5u);
}

TEST(BoundedReader, endIsNotBeyond) {
    BoundedReader reader(kBytes);
    EXPECT_THAT(copy(reader.bytes(8)), testing::ElementsAreArray(kBytes));
    EXPECT_TRUE(reader.ok());
    EXPECT_THAT(copy(reader.bytes(0)), IsEmpty());
    EXPECT_TRUE(reader.ok());
}

// Every way of reading one byte too far: zeros, nothing moves, and it stays refused.
TEST(BoundedReader, tooFarIsRefusedForGood) {
    const auto refused = [](auto read) {
        BoundedReader reader(kBytes);
        reader.skip(7);
        read(reader);
        EXPECT_FALSE(reader.ok());
        EXPECT_EQ(reader.position(), 7u);
        EXPECT_EQ(reader.u8(), 0) << "although one is left";
        EXPECT_FALSE(reader.ok());
    };
    refused([](BoundedReader &reader) { EXPECT_EQ(reader.u16be(), 0); });
    refused([](BoundedReader &reader) { EXPECT_EQ(reader.u32be(), 0u); });
    refused([](BoundedReader &reader) { EXPECT_EQ(reader.record<std::uint16_t>(), 0); });
    refused([](BoundedReader &reader) { EXPECT_THAT(copy(reader.bytes(2)), IsEmpty()); });
    refused([](BoundedReader &reader) { reader.skip(SIZE_MAX); });
    refused([](BoundedReader &reader) { reader.seek(9); });
    refused([](BoundedReader &reader) { reader.seek(SIZE_MAX); });
    BoundedReader empty({});
    EXPECT_EQ(empty.u8(), 0);
    EXPECT_FALSE(empty.ok());
}

TEST(BoundedReader, seekGoesAnywhereInside) {
    BoundedReader reader(kBytes);
    reader.skip(5);
    reader.seek(1);
    EXPECT_EQ(reader.u8(), 2);
    reader.seek(8);
    EXPECT_EQ(reader.remaining(), 0u);
    EXPECT_TRUE(reader.ok());
}

TEST(BoundedReader, paddingEndsAtTheEnd) {
    std::vector<std::size_t> positions;
    for (std::size_t at = 0; at < 8; ++at) {
        BoundedReader reader(std::span<const std::uint8_t>(kBytes).first(7));
        reader.skip(at);
        reader.skipPadding(4);
        EXPECT_TRUE(reader.ok());
        positions.push_back(reader.position());
    }
    EXPECT_THAT(positions, ElementsAre(0, 4, 4, 4, 4, 7, 7, 7));
}

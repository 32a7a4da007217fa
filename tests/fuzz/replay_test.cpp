// Feeds each file of a fuzz target's corpus to the target.

#include "fake_platform.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

class OZU_CORPUS_SUITE : public ozu::test::PlatformTest {};

} // namespace

TEST_F(OZU_CORPUS_SUITE, everyFilePasses) {
    int files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(OZU_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        ASSERT_TRUE(file.is_open()) << entry.path();
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        // A copy of exactly this size, so that a read behind it shows.
        const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
        ozu::test::platform() = ozu::test::FakePlatform();
        LLVMFuzzerTestOneInput(input.data(), input.size());
        ++files;
    }
    EXPECT_GT(files, 0) << "no corpus in " << OZU_CORPUS;
}

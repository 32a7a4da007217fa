// Feeds each target of the families its corpus, and inputs made from it at random.

#include "targets.h"

#include "attack_form.h"
#include "random_numbers.h"
#include "resource_count.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#ifdef OZU_FAKE_PLATFORM
#include <ozu_fake_platform.h>
#endif

namespace {

using Bytes = std::vector<std::uint8_t>;

std::vector<Bytes> corpusOf(const std::string &name) {
    std::vector<Bytes> all;
    const std::filesystem::path folder = std::filesystem::path(OZU_CORPUS) / name;
    if (std::filesystem::exists(folder)) {
        for (const auto &entry : std::filesystem::directory_iterator(folder)) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            all.emplace_back(bytes.begin(), bytes.end());
        }
    }
    return all;
}

Bytes changed(const Bytes &seed, ozu::test::Random &random) {
    Bytes bytes = seed;
    for (std::uint32_t change = 1 + random.below(4); change > 0; --change) {
        const std::size_t at = random.below(static_cast<std::uint32_t>(bytes.size()) + 1);
        const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        if (random.below(3) == 0 || at == bytes.size()) {
            bytes.insert(place, random.below(4) == 0 ? std::uint8_t{0} : random.byte());
        } else if (random.below(3) == 0) {
            bytes.erase(place);
        } else {
            bytes[at] = random.byte();
        }
    }
    return bytes;
}

class Families : public testing::TestWithParam<ozu::fuzz::Target> {
  protected:
    static void run(const Bytes &bytes) {
        ozu::fuzz::Input input(bytes);
        GetParam().run(input);
    }
};

} // namespace

// OZU_ATTACK=long makes 200,000 random inputs, or as many as OZU_TRIALS says: descriptors and memory are the
// same after them. More, and guided by coverage, is what libFuzzer makes.
TEST_P(Families, corpusAndRandomInputsPass) {
    constexpr int kWarm = 100;
    const char *wanted = getenv("OZU_TRIALS");
    const int trials = wanted != nullptr           ? std::atoi(wanted)
                       : ozu::test::isLongAttack() ? 200000 / GetParam().cost
                                                   : 500;
#ifdef OZU_FAKE_PLATFORM
    ozu_fake_reset();
    ozu_fake_record(0);
#endif
    const std::vector<Bytes> corpus = corpusOf(GetParam().name);
    ASSERT_FALSE(corpus.empty()) << "no corpus for " << GetParam().name;
    for (const Bytes &bytes : corpus) {
        run(bytes);
    }
    ozu::test::Random random(20261122);
    int opened = 0;
    long resident = 0;
    for (int i = 0; i < trials; ++i) {
        if (i == kWarm) {
            opened = ozu::test::openDescriptors();
            resident = ozu::test::residentPages();
        }
        run(changed(corpus[random.below(static_cast<std::uint32_t>(corpus.size()))], random));
    }
    EXPECT_EQ(ozu::test::openDescriptors(), opened);
// Sanitizers keep freed memory, and look for leaks themselves. An emulator's own memory grows.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    if (getenv("OZU_TEST_EMULATED") == nullptr) {
        EXPECT_LE(ozu::test::residentPages(), resident + 512); // two megabytes
    }
#endif
    printf("attack: %s: %d trials, 0 failures, %ld pages more\n", GetParam().name, trials,
           ozu::test::residentPages() - resident);
}

INSTANTIATE_TEST_SUITE_P(, Families,
                         testing::ValuesIn(ozu::fuzz::kTargets.begin(), ozu::fuzz::kTargets.end()),
                         [](const auto &target) { return std::string(target.param.name); });

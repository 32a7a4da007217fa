// What the tests of the conversions share.
#pragma once

#include <utils_ozu/text.h>

#include "guarded_buffer.h"
#include "random_numbers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ozu::test {

// A text is put directly before an unreadable page as well as directly behind one.
inline constexpr Edge kEdges[] = {Edge::Front, Edge::Back};

// The text with its terminator.
inline std::string terminated(std::string text) {
    text.push_back('\0');
    return text;
}

// The numbers given and random ones of all lengths.
inline std::vector<unsigned int> withRandomNumbers(std::vector<unsigned int> numbers, unsigned int seed,
                                                   int count) {
    Random random(seed);
    for (int i = 0; i < count; ++i) {
        numbers.push_back(random.ofAnyLength());
    }
    return numbers;
}

} // namespace ozu::test

using ozu::test::Edge;
using ozu::test::GuardedBuffer;
using ozu::test::kEdges;
using ozu::test::Random;
using ozu::test::terminated;
using namespace std::string_literals;
using namespace std::string_view_literals;

// Whether the tests run on an emulated machine, where what takes a second elsewhere takes minutes.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <iostream>

namespace ozu::test {

// OZU_TEST_EMULATED says so; the preset of the panel's machine sets it.
inline bool emulated() {
    return std::getenv("OZU_TEST_EMULATED") != nullptr;
}

// The stride of a sweep: the coarser one on an emulated machine, which is told.
inline std::size_t sweepStride(std::size_t usual, std::size_t underEmulation) {
    const std::size_t stride = emulated() ? underEmulation : usual;
    std::cout << "sweep: every step of " << stride << (emulated() ? " (emulated machine)\n" : "\n");
    return stride;
}

} // namespace ozu::test

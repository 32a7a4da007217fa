// What the tests of the state queries share: the clock that the library asks, and how a query begins.
#pragma once

#include "fake_platform.h"
#include "random_numbers.h"

#include <cstdint>

namespace ozu::test {

// Every query's first call.
inline constexpr const char *kFetch = "ozudb_getSharedMemory(0)";

// What time() answers; each call is an entry of the journal.
extern std::int64_t now;
inline constexpr std::int64_t kUsualNow = 1'700'000'000;

// A platform test with the usual time.
class ClockTest : public PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        now = kUsualNow;
    }
};

} // namespace ozu::test

using ozu::test::kFetch;
using ozu::test::platform;
using testing::ElementsAre;

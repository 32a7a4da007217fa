// Writes the coverage counts while the test's wrapped calls still work: at the process's end their variables
// are gone.
#include <gtest/gtest.h>

extern "C" void __gcov_dump(void);

namespace {

class CoverageEnd : public testing::Environment {
  public:
    void TearDown() override { __gcov_dump(); }
};

[[maybe_unused]] const auto *const kCoverageEnd = testing::AddGlobalTestEnvironment(new CoverageEnd);

} // namespace

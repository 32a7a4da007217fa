// System calls that fail on demand, for tests that wrap them.
//
// A wrapper asks injected().enter("name", "name(arguments)") and returns -1 when that is true; errno is set.
#pragma once

#include "fake_platform.h"

#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ozu::test {

class InjectedCalls {
  public:
    // The nth call (from 1) of this function from now on fails with this error; 0 is every call.
    void fail(const std::string &name, int error, int nth = 0) {
        plans_[name].push_back({error, nth == 0 ? 0 : counts_[name] + nth});
    }
    // Enters the call into the journal; true when it has to fail.
    bool enter(const std::string &name, const std::string &text) {
        platform().journal.push_back(text);
        const int count = ++counts_[name];
        for (const auto &plan : plans_[name]) {
            if (plan.call == 0 || plan.call == count) {
                errno = plan.error;
                return true;
            }
        }
        return false;
    }
    [[nodiscard]] int count(const std::string &name) const {
        const auto found = counts_.find(name);
        return found == counts_.end() ? 0 : found->second;
    }

  private:
    struct Plan {
        int error;
        int call;
    };
    std::map<std::string, std::vector<Plan>> plans_;
    std::map<std::string, int> counts_;
};

inline InjectedCalls &injected() {
    static InjectedCalls calls;
    return calls;
}

// Starts each test without injected failures.
class InjectedTest : public PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        injected() = InjectedCalls();
    }
};

} // namespace ozu::test

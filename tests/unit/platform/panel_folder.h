// A data folder of its own for each test, and child processes that share it.
#pragma once

#include <ozu_platform_tools.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace ozu::test {

class PanelFolder : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    [[nodiscard]] const std::string &folder() const { return folder_; }
    // As if the panel had started anew: shared memory is empty, files are kept.
    void boot();

  private:
    std::string folder_;
};

// Drops what this process has opened of the current data folder.
void closePlatform();

// Runs the body in a child, which ends with the body's result. The child has nothing open of the platform.
pid_t startChild(const std::function<int()> &body);
// Its exit status, or minus the signal that ended it.
int waitForChild(pid_t child);
int inChild(const std::function<int()> &body);

// The system tells when the holder of a lock has died; emulated machines do not.
bool deathOpensLocks();
#define SKIP_WITHOUT_ROBUST_LOCKS()                                                                          \
    if (!ozu::test::deathOpensLocks())                                                                       \
    GTEST_SKIP() << "locks of dead processes stay closed under this emulation"

std::string contentOf(const std::string &path);
// A file that is there stays the same file, as a stranger who edits it leaves it.
void rewriteFile(const std::string &path, const std::string &content);
std::vector<std::string> linesOf(const std::string &path);
// Waits up to the given seconds for the condition.
bool eventually(const std::function<bool()> &condition, double seconds = 20);
void pause(int milliseconds);

} // namespace ozu::test

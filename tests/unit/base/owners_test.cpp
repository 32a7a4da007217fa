// Owners of descriptors and streams, and what ends a process that breaks the rules.

#include <base/assert_fail.h>

#include <base/unique_fd.h>
#include <base/unique_file.h>

#include "fake_platform.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <utility>

using ozu::UniqueFd;
using ozu::UniqueFile;

namespace {

class Owners : public ozu::test::PlatformTest {}; // counts descriptors

int openFd() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

} // namespace

TEST_F(Owners, descriptorIsClosedOnce) {
    int fd = -1;
    {
        const UniqueFd owner(openFd());
        fd = owner.get();
        EXPECT_TRUE(owner.valid());
        EXPECT_TRUE(isOpen(fd));
    }
    EXPECT_FALSE(isOpen(fd));
    EXPECT_FALSE(UniqueFd().valid());
    EXPECT_FALSE(UniqueFd(-1).valid());
}

TEST_F(Owners, descriptorMoves) {
    UniqueFd first(openFd());
    UniqueFd second(openFd());
    const int fd = first.get();
    const int replaced = second.get();
    second = std::move(first);
    EXPECT_FALSE(isOpen(replaced));
    EXPECT_EQ(second.get(), fd);
    const UniqueFd third(std::move(second));
    EXPECT_EQ(third.get(), fd);
    EXPECT_TRUE(isOpen(fd));
}

TEST_F(Owners, descriptorMovedOntoItselfStays) {
    UniqueFd owner(openFd());
    UniqueFd &same = owner;
    const int fd = owner.get();
    owner = std::move(same);
    EXPECT_EQ(owner.get(), fd);
    EXPECT_TRUE(isOpen(fd));
}

TEST_F(Owners, releasedDescriptorStaysOpen) {
    UniqueFd owner(openFd());
    const int fd = owner.release();
    EXPECT_FALSE(owner.valid());
    owner.reset();
    EXPECT_TRUE(isOpen(fd));
    close(fd);
}

TEST_F(Owners, streamIsClosed) {
    { const UniqueFile owner(fopen("/dev/null", "re")); }
    const UniqueFile none(nullptr);
    EXPECT_FALSE(none.valid());
}

#ifdef _GLIBCXX_ASSERTIONS
// A check of the C++ library that fails ends the process, without libstdc++.
TEST_F(Owners, failedCheckAborts) {
    EXPECT_EXIT(std::__glibcxx_assert_fail("file", 1, "function", "condition"),
                testing::KilledBySignal(SIGABRT), "");
}
#endif

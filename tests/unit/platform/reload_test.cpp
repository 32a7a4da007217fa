// A program may load and unload the library as often as it likes.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

long residentPages() {
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    return resident;
}

auto openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

void loadOnce() {
    void *library = dlopen(OZU_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    ASSERT_NE(dlsym(library, "ozuutils_processInit"), nullptr);
    ASSERT_EQ(dlclose(library), 0);
}

} // namespace

TEST(Reload, thousandTimesLeaveNothingBehind) {
    // The dynamic loader's own tables stop growing within the first thousand.
    for (int i = 0; i < 1000; ++i) {
        loadOnce();
    }
    const long pages = residentPages();
    const auto descriptors = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        loadOnce();
    }
    EXPECT_LE(residentPages() - pages, 8);
    EXPECT_EQ(openDescriptors(), descriptors);
}

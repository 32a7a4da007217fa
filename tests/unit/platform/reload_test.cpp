// A program may load and unload the library as often as it likes.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

long mappings() {
    std::ifstream maps("/proc/self/maps");
    return static_cast<long>(
        std::count(std::istreambuf_iterator<char>(maps), std::istreambuf_iterator<char>(), '\n'));
}

std::size_t heapInUse() {
    return mallinfo2().uordblks;
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
    const long mapped = mappings();
    const auto descriptors = openDescriptors();
    const std::size_t heap = heapInUse();
    for (int i = 0; i < 1000; ++i) {
        loadOnce();
    }
    // The loader rearranges a few bytes of its own now and then; whatever a load leaves behind counts a
    // thousandfold.
    EXPECT_LT(static_cast<long>(heapInUse()) - static_cast<long>(heap), 1000);
    EXPECT_LT(mappings() - mapped, 100); // a sanitizer maps a few of its own
    EXPECT_EQ(openDescriptors(), descriptors);
}

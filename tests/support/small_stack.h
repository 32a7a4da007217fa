// Runs something on a thread with little stack, as panel processes have them.
#pragma once

#include <gtest/gtest.h>

#include <pthread.h>

#include <cstddef>
#include <functional>

namespace ozu::test {

inline void onSmallStack(std::size_t bytes, std::function<void()> work) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    bytes += std::size_t{1} << 20; // for what the sanitizer puts around each object
#endif
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    pthread_t thread;
    const auto start = [](void *argument) -> void * {
        (*static_cast<std::function<void()> *>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, start, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

} // namespace ozu::test

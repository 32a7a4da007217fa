// Commands started by a process whose other threads write log lines and events: the platform's own locks are
// held by somebody at nearly every fork.

#include "data_folders.h"

#include <gtest/gtest.h>
#include <ozudb.h>
#include <ozulog.h>
#include <system_event_log.h>
#include <utils_ozu/command.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kThreads = 8;
constexpr int kCalls = 10000;
constexpr std::chrono::seconds kAtMost(6);

void logAndAllocate(const std::atomic<bool> &stop, int thread) {
    for (int i = 0; !stop; ++i) {
        ozulog_printf_extend(50000, "line %d of %d", "storm", __func__, __LINE__, i, thread);
        free(malloc(static_cast<std::size_t>(i % 50000)));
        if (thread == 0 && i % 50 == 0) {
            LOG_system_event(1, "storm");
        }
        if (i % 10 == 0) {
            usleep(100); // or the threads hand the log's lock to each other alone
        }
    }
}

// The pipe ends that this process has open.
std::set<int> pipes() {
    std::set<int> found;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone).string().starts_with("pipe:")) {
            found.insert(std::stoi(entry.path().filename().string()));
        }
    }
    return found;
}

void closePipesBut(const std::set<int> &kept) {
    for (const int fd : pipes()) {
        if (kept.count(fd) == 0) {
            close(fd);
        }
    }
}

} // namespace

TEST(CommandStorm, startsWhileOtherThreadsLog) {
    const std::string folder = ozu::test::makeDataFolder();
    ASSERT_NE(freopen("/dev/null", "w", stderr), nullptr);
    ASSERT_EQ(ozudb_addProc2Log("storm", "WARNING", getpid()), 0);
    ASSERT_EQ(ozulog_init("storm"), 0);
    std::atomic<bool> stop = false;
    std::vector<std::thread> storm;
    for (int thread = 0; thread < kThreads; ++thread) {
        storm.emplace_back([&stop, thread] { logAndAllocate(stop, thread); });
    }
    const auto until = std::chrono::steady_clock::now() + kAtMost;
    const std::set<int> before = pipes();
    int calls = 0;
    for (; calls < kCalls && std::chrono::steady_clock::now() < until && !HasFailure(); ++calls) {
        char *argv[] = {const_cast<char *>("/bin/true"), nullptr};
        const pid_t child = popen2(argv, nullptr, nullptr, nullptr);
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        if (calls % 100 == 99) {
            closePipesBut(before); // a command leaves two open
        }
    }
    stop = true;
    for (auto &thread : storm) {
        thread.join();
    }
    closePipesBut(before);
    RecordProperty("calls", calls);
    EXPECT_GE(calls, 20) << "too few to show anything";
    ozu::test::removeWithSegments(folder);
}

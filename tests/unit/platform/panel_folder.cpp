#include "panel_folder.h"

#include "data_folders.h"

#include "log.h"
#include "settings.h"
#include "shared_segment.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace ozu::test {

void closePlatform() {
    platform::forgetLog();
    platform::forgetSettings();
    platform::forgetSegment();
}

void PanelFolder::SetUp() {
    folder_ = makeDataFolder();
    closePlatform();
}

void PanelFolder::TearDown() {
    closePlatform();
    if (!folder_.empty()) {
        removeWithSegments(folder_);
    }
}

void PanelFolder::boot() {
    removeSegments(folder_);
    closePlatform();
}

pid_t startChild(const std::function<int()> &body) {
    const pid_t child = fork();
    if (child == 0) {
        platform::forgetSegment();
        _exit(body());
    }
    return child;
}

int waitForChild(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        return -1000;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int inChild(const std::function<int()> &body) {
    return waitForChild(startChild(body));
}

bool deathOpensLocks() {
    void *memory =
        mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto *mutex = static_cast<pthread_mutex_t *>(memory);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(mutex, &attributes);
    inChild([mutex] { return pthread_mutex_lock(mutex); });
    const bool told = pthread_mutex_trylock(mutex) == EOWNERDEAD;
    if (told) {
        // Left locked, it would stay in this thread's list of robust locks beyond its own memory.
        pthread_mutex_consistent(mutex);
        pthread_mutex_unlock(mutex);
    }
    munmap(memory, sizeof(pthread_mutex_t));
    return told;
}

std::string contentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

void rewriteFile(const std::string &path, const std::string &content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::vector<std::string> linesOf(const std::string &path) {
    std::vector<std::string> lines;
    std::ifstream file(path, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool eventually(const std::function<bool()> &condition, double seconds) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) {
            return false;
        }
        pause(10);
    }
    return true;
}

void pause(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

} // namespace ozu::test

#include "data_folders.h"

#include <dirent.h>
#include <ftw.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

namespace ozu::test {

namespace {

constexpr std::string_view kPrefix = "ozu-platform-";
constexpr const char *kSharedFolder = "/dev/shm/";

std::string temporaryFolder() {
    const char *named = getenv("TMPDIR");
    return named != nullptr && *named != '\0' ? named : "/tmp";
}

// The machine's folder: under its plain name an emulator shows the one of its sysroot.
std::vector<std::string> namesIn(const std::string &folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> open(opendir(("/proc/self/root" + folder).c_str()), closedir);
    while (const dirent *entry = open ? readdir(open.get()) : nullptr) {
        names.emplace_back(entry->d_name);
    }
    return names;
}

// Process that made the folder of this name, 0 for other names.
pid_t makerOf(const std::string &name) {
    return name.starts_with(kPrefix) ? atoi(name.c_str() + kPrefix.size()) : 0;
}

} // namespace

std::string makeDataFolder() {
    static const bool swept = (removeStaleDataFolders(), true);
    static_cast<void>(swept);
    std::string folder =
        temporaryFolder() + "/" + std::string(kPrefix) + std::to_string(getpid()) + "-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::runtime_error("no data folder: " + folder);
    }
    setenv("OZU_PLATFORM_DIR", folder.c_str(), 1);
    return folder;
}

void removeSegments(const std::string &folder) {
    std::string identity;
    std::ifstream(folder + "/identity") >> identity;
    if (identity.empty()) {
        return;
    }
    for (const auto &name : namesIn(kSharedFolder)) {
        if (name.starts_with("ozu-v") && name.find("-" + identity) != std::string::npos) {
            unlink((kSharedFolder + name).c_str());
        }
    }
}

void removeDataFolder(const std::string &folder) {
    removeSegments(folder);
    nftw(
        folder.c_str(), [](const char *path, const struct stat *, int, FTW *) { return remove(path); }, 16,
        FTW_DEPTH | FTW_PHYS);
}

void removeStaleDataFolders() {
    for (const auto &name : namesIn(temporaryFolder())) {
        const pid_t maker = makerOf(name);
        if (maker > 0 && kill(maker, 0) != 0 && errno == ESRCH) {
            removeDataFolder(temporaryFolder() + "/" + name);
        }
    }
}

} // namespace ozu::test

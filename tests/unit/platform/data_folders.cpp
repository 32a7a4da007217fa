#include "data_folders.h"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace ozu::test {

namespace {

namespace fs = std::filesystem;

constexpr const char *kPrefix = "ozu-platform-";

// Process that made the folder of this name, 0 for other names.
pid_t makerOf(const std::string &name) {
    return name.starts_with(kPrefix) ? atoi(name.c_str() + std::string(kPrefix).size()) : 0;
}

} // namespace

std::string makeDataFolder() {
    static const bool swept = (removeStaleDataFolders(), true);
    static_cast<void>(swept);
    std::string folder =
        (fs::temp_directory_path() / (kPrefix + std::to_string(getpid()) + "-XXXXXX")).string();
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
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator("/dev/shm", ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("ozu-v") && name.find("-" + identity) != std::string::npos) {
            unlink(entry.path().c_str());
        }
    }
}

void removeDataFolder(const std::string &folder) {
    removeSegments(folder);
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

void removeStaleDataFolders() {
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(fs::temp_directory_path(), ignored)) {
        const pid_t maker = makerOf(entry.path().filename().string());
        if (maker > 0 && kill(maker, 0) != 0 && errno == ESRCH) {
            removeDataFolder(entry.path().string());
        }
    }
}

} // namespace ozu::test

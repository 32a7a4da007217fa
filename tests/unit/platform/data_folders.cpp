#include "data_folders.h"

#include <cstdlib>
#include <filesystem>

namespace ozu::test {

std::string makeDataFolder() {
    const std::string folder = makeFolder("platform");
    setenv("OZU_PLATFORM_DIR", folder.c_str(), 1);
    return folder;
}

void removeDataFolder(const std::string &folder) {
    removeSegments(folder);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

} // namespace ozu::test

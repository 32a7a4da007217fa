#include "data_folders.h"

#include <cstdlib>

namespace ozu::test {

std::string makeDataFolder() {
    const std::string folder = makeFolder("platform");
    setenv("OZU_PLATFORM_DIR", folder.c_str(), 1);
    return folder;
}

} // namespace ozu::test

// Data folders of tests. Each has a shared segment under /dev/shm, which goes with it (process_folder.h).
#pragma once

#include "process_folder.h"

#include <string>

namespace ozu::test {

// Makes a folder of this process and lets OZU_PLATFORM_DIR name it.
std::string makeDataFolder();

} // namespace ozu::test

// Data folders of tests. Each has a shared segment under /dev/shm, which outlives a test that is killed: the
// folder's name tells whose it was, so that the next run takes away what killed ones left.
#pragma once

#include <string>

namespace ozu::test {

// Makes a folder of this process and lets OZU_PLATFORM_DIR name it. The first call of a process removes stale
// ones.
std::string makeDataFolder();
// Removes the folder's shared segments, of whatever layout version.
void removeSegments(const std::string &folder);
// Removes the folder and its segments.
void removeDataFolder(const std::string &folder);
// The same for the folders of test processes that are gone.
void removeStaleDataFolders();

} // namespace ozu::test

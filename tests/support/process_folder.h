// The temporary files of a test process, which are gone when it is, in whatever way it ends.
#pragma once

#include <string>

namespace ozu::test {

// A folder of this process below TMPDIR. A caretaker waits for the end of the process and of its forks, then
// removes the folder, and the shared segments of the data folders in it.
const std::string &processFolder();
// A new folder in it.
std::string makeFolder(const std::string &name);
// Removes the shared segments of a data folder, of whatever layout version.
void removeSegments(const std::string &dataFolder);
// Removes the folder, and the segments of it and of all data folders in it.
void removeWithSegments(const std::string &folder);

} // namespace ozu::test

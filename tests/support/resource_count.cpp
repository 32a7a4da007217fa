#include "resource_count.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace ozu::test {

int openDescriptors() {
    DIR *directory = opendir("/proc/self/fd");
    if (directory == nullptr) {
        return -1;
    }
    int count = -1; // the directory's own descriptor is not the caller's
    while (const dirent *entry = readdir(directory)) {
        if (entry->d_name[0] != '.') {
            ++count;
        }
    }
    closedir(directory);
    return count;
}

long residentPages() {
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident;
}

int children() {
    std::ifstream list("/proc/thread-self/children");
    int count = 0;
    for (std::string pid; list >> pid;) {
        ++count;
    }
    return count;
}

} // namespace ozu::test

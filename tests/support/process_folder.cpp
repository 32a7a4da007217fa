#include "process_folder.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace ozu::test {

namespace {

// Under its plain name an emulator shows the one of its sysroot.
constexpr const char *kSharedFolder = "/proc/self/root/dev/shm";

std::string made(std::string pattern) {
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no folder: " + pattern);
    }
    return pattern;
}

// Waits until nobody can write into the pipe any more. Holds nothing else of the test: whoever reads the
// test's output sees its end.
[[noreturn]] void takeCare(const int (&pipe)[2], const std::string &folder) {
    setsid();
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        signal(number, SIG_IGN);
    }
    for (const int descriptor : {0, 1, 2, pipe[1]}) {
        dup2(pipe[0], descriptor);
    }
    pollfd watched = {pipe[0], 0, 0};
    while (poll(&watched, 1, -1) < 0 && errno == EINTR) {
    }
    removeWithSegments(folder);
    _exit(0);
}

// The calls that tests replace - fork, pipe2, close, read and so on - stay out of it.
std::string folderWithCaretaker() {
    const std::string folder = made(fs::temp_directory_path() / "ozu-test-XXXXXX");
    chmod(folder.c_str(), 0711); // some tests are another user for a call
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("no pipe");
    }
    for (const int end : ends) {
        fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    const pid_t child = _Fork();
    if (child == 0) {
        if (_Fork() == 0) { // not a child of the test, which counts them
            takeCare(ends, folder);
        }
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    return folder;
}

// Before the first test, which counts its descriptors.
[[maybe_unused]] const std::string &kFolder = processFolder();

} // namespace

const std::string &processFolder() {
    static const std::string folder = folderWithCaretaker();
    return folder;
}

std::string makeFolder(const std::string &name) {
    return made(processFolder() + "/" + name + "-XXXXXX");
}

void removeSegments(const std::string &dataFolder) {
    std::string identity;
    std::ifstream(dataFolder + "/identity") >> identity;
    if (identity.empty()) {
        return;
    }
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(kSharedFolder, ignored)) {
        const std::string name = entry.path().filename();
        if (name.starts_with("ozu-v") && name.find("-" + identity) != std::string::npos) {
            fs::remove("/dev/shm/" + name, ignored);
        }
    }
}

void removeWithSegments(const std::string &folder) {
    std::error_code ignored;
    for (fs::recursive_directory_iterator entry(folder, ignored), end; entry != end;
         entry.increment(ignored)) {
        if (entry->path().filename() == "identity") {
            removeSegments(entry->path().parent_path());
        }
    }
    fs::remove_all(folder, ignored);
}

} // namespace ozu::test

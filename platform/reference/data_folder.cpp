#include "data_folder.h"

#include "errors.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace ozu::platform {

namespace {

constexpr const char *kDefaultFolder = "/var/lib/ozu";
constexpr const char *kIdentityFile = "/identity";
constexpr std::size_t kIdentityDigits = 32;

thread_local int heldByThisThread = 0;
std::atomic<bool> lookingOnly{false};

std::string newIdentity() {
    std::array<unsigned char, kIdentityDigits / 2> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw Error(kInternal, std::string("no random bytes: ") + std::strerror(errno));
    }
    std::string text;
    for (const unsigned char byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string readIdentity(int fd) {
    std::array<char, kIdentityDigits> text{};
    if (pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        return {};
    }
    for (const char digit : text) {
        if (std::strchr("0123456789abcdef", digit) == nullptr || digit == '\0') {
            return {};
        }
    }
    return {text.data(), text.size()};
}

void makeFolders(const std::string &path) {
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const bool last = end == std::string::npos;
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), last ? 0700 : 0755) != 0 && errno != EEXIST) {
            throw Error(codeOfErrno(errno), "data folder " + part + ": " + std::strerror(errno));
        }
        if (last) {
            return;
        }
    }
}

} // namespace

Code codeOfErrno(int error) noexcept {
    switch (error) {
    case EROFS:
    case EACCES:
    case EPERM:
        return kReadOnly;
    case ENOSPC:
    case EDQUOT:
        return kDiskFull;
    case ENOMEM:
        return kOutOfMemory;
    case EIO:
        return kInputOutput;
    default:
        return kCannotOpen;
    }
}

std::string folderPath() {
    const char *named = std::getenv("OZU_PLATFORM_DIR");
    std::string path = named != nullptr && *named != '\0' ? named : kDefaultFolder;
    if (path.front() != '/') {
        std::array<char, PATH_MAX> here{};
        if (getcwd(here.data(), here.size()) == nullptr) {
            throw Error(kCannotOpen, std::string("current folder: ") + std::strerror(errno));
        }
        path = std::string(here.data()) + "/" + path;
    }
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

void openOnly(bool on) {
    lookingOnly.store(on);
}

bool makesNothing() noexcept {
    return lookingOnly.load();
}

void requireMaking(const std::string &what) {
    if (makesNothing()) {
        throw Error(kNothingThere, what + ": not made yet by a panel process");
    }
}

void requireFolder(const std::string &path) {
    struct stat found {};
    if (stat(path.c_str(), &found) == 0) {
        if (!S_ISDIR(found.st_mode)) {
            throw Error(kCannotOpen, "data folder " + path + " is not a folder");
        }
        return;
    }
    if (errno == ENOENT) {
        requireMaking("data folder " + path);
    }
    makeFolders(path);
}

FolderLock::FolderLock(const std::string &folder) {
    requireFolder(folder);
    const std::string path = folder + kIdentityFile;
    file_ = openFile(path.c_str(), O_RDWR | (makesNothing() ? 0 : O_CREAT), 0600);
    if (!file_) {
        const int error = errno;
        if (error == ENOENT) {
            requireMaking("data folder " + folder);
        }
        file_ = openFile(path.c_str(), O_RDONLY);
        if (!file_) {
            throw Error(codeOfErrno(error), path + ": " + std::strerror(error));
        }
    }
    // Locks of one file do not nest within a thread.
    if (heldByThisThread++ == 0) {
        while (flock(file_.get(), LOCK_EX) != 0) {
            if (errno != EINTR) {
                --heldByThisThread;
                throw Error(codeOfErrno(errno), "lock of " + path + ": " + std::strerror(errno));
            }
        }
    }
    try {
        readOrMakeIdentity(path);
    } catch (...) {
        --heldByThisThread;
        throw;
    }
}

FolderLock::~FolderLock() {
    --heldByThisThread;
}

void FolderLock::readOrMakeIdentity(const std::string &path) {
    identity_ = readIdentity(file_.get());
    if (identity_.empty()) {
        requireMaking(path);
        identity_ = newIdentity();
        const std::string line = identity_ + "\n";
        if (pwrite(file_.get(), line.data(), line.size(), 0) != static_cast<ssize_t>(line.size())) {
            throw Error(codeOfErrno(errno), path + ": " + std::strerror(errno));
        }
    }
}

std::string existingIdentity(const std::string &folder) {
    const std::string path = folder + kIdentityFile;
    const Descriptor file = openFile(path.c_str(), O_RDONLY);
    return file ? readIdentity(file.get()) : std::string();
}

} // namespace ozu::platform

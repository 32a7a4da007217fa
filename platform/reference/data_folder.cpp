#include "data_folder.h"

#include "errors.h"
#include "own_file.h"
#include "shared_segment.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

namespace ozu::platform {

namespace {

constexpr const char *kDefaultFolder = "/var/lib/ozu";
constexpr const char *kIdentityFile = "/identity";

constexpr const char *kDatabaseName = "/ozu.db";
constexpr std::chrono::seconds kLockPatience{10};
constexpr std::chrono::milliseconds kLockPause{10};

// Locks of one file do not nest within a thread; the outermost one holds it.
thread_local int heldByThisThread = 0;
std::atomic<bool> lookingOnly{false};
// Behind the identity's line while the folder is new.
constexpr std::string_view kNewMark = "new\n";
constexpr off_t kIdentityLine = kIdentityDigits + 1;

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

bool hasNewMark(int fd) {
    std::array<char, kNewMark.size()> text{};
    return pread(fd, text.data(), text.size(), kIdentityLine) == static_cast<ssize_t>(text.size()) &&
           std::string_view(text.data(), text.size()) == kNewMark;
}

// The current folder at the time of the first question: what a process has opened must not move with it.
const std::string &startingFolder() {
    static const std::string folder = [] {
        std::array<char, PATH_MAX> here{};
        if (getcwd(here.data(), here.size()) == nullptr) {
            throw Error(kCannotOpen, std::string("current folder: ") + std::strerror(errno));
        }
        return std::string(here.data());
    }();
    return folder;
}

void makeFolders(const std::string &path) {
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const bool last = end == std::string::npos;
        const std::string part = path.substr(0, end);
        if (!makeFolder(part, last ? 0700 : 0755)) {
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

std::string databasePath(const std::string &folder) {
    return folder + kDatabaseName;
}

std::string folderPath() {
    const char *named = std::getenv("OZU_PLATFORM_DIR");
    std::string path = named != nullptr && *named != '\0' ? named : kDefaultFolder;
    if (path.front() != '/') {
        path = startingFolder() + "/" + path;
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
    if (stat(path.c_str(), &found) != 0) {
        if (errno == ENOENT) {
            requireMaking("data folder " + path);
        }
        makeFolders(path);
        return;
    }
    if (!S_ISDIR(found.st_mode)) {
        throw Error(kCannotOpen, "data folder " + path + " is not a folder");
    }
    // Root may work in any user's folder; everybody else in none that another user can change.
    if (geteuid() != 0 && !isTrusted(found.st_uid, geteuid())) {
        throw Error(kCannotOpen, "data folder " + path + " belongs to user " + std::to_string(found.st_uid));
    }
}

FolderMark markOf(const std::string &folder) {
    struct statx found {};
    if (statx(AT_FDCWD, folder.c_str(), 0, STATX_INO | STATX_BTIME, &found) != 0) {
        throw Error(codeOfErrno(errno), "data folder " + folder + ": " + std::strerror(errno));
    }
    FolderMark mark{makedev(found.stx_dev_major, found.stx_dev_minor), found.stx_ino, 0};
    if ((found.stx_mask & STATX_BTIME) != 0) {
        constexpr std::int64_t kNanoseconds = 1000000000;
        mark.born = found.stx_btime.tv_sec * kNanoseconds + found.stx_btime.tv_nsec;
    }
    return mark;
}

FolderLock::FolderLock(const std::string &folder) : path_(folder + kIdentityFile), folder_(folder) {
    requireFolder(folder);
    open();
    if (heldByThisThread == 0) {
        lock();
    }
    ++heldByThisThread;
    try {
        identity_ = readIdentity(file_.get());
        isNew_ = hasNewMark(file_.get());
        if (identity_.empty()) {
            repairIdentity();
        }
    } catch (...) {
        --heldByThisThread;
        throw;
    }
}

FolderLock::~FolderLock() {
    --heldByThisThread;
}

void FolderLock::open() {
    struct stat found {};
    wasThere_ = lstat(path_.c_str(), &found) == 0;
    if (!wasThere_) {
        requireMaking("data folder " + folder_);
    }
    try {
        file_ = openOwnFile(path_, O_RDWR | O_CREAT);
    } catch (const Error &error) {
        if (error.code() != kReadOnly) {
            throw;
        }
        file_ = openOwnFile(path_, O_RDONLY);
    }
    if (closeToOthers(file_.get())) {
        note(OZULOG_WARNING, "ozudb", path_ + " was open to other users; it is no longer");
    }
}

void FolderLock::lock() {
    const auto until = std::chrono::steady_clock::now() + kLockPatience;
    for (;;) {
        if (flock(file_.get(), LOCK_EX | LOCK_NB) == 0) {
            if (lockedFileIsThere()) {
                return;
            }
            open(); // it was replaced while we waited
        } else if (errno != EWOULDBLOCK && errno != EINTR) {
            throw Error(codeOfErrno(errno), "lock of " + path_ + ": " + std::strerror(errno));
        } else if (std::chrono::steady_clock::now() > until) {
            throw Error(kBusy, "another process holds the lock of " + path_);
        } else {
            std::this_thread::sleep_for(kLockPause);
        }
    }
}

bool FolderLock::lockedFileIsThere() const noexcept {
    struct stat locked {};
    struct stat there {};
    return fstat(file_.get(), &locked) == 0 && lstat(path_.c_str(), &there) == 0 &&
           locked.st_dev == there.st_dev && locked.st_ino == there.st_ino;
}

void FolderLock::setIdentity(const std::string &identity) {
    requireMaking(path_);
    identity_ = identity;
    const std::string text = identity + "\n" + std::string(isNew_ ? kNewMark : "");
    if (ftruncate(file_.get(), 0) != 0 ||
        pwrite(file_.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
        fsync(file_.get()) != 0) { // or a power cut empties it
        throw Error(codeOfErrno(errno), path_ + ": " + std::strerror(errno));
    }
}

void FolderLock::endNewness() {
    if (!isNew_ || makesNothing()) {
        return;
    }
    isNew_ = false;
    if (ftruncate(file_.get(), kIdentityLine) != 0 || fsync(file_.get()) != 0) {
        throw Error(codeOfErrno(errno), path_ + ": " + std::strerror(errno));
    }
}

void FolderLock::adoptIdentity(const std::string &identity) {
    if (makesNothing()) {
        identity_ = identity;
        return;
    }
    try {
        setIdentity(identity);
    } catch (const Error &error) {
        note(OZULOG_ERROR, "ozudb", error.what());
    }
}

// A folder without a database is used for the first time. In every other one the identity was damaged or
// removed, perhaps while the panel runs: the processes that start now must find the others.
void FolderLock::repairIdentity() {
    struct stat found {};
    if (lstat(databasePath(folder_).c_str(), &found) != 0) {
        isNew_ = true;
        setIdentity(newIdentity());
        return;
    }
    const std::string inUse = identityInUse(folder_, {});
    if (wasThere_ || !inUse.empty()) { // a copy of another panel's folder has none, and gets one quietly
        note(OZULOG_CRITICAL, "ozudb",
             "identity " + path_ + " was " + (wasThere_ ? "empty or damaged" : "missing") + "; " +
                 (inUse.empty() ? "no panel runs with this folder, so it has a new one"
                                : "it is again the one that the running panel uses"));
    }
    if (inUse.empty()) {
        setIdentity(newIdentity());
    } else {
        adoptIdentity(inUse);
    }
}

std::string existingIdentity(const std::string &folder) {
    const std::string path = folder + kIdentityFile;
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) {
        return {};
    }
    const Descriptor file = openOwnFile(path, O_RDONLY);
    return readIdentity(file.get());
}

} // namespace ozu::platform

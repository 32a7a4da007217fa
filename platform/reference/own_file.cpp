#include "own_file.h"

#include "errors.h"

#include <cerrno>
#include <cstring>

namespace ozu::platform {

namespace {

constexpr mode_t kOthers = S_IRWXG | S_IRWXO;

[[noreturn]] void failWithErrno(const std::string &path) {
    throw Error(codeOfErrno(errno), path + ": " + std::strerror(errno));
}

[[noreturn]] void refuse(const std::string &path, const std::string &what) {
    throw Error(kCannotOpen, path + " " + what + ": find out who put it there, then remove it");
}

// Who owns the folder that the path lies in.
struct stat folderOf(const std::string &path) {
    struct stat folder {};
    if (stat(path.substr(0, path.rfind('/') + 1).c_str(), &folder) != 0) {
        failWithErrno(path);
    }
    return folder;
}

void requireOwn(const struct stat &found, const std::string &path) {
    if (!S_ISREG(found.st_mode)) {
        refuse(path, std::string("is ") + kindOf(found.st_mode) + ", not a file");
    }
    if (found.st_nlink > 1) {
        refuse(path, "has another name elsewhere (a hard link)");
    }
    if (!isTrusted(found.st_uid, folderOf(path).st_uid)) {
        refuse(path, "belongs to user " + std::to_string(found.st_uid));
    }
}

} // namespace

bool isTrusted(uid_t owner, uid_t folderOwner) noexcept {
    return owner == geteuid() || owner == 0 || owner == folderOwner;
}

const char *kindOf(mode_t mode) noexcept {
    switch (mode & S_IFMT) {
    case S_IFREG:
        return "a file";
    case S_IFDIR:
        return "a folder";
    case S_IFLNK:
        return "a link";
    case S_IFIFO:
        return "a FIFO";
    case S_IFSOCK:
        return "a socket";
    default:
        return "a device";
    }
}

bool makeFolder(const std::string &path, mode_t mode) noexcept {
    if (mkdir(path.c_str(), mode) != 0) {
        return errno == EEXIST;
    }
    return chmod(path.c_str(), mode) == 0;
}

bool makeOwnFolder(const std::string &path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) == 0) {
        return true;
    }
    if (!makeFolder(path, S_IRWXU)) {
        return false;
    }
    if (geteuid() == 0) {
        const struct stat parent = folderOf(path);
        const Descriptor folder = openFile(path.c_str(), O_RDONLY | O_DIRECTORY);
        static_cast<void>(folder && fchown(folder.get(), parent.st_uid, parent.st_gid) == 0);
    }
    return true;
}

bool closeToOthers(int fd) noexcept {
    struct stat found {};
    return fstat(fd, &found) == 0 && (found.st_mode & kOthers) != 0 &&
           fchmod(fd, found.st_mode & ~kOthers & 07777) == 0;
}

void requireOwnFileOrNone(const std::string &path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) == 0) {
        requireOwn(found, path);
    }
}

void requireOwnFolder(const std::string &path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) {
        failWithErrno(path);
    }
    if (!S_ISDIR(found.st_mode)) {
        refuse(path, std::string("is ") + kindOf(found.st_mode) + ", not a folder");
    }
    if (!isTrusted(found.st_uid, folderOf(path).st_uid)) {
        refuse(path, "belongs to user " + std::to_string(found.st_uid));
    }
}

Descriptor openOwnFile(const std::string &path, int flags) {
    requireOwnFileOrNone(path); // opening a device may do something by itself
    Descriptor file = openFile(path.c_str(), flags, S_IRUSR | S_IWUSR);
    struct stat found {};
    if (!file || fstat(file.get(), &found) != 0) {
        failWithErrno(path);
    }
    requireOwn(found, path);
    constexpr mode_t kOwner = S_IRUSR | S_IWUSR;
    if ((flags & O_CREAT) != 0 && (found.st_mode & kOwner) != kOwner) {
        static_cast<void>(fchmod(file.get(), kOwner)); // it was made under a strange umask
    }
    if ((flags & O_CREAT) != 0 && geteuid() == 0) {
        const struct stat folder = folderOf(path);
        if (found.st_uid != folder.st_uid) {
            static_cast<void>(!fchown(file.get(), folder.st_uid, folder.st_gid));
        }
    }
    return file;
}

} // namespace ozu::platform

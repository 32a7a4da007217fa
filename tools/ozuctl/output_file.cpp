#include "output_file.h"

#include "context.h"
#include "output.h"
#include "text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace ozuctl {

namespace {

bool isSameFile(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Where a name leads, so that a link stays one.
std::string targetOf(const std::string &path) {
    char *const resolved = realpath(path.c_str(), nullptr);
    std::string target = resolved == nullptr ? path : resolved;
    free(resolved); // NOLINT: of realpath
    return target;
}

} // namespace

OutputFile::OutputFile(std::string path, const std::string &source, unsigned mode) : path_(std::move(path)) {
    struct stat there = {};
    struct stat read = {};
    const bool exists = stat(path_.c_str(), &there) == 0;
    if (exists && !source.empty() && stat(source.c_str(), &read) == 0 && isSameFile(there, read)) {
        throw CommandError(kUsage, inQuotes(path_) + " is the file that is read");
    }
    if (exists && S_ISDIR(there.st_mode)) {
        fail(EISDIR);
    }
    if (exists && !S_ISREG(there.st_mode)) {
        descriptor_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        path_ = targetOf(path_);
        beside_ = path_ + ".XXXXXX";
        descriptor_ = mkostemp(beside_.data(), O_CLOEXEC);
        if (descriptor_ >= 0) {
            fchmod(descriptor_, exists ? there.st_mode & 07777U : mode & ~mask);
        }
    }
    if (descriptor_ < 0) {
        const int error = errno;
        beside_.clear();
        fail(error);
    }
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
    if (!beside_.empty()) {
        unlink(beside_.c_str());
    }
}

void OutputFile::write(std::string_view bytes) {
    if (const int error = writeAll(descriptor_, bytes); error != 0) {
        fail(error);
    }
}

void OutputFile::finish() {
    const int closed = close(descriptor_);
    descriptor_ = -1;
    if (closed != 0) {
        fail(errno);
    }
    if (!beside_.empty() && rename(beside_.c_str(), path_.c_str()) != 0) {
        fail(errno);
    }
    beside_.clear();
}

void OutputFile::fail(int error) const {
    throw CommandError(kLibraryFailed, "cannot write " + inQuotes(path_) + ": " + strerror(error));
}

} // namespace ozuctl

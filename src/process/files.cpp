// Files: emptying a folder, temporary folders, a file into memory.

#include <utils_ozu/files.h>

#include <base/error_text.h>
#include <base/log.h>
#include <base/unique_fd.h>

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <span>

namespace {

struct Reading {
    std::int64_t total = 0;
    ssize_t last = 0; // result of the read that ended it: 0 or negative
};

// Fills the buffer in reads as large as they come. What the file holds beyond it (it grew, or it is one of
// /proc, whose size shows as 0) is counted but thrown away.
Reading readToEnd(int fd, std::span<char> buffer) noexcept {
    Reading reading;
    std::array<char, 1024> beyond; // NOLINT(cppcoreguidelines-pro-type-member-init)
    do {
        reading.last =
            buffer.empty() ? read(fd, beyond.data(), beyond.size()) : read(fd, buffer.data(), buffer.size());
        if (reading.last > 0) {
            reading.total += reading.last;
            buffer = buffer.subspan(std::min(buffer.size(), static_cast<std::size_t>(reading.last)));
        }
    } while (reading.last > 0);
    return reading;
}

// The size of a file as the panel sees it: one beyond 2 GiB - 1 cannot be examined there.
int sizeOf(const char *path) noexcept {
    struct stat status = {};
    if (stat(path, &status) != 0 || status.st_size > std::numeric_limits<std::int32_t>::max()) {
        return -1;
    }
    return static_cast<int>(status.st_size);
}

bool liesIn(const char *folder, const char *path) noexcept {
    return strncmp(path, folder, strlen(folder)) == 0;
}

} // namespace

int unlink_cb(const char *path, const struct stat * /*sb*/, int /*typeflag*/, struct FTW *ftw) noexcept {
    if (ftw->level == 0) {
        return 0;
    }
    const int rc = remove(path);
    if (rc != 0) {
        OZU_LOG(OZULOG_ERROR, "Can't delete %s : error %s", path, ozu::errorText());
    }
    return rc;
}

int ozuutils_is_temp_file(const char *path) noexcept {
    if (path == nullptr) {
        return 0;
    }
    return liesIn("/tmp/", path) || liesIn("/var/volatile/tmp/", path) ? 1 : 0;
}

int allocFileToBuff(const char *path, void **buffer) noexcept {
    OZU_LOG(OZULOG_DEBUG, "loading file content '%s' into dynamic memory", path);
    const int size = sizeOf(path);
    if (size < 0) {
        OZU_LOG_TEXT(OZULOG_ERROR, "error opening file");
        return -1;
    }
    // Never of size 0, for which malloc may answer null.
    const auto allocated = static_cast<std::size_t>(std::max(size, 1));
    *buffer = malloc(allocated);
    if (*buffer == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "unable to allocate enough memory");
        return -1;
    }
    OZU_LOG_TEXT(OZULOG_DEBUG, "memory allocated successfully");

    ozu::UniqueFd file(open(path, O_RDWR | O_CLOEXEC));
    if (!file.valid()) {
        memset(*buffer, 0, allocated);
        OZU_LOG(OZULOG_ERROR, "error opening file %d", file.get());
        return -1;
    }
    OZU_LOG_TEXT(OZULOG_DEBUG, "file opened successfully");

    auto *bytes = static_cast<char *>(*buffer);
    const Reading reading = readToEnd(file.get(), {bytes, static_cast<std::size_t>(size)});
    const auto filled = static_cast<std::size_t>(std::min<std::int64_t>(size, reading.total));
    memset(bytes + filled, 0, allocated - filled);
    if (reading.last < 0) {
        OZU_LOG(OZULOG_DEBUG, "file red encountered an error %d", static_cast<int>(reading.last));
    } else {
        OZU_LOG(OZULOG_DEBUG, "file red %d bytes", static_cast<int>(reading.total));
    }
    OZU_LOG_TEXT(OZULOG_DEBUG, "closing file...  ");
    OZU_LOG(OZULOG_DEBUG, "file closed %d", close(file.release()));
    return size;
}

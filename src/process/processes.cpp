// Running processes, found by their command name.

#include <utils_ozu/files.h>
#include <utils_ozu/text.h>

#include <base/panel_width.h>
#include <base/unique_fd.h>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned int kMaxDigits = 10;

class Directory {
  public:
    explicit Directory(const char *path) noexcept : directory_(opendir(path)) {}
    ~Directory() {
        if (directory_ != nullptr) {
            closedir(directory_);
        }
    }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;

    [[nodiscard]] bool valid() const noexcept { return directory_ != nullptr; }
    [[nodiscard]] int fd() const noexcept { return dirfd(directory_); }
    // The next entry's name, or null.
    const char *next() noexcept {
        const dirent *entry = readdir(directory_);
        return entry == nullptr ? nullptr : entry->d_name;
    }

  private:
    DIR *directory_;
};

// The first line of a process's command line. One read is all it takes: the kernel hands out what there is.
class CommandLine {
  public:
    CommandLine(int proc, int pid) noexcept {
        constexpr char kFile[] = "/cmdline";
        std::array<char, 32> path = {'-'};
        char *end = pid < 0 ? &path[1] : path.data();
        const auto number = static_cast<unsigned int>(pid);
        end += ozuutils_Num2MinimalDecStr(pid < 0 ? 0U - number : number, end, kMaxDigits);
        memcpy(end, kFile, sizeof(kFile));
        const ozu::UniqueFd file(openat(proc, path.data(), O_RDONLY | O_CLOEXEC));
        if (!file.valid()) {
            return;
        }
        if (read(file.get(), text_.data(), text_.size() - 1) <= 0) {
            return;
        }
        if (char *lineFeed = strchr(text_.data(), '\n'); lineFeed != nullptr) {
            lineFeed[1] = '\0';
        }
    }
    // Its first word up to a space: the words themselves are separated by zeros. Null when there is none
    // (kernel threads, names made of spaces).
    const char *program() noexcept {
        char *rest = nullptr;
        return strtok_r(text_.data(), " ", &rest);
    }

  private:
    std::array<char, 512> text_ = {};
};

} // namespace

int ozuutils_findProcessId(const char *name) noexcept {
    Directory proc("/proc");
    if (!proc.valid()) {
        perror("can't open /proc");
        return -1;
    }
    while (const char *entry = proc.next()) {
        char *end = nullptr;
        const int pid = ozu::panelLong(strtol(entry, &end, 10));
        if (*end != '\0') {
            continue;
        }
        CommandLine line(proc.fd(), pid);
        const char *program = line.program();
        if (program != nullptr && strcmp(program, name) == 0) {
            return pid;
        }
    }
    return -1;
}

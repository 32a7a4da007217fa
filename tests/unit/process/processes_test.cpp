#include <utils_ozu/files.h>

#include "captured.h"
#include "process_test.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

namespace {

// A /proc of the test's own: entries in order, each with the bytes of its command line.
struct Entry {
    std::string name;
    std::string commandLine;
    bool unreadable = false;
};

struct Proc {
    std::vector<Entry> entries;
    bool active = false;
    bool missing = false;
    std::size_t next = 0;
    std::vector<std::string> opened;
    int reads = 0;
    dirent entry = {};
};
Proc proc;

constexpr int kProcFd = 3000;
constexpr int kFirstFile = 4000;
DIR *const kProc = reinterpret_cast<DIR *>(&proc);

class FindProcess : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        proc = Proc();
    }
    static int find(const char *name) {
        proc.active = true;
        proc.next = 0;
        proc.opened.clear();
        proc.reads = 0;
        const int pid = ozuutils_findProcessId(name);
        proc.active = false;
        return pid;
    }
    static int findIn(std::vector<Entry> entries, const char *name) {
        proc.entries = std::move(entries);
        return find(name);
    }
};

std::string commandLine(std::initializer_list<const char *> words) {
    std::string bytes;
    for (const char *word : words) {
        bytes.append(word).push_back('\0');
    }
    return bytes;
}

} // namespace

extern "C" {

DIR *__real_opendir(const char *path);
dirent *__real_readdir(DIR *directory);
int __real_closedir(DIR *directory);
int __real_dirfd(DIR *directory);
int __real_openat(int folder, const char *path, int flags, ...);
ssize_t __real_read(int fd, void *buffer, size_t count);
int __real_close(int fd);

DIR *__wrap_opendir(const char *path) {
    if (!proc.active) {
        return __real_opendir(path);
    }
    EXPECT_STREQ(path, "/proc");
    platform().journal.emplace_back("opendir");
    if (proc.missing) {
        errno = EACCES;
        return nullptr;
    }
    return kProc;
}

dirent *__wrap_readdir(DIR *directory) {
    if (directory != kProc) {
        return __real_readdir(directory);
    }
    if (proc.next == proc.entries.size()) {
        return nullptr;
    }
    snprintf(proc.entry.d_name, sizeof(proc.entry.d_name), "%s", proc.entries[proc.next++].name.c_str());
    return &proc.entry;
}

int __wrap_closedir(DIR *directory) {
    if (directory != kProc) {
        return __real_closedir(directory);
    }
    platform().journal.emplace_back("closedir");
    return 0;
}

int __wrap_dirfd(DIR *directory) {
    return directory == kProc ? kProcFd : __real_dirfd(directory);
}

int __wrap_openat(int folder, const char *path, int flags, ...) {
    EXPECT_EQ(folder, kProcFd);
    EXPECT_EQ(flags & O_ACCMODE, O_RDONLY);
    EXPECT_NE(flags & O_CLOEXEC, 0);
    proc.opened.emplace_back(path);
    const std::size_t index = proc.next - 1;
    if (proc.entries[index].unreadable) {
        errno = ENOENT;
        return -1;
    }
    return kFirstFile + static_cast<int>(index);
}

ssize_t __wrap_read(int fd, void *buffer, size_t count) {
    if (fd < kFirstFile) {
        return __real_read(fd, buffer, count);
    }
    ++proc.reads;
    EXPECT_EQ(count, 511u);
    const std::string &bytes = proc.entries[static_cast<std::size_t>(fd - kFirstFile)].commandLine;
    const auto length = std::min(count, bytes.size());
    memcpy(buffer, bytes.data(), length);
    return static_cast<ssize_t>(length);
}

int __wrap_close(int fd) {
    if (fd < kFirstFile) {
        return __real_close(fd);
    }
    platform().journal.push_back("close(" + std::to_string(fd) + ")");
    return 0;
}

} // extern "C"

TEST_F(FindProcess, takesTheFirstMatchInOrder) {
    EXPECT_EQ(findIn({{"1", commandLine({"init"})},
                      {"77", commandLine({"alarmd", "-v"})},
                      {"5", commandLine({"alarmd"})}},
                     "alarmd"),
              77);
    // Everything is closed again, and nothing was read on.
    EXPECT_THAT(platform().journal, ElementsAre("opendir", "close(4000)", "close(4001)", "closedir"));
}

TEST_F(FindProcess, noneIsMinusOne) {
    EXPECT_EQ(findIn({{"1", commandLine({"init"})}}, "alarmd"), -1);
    EXPECT_THAT(platform().journal, ElementsAre("opendir", "close(4000)", "closedir"));
    EXPECT_EQ(findIn({}, "alarmd"), -1);
}

TEST_F(FindProcess, opensNumericEntriesOnlyAndReadsEachOnce) {
    EXPECT_EQ(findIn({{".", ""},
                      {"..", ""},
                      {"self", commandLine({"alarmd"})},
                      {"12a", commandLine({"alarmd"})},
                      {"1 ", commandLine({"alarmd"})},
                      {"acpi", ""},
                      {"40", commandLine({"init"})},
                      {"0041", commandLine({"init"})},
                      {"sys", ""}},
                     "alarmd"),
              -1);
    EXPECT_THAT(proc.opened, ElementsAre("40/cmdline", "41/cmdline"));
    EXPECT_EQ(proc.reads, 2);
}

// Whatever the file system shows as a number is one.
TEST_F(FindProcess, numbersWithASign) {
    EXPECT_EQ(findIn({{"+7", commandLine({"init"})},
                      {"0", commandLine({"init"})},
                      {"-2147483648", commandLine({"init"})},
                      {"-99999999999", commandLine({"init"})},
                      {"-41", commandLine({"alarmd"})}},
                     "alarmd"),
              -41);
    EXPECT_THAT(proc.opened, ElementsAre("7/cmdline", "0/cmdline", "-2147483648/cmdline",
                                         "-2147483648/cmdline", "-41/cmdline"));
}

TEST_F(FindProcess, vanishedProcessesAreSkipped) {
    EXPECT_EQ(findIn({{"3", "", true}, {"4", commandLine({"alarmd"})}}, "alarmd"), 4);
    EXPECT_THAT(platform().journal, ElementsAre("opendir", "close(4001)", "closedir"));
}

struct OddName {
    const char *title;
    std::string commandLine;
    const char *matches; // the only one of these names that is found; null for none
};
void PrintTo(const OddName &odd, std::ostream *out) {
    *out << odd.title;
}

class OddNames : public FindProcess, public testing::WithParamInterface<OddName> {};

TEST_P(OddNames, matchAsTheyWereStarted) {
    const auto &odd = GetParam();
    for (const char *name : {"", " ", "a", "b", "a b", "/bin/a", "A", "ab", "a\n", "b\n", "\n"}) {
        const bool expected = odd.matches != nullptr && strcmp(odd.matches, name) == 0;
        EXPECT_EQ(findIn({{"9", odd.commandLine}}, name), expected ? 9 : -1) << '"' << name << '"';
    }
}

INSTANTIATE_TEST_SUITE_P(CommandLines, OddNames,
                         testing::Values(OddName{"plain", commandLine({"a", "b"}), "a"},
                                         OddName{"withPath", commandLine({"/bin/a"}), "/bin/a"},
                                         OddName{"blankInside", commandLine({"a b"}), "a"},
                                         OddName{"blankInFront", commandLine({"  a b"}), "a"},
                                         OddName{"blanksOnly", commandLine({"   "}), nullptr},
                                         OddName{"kernelThread", "", nullptr},
                                         OddName{"emptyName", commandLine({"", "a"}), nullptr},
                                         OddName{"notTerminated", "a", "a"},
                                         OddName{"lineFeedBehind", commandLine({"a\nb"}), "a\n"},
                                         OddName{"lineFeedInFront", commandLine({"\na"}), "\n"},
                                         OddName{"lineFeedAfterBlank", commandLine({"a \nb"}), "a"},
                                         OddName{"lineFeedInALaterWord", commandLine({"a", "\n"}), "a"},
                                         OddName{"upperCase", commandLine({"A"}), "A"}),
                         [](const auto &instance) { return std::string(instance.param.title); });

TEST_F(FindProcess, namesEndAt511Bytes) {
    const std::string fits(511, 'n');
    EXPECT_EQ(findIn({{"9", fits}}, fits.c_str()), 9);
    EXPECT_EQ(findIn({{"9", fits + "n"}}, fits.c_str()), 9); // cut when read
    EXPECT_EQ(findIn({{"9", fits + "n"}}, (fits + "n").c_str()), -1);
}

TEST_F(FindProcess, numbersSaturateAsOnThePanel) {
    EXPECT_EQ(findIn({{"99999999999", commandLine({"a"})}}, "a"), 2147483647);
    EXPECT_THAT(proc.opened, ElementsAre("2147483647/cmdline"));
}

TEST_F(FindProcess, withoutProcItComplainsOnStandardError) {
    proc.missing = true;
    ozu::test::captureStderr();
    EXPECT_EQ(find("alarmd"), -1);
    EXPECT_EQ(ozu::test::capturedStderr(), "can't open /proc: Permission denied\n");
    EXPECT_THAT(platform().log, IsEmpty());
    EXPECT_THAT(platform().journal, ElementsAre("opendir"));
}

#include <utils_ozu/files.h>

#include "process_folder.h"
#include "process_test.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

// What the wrapped calls do in the test that runs.
struct Faults {
    bool malloc = false;
    bool close = false;
    std::deque<int> reads; // results instead of reading: negative fails, positive limits the length
    int readCalls = 0;
    long sizeReported = -1; // by stat
    bool active = false;
};
Faults faults;

class Files : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        faults = Faults();
        folder_ = ozu::test::makeFolder("files");
    }
    void TearDown() override {
        fs::remove_all(folder_);
        PlatformTest::TearDown();
    }
    std::string file(const std::string &name, const std::string &content) {
        const fs::path path = folder_ / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path.string();
    }
    int load(const std::string &path) {
        faults.active = true;
        const int size = allocFileToBuff(path.c_str(), &buffer_);
        faults.active = false;
        return size;
    }
    // The lines of a load that went through.
    static std::vector<LogLine> loaded(const std::string &path, const std::string &outcome) {
        std::vector<LogLine> lines;
        for (const std::string &text :
             {"loading file content '" + path + "' into dynamic memory",
              std::string("memory allocated successfully"), std::string("file opened successfully"), outcome,
              std::string("closing file...  "), std::string("file closed 0")}) {
            lines.push_back(extended(20000, text, "allocFileToBuff"));
        }
        return lines;
    }
    // A load that ended with its first step, and why.
    static void expectRefusal(const std::string &path, const char *why) {
        EXPECT_THAT(platform().log,
                    ElementsAre(loaded(path, "").front(), extended(70000, why, "allocFileToBuff")));
    }
    fs::path folder_;
    // The buffer holds this and zeros from there to its end.
    void expectContent(const std::string &content, std::size_t size) const {
        std::string expected = content;
        expected.resize(size, '\0');
        EXPECT_EQ(std::string(static_cast<char *>(buffer_), size), expected);
    }
    void *buffer_ = this; // stands for "untouched"
};

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    }
    return bytes;
}

} // namespace

extern "C" {

void *__real_malloc(size_t size);
int __real_close(int fd);
ssize_t __real_read(int fd, void *buffer, size_t count);

void *__wrap_malloc(size_t size) {
    if (faults.active && faults.malloc) {
        errno = ENOMEM;
        return nullptr;
    }
    void *block = __real_malloc(size);
    if (faults.active && block != nullptr) {
        memset(block, '#', size); // what was there before
    }
    return block;
}

int __wrap_close(int fd) {
    const int result = __real_close(fd);
    return faults.active && faults.close ? -1 : result;
}

ssize_t __wrap_read(int fd, void *buffer, size_t count) {
    if (!faults.active) {
        return __real_read(fd, buffer, count);
    }
    ++faults.readCalls;
    if (faults.reads.empty()) {
        return __real_read(fd, buffer, count);
    }
    const int planned = faults.reads.front();
    faults.reads.pop_front();
    if (planned < 0) {
        errno = EIO;
        return planned;
    }
    return __real_read(fd, buffer, std::min(count, static_cast<size_t>(planned)));
}

} // extern "C"

// --- emptying a folder

TEST_F(Files, emptiesAFolderAndKeepsIt) {
    file("tree/a", "1");
    file("tree/b/c/d", "2");
    fs::create_directories(folder_ / "tree/empty/deeper");
    const fs::path root = folder_ / "tree";
    EXPECT_EQ(nftw(root.c_str(), unlink_cb, 64, FTW_DEPTH | FTW_PHYS), 0);
    EXPECT_TRUE(fs::is_directory(root));
    EXPECT_TRUE(fs::is_empty(root));
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Files, linksAreRemovedNotFollowed) {
    const std::string outside = file("outside/kept", "precious");
    fs::create_directories(folder_ / "tree");
    fs::create_directory_symlink(folder_ / "outside", folder_ / "tree/folder-link");
    fs::create_symlink(outside, folder_ / "tree/file-link");
    fs::create_symlink("/nowhere/at/all", folder_ / "tree/dangling");
    EXPECT_EQ(nftw((folder_ / "tree").c_str(), unlink_cb, 64, FTW_DEPTH | FTW_PHYS), 0);
    EXPECT_TRUE(fs::is_empty(folder_ / "tree"));
    EXPECT_TRUE(fs::exists(outside));
}

TEST_F(Files, deepTreesGo) {
    // Deeper than the descriptors the walk may use; short names keep the path below its limit.
    fs::path deep = folder_ / "tree";
    for (int depth = 0; depth < 100; ++depth) {
        deep /= "d";
    }
    fs::create_directories(deep);
    EXPECT_EQ(nftw((folder_ / "tree").c_str(), unlink_cb, 64, FTW_DEPTH | FTW_PHYS), 0);
    EXPECT_TRUE(fs::is_empty(folder_ / "tree"));
}

TEST_F(Files, rootOfTheWalkIsLeftAlone) {
    const std::string path = file("kept", "x");
    struct FTW position = {};
    EXPECT_EQ(unlink_cb(path.c_str(), nullptr, FTW_F, &position), 0);
    EXPECT_TRUE(fs::exists(path));
    position.level = 1;
    EXPECT_EQ(unlink_cb(path.c_str(), nullptr, FTW_F, &position), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(Files, failedRemovalEndsTheWalk) {
    const std::string missing = (folder_ / "missing").string();
    struct FTW position = {};
    position.level = 1;
    EXPECT_EQ(unlink_cb(missing.c_str(), nullptr, FTW_F, &position), -1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(70000, "Can't delete " + missing + " : error No such file or directory",
                                     "unlink_cb")));
    platform().log.clear();
    // A folder that still has an entry cannot go: walking parents first shows it.
    file("tree/sub/a", "1");
    EXPECT_EQ(nftw((folder_ / "tree").c_str(), unlink_cb, 64, FTW_PHYS), -1);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(
                    70000, "Can't delete " + (folder_ / "tree/sub").string() + " : error Directory not empty",
                    "unlink_cb")));
    EXPECT_TRUE(fs::exists(folder_ / "tree/sub/a"));
}

// --- temporary folders

TEST_F(Files, temporaryFoldersByTheirPrefix) {
    for (const char *path :
         {"/tmp/", "/tmp/x", "/tmp//", "/tmp/../etc", "/var/volatile/tmp/", "/var/volatile/tmp/x/y"}) {
        EXPECT_EQ(ozuutils_is_temp_file(path), 1) << path;
    }
    for (const char *path :
         {"", "/", "/tmp", "/tmpfoo", "tmp/x", "/TMP/x", " /tmp/x", "//tmp/x", "/var/tmp/x",
          "/var/volatile/tmp", "/var/volatile/tmpx/", "/var/volatile/", "/data/tmp/x"}) {
        EXPECT_EQ(ozuutils_is_temp_file(path), 0) << path;
    }
    EXPECT_EQ(ozuutils_is_temp_file(nullptr), 0);
    EXPECT_THAT(platform().journal, IsEmpty());
}

// --- a file into memory

class FileSizes : public Files, public testing::WithParamInterface<std::size_t> {};

TEST_P(FileSizes, areReadWhole) {
    const std::string content = pattern(GetParam());
    const std::string path = file("content", content);
    ASSERT_EQ(load(path), static_cast<int>(content.size()));
    EXPECT_EQ(platform().log, loaded(path, "file red " + std::to_string(content.size()) + " bytes"));
    ASSERT_NE(buffer_, nullptr);
    EXPECT_EQ(memcmp(buffer_, content.data(), content.size()), 0);
    free(buffer_);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FileSizes,
                         testing::Values(0, 1, 255, 256, 257, 511, 512, 4095, 4096, 4097, 65536, 1048577));

TEST_F(Files, fixedTextsAreNotFormats) {
    load(file("content", "x"));
    free(buffer_);
    std::vector<std::string> formats;
    for (const auto &line : platform().log) {
        formats.push_back(line.format);
    }
    EXPECT_THAT(formats, ElementsAre("loading file content '%s' into dynamic memory", "%s", "%s",
                                     "file red %d bytes", "%s", "file closed %d"));
}

TEST_F(Files, aBigFileTakesFewReads) {
    load(file("content", pattern(1 << 20)));
    free(buffer_);
    EXPECT_LE(faults.readCalls, 4);
}

TEST_F(Files, shortReadsAreGoneOnWith) {
    const std::string content = pattern(1000);
    faults.reads = {1, 300, 7, 500};
    ASSERT_EQ(load(file("content", content)), 1000);
    EXPECT_EQ(memcmp(buffer_, content.data(), content.size()), 0);
    EXPECT_EQ(platform().log[3].text, "file red 1000 bytes");
    free(buffer_);
}

TEST_F(Files, missingFileLeavesTheBufferAlone) {
    const std::string path = (folder_ / "missing").string();
    EXPECT_EQ(load(path), -1);
    EXPECT_EQ(buffer_, this);
    expectRefusal(path, "error opening file");
    EXPECT_EQ(platform().log[1].format, "%s");
}

TEST_F(Files, shortMemoryIsReported) {
    const std::string path = file("content", "abc");
    faults.malloc = true;
    EXPECT_EQ(load(path), -1);
    EXPECT_EQ(buffer_, nullptr);
    expectRefusal(path, "unable to allocate enough memory");
}

TEST_F(Files, whatCannotBeWrittenIsRefusedWithABuffer) {
    // A folder can be examined and read, but never opened for writing, whoever runs the test.
    EXPECT_EQ(load(folder_.string()), -1);
    ASSERT_NE(buffer_, nullptr);
    ASSERT_NE(buffer_, this);
    struct stat folder {};
    ASSERT_EQ(stat(folder_.c_str(), &folder), 0);
    expectContent("", static_cast<std::size_t>(folder.st_size));
    free(buffer_);
    EXPECT_THAT(
        platform().log,
        ElementsAre(extended(20000, "loading file content '" + folder_.string() + "' into dynamic memory",
                             "allocFileToBuff"),
                    extended(20000, "memory allocated successfully", "allocFileToBuff"),
                    extended(70000, "error opening file -1", "allocFileToBuff")));
}

TEST_F(Files, readOnlyFileIsRefusedWithABuffer) {
    const std::string path = file("content", "abc");
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder_.c_str(), 0755), 0);
    // The superuser may write every file, so it lends the call to nobody.
    const uid_t nobody = 65534;
    const bool superuser = geteuid() == 0;
    if (superuser && seteuid(nobody) != 0) {
        GTEST_SKIP() << "nobody is not known here: " << strerror(errno);
    }
    EXPECT_EQ(load(path), -1);
    if (superuser) {
        ASSERT_EQ(seteuid(0), 0);
    }
    ASSERT_NE(buffer_, nullptr);
    ASSERT_NE(buffer_, this);
    expectContent("", 3);
    free(buffer_);
    EXPECT_EQ(platform().log.back(), extended(70000, "error opening file -1", "allocFileToBuff"));
}

TEST_F(Files, failedReadIsNamedAndTheSizeReturned) {
    faults.reads = {3, -1};
    const std::string path = file("content", "abcdef");
    EXPECT_EQ(load(path), 6);
    EXPECT_EQ(platform().log, loaded(path, "file red encountered an error -1"));
    expectContent("abc", 6);
    free(buffer_);
}

TEST_F(Files, failedCloseIsNamed) {
    faults.close = true;
    EXPECT_EQ(load(file("content", "abc")), 3);
    EXPECT_EQ(platform().log.back(), extended(20000, "file closed -1", "allocFileToBuff"));
    free(buffer_);
}

TEST_F(Files, aFileThatShrankGivesItsFormerSize) {
    const std::string path = file("content", pattern(600));
    platform().onCall["ozulog_printf_extend"] = [&path] {
        if (platform().log.back().text == "memory allocated successfully") {
            ASSERT_EQ(truncate(path.c_str(), 10), 0);
        }
    };
    EXPECT_EQ(load(path), 600);
    EXPECT_EQ(platform().log, loaded(path, "file red 10 bytes"));
    expectContent(pattern(10), 600);
    free(buffer_);
}

TEST_F(Files, aFileThatGrewIsCutButCounted) {
    const std::string content = pattern(600);
    const std::string path = file("content", content);
    platform().onCall["ozulog_printf_extend"] = [&path] {
        if (platform().log.back().text == "memory allocated successfully") {
            std::ofstream(path, std::ios::app) << std::string(10000, '!');
        }
    };
    EXPECT_EQ(load(path), 600);
    EXPECT_EQ(platform().log, loaded(path, "file red 10600 bytes"));
    EXPECT_EQ(memcmp(buffer_, content.data(), content.size()), 0);
    free(buffer_);
}

TEST_F(Files, filesOfUnknownSizeAreCountedToo) {
    // Reports size 0 and holds text, and is writable for its owner.
    const std::string path = "/proc/self/comm";
    EXPECT_EQ(load(path), 0);
    ASSERT_NE(buffer_, nullptr);
    EXPECT_NE(platform().log[3].text, "file red 0 bytes");
    EXPECT_EQ(platform().log[3].text.rfind("file red ", 0), 0u);
    expectContent("", 1);
    free(buffer_);
}

TEST_F(Files, filesOfAWholePageHoldLess) {
    // Files under /sys report a page and hold a line. Most are read-only, which only the superuser overcomes.
    const char *path = "/sys/kernel/profiling";
    struct stat status = {};
    if (stat(path, &status) != 0 || access(path, W_OK) != 0) {
        GTEST_SKIP() << "no writable file of /sys here: " << strerror(errno);
    }
    EXPECT_EQ(status.st_size, 4096);
    EXPECT_EQ(load(path), 4096);
    const auto *text = static_cast<const char *>(buffer_);
    const std::size_t length = strnlen(text, 4096);
    EXPECT_EQ(platform().log[3].text, "file red " + std::to_string(length) + " bytes");
    expectContent(std::string(text, length), 4096);
    free(buffer_);
}

TEST_F(Files, aFileWithoutContentReadsAsZero) {
    EXPECT_EQ(load(file("empty", "")), 0);
    expectContent("", 1);
    free(buffer_);
}

TEST_F(Files, whatThePanelCannotExamineIsRefused) {
    const std::string path = file("huge", "");
    if (truncate(path.c_str(), 2147483647) != 0) {
        GTEST_SKIP() << "no sparse file of 2 GiB here: " << strerror(errno);
    }
    // One byte less than the limit would be read; it is not, here, for want of memory.
    faults.malloc = true;
    EXPECT_EQ(load(path), -1);
    EXPECT_EQ(platform().log.back().text, "unable to allocate enough memory");
    buffer_ = this;
    ASSERT_EQ(truncate(path.c_str(), 2147483648LL), 0);
    EXPECT_EQ(load(path), -1);
    EXPECT_EQ(platform().log.back().text, "error opening file");
    EXPECT_EQ(buffer_, this);
}

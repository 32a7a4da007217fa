// The log: its line, its filter, its file, and what a disk or a reader in trouble does to it.

#include "panel_folder.h"

#include "captured.h"
#include "log_line.h"

#include <ozudb.h>
#include <ozulog.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>

using namespace ozu::platform;
using namespace ozu::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class LogTest : public PanelFolder {
  protected:
    static void start(const char *severity) {
        ASSERT_EQ(ozudb_addProc2Log("alarmd", severity, getpid()), 0);
        ASSERT_EQ(ozulog_init("alarmd"), 0);
    }
    static std::vector<std::string> lines() { return linesOf(logFile("alarmd")); }
    // Texts of the file's lines, without everything before them.
    static std::vector<std::string> texts() {
        std::vector<std::string> all;
        for (const auto &line : lines()) {
            std::size_t at = 0;
            for (int spaces = 0; spaces < 6; ++spaces) {
                at = line.find(' ', at) + 1;
            }
            all.push_back(line.substr(at));
        }
        return all;
    }
};

} // namespace

TEST_F(LogTest, lineHasTheDocumentedShape) {
    start("TRACE");
    ozulog_printf_extend(40000, "%s is %d", "src/utils", "exec_cmd", 17, "answer", 42);
    ozulog_printf(10000, "short");
    const std::string head = "20[0-9-]+T[0-9:]+\\.[0-9]{3}Z ";
    const std::string process = " alarmd\\[" + std::to_string(getpid()) + "\\] ";
    ASSERT_EQ(lines().size(), 2U);
    EXPECT_THAT(lines()[0], MatchesRegex(head + "40000 N" + process + "src/utils exec_cmd:17 answer is 42"));
    EXPECT_THAT(lines()[1], MatchesRegex(head + "10000 T" + process + "- - short"));
}

TEST_F(LogTest, everyLevelHasItsLetter) {
    start("TRACE");
    for (const int level : {1, 10000, 20000, 30000, 40000, 50000, 60000, 70000, 80000, 99999}) {
        ozulog_printf(level, "%s", "x");
    }
    std::string letters;
    for (const auto &line : lines()) {
        const std::size_t level = line.find(' ') + 1;
        letters += line[line.find(' ', level) + 1];
    }
    EXPECT_EQ(letters, "TDINWRECC"); // level 1 is below TRACE
}

TEST_F(LogTest, sameLinesGoToStandardError) {
    ozu::test::captureStderr();
    start("INFO");
    ozulog_printf(30000, "%s", "hello");
    EXPECT_EQ(ozu::test::capturedStderr(), lines()[0] + "\n");
}

TEST_F(LogTest, beforeInitLinesGoToStandardErrorUnfiltered) {
    ozu::test::captureStderr();
    EXPECT_EQ(ozulog_printf_extend(10000, "%s", "src/utils", "f", 1, "early"), 0);
    EXPECT_THAT(ozu::test::capturedStderr(), EndsWith(" src/utils f:1 early\n"));
    EXPECT_NE(access(logFolder().c_str(), F_OK), 0);
}

TEST_F(LogTest, severityFiltersAndFollowsChanges) {
    start("WARNING");
    ozulog_printf(40000, "%s", "too low");
    ozulog_printf(50000, "%s", "first");
    ASSERT_EQ(setSeverity("alarmd", "OFF"), 0);
    ozulog_printf(80000, "%s", "off");
    ASSERT_EQ(setSeverity("alarmd", "TRACE"), 0);
    ozulog_printf(10000, "%s", "second");
    EXPECT_EQ(inChild([] { return setSeverity("alarmd", "CRITICAL"); }), 0); // by another process
    ozulog_printf(70000, "%s", "too low again");
    ozulog_printf(80000, "%s", "third");
    EXPECT_THAT(texts(), ElementsAre("first", "second", "third"));
}

TEST_F(LogTest, textIsOnePrintableLine) {
    EXPECT_EQ(escaped("a\nb\r\t\x1b[31m\x7f\\", 100), "a\\nb\\r\\t\\x1B[31m\\x7F\\\\");
    EXPECT_EQ(escaped("\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x94\x94", 100),
              "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x94\x94");
    EXPECT_EQ(escaped("\xC2\x9B", 100), "\\xC2\\x9B"); // the one-byte form of escape-[
    EXPECT_EQ(escaped("\xC3(", 100), "\\xC3(");        // broken sequences
    EXPECT_EQ(escaped("\xC0\xAF\xE0\x80\x80", 100), "\\xC0\\xAF\\xE0\\x80\\x80"); // overlong
    EXPECT_EQ(escaped("\xED\xA0\x80", 100), "\\xED\\xA0\\x80");                   // surrogate
    EXPECT_EQ(escaped("\xF4\x90\x80\x80", 100), "\\xF4\\x90\\x80\\x80");
    EXPECT_EQ(escaped("\xE2\x82", 100), "\\xE2\\x82");
    EXPECT_EQ(escaped("\xFF", 100), "\\xFF");
}

TEST_F(LogTest, noCharacterChangesHowATerminalShowsOthers) {
    const auto utf8 = [](char32_t character) {
        std::string text;
        if (character < 0x80) {
            text = {static_cast<char>(character)};
        } else if (character < 0x800) {
            text = {static_cast<char>(0xC0 | character >> 6), static_cast<char>(0x80 | (character & 0x3F))};
        } else if (character < 0x10000) {
            text = {static_cast<char>(0xE0 | character >> 12),
                    static_cast<char>(0x80 | (character >> 6 & 0x3F)),
                    static_cast<char>(0x80 | (character & 0x3F))};
        } else {
            text = {static_cast<char>(0xF0 | character >> 18),
                    static_cast<char>(0x80 | (character >> 12 & 0x3F)),
                    static_cast<char>(0x80 | (character >> 6 & 0x3F)),
                    static_cast<char>(0x80 | (character & 0x3F))};
        }
        return text;
    };
    const auto isEscaped = [&](char32_t character) {
        std::string expected;
        for (const char byte : utf8(character)) {
            std::array<char, 5> hexadecimal{};
            snprintf(hexadecimal.data(), hexadecimal.size(), "\\x%02X", static_cast<unsigned char>(byte));
            expected += hexadecimal.data();
        }
        return escaped(utf8(character), 100) == expected;
    };
    for (char32_t control = 0x7F; control <= 0x9F; ++control) {
        EXPECT_TRUE(isEscaped(control)) << static_cast<unsigned>(control);
    }
    for (const char32_t character :
         std::initializer_list<char32_t>{0x00AD, 0x061C, 0x200B, 0x200E, 0x200F, 0x2028, 0x2029, 0x202A,
                                         0x202B, 0x202C, 0x202D, 0x202E, 0x2060, 0x2066, 0x2067, 0x2068,
                                         0x2069, 0xD800, 0xDFFF, 0xFDD0, 0xFEFF, 0xFFFE, 0xFFFF, 0xE0001}) {
        EXPECT_TRUE(isEscaped(character)) << static_cast<unsigned>(character);
    }
    for (const char32_t character :
         std::initializer_list<char32_t>{0x20, 0x7E, 0xA0, 0xFF, 0x61B, 0x61D, 0x200A, 0x2010, 0x2027, 0x202F,
                                         0x205F, 0x2070, 0xFFFD, 0x1F514}) {
        EXPECT_EQ(escaped(utf8(character), 100), utf8(character)) << static_cast<unsigned>(character);
    }
}

TEST_F(LogTest, longTextIsCutAtACharacter) {
    EXPECT_EQ(escaped("abcdef", 6), "abcdef");
    EXPECT_EQ(escaped("abcdefg", 6), "abc...");
    EXPECT_EQ(escaped("abc\n\n", 6), "abc...");
    EXPECT_EQ(escaped("\n\n\n\n", 6), "\\n...");
    for (std::size_t most = 0; most < 20; ++most) {
        EXPECT_LE(
            escaped("\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC",
                    most)
                .size(),
            most);
    }
    start("TRACE");
    for (const std::size_t length : {4000U, 4090U, 4096U, 10000U, 100000U}) {
        ozulog_printf(30000, "%s", std::string(length, 'x').c_str());
        ozulog_printf(30000, "%s", std::string(length, '\n').c_str());
    }
    for (const auto &line : lines()) {
        EXPECT_LT(line.size(), kMaxLine);
    }
    EXPECT_EQ(lines().size(), 10U);
}

TEST_F(LogTest, errnoIsLeftAlone) {
    start("TRACE");
    errno = EXDEV;
    ozulog_printf(30000, "%s", "x");
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(LogTest, rotatesBySize) {
    ASSERT_EQ(setSetting("log.max_bytes", "4096"), 0);
    ASSERT_EQ(setSetting("log.files", "2"), 0);
    start("TRACE");
    for (int i = 0; i < 300; ++i) {
        ozulog_printf(30000, "line %d", i);
    }
    EXPECT_THAT(texts().back(), EndsWith("line 299"));
    for (const char *suffix : {"", ".1", ".2"}) {
        struct stat found {};
        ASSERT_EQ(stat((logFile("alarmd") + suffix).c_str(), &found), 0) << suffix;
        EXPECT_LT(found.st_size, 4096 + 200);
    }
    EXPECT_NE(access((logFile("alarmd") + ".3").c_str(), F_OK), 0);
}

TEST_F(LogTest, processesThatShareAFileLoseNoLineWhenItRotates) {
    ASSERT_EQ(setSetting("log.max_bytes", "8192"), 0);
    ASSERT_EQ(setSetting("log.files", "99"), 0);
    constexpr int kLines = 500;
    std::vector<pid_t> children;
    for (int process = 0; process < 4; ++process) {
        children.push_back(startChild([process] {
            close(STDERR_FILENO);
            if (ozulog_init("shared") != 0) {
                return 1;
            }
            for (int i = 0; i < kLines; ++i) {
                ozulog_printf(50000, "line %d of %d", i, process);
            }
            return 0;
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(waitForChild(child), 0);
    }
    std::multiset<std::string> found;
    for (int number = 0; number <= 99; ++number) {
        const std::string suffix = number == 0 ? "" : "." + std::to_string(number);
        for (const auto &line : linesOf(logFile("shared") + suffix)) {
            found.insert(line.substr(line.find("- - ") + 4));
        }
    }
    EXPECT_EQ(found.size(), 4U * kLines);
    for (int process = 0; process < 4; ++process) {
        for (int i = 0; i < kLines; ++i) {
            const std::string text = "line " + std::to_string(i) + " of " + std::to_string(process);
            ASSERT_EQ(found.count(text), 1U) << text;
        }
    }
}

TEST_F(LogTest, removedFileIsMadeAnew) {
    start("TRACE");
    ozulog_printf(30000, "%s", "one");
    unlink(logFile("alarmd").c_str());
    ozulog_printf(30000, "%s", "two");
    EXPECT_THAT(texts(), ElementsAre("two"));
}

// ---- what others have put in the log's place
// ------------------------------------------------------------------------------

TEST_F(LogTest, removedFolderIsMadeAnew) {
    start("TRACE");
    ozulog_printf(30000, "%s", "one");
    std::filesystem::remove_all(folder() + "/log");
    ozulog_printf(30000, "%s", "two");
    EXPECT_THAT(texts(), ElementsAre("two"));
}

TEST_F(LogTest, whatRootMakesBelongsToTheOwnerOfTheFolder) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "not root";
    }
    constexpr uid_t kOwner = 65534;
    ASSERT_EQ(chown(folder().c_str(), kOwner, kOwner), 0);
    start("TRACE");
    struct stat found {};
    for (const std::string &path : {folder() + "/log", logFile("alarmd")}) {
        ASSERT_EQ(stat(path.c_str(), &found), 0) << path;
        EXPECT_EQ(found.st_uid, kOwner) << path;
    }
}

TEST_F(LogTest, whateverStandsInThePlaceOfTheFileIsRefusedAtOnce) {
    ASSERT_EQ(ozudb_addProc2Log("alarmd", "TRACE", getpid()), 0);
    ASSERT_EQ(mkdir(logFolder().c_str(), 0700), 0);
    const std::string path = logFile("alarmd");
    const std::string victim = folder() + "/victim";
    rewriteFile(victim, "precious");
    const std::vector<std::pair<const char *, std::function<int()>>> plants{
        {"is a link", [&] { return symlink(victim.c_str(), path.c_str()); }},
        {"is a link", [&] { return symlink((folder() + "/nowhere").c_str(), path.c_str()); }},
        {"is a FIFO", [&] { return mkfifo(path.c_str(), 0600); }},
        {"is a folder", [&] { return mkdir(path.c_str(), 0700); }},
        {"hard link", [&] { return link(victim.c_str(), path.c_str()); }},
    };
    for (const auto &[what, plant] : plants) {
        ASSERT_EQ(plant(), 0) << what;
        alarm(20);
        ozu::test::captureStderr();
        EXPECT_EQ(ozulog_init("alarmd"), kCannotOpen) << what;
        EXPECT_THAT(ozu::test::capturedStderr(), AllOf(HasSubstr(path), HasSubstr(what)));
        alarm(0);
        EXPECT_EQ(contentOf(victim), "precious");
        EXPECT_NE(access((folder() + "/nowhere").c_str(), F_OK), 0);
        remove(path.c_str());
    }
    EXPECT_EQ(ozulog_init("alarmd"), 0);
}

TEST_F(LogTest, linkInPlaceOfTheFolderIsRefused) {
    ASSERT_EQ(ozudb_addProc2Log("alarmd", "TRACE", getpid()), 0);
    const std::string elsewhere = folder() + "/elsewhere";
    ASSERT_EQ(mkdir(elsewhere.c_str(), 0700), 0);
    ASSERT_EQ(symlink(elsewhere.c_str(), logFolder().c_str()), 0);
    EXPECT_EQ(ozulog_init("alarmd"), kCannotOpen);
    EXPECT_EQ(access((elsewhere + "/alarmd.log").c_str(), F_OK), -1);
}

TEST_F(LogTest, whatIsPutThereLaterIsLeftAloneAndBlocksNobody) {
    start("TRACE");
    const std::string path = logFile("alarmd");
    const std::string victim = folder() + "/victim";
    rewriteFile(victim, "precious");
    const std::string moved = folder() + "/moved";
    for (const auto &plant : std::vector<std::function<int()>>{
             [&] { return symlink(victim.c_str(), path.c_str()); },
             [&] { return mkfifo(path.c_str(), 0600); }, [&] { return mkdir(path.c_str(), 0700); },
             [&] { return link(victim.c_str(), path.c_str()); }}) {
        ozulog_printf(30000, "%s", "before");
        ASSERT_EQ(rename(path.c_str(), moved.c_str()), 0);
        ASSERT_EQ(plant(), 0);
        alarm(20);
        ozulog_printf(30000, "%s", "meanwhile");
        alarm(0);
        EXPECT_EQ(contentOf(victim), "precious");
        EXPECT_THAT(linesOf(moved).back(), EndsWith("meanwhile")); // the file of before
        remove(path.c_str());
        ozulog_printf(30000, "%s", "after");
        EXPECT_THAT(texts(), ElementsAre("after"));
    }
}

TEST_F(LogTest, rotationPassesByWhatIsNotALogFile) {
    ASSERT_EQ(setSetting("log.max_bytes", "4096"), 0);
    ASSERT_EQ(setSetting("log.files", "4"), 0);
    start("TRACE");
    const std::string path = logFile("alarmd");
    const std::string victim = folder() + "/victim";
    rewriteFile(victim, "precious");
    ASSERT_EQ(mkdir((path + ".1").c_str(), 0700), 0);
    rewriteFile(path + ".1/inside", "x");
    ASSERT_EQ(mkfifo((path + ".2").c_str(), 0600), 0);
    ASSERT_EQ(symlink(victim.c_str(), (path + ".3").c_str()), 0);
    ASSERT_EQ(mkfifo((logFolder() + "/.rotate").c_str(), 0600), 0);
    alarm(20);
    for (int i = 0; i < 500; ++i) {
        ozulog_printf(30000, "line %d", i);
    }
    alarm(0);
    struct stat found {};
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    EXPECT_LT(found.st_size, 4096 + 200); // it was rotated all the same
    ASSERT_EQ(lstat((path + ".4").c_str(), &found), 0);
    EXPECT_TRUE(S_ISREG(found.st_mode));
    EXPECT_EQ(contentOf(victim), "precious");
    EXPECT_EQ(contentOf(path + ".1/inside"), "x");
}

TEST_F(LogTest, stoppedProcessInARotationBlocksNobody) {
    ASSERT_EQ(setSetting("log.max_bytes", "4096"), 0);
    start("TRACE");
    const int held = open(logFile("alarmd").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0); // as a process does that is stopped just then
    alarm(20);
    for (int i = 0; i < 300; ++i) {
        ozulog_printf(30000, "line %d", i);
    }
    alarm(0);
    close(held);
    EXPECT_THAT(texts().back(), EndsWith("line 299"));
}

TEST_F(LogTest, fileThatOthersMayReadIsClosedToThem) {
    start("TRACE");
    ASSERT_EQ(chmod(logFile("alarmd").c_str(), 0666), 0);
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    struct stat found {};
    ASSERT_EQ(stat(logFile("alarmd").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0600U);
}

TEST_F(LogTest, readerThatStopsReadingBlocksNobody) {
    EXPECT_EQ(inChild([] {
                  std::array<int, 2> ends{};
                  if (pipe(ends.data()) != 0 || dup2(ends[1], STDERR_FILENO) < 0) {
                      return 1;
                  }
                  alarm(20);
                  if (ozulog_init("alarmd") != 0) {
                      return 2;
                  }
                  for (int i = 0; i < 500; ++i) { // more than a pipe holds
                      ozulog_printf(50000, "%s", std::string(1000, 'x').c_str());
                  }
                  close(ends[0]); // now nobody reads at all: no SIGPIPE
                  ozulog_printf(50000, "%s", "still here");
                  return 0;
              }),
              0);
    EXPECT_EQ(lines().size(), 501U);
}

TEST_F(LogTest, stoppedTerminalBlocksNobody) {
    EXPECT_EQ(inChild([] {
                  int reader = -1;
                  int terminal = -1;
                  if (openpty(&reader, &terminal, nullptr, nullptr, nullptr) != 0 ||
                      dup2(terminal, STDERR_FILENO) < 0) {
                      return 1;
                  }
                  alarm(20);
                  if (ozulog_init("alarmd") != 0) {
                      return 2;
                  }
                  for (int i = 0; i < 500; ++i) {
                      ozulog_printf(50000, "%s", std::string(1000, 'x').c_str());
                  }
                  return 0;
              }),
              0);
    EXPECT_EQ(lines().size(), 500U);
}

TEST_F(LogTest, threadsWriteWholeLines) {
    start("TRACE");
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < 200; ++i) {
                ozulog_printf_extend(30000, "%d:%d", "src/utils", "f", i, thread, i);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    std::set<std::string> found;
    for (const auto &line : lines()) {
        found.insert(line.substr(line.rfind(' ')));
    }
    EXPECT_EQ(lines().size(), 1600U);
    EXPECT_EQ(found.size(), 1600U);
}

TEST_F(LogTest, relativeFolderStaysWhereItWas) {
    const std::string parent = std::filesystem::path(folder()).parent_path();
    const std::string name = std::filesystem::path(folder()).filename();
    EXPECT_EQ(inChild([&] {
                  setenv("OZU_PLATFORM_DIR", name.c_str(), 1);
                  if (chdir(parent.c_str()) != 0 || ozulog_init("alarmd") != 0) {
                      return 1;
                  }
                  std::filesystem::create_directory(parent + "/elsewhere");
                  closePlatform();
                  return chdir("elsewhere") == 0 && ozulog_init("alarmd") == 0 ? 0 : 2;
              }),
              0);
    EXPECT_FALSE(std::filesystem::exists(parent + "/elsewhere/" + name));
}

TEST_F(LogTest, worksWithoutTheDatabase) {
    rewriteFile(folder() + "/ozu.db", std::string(4096, 'x'));
    ASSERT_EQ(ozulog_init("alarmd"), 0);
    ozulog_printf(20000, "%s", "below the default");
    ozulog_printf(30000, "%s", "kept");
    EXPECT_EQ(texts().back(), "kept");
}

TEST_F(LogTest, forkedChildLogsUnderItsOwnNumber) {
    start("TRACE");
    const pid_t child = fork();
    if (child == 0) {
        ozulog_printf(30000, "%s", "from the child");
        _exit(0);
    }
    ASSERT_EQ(waitForChild(child), 0);
    EXPECT_THAT(lines().back(), HasSubstr("alarmd[" + std::to_string(child) + "] - - from the child"));
}

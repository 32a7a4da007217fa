// Commands with real children; the system calls in between are wrapped to count and to fail them.
#include <utils_ozu/command.h>

#include "captured.h"
#include "process_test.h"
#include "random_numbers.h"
#include "resource_count.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>
#include <thread>

namespace {

struct Faults {
    int failPipe = 0; // the n-th fails
    bool failFork = false;
    bool strayAnswer = false; // select reports a descriptor, but not this one
    bool failRead = false;
    bool selectWaits = false; // select waits for output however short the timeout
    int pipes = 0;
    pid_t child = -1;
    int childSignal = 0; // sent by kill
    bool signalArrived = false;
    std::vector<timeval> timeouts;
    int selected = -1;
};
Faults faults;

std::set<int> openFds() {
    std::set<int> fds;
    for (int fd = 0; fd < 3000; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) {
            fds.insert(fd);
        }
    }
    return fds;
}

class Command : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        faults = Faults();
        before_ = openFds();
        output_.assign(600, '#');
    }
    void TearDown() override {
        for (const int fd : newFds()) {
            EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
            close(fd);
        }
        PlatformTest::TearDown();
    }
    std::vector<int> newFds() const {
        std::vector<int> fds;
        for (const int fd : openFds()) {
            if (before_.count(fd) == 0) {
                fds.push_back(fd);
            }
        }
        return fds;
    }
    int run(const std::string &command, int timeout, const char *marker) {
        return exec_cmd(command.c_str(), timeout, marker, output_.data());
    }
    // What the child left, and that it was left: the status of the one child there is.
    static int reap() {
        EXPECT_EQ(ozu::test::children(), 1);
        int status = -1;
        EXPECT_EQ(waitpid(faults.child, &status, 0), faults.child);
        return status;
    }
    // The call has sent SIGTERM and the child runs on.
    static void expectSignalledAndAlive();
    // The output buffer as the call documents it: 512 bytes written, nothing after them.
    void expectOutput(const std::string &text) const {
        std::string expected = text;
        expected.resize(512, '\0');
        EXPECT_EQ(std::string(output_.data(), 512), expected);
        EXPECT_EQ(std::string(output_.begin() + 512, output_.end()), std::string(88, '#'));
    }
    void expectUntouched() const {
        EXPECT_EQ(std::string(output_.begin(), output_.end()), std::string(600, '#'));
    }

    std::set<int> before_;
    std::vector<char> output_;
};

LogLine line(int level, const std::string &text) {
    return extended(level, text, "exec_cmd");
}

std::vector<std::string> texts() {
    std::vector<std::string> all;
    for (const auto &entry : platform().log) {
        all.push_back(entry.text);
    }
    return all;
}

// A file for /bin/sh: a command line has no quotes, so that -c cannot be used.
std::string script(const std::string &body) {
    std::string path = testing::TempDir() + "command_test." + std::to_string(getpid()) + ".sh";
    FILE *file = fopen(path.c_str(), "w");
    fputs(body.c_str(), file);
    fclose(file);
    return path;
}

} // namespace

extern "C" {

int __real_pipe2(int *ends, int flags);
pid_t __real_fork();
int __real_select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *timeout);
ssize_t __real_read(int fd, void *buffer, size_t count);
int __real_kill(pid_t pid, int number);

int __wrap_pipe2(int *ends, int flags) {
    if (++faults.pipes == faults.failPipe) {
        errno = EMFILE;
        return -1;
    }
    return __real_pipe2(ends, flags);
}

pid_t __wrap_fork() {
    if (faults.failFork) {
        errno = EAGAIN;
        return -1;
    }
    const pid_t pid = __real_fork();
    if (pid > 0) {
        faults.child = pid;
    }
    return pid;
}

// Nothing but this descriptor, in a set that is never shorter than fd_set.
static void expectSetOf(int only, const fd_set *set) {
    const auto *words = reinterpret_cast<const unsigned long *>(set);
    constexpr int kBits = 8 * sizeof(long);
    const int end = std::max(FD_SETSIZE, (only / kBits + 1) * kBits);
    for (int fd = 0; fd < end; ++fd) {
        EXPECT_EQ((words[fd / kBits] >> (fd % kBits) & 1UL) != 0, fd == only) << fd;
    }
}

int __wrap_select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *timeout) {
    EXPECT_EQ(writing, nullptr);
    EXPECT_EQ(failing, nullptr);
    faults.timeouts.push_back(*timeout);
    faults.selected = count - 1;
    expectSetOf(faults.selected, reading);
    if (faults.strayAnswer) {
        *reading = fd_set();
        return 1;
    }
    timeval longer = {20, 0};
    return __real_select(count, reading, writing, failing, faults.selectWaits ? &longer : timeout);
}

ssize_t __wrap_read(int fd, void *buffer, size_t count) {
    if (fd == faults.selected) {
        EXPECT_EQ(count, 512u);
        if (faults.failRead) {
            errno = EIO;
            return -1;
        }
    }
    return __real_read(fd, buffer, count);
}

int __wrap_kill(pid_t pid, int number) {
    if (pid == faults.child) {
        faults.childSignal = number;
        platform().journal.push_back("kill(child, " + std::to_string(number) + ")");
    }
    const int result = __real_kill(pid, number);
    faults.signalArrived = pid == faults.child && result == 0;
    return result;
}

} // extern "C"

TEST_F(Command, runsUntilTheMarker) {
    faults.selectWaits = true;
    EXPECT_EQ(run("/bin/echo  one   READY two", 5, "READY"), 1);
    EXPECT_THAT(platform().log,
                ElementsAre(line(30000, "Executing command with timeout 5: /bin/echo  one   READY two"),
                            line(30000, "command[0]: /bin/echo"), line(30000, "command[1]: one"),
                            line(30000, "command[2]: READY"), line(30000, "command[3]: two"),
                            line(30000, "command[4]: (null)"), line(30000, "Run executable for 5 seconds..."),
                            line(20000, "reading output..."), line(30000, "output:\none READY two\n"),
                            line(30000, "End string detected"), line(30000, "killing executable"),
                            line(30000, "exec_cmd() ret value: 1")));
    for (const std::size_t fixed : {7U, 9U, 10U}) {
        EXPECT_EQ(platform().log[fixed].format, "%s");
    }
    expectOutput("one READY two\n");
    EXPECT_EQ(faults.childSignal, SIGTERM);
    ASSERT_EQ(newFds().size(), 2u); // and both close on exec, see TearDown
    EXPECT_EQ(faults.timeouts.front().tv_sec, 5);
    EXPECT_EQ(faults.timeouts.front().tv_usec, 0);
    reap();
}

TEST_F(Command, outputIsClosedBeforeTheChildIsEnded) {
    platform().onCall["ozulog_printf_extend"] = [this] {
        if (platform().log.back().text == "killing executable") {
            EXPECT_EQ(newFds().size(), 2u);
            EXPECT_EQ(faults.childSignal, 0);
        }
    };
    EXPECT_EQ(run("/bin/echo READY", 5, "READY"), 1);
    EXPECT_EQ(std::vector<std::string>(platform().journal.end() - 3, platform().journal.end()),
              (std::vector<std::string>{"log 30000 killing executable", "kill(child, 15)",
                                        "log 30000 exec_cmd() ret value: 1"}));
    reap();
}

TEST_F(Command, worksWithoutOutputBuffer) {
    EXPECT_EQ(exec_cmd("/bin/echo READY", 5, "READY", nullptr), 1);
    reap();
}

TEST_F(Command, emptyCommandsAreRefused) {
    EXPECT_EQ(exec_cmd(nullptr, 1, "x", output_.data()), -2);
    EXPECT_EQ(run("", 1, "x"), -2);
    EXPECT_THAT(platform().log, ElementsAre(line(70000, "given command is empty: (null)"),
                                            line(70000, "given command is empty: ")));
    expectUntouched();
    EXPECT_EQ(faults.pipes, 0);
}

TEST_F(Command, lengthEndsAt511) {
    std::string command = "/bin/echo ";
    command.append(511 - command.size(), 'x');
    EXPECT_EQ(run(command, 5, "x"), 1);
    expectOutput(command.substr(10) + "\n");
    reap();

    platform().log.clear();
    output_.assign(600, '#');
    command += "x";
    EXPECT_EQ(run(command, 5, "x"), -2);
    EXPECT_THAT(platform().log, ElementsAre(line(70000, "Command execution is too long: " + command)));
    expectUntouched();
}

TEST_F(Command, eighteenWordsRunNineteenDoNot) {
    std::string command = "/bin/echo";
    for (int word = 2; word <= 18; ++word) {
        command += " w" + std::to_string(word);
    }
    EXPECT_EQ(run(command, 5, "w18\n"), 1);
    EXPECT_THAT(texts(), Contains("command[18]: (null)"));
    reap();

    for (const char *more : {" w19", " w19 w20", " w19 w20 w21 w22"}) {
        platform().log.clear();
        output_.assign(600, '#');
        const std::string tooMany = command + more;
        EXPECT_EQ(run(tooMany, 5, "w18"), -2);
        EXPECT_THAT(platform().log,
                    ElementsAre(line(30000, "Executing command with timeout 5: " + tooMany),
                                line(30000, "Too many parameters in command, max value is 20")));
        expectUntouched();
    }
    EXPECT_EQ(faults.pipes, 2);
    // Spaces at the end are no word.
    EXPECT_EQ(run(command + "   ", 5, "w18\n"), 1);
    reap();
}

TEST_F(Command, noShellStandsBetween) {
    EXPECT_EQ(run("/bin/echo $HOME *;|> \"a b\" \t'c' END", 5, "END"), 1);
    expectOutput("$HOME *;|> \"a b\" \t'c' END\n");
    reap();
}

TEST_F(Command, programComesFromThePath) {
    EXPECT_EQ(run("echo READY", 5, "READY"), 1);
    reap();
}

TEST_F(Command, timeIsUpWithoutTheMarker) {
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(run("/bin/echo READY", 1, "never"), -1);
    // The child ended at once; the call does not see that.
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(990));
    expectOutput("");
    EXPECT_THAT(platform().log, Contains(shortLine(40000, "probing timed out")));
    EXPECT_THAT(platform().log, Contains(line(30000, "exec_cmd() ret value: -1")));
    for (const auto &entry : platform().log) {
        EXPECT_EQ(entry.format == "%s", entry.text == "probing timed out" ||
                                            entry.text == "reading output..." ||
                                            entry.text == "killing executable");
    }
    // One timeout for the whole run: what the first wait took is gone.
    ASSERT_EQ(faults.timeouts.size(), 2u);
    EXPECT_EQ(faults.timeouts[0].tv_sec, 1);
    EXPECT_EQ(faults.timeouts[1].tv_sec, 0);
    EXPECT_TRUE(WIFEXITED(reap()));
}

TEST_F(Command, withoutMarkerOnlyTimeEndsIt) {
    EXPECT_EQ(run("/bin/echo READY", 1, nullptr), -1);
    expectOutput("");
    reap();
}

TEST_F(Command, noTimeAtAll) {
    EXPECT_EQ(run("/bin/sleep 30", 0, "x"), -1);
    expectOutput("");
    const int status = reap();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

TEST_F(Command, negativeTimeFails) {
    EXPECT_EQ(run("/bin/sleep 30", -1, "x"), -2);
    EXPECT_THAT(platform().log, Contains(line(70000, "select(): Invalid argument")));
    expectOutput("");
    EXPECT_EQ(faults.childSignal, SIGTERM);
    reap();
}

TEST_F(Command, strayAnswerFails) {
    faults.strayAnswer = true;
    EXPECT_EQ(run("/bin/sleep 30", 1, "x"), -2);
    EXPECT_THAT(platform().log, Contains(line(70000, "Unexpected error, select_retval 1")));
    expectOutput("");
    reap();
}

TEST_F(Command, failedReadEndsTheOutput) {
    faults.failRead = true;
    EXPECT_EQ(run("/bin/echo READY", 5, "READY"), 0);
    EXPECT_THAT(texts(), Not(Contains(testing::StartsWith("output:"))));
    EXPECT_THAT(platform().log, Contains(line(30000, "exec_cmd() ret value: 0")));
    expectOutput("");
    EXPECT_EQ(faults.childSignal, SIGTERM);
    reap();
}

TEST_F(Command, emptyMarkerIsInEveryRead) {
    EXPECT_EQ(run("/bin/echo READY", 5, ""), 1);
    expectOutput("READY\n");
    reap();
    // Even in one that failed.
    faults.failRead = true;
    EXPECT_EQ(run("/bin/echo READY", 5, ""), 1);
    expectOutput("");
    reap();
}

TEST_F(Command, signalsEndTheWait) {
    struct sigaction handler = {};
    struct sigaction former = {};
    handler.sa_handler = [](int) {};
    sigaction(SIGALRM, &handler, &former);
    const itimerval soon = {{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(run("/bin/sleep 30", 5, "x"), -2);
    const itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &former, nullptr);
    EXPECT_THAT(platform().log, Contains(line(70000, "select(): Interrupted system call")));
    reap();
}

TEST_F(Command, fullReadHasNoTerminator) {
    // 512 characters in one write; the marker is the last of them.
    void *pages = mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    char *border = static_cast<char *>(pages) + 4096;
    ASSERT_EQ(mprotect(border, 4096, PROT_NONE), 0);
    EXPECT_EQ(exec_cmd("/usr/bin/printf %0512d 7", 5, "07", border - 512), 1);
    EXPECT_EQ(std::string(border - 512, 512), std::string(511, '0') + "7");
    munmap(pages, 8192);
    // The log has the first 300.
    EXPECT_THAT(platform().log, Contains(line(30000, "output:\n" + std::string(300, '0'))));
    reap();
}

TEST_F(Command, aReadOf511IsTerminated) {
    EXPECT_EQ(run("/usr/bin/printf %0511d 7", 5, "07"), 1);
    expectOutput(std::string(510, '0') + "7");
    EXPECT_EQ(output_[511], '\0');
    reap();
}

TEST_F(Command, markerBetweenTwoReadsIsMissed) {
    EXPECT_EQ(run("/usr/bin/printf %0513d 7", 1, "07"), -1);
    EXPECT_THAT(texts(), Contains("output:\n7"));
    expectOutput("");
    reap();
    // In the second read alone it is seen, and that read is what is handed out.
    EXPECT_EQ(run("/usr/bin/printf %0513d 7", 5, "7"), 1);
    expectOutput("7");
    reap();
}

TEST_F(Command, zerosEndTheTextOfARead) {
    faults.selectWaits = true;
    EXPECT_EQ(run("/usr/bin/printf READY\\0rest", 5, "READY"), 1);
    expectOutput("READY");
    reap();
    platform().log.clear();
    faults.selectWaits = false;
    // A zero in front hides the rest, from the marker and from the log.
    EXPECT_EQ(run("/usr/bin/printf \\0READY", 1, "READY"), -1);
    EXPECT_THAT(texts(), Not(Contains(testing::StartsWith("output:"))));
    reap();
}

TEST_F(Command, blanksAreNoProgram) {
    ozu::test::captureStderr();
    EXPECT_EQ(run("   ", 1, "x"), -1);
    const int status = reap();
    EXPECT_EQ(ozu::test::capturedStderr(), "execvp: No such file or directory\n");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
    EXPECT_THAT(texts(), Contains("command[0]: (null)"));
    EXPECT_THAT(texts(), Not(Contains(testing::StartsWith("command[1]"))));
    expectOutput("");
}

TEST_F(Command, missingProgramIsReportedByTheChild) {
    ozu::test::captureStderr();
    EXPECT_EQ(run("/nowhere/prog x", 1, "x"), -1);
    const int status = reap();
    EXPECT_EQ(ozu::test::capturedStderr(), "execvp: No such file or directory\n");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
}

// Ends a process that has output unwritten and a handler to run, after a child that could not be executed.
[[noreturn]] static void exitAfterAFailedChild() {
    atexit([] { fputs("handler;", stderr); });
    static char buffer[256];
    setvbuf(stdout, buffer, _IOFBF, sizeof(buffer));
    dup2(STDERR_FILENO, STDOUT_FILENO);
    fputs("pending;", stdout);
    char *argv[] = {const_cast<char *>("/nowhere/prog"), nullptr};
    int status = 0;
    waitpid(popen2(argv, nullptr, nullptr, nullptr), &status, 0);
    exit(WEXITSTATUS(status) == 1 ? 0 : 9);
}

TEST_F(Command, failedChildLeavesTheParentsExitAlone) {
    EXPECT_EXIT(exitAfterAFailedChild(), testing::ExitedWithCode(0),
                "^execvp: No such file or directory\nhandler;pending;$");
}

TEST_F(Command, failedPipeIsNoStart) {
    faults.failPipe = 1;
    EXPECT_EQ(run("/bin/echo x", 1, "x"), -2);
    EXPECT_EQ(platform().log.back(), line(70000, "Error popen2, returned -1, errno(0): Success"));
    EXPECT_THAT(newFds(), IsEmpty());
    expectUntouched();

    faults = Faults();
    faults.failPipe = 2;
    EXPECT_EQ(run("/bin/echo x", 1, "x"), -2);
    EXPECT_EQ(platform().log.back(), line(70000, "Error popen2, returned -1, errno(0): Success"));
    EXPECT_EQ(newFds().size(), 2u); // the first pipe stays
    EXPECT_EQ(faults.child, -1);
}

TEST_F(Command, failedForkIsNoStart) {
    faults.failFork = true;
    EXPECT_EQ(run("/bin/echo x", 1, "x"), -2);
    EXPECT_EQ(platform().log.back(),
              line(70000, "Error popen2, returned -1, errno(" + std::to_string(EAGAIN) +
                              "): Resource temporarily unavailable"));
    EXPECT_THAT(newFds(), IsEmpty());
    expectUntouched();
}

TEST_F(Command, twoDescriptorsAndOneChildStayPerCall) {
    for (std::size_t call = 1; call <= 5; ++call) {
        EXPECT_EQ(run("/bin/echo READY", 5, "READY"), 1);
        EXPECT_EQ(newFds().size(), 2 * call);
        EXPECT_EQ(ozu::test::children(), static_cast<int>(call));
    }
    while (wait(nullptr) > 0) {
    }
}

TEST_F(Command, childrenDoNotInheritEarlierPipes) {
    EXPECT_EQ(run("/bin/echo READY", 5, "READY"), 1);
    reap();
    const auto pipes = newFds();
    ASSERT_EQ(pipes.size(), 2u);
    // The pipes that the next child has are its own two and what the test itself was given.
    EXPECT_EQ(run("/usr/bin/find /proc/self/fd/ -lname pipe:* -printf %l,", 5, "pipe:"), 1);
    for (const int fd : pipes) {
        struct stat status = {};
        ASSERT_EQ(fstat(fd, &status), 0);
        EXPECT_EQ(strstr(output_.data(), ("[" + std::to_string(status.st_ino) + "]").c_str()), nullptr)
            << output_.data();
    }
    reap();
}

// Emulators of other machines may end at 1023 themselves, and then by aborting: a child finds out.
static bool selectTakesHighNumbers() {
    const pid_t process = __real_fork();
    if (process == 0) {
        const rlimit few = {1100, 1100};
        std::array<unsigned long, 64> set = {};
        timeval now = {};
        const bool made = setrlimit(RLIMIT_NOFILE, &few) == 0 && dup2(0, 1090) == 1090;
        set[1090 / (8 * sizeof(long))] = 1UL << (1090 % (8 * sizeof(long)));
        _exit(made && __real_select(1091, reinterpret_cast<fd_set *>(set.data()), nullptr, nullptr, &now) >= 0
                  ? 0
                  : 1);
    }
    int status = -1;
    return waitpid(process, &status, 0) == process && status == 0;
}

TEST_F(Command, descriptorsAboveOneThousandAndTwentyThree) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit former = limit;
    if (limit.rlim_max < 2600) {
        GTEST_SKIP() << "the hard limit of descriptors is " << limit.rlim_max;
    }
    if (!selectTakesHighNumbers()) {
        GTEST_SKIP() << "select() of this machine takes no descriptors above 1023";
    }
    limit.rlim_cur = 2600;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<int> fillers;
    for (const int wanted : {1021, 1023, 1085, 2500}) {
        while (fillers.empty() || fillers.back() < wanted) {
            fillers.push_back(dup(0));
            ASSERT_GE(fillers.back(), 0);
        }
        output_.assign(600, '#');
        EXPECT_EQ(run("/bin/echo READY", 5, "READY"), 1);
        EXPECT_GT(faults.selected, wanted);
        expectOutput("READY\n");
        reap();
        EXPECT_EQ(run("/bin/sleep 30", 0, "x"), -1);
        reap();
    }
    for (const int fd : fillers) {
        close(fd);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &former), 0);
}

TEST_F(Command, descriptorsRunOutWithoutHarm) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit former = limit;
    // Room for the six lowest numbers that are free.
    const auto taken = openFds();
    int room = 0;
    for (int free = 0; free < 6; ++room) {
        free += taken.count(room) == 0 ? 1 : 0;
    }
    limit.rlim_cur = static_cast<rlim_t>(room);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    int started = 0;
    while (run("/bin/echo READY", 5, "READY") == 1) {
        ++started;
        wait(nullptr);
        ASSERT_LT(started, 10);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &former), 0);
    // Four are needed while starting, two stay; the third call gets its first pipe only, and keeps it.
    EXPECT_EQ(started, 2);
    EXPECT_EQ(newFds().size(), 6u);
    EXPECT_EQ(platform().log.back(), line(70000, "Error popen2, returned -1, errno(0): Success"));
}

// --- children of all kinds

void Command::expectSignalledAndAlive() {
    EXPECT_EQ(faults.childSignal, SIGTERM);
    EXPECT_TRUE(faults.signalArrived);
    EXPECT_EQ(waitpid(faults.child, nullptr, WNOHANG), 0);
    __real_kill(faults.child, SIGKILL);
    const int status = reap();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST_F(Command, aChildThatIgnoresItsEndLivesOn) {
    // timeout(1) would forward it; the shell is told to ignore it, and so does what it starts.
    const std::string path = script("trap '' TERM\necho READY\nexec sleep 30\n");
    EXPECT_EQ(run("/bin/sh " + path, 10, "READY"), 1);
    unlink(path.c_str());
    expectSignalledAndAlive();
}

TEST_F(Command, aChildStartedWithItsEndBlockedLivesOn) {
    sigset_t end = {};
    sigset_t former = {};
    sigemptyset(&end);
    sigaddset(&end, SIGTERM);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &end, &former), 0);
    EXPECT_EQ(run("/bin/sleep 30", 0, "READY"), -1);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &former, nullptr), 0);
    expectSignalledAndAlive();
}

TEST_F(Command, aChildStartedWithItsEndIgnoredLivesOn) {
    auto *former = std::signal(SIGTERM, SIG_IGN);
    EXPECT_EQ(run("/bin/sleep 30", 0, "READY"), -1);
    std::signal(SIGTERM, former);
    expectSignalledAndAlive();
}

// Whoever reaps during the call leaves it a number that may be another's by then.
TEST_F(Command, aChildThatWasReapedMeanwhileIsSignalledByItsFormerNumber) {
    platform().onCall["ozulog_printf_extend"] = [] {
        if (platform().log.back().text == "End string detected") {
            EXPECT_EQ(waitpid(faults.child, nullptr, 0), faults.child);
        }
    };
    EXPECT_EQ(run("/bin/echo READY", 5, "READY"), 1);
    EXPECT_EQ(faults.childSignal, SIGTERM);
    EXPECT_FALSE(faults.signalArrived);
    EXPECT_EQ(ozu::test::children(), 0);
}

// Whether a flood without end ever lets the reader wait is up to the machine; this one has an end.
TEST_F(Command, aFloodTakesNothingFromTheTimeAndAddsNothing) {
    const std::string path = script("yes | head -c 300000\nexec sleep 30\n");
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(run("/bin/sh " + path, 1, "never"), -1);
    unlink(path.c_str());
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(990));
    expectOutput("");
    EXPECT_GE(faults.timeouts.size(), 300000u / 512);
    EXPECT_TRUE(std::is_sorted(faults.timeouts.rbegin(), faults.timeouts.rend(),
                               [](const timeval &a, const timeval &b) { return timercmp(&a, &b, <); }));
    EXPECT_EQ(platform().log.back(), line(30000, "exec_cmd() ret value: -1"));
    const int status = reap();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

TEST_F(Command, aChildThatClosesItsOutputIsWaitedFor) {
    const std::string path = script("exec >&-\nexec sleep 30\n");
    EXPECT_EQ(run("/bin/sh " + path, 1, "x"), -1);
    unlink(path.c_str());
    reap();
}

TEST_F(Command, aChildThatDiesBySignalIsWaitedFor) {
    const std::string path = script("echo before\nkill -SEGV $$\n");
    EXPECT_EQ(run("/bin/sh " + path, 1, "after"), -1);
    unlink(path.c_str());
    const int status = reap();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);
}

TEST_F(Command, aGrandchildMayBringTheMarker) {
    const std::string path = script("(sleep 0.2; echo READY) &\nexit 0\n");
    EXPECT_EQ(run("/bin/sh " + path, 10, "READY"), 1);
    unlink(path.c_str());
    reap();
}

TEST_F(Command, standardErrorIsNotRead) {
    const std::string path = script("echo READY >&2\n");
    ozu::test::captureStderr();
    EXPECT_EQ(run("/bin/sh " + path, 1, "READY"), -1);
    EXPECT_EQ(ozu::test::capturedStderr(), "READY\n");
    unlink(path.c_str());
    reap();
}

TEST_F(Command, ignoredChildrenReapThemselves) {
    struct sigaction former = {};
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &former);
    EXPECT_EQ(run("/bin/echo READY", 5, "READY"), 1);
    while (wait(nullptr) > 0) {
    }
    EXPECT_EQ(errno, ECHILD);
    sigaction(SIGCHLD, &former, nullptr);
}

// --- popen2 by itself

TEST_F(Command, pipesReachBothEnds) {
    char *argv[] = {const_cast<char *>("cat"), nullptr};
    int in = -1;
    int out = -1;
    int forkErrno = 77;
    const pid_t pid = popen2(argv, &in, &out, &forkErrno);
    ASSERT_GT(pid, 0);
    EXPECT_EQ(pid, faults.child);
    EXPECT_EQ(forkErrno, 77);
    EXPECT_EQ(newFds().size(), 4u);
    ASSERT_EQ(write(in, "hello", 5), 5);
    char text[6] = {};
    EXPECT_EQ(__real_read(out, text, 5), 5);
    EXPECT_STREQ(text, "hello");
    // The parent holds the read end of the input as well, so that closing the write end is the end of it.
    close(in);
    reap();
    // And a write end of the output: no end is seen there.
    EXPECT_EQ(fcntl(out, F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(__real_read(out, text, 5), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Command, endsNobodyWantsAreClosed) {
    char *argv[] = {const_cast<char *>("true"), nullptr};
    int fd = -1;
    ASSERT_GT(popen2(argv, nullptr, nullptr, nullptr), 0);
    reap();
    EXPECT_EQ(newFds().size(), 2u);
    ASSERT_GT(popen2(argv, &fd, nullptr, nullptr), 0);
    reap();
    EXPECT_EQ(newFds().size(), 5u);
    EXPECT_EQ(write(fd, "x", 1), 1); // the parent's own read end keeps it open
    ASSERT_GT(popen2(argv, nullptr, &fd, nullptr), 0);
    reap();
    EXPECT_EQ(newFds().size(), 8u);
}

TEST_F(Command, failedForkGivesItsReason) {
    faults.failFork = true;
    char *argv[] = {const_cast<char *>("true"), nullptr};
    int in = -5;
    int out = -6;
    int forkErrno = 0;
    EXPECT_EQ(popen2(argv, &in, &out, &forkErrno), -1);
    EXPECT_EQ(forkErrno, EAGAIN);
    EXPECT_EQ(in, -5);
    EXPECT_EQ(out, -6);
    EXPECT_EQ(popen2(argv, &in, &out, nullptr), -1);
    EXPECT_THAT(newFds(), IsEmpty());
}

TEST_F(Command, failedPipeGivesNoReason) {
    char *argv[] = {const_cast<char *>("true"), nullptr};
    int forkErrno = 77;
    int in = -5;
    int out = -6;
    for (const int failing : {1, 2}) {
        faults = Faults();
        faults.failPipe = failing;
        EXPECT_EQ(popen2(argv, &in, &out, &forkErrno), -1);
        EXPECT_EQ(newFds().size(), failing == 1 ? 0u : 2u);
    }
    EXPECT_EQ(forkErrno, 77);
    EXPECT_EQ(in, -5);
    EXPECT_EQ(out, -6);
}

// A process started without some of its standard descriptors: a pipe end may get their number.
class ClosedStandard : public testing::TestWithParam<int> {};

TEST_P(ClosedStandard, childHasBothPipesAllTheSame) {
    const int closed = GetParam();
    const pid_t process = __real_fork();
    if (process == 0) {
        for (int fd = 0; fd < 3; ++fd) {
            if ((closed & (1 << fd)) != 0) {
                close(fd);
            }
        }
        char *argv[] = {const_cast<char *>("cat"), nullptr};
        int in = -1;
        int out = -1;
        const pid_t child = popen2(argv, &in, &out, nullptr);
        char text[5] = {};
        if (child <= 0 || write(in, "ping", 4) != 4 || __real_read(out, text, 4) != 4 ||
            strcmp(text, "ping") != 0) {
            _exit(1);
        }
        close(in);
        // cat ends with its input, and cleanly: its output was there, too.
        int status = 0;
        _exit(waitpid(child, &status, 0) == child && status == 0 ? 0 : 2);
    }
    int status = -1;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
}

INSTANTIATE_TEST_SUITE_P(Combinations, ClosedStandard, testing::Range(0, 8), [](const auto &instance) {
    std::string name = "closed";
    for (int fd = 0; fd < 3; ++fd) {
        name += (instance.param & (1 << fd)) != 0 ? std::to_string(fd) : "";
    }
    return name;
});

// Takes and gives back the C library's locks, over and over.
void takeLocks(const std::atomic<bool> &stop, FILE *sink, unsigned int seed) {
    ozu::test::Random random(seed);
    while (!stop) {
        free(malloc(random.ofAnyLength() % 100000));
        fprintf(sink, "%f %s\n", 1.5, getenv("PATH"));
        const time_t now = time(nullptr);
        tm local = {};
        localtime_r(&now, &local);
    }
}

TEST_F(Command, startsWhileOtherThreadsHoldLocks) {
    // A lock that another thread holds at the fork must not be needed by the child: it would wait for ever.
    // As many calls as fit the time, and on a busy machine still enough to show something.
    constexpr int kCalls = 10000;
    constexpr int kAtLeast = 50;
    constexpr std::chrono::seconds kTime(8);
    FILE *sink = fopen("/dev/null", "we");
    before_ = openFds();
    std::atomic<bool> stop = false;
    std::vector<std::thread> storm;
    for (unsigned int i = 0; i < 8; ++i) {
        storm.emplace_back([&stop, sink, i] { takeLocks(stop, sink, i); });
    }
    ozu::test::captureStderr();
    const auto until = std::chrono::steady_clock::now() + kTime;
    int calls = 0;
    const auto goesOn = [&] { return calls < kAtLeast || std::chrono::steady_clock::now() < until; };
    for (; calls < kCalls && goesOn() && !HasFailure(); ++calls) {
        if (calls % 4 == 3) {
            EXPECT_EQ(run("/bin/echo READY", 20, "READY"), 1);
        } else {
            const bool exists = calls % 4 == 0;
            char *argv[] = {const_cast<char *>(exists ? "/bin/true" : "/nowhere/prog"), nullptr};
            EXPECT_EQ(popen2(argv, nullptr, nullptr, nullptr), faults.child);
        }
        int status = -1;
        EXPECT_EQ(waitpid(faults.child, &status, 0), faults.child);
        EXPECT_TRUE(calls % 4 == 3 || (WIFEXITED(status) && WEXITSTATUS(status) == (calls % 4 == 0 ? 0 : 1)));
        if (calls % 100 == 99) {
            for (const int fd : newFds()) {
                close(fd);
            }
            platform() = ozu::test::FakePlatform();
        }
    }
    ozu::test::capturedStderr();
    stop = true;
    for (auto &thread : storm) {
        thread.join();
    }
    fclose(sink);
    RecordProperty("calls", calls);
}

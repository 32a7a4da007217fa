// Finding a process, reading a file, running a command: each against the plain way to do it, in the same run.
//
//   process_bench [ROUNDS]
//
// Rounds of both ways alternate, and the median of their ratios counts, so that what else the machine does
// hits both. Work inside this process is measured in processor time, work of several processes in real time.
// "process_bench --find NAME" is the finder alone, for the comparison of whole programs.

#include <utils_ozu/command.h>
#include <utils_ozu/files.h>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

extern char **environ;

// The log costs what the platform makes of it; here it costs nothing.
extern "C" int ozulog_printf(int /*level*/, const char * /*format*/, ...) {
    return 0;
}
extern "C" int ozulog_printf_extend(int /*level*/, const char * /*format*/, const char * /*sourceFile*/,
                                    const char * /*functionName*/, int /*line*/, ...) {
    return 0;
}

namespace {

using Work = std::function<void()>;

void check(bool holds, const char *what) {
    if (!holds) {
        fprintf(stderr, "process_bench: %s\n", what);
        exit(1);
    }
}

enum class Time { Processor = CLOCK_PROCESS_CPUTIME_ID, Real = CLOCK_MONOTONIC };

double now(Time time) {
    timespec value = {};
    clock_gettime(static_cast<clockid_t>(time), &value);
    return static_cast<double>(value.tv_sec) * 1e6 + static_cast<double>(value.tv_nsec) / 1e3;
}

double microseconds(Time time, const Work &work) {
    const double start = now(time);
    work();
    return now(time) - start;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(const char *what, const char *peer, double target, Time time, int rounds, const Work &ours,
             const Work &theirs) {
    std::vector<double> our;
    std::vector<double> their;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        const bool first = round % 2 == 0;
        const double a = microseconds(time, first ? ours : theirs);
        const double b = microseconds(time, first ? theirs : ours);
        our.push_back(first ? a : b);
        their.push_back(first ? b : a);
        ratios.push_back(our.back() / their.back());
    }
    const double ratio = median(ratios);
    printf("%-18s %10.1f us   %-34s %10.1f us   ratio %.3f  (target %.2f: %s)\n", what, median(our), peer,
           median(their), ratio, target, ratio <= target ? "met" : "missed");
    fflush(stdout);
}

// --- finding a process

int scanWithStdio(const char *name) {
    DIR *proc = opendir("/proc");
    check(proc != nullptr, "no /proc");
    while (const dirent *entry = readdir(proc)) {
        char *end = nullptr;
        const long pid = strtol(entry->d_name, &end, 10);
        if (*end != '\0') {
            continue;
        }
        char text[512];
        snprintf(text, sizeof(text), "/proc/%ld/cmdline", pid);
        FILE *file = fopen(text, "r");
        if (file == nullptr) {
            continue;
        }
        const char *word = fgets(text, sizeof(text), file) != nullptr ? strtok(text, " ") : nullptr;
        const bool found = word != nullptr && strcmp(word, name) == 0;
        fclose(file);
        if (found) {
            closedir(proc);
            return static_cast<int>(pid);
        }
    }
    closedir(proc);
    return -1;
}

std::vector<pid_t> startSleepers(int count) {
    std::vector<pid_t> sleepers;
    for (int i = 0; i < count; ++i) {
        const pid_t pid = fork();
        check(pid >= 0, "fork failed");
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            pause();
            _exit(0);
        }
        sleepers.push_back(pid);
    }
    return sleepers;
}

void endAll(const std::vector<pid_t> &children) {
    for (const pid_t pid : children) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

void runQuietly(const std::vector<const char *> &words) {
    std::vector<char *> argv;
    for (const char *word : words) {
        argv.push_back(const_cast<char *>(word));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    check(posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0, "a program is missing");
    posix_spawn_file_actions_destroy(&actions);
    waitpid(pid, nullptr, 0);
}

void benchFinding(int rounds) {
    const auto sleepers = startSleepers(200);
    const char *missing = "no-such-process";
    compare(
        "findProcessId", "stdio scan of /proc", 0.75, Time::Processor, rounds,
        [&] { check(ozuutils_findProcessId(missing) == -1, "found"); },
        [&] { check(scanWithStdio(missing) == -1, "found"); });
    if (access("/bin/pidof", X_OK) == 0 || access("/usr/bin/pidof", X_OK) == 0) {
        compare(
            "find as a program", "pidof -s", 1.0, Time::Real, rounds,
            [&] {
                runQuietly({"/proc/self/exe", "--find", missing});
            },
            [&] {
                runQuietly({"pidof", "-s", missing});
            });
    } else {
        puts("find as a program  skipped: no pidof here (package sysvinit-utils)");
    }
    endAll(sleepers);
}

// --- a file into memory

void readInSmallPieces(const char *path, void **buffer) {
    struct stat status = {};
    check(stat(path, &status) == 0, "no file");
    *buffer = malloc(static_cast<std::size_t>(status.st_size));
    const int file = open(path, O_RDWR);
    char *next = static_cast<char *>(*buffer);
    ssize_t got = 0;
    while ((got = read(file, next, 256)) > 0) {
        next += got;
    }
    close(file);
}

void benchReading(int rounds) {
    char path[] = "/tmp/process_bench.XXXXXX";
    const int file = mkstemp(path);
    const std::string content(1 << 20, 'x');
    check(file >= 0 && write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()),
          "no temporary file");
    close(file);
    void *buffer = nullptr;
    compare(
        "allocFileToBuff", "reads of 256 bytes, 1 MiB", 0.10, Time::Processor, rounds,
        [&] {
            check(allocFileToBuff(path, &buffer) == 1 << 20, "not read");
            free(buffer);
        },
        [&] {
            readInSmallPieces(path, &buffer);
            free(buffer);
        });
    unlink(path);
}

// --- a command

void reapAndClose(int lowestNew) {
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    close_range(static_cast<unsigned int>(lowestNew), ~0U, 0);
}

// What any program does that wants a child's output: pipe, fork, exec, read, end.
void bareCommand(const std::vector<const char *> &words, const char *marker) {
    std::array<int, 2> ends = {};
    check(pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execvp(words[0], const_cast<char *const *>(words.data()));
        _exit(1);
    }
    close(ends[1]);
    std::array<char, 513> text = {};
    check(read(ends[0], text.data(), 512) > 0 && strstr(text.data(), marker) != nullptr, "no marker");
    close(ends[0]);
    kill(pid, SIGTERM);
}

void shellCommand(const char *command, const char *marker) {
    FILE *child = popen(command, "r");
    std::array<char, 513> text = {};
    check(child != nullptr && fgets(text.data(), 512, child) != nullptr &&
              strstr(text.data(), marker) != nullptr,
          "no marker");
    pclose(child);
}

void benchCommands(int rounds) {
    const int lowestNew = dup(0);
    close(lowestNew);
    const auto tidy = [lowestNew] { reapAndClose(lowestNew); };
    const Work ours = [&] {
        check(exec_cmd("/bin/echo READY", 10, "READY", nullptr) == 1, "no marker");
        tidy();
    };
    compare("exec_cmd", "bare fork, exec, read", 1.05, Time::Real, rounds, ours, [&] {
        bareCommand({"/bin/echo", "READY", nullptr}, "READY");
        tidy();
    });
    compare("exec_cmd", "popen with a shell", 1.0, Time::Real, rounds, ours, [&] {
        shellCommand("/bin/echo READY; true", "READY");
        tidy();
    });
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 3 && strcmp(argv[1], "--find") == 0) {
        const int pid = ozuutils_findProcessId(argv[2]);
        printf("%d\n", pid);
        return pid < 0 ? 1 : 0;
    }
    const int rounds = argc > 1 ? atoi(argv[1]) : 101;
    benchFinding(rounds);
    benchReading(rounds);
    benchCommands(rounds);
    return 0;
}

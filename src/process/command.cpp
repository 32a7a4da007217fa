// External programs: started without a shell, watched for a marker, ended by a timeout.

#include <utils_ozu/command.h>

#include <base/error_text.h>
#include <base/log.h>
#include <base/unique_fd.h>

#include <alloca.h>
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kMaxCommand = EXEC_CMD_MAX_COMMAND;
// The number that the refusal names; the table takes 18 words, their null entry, and one entry that refuses.
constexpr int kMaxParameters = EXEC_CMD_MAX_PARAMETERS;
constexpr std::size_t kChunk = 512;

constexpr int kMarkerSeen = 1;
constexpr int kOutputEnded = 0;
constexpr int kTimedOut = -1;
constexpr int kFailed = -2;

struct Pipe {
    ozu::UniqueFd readEnd;
    ozu::UniqueFd writeEnd;

    // Close-on-exec, so that what stays open in this process is not handed on to later children.
    bool create() noexcept {
        std::array<int, 2> ends = {-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            return false;
        }
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
        return true;
    }
};

// In a process started without standard descriptors the pipe may have got that very number; dup2 onto
// itself would leave it close-on-exec.
void moveTo(int fd, int wanted) noexcept {
    if (fd == wanted) {
        fcntl(fd, F_SETFD, 0);
        return;
    }
    dup2(fd, wanted);
}

// The child between fork and exec, where other threads' locks may be held for good: up to exec nothing takes
// one. perror() takes those of the stream and the heap, which the C library makes new in a forked child.
[[noreturn]] void runChild(char *const argv[], const Pipe &input, const Pipe &output) noexcept {
    close(input.writeEnd.get());
    moveTo(input.readEnd.get(), STDIN_FILENO);
    close(output.readEnd.get());
    moveTo(output.writeEnd.get(), STDOUT_FILENO);
    if (argv != nullptr && argv[0] != nullptr) {
        execvp(argv[0], argv);
    } else {
        errno = ENOENT;
    }
    perror("execvp");
    // The exit handlers and the unwritten output belong to the parent.
    _exit(1);
}

void leaveOpen(ozu::UniqueFd &end) noexcept {
    static_cast<void>(end.release());
}

// An end that nobody wants is closed with its owner.
void handOut(ozu::UniqueFd &end, int *receiver) noexcept {
    if (receiver != nullptr) {
        *receiver = end.release();
    }
}

// The words of a command line, in a copy of it; ends with a null entry.
class Words {
  public:
    explicit Words(const char *command) noexcept {
        memcpy(copy_.data(), command, strnlen(command, kMaxCommand - 1));
        char *rest = nullptr;
        char *word = strtok_r(copy_.data(), " ", &rest);
        words_[0] = word;
        while (word != nullptr && count_ < kMaxParameters) {
            word = strtok_r(nullptr, " ", &rest);
            words_[static_cast<std::size_t>(count_++)] = word;
        }
    }
    // Entries with the null one.
    [[nodiscard]] int count() const noexcept { return count_; }
    [[nodiscard]] bool tooMany() const noexcept { return count_ >= kMaxParameters; }
    [[nodiscard]] const char *at(int index) const noexcept { return words_[static_cast<std::size_t>(index)]; }
    [[nodiscard]] char *const *argv() const noexcept { return words_.data(); }

  private:
    std::array<char, kMaxCommand> copy_ = {};
    std::array<char *, kMaxParameters> words_ = {};
    int count_ = 1;
};

// A descriptor set of one descriptor. fd_set ends at 1023, and since every command leaves two descriptors
// open, numbers above are reached: for these it is as large as the number asks for.
class ReadySet {
  public:
    static std::size_t bytes(int fd) noexcept {
        return std::max(sizeof(fd_set), (word(fd) + 1) * sizeof(fd_mask));
    }

    ReadySet(void *storage, int fd) noexcept : words_(static_cast<fd_mask *>(storage)), fd_(fd) {}
    fd_set *arm() noexcept {
        memset(words_, 0, bytes(fd_));
        words_[word(fd_)] = bit();
        return reinterpret_cast<fd_set *>(words_);
    }
    [[nodiscard]] bool ready() const noexcept { return (words_[word(fd_)] & bit()) != 0; }

  private:
    static std::size_t word(int fd) noexcept { return static_cast<std::size_t>(fd) / NFDBITS; }
    [[nodiscard]] fd_mask bit() const noexcept {
        return static_cast<fd_mask>(1UL << (static_cast<unsigned int>(fd_) % NFDBITS));
    }
    fd_mask *words_;
    int fd_;
};

// What was read last, terminated even when the read filled it.
using Chunk = std::array<char, kChunk + 1>;

void giveOut(char *output, const Chunk &chunk) noexcept {
    memset(output, 0, kChunk);
    memcpy(output, chunk.data(), strnlen(chunk.data(), kChunk));
}

// The helpers of exec_cmd log under its name.
constexpr const char *kExecCmd = "exec_cmd";

void logWords(const Words &words) noexcept {
    for (int i = 0; i < words.count(); ++i) {
        OZU_LOG_AS(kExecCmd, OZULOG_INFO, "command[%d]: %s", i, words.at(i));
    }
}

bool isCommand(const char *command) noexcept {
    if (command == nullptr || *command == '\0') {
        OZU_LOG_AS(kExecCmd, OZULOG_ERROR, "given command is empty: %s", command);
        return false;
    }
    if (strlen(command) >= kMaxCommand) {
        OZU_LOG_AS(kExecCmd, OZULOG_ERROR, "Command execution is too long: %s", command);
        return false;
    }
    return true;
}

// True when there is something to read; otherwise result says why not.
bool awaitOutput(ReadySet &set, int fd, timeval &timeout, int &result) noexcept {
    const int ready = select(fd + 1, set.arm(), nullptr, nullptr, &timeout);
    if (ready == -1) {
        OZU_LOG_AS(kExecCmd, OZULOG_ERROR, "select(): %s", ozu::errorText());
        result = kFailed;
        return false;
    }
    if (ready == 0) {
        OZU_LOG_SHORT(OZULOG_NOTICE, "%s", "probing timed out");
        result = kTimedOut;
        return false;
    }
    if (!set.ready()) {
        OZU_LOG_AS(kExecCmd, OZULOG_ERROR, "Unexpected error, select_retval %d", ready);
        result = kFailed;
        return false;
    }
    return true;
}

// Reads until the marker, the timeout or an error. Leaves the chunk with the marker behind, otherwise an
// empty one.
int watchOutput(int fd, int timeoutSeconds, const char *endMarker, Chunk &chunk) noexcept {
    ReadySet set(alloca(ReadySet::bytes(fd)), fd);
    // Linux lowers it by the time waited, so it bounds the whole run.
    timeval timeout = {timeoutSeconds, 0};
    int result = kFailed;
    while (awaitOutput(set, fd, timeout, result)) {
        const ssize_t received = read(fd, chunk.data(), kChunk);
        if (chunk[0] != '\0') {
            OZU_LOG_AS(kExecCmd, OZULOG_INFO, "output:\n%.300s", chunk.data());
        }
        if (endMarker != nullptr && strstr(chunk.data(), endMarker) != nullptr) {
            OZU_LOG_TEXT_AS(kExecCmd, OZULOG_INFO, "End string detected");
            return kMarkerSeen;
        }
        chunk.fill('\0');
        if (received <= 0) {
            return kOutputEnded;
        }
    }
    return result;
}

} // namespace

pid_t popen2(char *const argv[], int *inFd, int *outFd, int *forkErrno) noexcept {
    Pipe input;
    Pipe output;
    if (!input.create()) {
        return -1;
    }
    if (!output.create()) {
        leaveOpen(input.readEnd);
        leaveOpen(input.writeEnd);
        return -1;
    }
    const pid_t pid = fork();
    if (pid < 0) {
        if (forkErrno != nullptr) {
            *forkErrno = errno;
        }
        return pid;
    }
    if (pid == 0) {
        runChild(argv, input, output);
    }
    handOut(input.writeEnd, inFd);
    handOut(output.readEnd, outFd);
    // The child's own ends stay open here as well, unnamed: a reader never sees the end of the output.
    leaveOpen(input.readEnd);
    leaveOpen(output.writeEnd);
    return pid;
}

int exec_cmd(const char *command, int timeoutSeconds, const char *endMarker, char *output) noexcept {
    if (!isCommand(command)) {
        return kFailed;
    }
    OZU_LOG(OZULOG_INFO, "Executing command with timeout %d: %s", timeoutSeconds, command);
    const Words words(command);
    if (words.tooMany()) {
        OZU_LOG(OZULOG_INFO, "Too many parameters in command, max value is %d", kMaxParameters);
        return kFailed;
    }
    logWords(words);
    OZU_LOG(OZULOG_INFO, "Run executable for %d seconds...", timeoutSeconds);

    int outFd = -1;
    int forkErrno = 0;
    const pid_t pid = popen2(words.argv(), nullptr, &outFd, &forkErrno);
    if (pid < 0) {
        OZU_LOG(OZULOG_ERROR, "Error popen2, returned %d, errno(%d): %s", pid, forkErrno,
                strerror(forkErrno));
        return kFailed;
    }
    OZU_LOG_TEXT(OZULOG_DEBUG, "reading output...");
    Chunk chunk = {};
    const int result = watchOutput(outFd, timeoutSeconds, endMarker, chunk);
    if (output != nullptr) {
        giveOut(output, chunk);
    }
    close(outFd);
    OZU_LOG_TEXT(OZULOG_INFO, "killing executable");
    kill(pid, SIGTERM);
    OZU_LOG(OZULOG_INFO, "exec_cmd() ret value: %d", result);
    return result;
}

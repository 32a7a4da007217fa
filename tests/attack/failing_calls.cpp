#include "failing_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <map>
#include <vector>

namespace ozu::test {

namespace {

constexpr std::chrono::seconds kPatience{60};
constexpr int kNoFilter = 97;

using Errors = std::vector<int>;

// What can fail for reasons that are not the caller's, and how. Exits, signals, locks in memory and the like
// cannot. A lock of a file that cannot be had (fcntl) is a busy database, which each operation waits 5 s for:
// it has a test of its own.
const std::map<long, Errors> &table() {
    static const Errors opening{EACCES, EINTR,   EIO,   EMFILE, ENFILE, ENOENT, ENOMEM,
                                ENOSPC, ENOTDIR, ELOOP, EROFS,  EDQUOT, EPERM,  ETXTBSY};
    static const Errors looking{EACCES, EIO, ELOOP, ENOENT, ENOMEM, ENOTDIR};
    static const Errors reading{EAGAIN, EINTR, EIO, EISDIR};
    static const Errors writing{EAGAIN, EDQUOT, EFBIG, EINTR, EIO, ENOSPC, EPERM, EPIPE};
    static const Errors growing{EFBIG, EINTR, EIO, ENOSPC, EPERM, EROFS};
    static const Errors syncing{EDQUOT, EINTR, EIO, ENOSPC, EROFS};
    static const Errors changing{EACCES, EBUSY,  EDQUOT, EIO,   EMLINK, ENOENT,
                                 ENOMEM, ENOSPC, EPERM,  EROFS, EXDEV};
    static const Errors receiving{EAGAIN, ECONNREFUSED, ECONNRESET, EINTR, ENOBUFS, ENOMEM};
    static const Errors sending{EACCES,  EAGAIN,      ECONNREFUSED, ECONNRESET, EHOSTUNREACH, EINTR,
                                ENOBUFS, ENETUNREACH, ENOMEM,       EPERM,      EPIPE};
    static const Errors descriptors{EMFILE, ENFILE, ENOMEM};
    static const Errors waiting{EINTR, ENOMEM};
    static const Errors processes{EAGAIN, ENOMEM, EPERM};
    static const Errors mapping{EACCES, EAGAIN, ENFILE, ENODEV, ENOMEM, EPERM};
    static const std::map<long, Errors> all{
        {SYS_openat, opening},
        {SYS_read, reading},
        {SYS_pread64, reading},
        {SYS_readv, reading},
        {SYS_write, writing},
        {SYS_pwrite64, writing},
        {SYS_writev, writing},
        {SYS_fstat, {EIO, ENOMEM, EOVERFLOW}},
        {SYS_statx, looking},
        {SYS_ftruncate, growing},
        {SYS_fallocate, {EFBIG, EINTR, EIO, ENOSPC, EOPNOTSUPP, EPERM}},
        {SYS_fsync, syncing},
        {SYS_fdatasync, syncing},
        {SYS_flock, {EINTR, ENOLCK}},
        {SYS_fchmod, {EIO, EPERM, EROFS}},
        {SYS_fchown, {EIO, EPERM, EROFS}},
        {SYS_fchmodat, changing},
        {SYS_getdents64, {ENOENT, ENOTDIR, EIO}},
        {SYS_symlinkat, changing},
        {SYS_linkat, changing},
        {SYS_unlinkat, changing},
        {SYS_renameat, changing},
        {SYS_renameat2, changing},
        {SYS_mkdirat, changing},
        {SYS_readlinkat, looking},
        {SYS_faccessat, looking},
        {SYS_socket, {EACCES, EAFNOSUPPORT, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT}},
        {SYS_bind, {EACCES, EADDRINUSE, EADDRNOTAVAIL, ENOMEM}},
        {SYS_connect, {EACCES, EAGAIN, ECONNREFUSED, EINTR, ENETUNREACH, EPERM, ETIMEDOUT}},
        {SYS_sendto, sending},
        {SYS_sendmsg, sending},
        {SYS_recvfrom, receiving},
        {SYS_recvmsg, receiving},
        {SYS_setsockopt, {ENOMEM, ENOPROTOOPT, EPERM}},
        {SYS_getsockname, {ENOBUFS}},
        {SYS_getpeername, {ENOBUFS, ENOTCONN}},
        {SYS_ioctl, {EACCES, EBUSY, ENODEV, ENOMEM, ENOTTY, EPERM}},
        {SYS_getrandom, {EAGAIN, EINTR, ENOSYS}},
        {SYS_eventfd2, descriptors},
        {SYS_pipe2, descriptors},
        {SYS_dup, descriptors},
        {SYS_dup3, {EBUSY, EINTR, EMFILE}},
        {SYS_memfd_create, descriptors},
        {SYS_epoll_create1, descriptors},
        {SYS_clone, processes},
        {SYS_clone3, processes},
        {SYS_wait4, {ECHILD, EINTR}},
        {SYS_kill, {EPERM, ESRCH}},
        {SYS_ppoll, waiting},
        {SYS_pselect6, waiting},
        {SYS_nanosleep, {EINTR}},
        {SYS_clock_nanosleep, {EINTR}},
        {SYS_syslog, {EINTR, EPERM}},
        {SYS_madvise, {EAGAIN, EINVAL, ENOMEM}},
#ifdef SYS_mmap
        {SYS_mmap, mapping},
#else
        {SYS_mmap2, mapping},
#endif
#ifdef SYS_newfstatat
        {SYS_newfstatat, looking},
#else
        {SYS_fstatat64, looking},
#endif
#ifdef SYS_open // older machines have these, too
        {SYS_open, opening},
        {SYS_stat, looking},
        {SYS_lstat, looking},
        {SYS_access, looking},
        {SYS_readlink, looking},
        {SYS_rename, changing},
        {SYS_unlink, changing},
        {SYS_symlink, changing},
        {SYS_chmod, changing},
        {SYS_mkdir, changing},
        {SYS_rmdir, changing},
        {SYS_pipe, descriptors},
        {SYS_dup2, {EBUSY, EINTR, EMFILE}},
        {SYS_fork, processes},
        {SYS_vfork, processes},
        {SYS_poll, waiting},
#ifdef SYS_select
        {SYS_select, waiting},
#else
        {SYS__newselect, waiting},
#endif
#endif
    };
    return all;
}

// A sanitizer makes calls for memory itself, and ends the process when they fail.
bool isLeftAlone([[maybe_unused]] long call) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#ifdef SYS_mmap
    return call == SYS_mmap || call == SYS_madvise;
#else
    return call == SYS_mmap2 || call == SYS_madvise;
#endif
#else
    return false;
#endif
}

int listen() {
    std::vector<sock_filter> filter;
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const auto &[call, errors] : table()) {
        if (isLeftAlone(call)) {
            continue;
        }
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    return static_cast<int>(
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

struct Shared {
    std::atomic<int> listener; // its number in the child, 0 before, -1 when there is none
};

// Lets calls fail until the child is gone.
void supervise(int listener, pid_t child, const CallFailure &failure, FailureRun &run) {
    const auto until = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        pollfd wait{listener, POLLIN, 0};
        if (poll(&wait, 1, 100) > 0 && (wait.revents & POLLIN) != 0) {
            seccomp_notif request{};
            if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) {
                continue;
            }
            bool fails = false;
            if (request.pid == static_cast<std::uint32_t>(child)) {
                run.calls.push_back(request.data.nr);
                const auto number = static_cast<int>(run.calls.size());
                fails = failure.from != 0 && number >= failure.from &&
                        (failure.times == kForEver || number < failure.from + failure.times);
            }
            seccomp_notif_resp answer{};
            answer.id = request.id;
            answer.error = fails ? -failure.error : 0;
            answer.flags = fails ? 0U : static_cast<std::uint32_t>(SECCOMP_USER_NOTIF_FLAG_CONTINUE);
            ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
        } else if ((wait.revents & (POLLHUP | POLLERR)) != 0) {
            return;
        }
        if (!run.late && std::chrono::steady_clock::now() > until) {
            run.late = true;
            kill(child, SIGKILL);
        }
    }
}

} // namespace

FailureRun runWithFailure(const CallFailure &failure, const std::function<int()> &body) {
    auto *shared = static_cast<Shared *>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // or it would wait for ever for a supervisor that was killed
        const int listener = listen();
        shared->listener.store(listener >= 0 ? listener : -1);
        while (listener >= 0 && shared->listener.load() != 0) {
            // the supervisor takes the listener; no call until then
        }
        _exit(listener >= 0 ? body() : kNoFilter);
    }
    FailureRun run;
    while (shared->listener.load() == 0) {
        usleep(100);
    }
    if (shared->listener.load() > 0) {
        const int process = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
        const int listener = static_cast<int>(syscall(SYS_pidfd_getfd, process, shared->listener.load(), 0));
        close(process);
        shared->listener.store(0);
        supervise(listener, child, failure, run);
        close(listener);
    }
    munmap(shared, sizeof(Shared));
    int status = 0;
    waitpid(child, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return run;
}

bool callsCanFail() {
    const FailureRun run = runWithFailure({1, EIO, 1}, [] {
        char byte = 0;
        return syscall(SYS_pread64, 0, &byte, 1, 0) < 0 && errno == EIO ? 0 : 1;
    });
    return run.status == 0 && run.calls.size() == 1;
}

const std::vector<int> &errorsOf(long call) {
    return table().at(call);
}

const std::vector<int> &timesOf(int error) {
    static const std::vector<int> passing{1, 2, 3, 8}; // nothing is interrupted, or busy, for ever
    static const std::vector<int> lasting{1, 2, 3, 8, kForEver};
    return error == EINTR || error == EAGAIN ? passing : lasting;
}

std::string wordsFor(const CallFailure &failure) {
    return "call " + std::to_string(failure.from) + ": " + std::strerror(failure.error) +
           (failure.times == kForEver ? ", for ever" : ", " + std::to_string(failure.times) + " times");
}

} // namespace ozu::test

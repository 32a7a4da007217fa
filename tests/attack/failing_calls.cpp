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

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <vector>

namespace ozu::test {

namespace {

constexpr std::chrono::seconds kPatience{60};
constexpr int kNoFilter = 97;

// What can fail for reasons that are not the caller's. Exits, signals, locks in memory and the like cannot. A
// lock of a file that cannot be had (fcntl) is a busy database, which each operation waits 5 s for: it has a
// test of its own.
constexpr long kCalls[] = {
    SYS_openat,     SYS_read,      SYS_write,   SYS_pread64,   SYS_pwrite64, SYS_fstat,      SYS_statx,
    SYS_ftruncate,  SYS_fallocate, SYS_fsync,   SYS_fdatasync, SYS_flock,    SYS_fchmod,     SYS_fchown,
    SYS_getdents64, SYS_socket,    SYS_connect, SYS_sendto,    SYS_recvfrom, SYS_setsockopt, SYS_getrandom,
    SYS_eventfd2,   SYS_clone3,
#ifdef SYS_mmap
    SYS_mmap,
#else
    SYS_mmap2,
#endif
#ifdef SYS_newfstatat
    SYS_newfstatat,
#else
    SYS_fstatat64,
#endif
#ifdef SYS_open // older machines have these, too
    SYS_open,       SYS_stat,      SYS_lstat,   SYS_rename,    SYS_unlink,   SYS_mkdir,      SYS_rmdir,
#endif
};

int listen() {
    std::vector<sock_filter> filter;
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const long call : kCalls) {
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
void supervise(int listener, pid_t child, const Failure &failure, FailureRun &run) {
    const auto until = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        pollfd wait{listener, POLLIN, 0};
        if (poll(&wait, 1, 100) > 0 && (wait.revents & POLLIN) != 0) {
            seccomp_notif request{};
            if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) {
                continue;
            }
            ++run.calls;
            const bool fails =
                failure.from != 0 && (failure.once ? run.calls == failure.from : run.calls >= failure.from);
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

FailureRun runWithFailure(const Failure &failure, const std::function<int()> &body) {
    auto *shared = static_cast<Shared *>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t child = fork();
    if (child == 0) {
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
    const FailureRun run = runWithFailure({1, EIO, true}, [] {
        char byte = 0;
        return syscall(SYS_pread64, 0, &byte, 1, 0) < 0 && errno == EIO ? 0 : 1;
    });
    return run.status == 0 && run.calls == 1;
}

} // namespace ozu::test

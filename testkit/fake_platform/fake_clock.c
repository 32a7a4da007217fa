/*
 * The clock that a test moves: the C library's calls that tell the time or wait for it, defined here so that
 * the library and the process under test reach these.
 *
 * The real ones are asked by system call, not looked up by name: these functions run before main(), in the
 * allocator and in sanitizers, where a lookup may not be possible yet.
 */
#include "ozu_fake_platform.h"

#include <errno.h>
#include <limits.h>
#include <math.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <dlfcn.h>

#define NANOSECONDS 1000000000LL

enum { kSpeed = 100, kMaxSockets = 1024 };

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static int started;
static int64_t utcStart;                     /* nanoseconds at the start */
static int64_t bootStart;                    /* of the monotonic clocks at the start */
static int64_t moved;                        /* since then */
static int64_t receiveTimeouts[kMaxSockets]; /* as asked for, by descriptor */

static int64_t nanoseconds(const struct timespec *time) {
    return (int64_t)time->tv_sec * NANOSECONDS + time->tv_nsec;
}

static struct timespec timespec_of(int64_t time) {
    int64_t rest = time % NANOSECONDS;
    rest += rest < 0 ? NANOSECONDS : 0;
    return (struct timespec){.tv_sec = (time_t)((time - rest) / NANOSECONDS), .tv_nsec = (long)rest};
}

static int real_clock(clockid_t clock, struct timespec *time) {
    return (int)syscall(SYS_clock_gettime, clock, time);
}

static int is_utc(clockid_t clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

static int is_moved(clockid_t clock) {
    return is_utc(clock) || clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE ||
           clock == CLOCK_MONOTONIC_RAW || clock == CLOCK_BOOTTIME;
}

static void start_at(int64_t utc) {
    struct timespec now;
    real_clock(CLOCK_MONOTONIC, &now);
    utcStart = utc;
    bootStart = nanoseconds(&now);
    moved = 0;
    started = 1;
}

static int is_started(void) {
    return __atomic_load_n(&started, __ATOMIC_ACQUIRE);
}

/* Moves the clocks on by what a call has waited for. */
static void pass(int64_t time) {
    pthread_mutex_lock(&mutex);
    moved += time > 0 ? time : 0;
    pthread_mutex_unlock(&mutex);
}

void ozu_fake_clock_start(int64_t seconds) {
    pthread_mutex_lock(&mutex);
    start_at(seconds * NANOSECONDS);
    pthread_mutex_unlock(&mutex);
}

void ozu_fake_clock_advance(double seconds) {
    pthread_mutex_lock(&mutex);
    if (!started) {
        struct timespec now;
        real_clock(CLOCK_REALTIME, &now);
        start_at(nanoseconds(&now));
    }
    moved += (int64_t)llround(seconds * (double)NANOSECONDS);
    pthread_mutex_unlock(&mutex);
}

double ozu_fake_clock_now(void) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / (double)NANOSECONDS;
}

void ozu_fake_clock_stop(void) {
    pthread_mutex_lock(&mutex);
    started = 0;
    memset(receiveTimeouts, 0, sizeof receiveTimeouts);
    pthread_mutex_unlock(&mutex);
}

/* The library under test finds what follows in place of the C library's own. */
#pragma GCC visibility push(default)

/* --- Telling the time --- */

int clock_gettime(clockid_t clock, struct timespec *time) {
    if (!is_started() || !is_moved(clock)) {
        return real_clock(clock, time);
    }
    pthread_mutex_lock(&mutex);
    *time = timespec_of((is_utc(clock) ? utcStart : bootStart) + moved);
    pthread_mutex_unlock(&mutex);
    return 0;
}

time_t time(time_t *out) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (out != NULL) {
        *out = now.tv_sec;
    }
    return now.tv_sec;
}

int gettimeofday(struct timeval *restrict out, void *restrict zone) {
    (void)zone;
    struct timespec now;
    const int result = clock_gettime(CLOCK_REALTIME, &now);
    out->tv_sec = now.tv_sec;
    out->tv_usec = (suseconds_t)(now.tv_nsec / 1000);
    return result;
}

/* --- Sleeping --- */

int clock_nanosleep(clockid_t clock, int flags, const struct timespec *wanted, struct timespec *rest) {
    if (!is_started() || !is_moved(clock)) {
        return syscall(SYS_clock_nanosleep, clock, flags, wanted, rest) == 0 ? 0 : errno;
    }
    struct timespec now = {0, 0};
    if ((flags & TIMER_ABSTIME) != 0) {
        clock_gettime(clock, &now);
    }
    pass(nanoseconds(wanted) - nanoseconds(&now));
    return 0;
}

int nanosleep(const struct timespec *wanted, struct timespec *rest) {
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, rest);
    if (error != 0) {
        errno = error;
        return -1;
    }
    return 0;
}

unsigned int sleep(unsigned int seconds) {
    const struct timespec wanted = {.tv_sec = (time_t)seconds};
    struct timespec rest = {0, 0};
    return nanosleep(&wanted, &rest) == 0 ? 0 : (unsigned int)rest.tv_sec + (rest.tv_nsec > 0);
}

int usleep(useconds_t microseconds) {
    const struct timespec wanted = timespec_of((int64_t)microseconds * 1000);
    return nanosleep(&wanted, NULL);
}

/* --- Waiting for descriptors --- */

/* What is waited in real time; at least a millisecond, so that a pending event is seen. */
static int64_t shortened(int64_t timeout) {
    const int64_t least = timeout < 1000000 ? timeout : 1000000;
    return timeout / kSpeed < least ? least : timeout / kSpeed;
}

int ppoll(struct pollfd *entries, nfds_t count, const struct timespec *timeout, const sigset_t *mask) {
    struct timespec wait = {0, 0};
    if (timeout != NULL) {
        wait = is_started() ? timespec_of(shortened(nanoseconds(timeout))) : *timeout;
    }
    const int ready = (int)syscall(SYS_ppoll, entries, count, timeout == NULL ? NULL : &wait, mask,
                                   (size_t)(_NSIG / CHAR_BIT));
    if (ready == 0 && timeout != NULL && is_started()) {
        pass(nanoseconds(timeout));
    }
    return ready;
}

int poll(struct pollfd *entries, nfds_t count, int milliseconds) {
    const struct timespec timeout = timespec_of((int64_t)milliseconds * 1000000);
    return ppoll(entries, count, milliseconds < 0 ? NULL : &timeout, NULL);
}

int pselect(int count, fd_set *restrict readable, fd_set *restrict writable, fd_set *restrict failed,
            const struct timespec *restrict timeout, const sigset_t *restrict mask) {
    struct timespec wait = {0, 0};
    if (timeout != NULL) {
        wait = is_started() ? timespec_of(shortened(nanoseconds(timeout))) : *timeout;
    }
    const struct {
        const sigset_t *set;
        size_t size;
    } masked = {mask, (size_t)(_NSIG / CHAR_BIT)};
    const int ready = (int)syscall(SYS_pselect6, count, readable, writable, failed,
                                   timeout == NULL ? NULL : &wait, &masked);
    if (ready == 0 && timeout != NULL && is_started()) {
        pass(nanoseconds(timeout));
    }
    return ready;
}

int select(int count, fd_set *restrict readable, fd_set *restrict writable, fd_set *restrict failed,
           struct timeval *restrict timeout) {
    if (timeout == NULL) {
        return pselect(count, readable, writable, failed, NULL, NULL);
    }
    const struct timespec wanted = {.tv_sec = timeout->tv_sec, .tv_nsec = (long)timeout->tv_usec * 1000};
    const int ready = pselect(count, readable, writable, failed, &wanted, NULL);
    if (ready == 0) {
        *timeout = (struct timeval){0, 0}; /* as the kernel leaves it */
    }
    return ready;
}

/* --- Sockets with a receive timeout --- */

static int64_t *receive_timeout(int socket) {
    return socket >= 0 && socket < kMaxSockets ? &receiveTimeouts[socket] : NULL;
}

int setsockopt(int socket, int level, int option, const void *value, socklen_t size) {
    static int (*real)(int, int, int, const void *, socklen_t);
    if (real == NULL) {
        *(void **)&real = dlsym(RTLD_NEXT, "setsockopt");
    }
    int64_t *const kept = receive_timeout(socket);
    if (!is_started() || level != SOL_SOCKET || option != SO_RCVTIMEO || kept == NULL ||
        size < sizeof(struct timeval)) {
        return real(socket, level, option, value, size);
    }
    struct timeval timeout;
    memcpy(&timeout, value, sizeof timeout);
    *kept = (int64_t)timeout.tv_sec * NANOSECONDS + (int64_t)timeout.tv_usec * 1000;
    const struct timespec wait = timespec_of(shortened(*kept));
    timeout = (struct timeval){.tv_sec = wait.tv_sec, .tv_usec = (suseconds_t)(wait.tv_nsec / 1000)};
    return real(socket, level, option, &timeout, sizeof timeout);
}

static ssize_t received(int socket, ssize_t size) {
    const int error = errno;
    int64_t *const kept = receive_timeout(socket);
    if (size < 0 && (error == EAGAIN || error == EWOULDBLOCK) && kept != NULL && is_started()) {
        pass(*kept);
        errno = error;
    }
    return size;
}

ssize_t recvfrom(int socket, void *restrict buffer, size_t size, int flags, __SOCKADDR_ARG sender,
                 socklen_t *restrict length) {
    static ssize_t (*real)(int, void *, size_t, int, struct sockaddr *, socklen_t *);
    if (real == NULL) {
        *(void **)&real = dlsym(RTLD_NEXT, "recvfrom");
    }
    return received(socket, real(socket, buffer, size, flags, sender.__sockaddr__, length));
}

ssize_t recv(int socket, void *buffer, size_t size, int flags) {
    return recvfrom(socket, buffer, size, flags, (struct sockaddr *)NULL, NULL);
}

#pragma GCC visibility pop

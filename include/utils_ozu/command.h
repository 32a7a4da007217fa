/*
 * Command execution with a timeout.
 */
#ifndef UTILS_OZU_COMMAND_H
#define UTILS_OZU_COMMAND_H

#include <sys/types.h>

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/** A command of this many characters or more is refused by exec_cmd(). */
#define EXEC_CMD_MAX_COMMAND 512
/** The number in the log line that refuses too many words. 18 words are accepted, 19 are not. */
#define EXEC_CMD_MAX_PARAMETERS 20

/**
 * Runs a program, without a shell, until it prints a marker or the time is up, then sends it SIGTERM.
 *
 * @param command         program and arguments, at most 511 characters and 18 words. Words are separated by
 *                        spaces only: a tab is part of a word. No quoting, no shell syntax. The program is
 *                        looked up in PATH
 * @param timeoutSeconds  time allowed for the whole run, in seconds. 0: only output that is already there.
 *                        Negative: fails
 * @param endMarker       text that ends the wait; null: none. Each read of up to 512 bytes is searched by
 *                        itself, so a marker split between two reads is missed. A zero byte ends the text
 *                        of a read. The empty marker is found in every read
 * @param output          null, or at least 512 bytes that receive the read in which the marker was seen.
 *                        Not null-terminated when the read filled all of them. All zero when no marker was
 *                        seen, untouched when the child was not started
 * @return  1 the marker was seen;
 *          0 reading failed;
 *         -1 the time is up. Also for a program that ended without the marker: see below;
 *         -2 command null, empty, too long or of too many words; the child could not be started; the wait
 *            failed, as it does when a signal handler runs in the calling thread
 *
 * The call does not notice that the program has ended (this process keeps an end of the pipe open), nor that
 * it could not be executed (the child then reports that on standard error and exits with status 1). Without a
 * marker it always takes timeoutSeconds.
 *
 * Every call that started a child leaves two descriptors open in the calling process. So does a call whose
 * second pipe could not be made. A process that calls this often does so in a forked child, which takes
 * them along when it ends.
 *
 * The child is not waited for. Reap children between calls: by process ID where it is known (popen2()),
 * otherwise with waitpid(-1, ..., WNOHANG). Do not reap during a call: not in a signal handler,
 * not in another thread, not by ignoring SIGCHLD. The call ends with a kill() of the child's process ID, and
 * that may belong to another process once the child has been reaped.
 *
 * A child inherits the signal mask and the ignored signals of the calling thread. If SIGTERM is blocked or
 * ignored there, the signal does not end the child.
 *
 * Logs each step and the first 300 characters of each read at 20000 and 30000, too many words at 30000, the
 * timeout at 40000, other refusals and failures at 70000. Blocks for up to timeoutSeconds plus the time that
 * reading and logging take: only waiting counts, so a program that floods its output runs longer.
 */
OZU_API int exec_cmd(const char *command, int timeoutSeconds, const char *endMarker,
                     char *output) OZU_NOEXCEPT;

/**
 * Starts a program with pipes to its standard input and from its standard output; standard error is
 * inherited.
 *
 * @param argv       program and arguments, ending with a null pointer; the program is looked up in PATH
 * @param inFd       receives the write end of the child's standard input; null: that end is closed
 * @param outFd      receives the read end of the child's standard output; null: that end is closed
 * @param forkErrno  receives errno when fork() failed; may be null
 * @return the child's process ID; -1 when a pipe could not be made, and then forkErrno is not written;
 *         the negative result of fork() when that failed
 *
 * inFd and outFd are written on success only. The caller closes what it received and reaps the child. The
 * child's ends of both pipes stay open in the calling process and are not handed out, so *outFd never reports
 * the end of the output. When the second pipe cannot be made, the two descriptors of the first one stay open.
 * All ends are close-on-exec. A program that cannot be executed is reported by the child on standard error;
 * the child exits with status 1. Logs nothing.
 */
OZU_API pid_t popen2(char *const argv[], int *inFd, int *outFd, int *forkErrno) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_COMMAND_H */

/*
 * Command execution with time-out.
 */
#ifndef UTILS_OZU_COMMAND_H
#define UTILS_OZU_COMMAND_H

#include <sys/types.h>

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/** A command of this many characters or more is refused by exec_cmd(). */
#define EXEC_CMD_MAX_COMMAND 512
/** The number that the refusal of a command with too many words names; 18 words are accepted, 19 are not. */
#define EXEC_CMD_MAX_PARAMETERS 20

/**
 * Runs a program, without a shell, until it prints a marker or the time is up, then ends it with SIGTERM.
 *
 * @param command         program and arguments separated by blanks, at most 511 characters and 18 words; no
 *                        quoting, no shell syntax. The program is looked up in PATH
 * @param timeoutSeconds  time allowed for the whole run, in seconds. 0: only output that is already there.
 *                        Negative: fails
 * @param endMarker       text that ends the wait; null: none. It is looked for in each read of up to 512
 *                        bytes by itself, so a marker that falls between two reads is missed
 * @param output          null, or at least 512 bytes that receive the read in which the marker was seen.
 *                        They are not terminated when the read filled all of them, empty when no marker
 *                        was seen, and untouched when the child was not started
 * @return  1 the marker was seen;
 *          0 reading failed;
 *         -1 the time is up. Also the end of a program that printed no marker: see below;
 *         -2 command null, empty, too long or of too many words; the child could not be started; the wait
 *            failed, as it does when a signal handler of the process runs
 *
 * The call does not notice that the program has ended (this process keeps an end of the pipe open), nor that
 * it could not be executed (the child then reports on standard error and exits with status 1): without a
 * marker it always takes timeoutSeconds.
 *
 * Every call that started a child leaves two descriptors open in the calling process and does not wait for
 * the child; a process that calls this often reaps its children and is restarted now and then.
 *
 * Logs each step and the output (its first 300 characters) at 20000 and 30000, the time-out at 40000,
 * refusals and failures at 70000, too many words at 30000. Blocks for up to timeoutSeconds and the time that
 * reading and logging take: only waiting counts, so a program that floods it runs on longer.
 */
OZU_API int exec_cmd(const char *command, int timeoutSeconds, const char *endMarker,
                     char *output) OZU_NOEXCEPT;

/**
 * Starts a program with pipes to its standard input and from its standard output; standard error is
 * inherited.
 *
 * @param argv       program and arguments, null-terminated; the program is looked up in PATH
 * @param inFd       receives the write end of the child's standard input; null: that end is closed
 * @param outFd      receives the read end of the child's standard output; null: that end is closed
 * @param forkErrno  receives errno when fork() failed; may be null
 * @return the child's process id; -1 when a pipe could not be made (a first one then stays open, and
 *         forkErrno is not written); the negative result of fork()
 *
 * The caller closes what it received and reaps the child. The child's ends of both pipes stay open in the
 * calling process too and are not handed out, so *outFd never reports the end of the output. All ends are
 * close-on-exec. A program that cannot be executed is reported by the child on standard error; it exits with
 * status 1. Logs nothing.
 */
OZU_API pid_t popen2(char *const argv[], int *inFd, int *outFd, int *forkErrno) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_COMMAND_H */

/*
 * Logging library of the panel.
 *
 * A level is a multiple of 10000: 10000 and 20000 fine tracing, 30000 progress, 40000 notable events,
 * 50000 warnings, 60000 lines that also go to the remote side, 70000 failed operations, 80000 failures
 * that leave the process unable to run. The severity registered for the process decides which lines are
 * kept. Every call may be made from any thread; the results are a status that callers do not interpret.
 */
#ifndef OZULOG_H
#define OZULOG_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Opens the process's log. Lines written before go to standard error. */
int ozulog_init(const char *processName);

/** Writes one line without source position. */
int ozulog_printf(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/** Writes one line with source position; the arguments of the format follow the line number. */
int ozulog_printf_extend(int level, const char *format, const char *sourceFile, const char *functionName,
                         int line, ...) __attribute__((format(printf, 2, 6)));

/** Writes one line that is sent to the remote side, too. */
int ozulog_printf_mqtt_transmission(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* OZULOG_H */

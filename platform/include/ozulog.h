/*
 * Logging library of the panel.
 *
 * The severity registered for the process decides which lines are kept. Every call may be made from any
 * thread; the results are a status that callers do not interpret.
 */
#ifndef OZULOG_H
#define OZULOG_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Levels of lines, and with OZULOG_OFF the lowest level that a severity keeps. The values are permanent. */
typedef enum OzuLogLevel {
    OZULOG_TRACE = 10000,    /**< finest tracing */
    OZULOG_DEBUG = 20000,    /**< tracing */
    OZULOG_INFO = 30000,     /**< progress and detail */
    OZULOG_NOTICE = 40000,   /**< notable events in normal running */
    OZULOG_WARNING = 50000,  /**< warnings and misuse */
    OZULOG_REMOTE = 60000,   /**< lines that also go to the remote side */
    OZULOG_ERROR = 70000,    /**< a failed operation */
    OZULOG_CRITICAL = 80000, /**< a failure that leaves the process unable to run */
    OZULOG_OFF = 90000       /**< above every line's level: a severity that keeps none */
} OzuLogLevel;

/** Opens the process's log. Earlier lines go to standard error. */
int ozulog_init(const char *processName);

/** Writes one line without source position. */
int ozulog_printf(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/** Writes one line with source position; the arguments of the format follow the line number. */
int ozulog_printf_extend(int level, const char *format, const char *sourceFile, const char *functionName,
                         int line, ...) __attribute__((format(printf, 2, 6)));

/** Writes one line that also goes to the remote side. */
int ozulog_printf_mqtt_transmission(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* OZULOG_H */

/*
 * System event log of the panel: lines for the installer and the monitoring centre, kept across reboots.
 */
#ifndef SYSTEM_EVENT_LOG_H
#define SYSTEM_EVENT_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Appends one line. @return 0, or the implementation's code */
int LOG_system_event(int category, const char *text);

/** Appends one line unless lines of this category and subtype come too fast. @return as above */
int limited_log_system_event(int category, int subtype, const char *text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* SYSTEM_EVENT_LOG_H */

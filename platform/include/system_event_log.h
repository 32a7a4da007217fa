/*
 * System event log of the panel: lines for the installer and the monitoring centre, kept across reboots.
 */
#ifndef SYSTEM_EVENT_LOG_H
#define SYSTEM_EVENT_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Categories of lines, permanent. */
typedef enum SystemEventCategory {
    SYSTEM_EVENT_SECURITY = 1, /**< security commands and events */
    SYSTEM_EVENT_PANIC = 8,    /**< panic */
    SYSTEM_EVENT_ARM = 11,     /**< arming commands */
    SYSTEM_EVENT_DISARM = 12,  /**< disarming commands */
    SYSTEM_EVENT_NETWORK = 14  /**< connections and requests */
} SystemEventCategory;

/** Subtypes of lines that are limited, permanent. */
typedef enum SystemEventSubtype {
    SYSTEM_EVENT_SUBTYPE_COMMAND = 1, /**< a command, with SYSTEM_EVENT_ARM and SYSTEM_EVENT_DISARM */
    SYSTEM_EVENT_SUBTYPE_PANIC = 6    /**< an event in the panic partition, with SYSTEM_EVENT_PANIC */
} SystemEventSubtype;

/** Appends one line. @return 0, or the implementation's code */
int LOG_system_event(int category, const char *text);

/** Appends one line unless lines of this category and subtype come too fast. @return as above */
int limited_log_system_event(int category, int subtype, const char *text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* SYSTEM_EVENT_LOG_H */

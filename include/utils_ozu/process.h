/*
 * Process start-up.
 */
#ifndef UTILS_OZU_PROCESS_H
#define UTILS_OZU_PROCESS_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Binds the calling process to the panel: log severity, log, message bus. Call it once, from the main
 * thread, before any other thread exists and before anything else of this library.
 *
 * Registers cleanup() with atexit(), looks up the process's log severity in the database, enters the process
 * into the list of logging processes, opens its log, connects it to the broker at 127.0.0.1:1883 under its
 * name and subscribes it to "Multicast/WIFI_SYSLOG_APPENDER_STATE".
 *
 * @param processName  registered name of the process: key of its log severity, name of its bus session
 * @param mqttArg      handed to mqttc_connect() unchanged
 * @return 0 on success, and when the process was initialised before (logs at 50000);
 *         otherwise the code of the first platform call that failed (logs at 80000). After a failed
 *         subscription the process counts as initialised; after any other failure the call may be repeated.
 *
 * Blocks while the platform connects to the broker. Not to be called concurrently.
 */
OZU_API int ozuutils_processInit(const char *processName, void *mqttArg) OZU_NOEXCEPT;

/**
 * Undoes ozuutils_processInit(): the process counts as not initialised and leaves the message bus. Runs by
 * itself when the process exits; running it again is harmless.
 */
OZU_API void cleanup(void) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_PROCESS_H */

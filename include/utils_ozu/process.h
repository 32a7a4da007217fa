/*
 * Process start-up.
 */
#ifndef UTILS_OZU_PROCESS_H
#define UTILS_OZU_PROCESS_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Connects the calling process to the panel: log severity, log, message bus. Call it once, from the main
 * thread, before any other thread exists and before anything else of this library.
 *
 * In this order: registers cleanup() with atexit(), looks up the process's log severity in the database,
 * enters the process into the list of logging processes, opens its log, connects it to the broker at
 * 127.0.0.1:1883 under its name and subscribes it to "Multicast/WIFI_SYSLOG_APPENDER_STATE".
 *
 * @param processName  registered name of the process: key of its log severity, name of its bus session
 * @param mqttArg      passed to mqttc_connect() unchanged
 * @return 0 on success, and when the process was initialised before (logged at 50000);
 *         otherwise the code of the first platform call that failed (logged at 80000). After a failed
 *         subscription the process counts as initialised. After any other failure the call may be repeated;
 *         what succeeded is not undone, and each attempt registers cleanup() once more
 *
 * Blocks for as long as the platform does. With the reference platform: up to 5 s for the connection, 5 s for
 * the broker's answer to the subscription, and 5 s in each database call while another process writes.
 * Another session of the same name adds up to 2 s. Not to be called concurrently.
 */
OZU_API int ozuutils_processInit(const char *processName, void *mqttArg) OZU_NOEXCEPT;

/**
 * Ends what ozuutils_processInit() began: the process counts as not initialised and leaves the message bus.
 * Its entry in the list of logging processes and its log stay. Runs by itself when the process exits with
 * exit() or returns from main(); running it again is harmless.
 *
 * Blocks for as long as mqttc_disconnect() does. With the reference platform: up to 3 s for the last
 * acknowledgements, and up to 3 s more to disconnect from the broker.
 *
 * A forked child inherits the exit handler, so end it with _exit(). The reference platform ignores a child
 * that did not connect; another one may close the parent's session.
 */
OZU_API void cleanup(void) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_PROCESS_H */

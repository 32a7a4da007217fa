/*
 * Coordinated reboot.
 */
#ifndef UTILS_OZU_REBOOT_H
#define UTILS_OZU_REBOOT_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Reboots the whole system in an orderly way. Never returns.
 *
 * In this order:
 * - tells the power manager, only while PanelSharedState.powerManagerMode is 1 or 5: one zero byte to
 *   "Process/POWER_MANAGER", empty label, class 22, command 21;
 * - stores the reason in the database;
 * - announces the reboot to all processes: an empty message to "Process/ALL", label "LTE", class 1,
 *   command 0;
 * - sleeps delaySeconds;
 * - counts the reboot in both modems' statistics: the second counter, where 0 follows 65535;
 * - waits for unsent messages;
 * - runs "sync; reboot";
 * - every 10 seconds checks the clock, and runs "reboot -idf" at each check that finds more than 60 seconds
 *   passed: first after 70 seconds as a rule, then every 10 seconds until the system goes down. The clock is
 *   the wall clock, so setting it moves the first time.
 *
 * No failure stops a reboot. Without the shared state the steps that need it are left out.
 *
 * @param delaySeconds      pause between the announcement and the reboot, in seconds
 * @param rebootReason      reason code for the log and the database
 * @param extraWaitSeconds  longest wait for unsent messages, in seconds; 0 and below: none
 * @param reasonText        reason for the log. Null or empty: the database keeps the reason it has
 *
 * Logs the request and the progress of the wait (one line every 5 seconds, and its success) at 40000, the
 * delay at 30000, a failed message to the power manager, a reason that could not be stored and messages left
 * unsent at 70000, the wait for Linux and each forced reboot at 50000.
 *
 * Blocks for delaySeconds, up to extraWaitSeconds and the reboot itself. A signal handler that runs in the
 * calling thread cuts the current pause short. The two commands run through the shell and are found in PATH:
 * the caller is responsible for its environment. Other threads of the process keep running.
 */
OZU_API void ozuutils_RebootSystem(unsigned int delaySeconds, int rebootReason, int extraWaitSeconds,
                                   const char *reasonText) OZU_NOEXCEPT __attribute__((noreturn));

/**
 * Waits until no message is in flight, according to ozudb_isInFlightData(). With the reference platform:
 * until no message of any process waits for the broker's acknowledgement. Messages of a process that has been
 * without the broker for bus.patience_s (30 s unless set) do not count there.
 *
 * @param maxSeconds  longest wait, in seconds; 0 and below: ask once
 * @return 1 when nothing is in flight, 0 when something still is after maxSeconds
 *
 * Asks the database once a second. Blocks for up to maxSeconds and logs nothing.
 */
OZU_API int WaitForUnsentData(int maxSeconds) OZU_NOEXCEPT;

/**
 * Asks the co-processor link process to reboot the panel: the seven bytes 15 1 0 0 0 0 0 to "Process/MDL",
 * label "RSU", class 1, command 1. A message that could not be published is logged at 70000.
 */
OZU_API void request_CP_reboot_from(void) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_REBOOT_H */

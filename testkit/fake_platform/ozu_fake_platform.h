/*
 * A fake platform: unit tests of a panel process without a panel.
 *
 * Link a test with this library instead of the platform. Every function of the platform's headers (ozudb.h,
 * ozulog.h, mqttc.h, system_event_log.h, messenger.h, product_info.h) is here; each call is recorded and
 * answered from settings of the test. By default every call succeeds, the shared record is all zeros, and
 * nothing outside the test process is touched: no broker, no database, no file.
 *
 *     ozu_fake_reset();
 *     ozu_fake_state()->devices[1].deviceType = 7;
 *     ozu_fake_fail("ozumqttc_messagePublish", 2, 21);      // the second publication fails
 *     run_the_code_under_test();
 *     assert(ozu_fake_logged(OZULOG_NOTICE, "contact open") == 1);
 *     assert(ozu_fake_calls("ozumqttc_messagePublish") == 2);
 *
 * Works with GoogleTest and with plain assert(), from C and C++, and under the sanitizers. One fake
 * platform exists per process. Every function may be called from any thread; texts and entries that are
 * returned stay valid until ozu_fake_reset(). Nothing here blocks.
 *
 * Functions that take the name of a platform function abort, with a message, when there is none of that name:
 * a test with a typo must not pass.
 */
#ifndef OZU_FAKE_PLATFORM_H
#define OZU_FAKE_PLATFORM_H

#include <messenger.h>
#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>
#include <product_info.h>
#include <system_event_log.h>

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Forgets everything that was recorded, sets every knob back, zeroes the record, stops the clock. Call it
   before each test. */
void ozu_fake_reset(void);

/* --- What happened --- */

/** How a log line was written. */
typedef enum OzuFakeLogKind {
    OZU_FAKE_NO_LOG,    /**< not a log line */
    OZU_FAKE_LOG,       /**< ozulog_printf_extend */
    OZU_FAKE_LOG_SHORT, /**< ozulog_printf */
    OZU_FAKE_LOG_REMOTE /**< ozulog_printf_mqtt_transmission */
} OzuFakeLogKind;

/** One call of the platform. Members that do not apply are 0 or empty texts, never null unless it says so. */
typedef struct OzuFakeEntry {
    const char *function;  /**< the platform function that was called */
    const char *arguments; /**< as they would be written in C: texts quoted, null pointers as null */
    int result;            /**< what the call returned */

    OzuFakeLogKind logKind;   /**< for log lines, with the members below */
    int level;                /**< as in ozulog.h */
    const char *text;         /**< the formatted line */
    const char *format;       /**< as passed */
    const char *sourceFile;   /**< as passed */
    const char *functionName; /**< the function that the line names */
    int line;                 /**< as passed */

    const char *topic;          /**< for publications, with the members below */
    const char *senderLabel;    /**< as passed; empty when it was null */
    int messageClass;           /**< as passed */
    int command;                /**< as passed */
    unsigned int payloadLength; /**< bytes */
    const void *payload;        /**< a copy; null when null was passed */
} OzuFakeEntry;

/** Returns the number of entries, oldest first. */
size_t ozu_fake_count(void);
/** Returns one entry, or null when index is too large. */
const OzuFakeEntry *ozu_fake_entry(size_t index);
/** Returns how often a platform function was called. */
size_t ozu_fake_calls(const char *function);
/** Returns the n-th call of a platform function, counted from 0; null when index is too large. */
const OzuFakeEntry *ozu_fake_call(const char *function, size_t index);
/** Returns the number of log lines of this level (0: any) whose text contains the given text. */
size_t ozu_fake_logged(int level, const char *text);
/** Returns the number of publications to a topic. */
size_t ozu_fake_published(const char *topic);
/** Prints what happened, one line each, for a failed test to show. Questions about the record are left out:
   processes ask them all the time. */
void ozu_fake_print(FILE *out);

/* --- What the platform answers --- */

/** Returns the fake platform's shared record. Fill it before the code under test looks. */
PanelSharedState *ozu_fake_state(void);
/** What ozudb_getSharedMemory() returns instead: a record of the test's own, or null for none. */
void ozu_fake_use_state(PanelSharedState *state);
/** What a function returns from now on (0 by default). */
void ozu_fake_result(const char *function, int result);
/** Makes the n-th call from now, counted from 1, return this; every other call is as before. Several may be
 * set. */
void ozu_fake_fail(const char *function, unsigned int nth, int result);
/** The severity that is registered for every process, "INFO" by default. Up to outSize bytes of it are handed
 * over. */
void ozu_fake_severity(const char *name);
/** How many of the next ozudb_isInFlightData() calls report messages in flight (as 255); 0 by default. */
void ozu_fake_in_flight(unsigned int calls);

/** Kinds of devices that the database tells apart. */
typedef enum OzuFakeDeviceKind {
    OZU_FAKE_OTHER_DEVICE, /**< none of these, the default */
    OZU_FAKE_TAG_READER,   /**< ozudb_isTagReader() answers 1 */
    OZU_FAKE_RF_INPUT,     /**< ozudb_isRfInput() answers 1 */
    OZU_FAKE_RF_DETECTOR   /**< ozudb_isRfDetector() answers 1 */
} OzuFakeDeviceKind;
/** Says of what kind a device is. An index outside 0 to 205 aborts. */
void ozu_fake_device_kind(int deviceIndex, OzuFakeDeviceKind kind);

/** Called on the caller's thread for each call of the platform before it returns; may change entry->result.
   It may use every function of this header but ozu_fake_reset(). */
typedef void (*OzuFakeHook)(OzuFakeEntry *entry, void *user);
/** Sets the hook; null removes it. */
void ozu_fake_hook(OzuFakeHook hook, void *user);
/** Whether calls are recorded (1, the default). With 0 the hook still sees each of them, nothing is kept, and
   nothing is allocated: for fuzz targets and benchmarks. The hook then sees a log line truncated to 4,095
   characters, and the argument of mqttc_connect() is not read. */
void ozu_fake_record(int record);

/* --- The message bus --- */

/** Returns whether the process has connected (and not disconnected). */
int ozu_fake_connected(void);
/** Returns whether a topic was subscribed to, by its exact text or by a filter with + or #. */
int ozu_fake_subscribed(const char *topic);
/**
 * Delivers a message to the function that the process gave to ozuutils_processInit(), on the caller's thread.
 * @return 0 delivered; 1 the process is not connected; 2 it gave no function; 3 it has not subscribed to the
 * topic
 */
int ozu_fake_deliver(const char *topic, const char *senderLabel, int messageClass, int command,
                     const void *payload, unsigned int payloadLength);

/* --- The clock ---
 *
 * Once started, the process's clocks (time, gettimeofday, clock_gettime) stand still until the test moves
 * them or something sleeps. sleep(), usleep(), nanosleep() and clock_nanosleep() return at once and move the
 * clocks by what they were asked to sleep. Waits for descriptors with a timeout (select, pselect, poll,
 * ppoll, and sockets with a receive timeout) wait a hundredth of it in real time; when it expires, the
 * clocks move by the whole timeout. Child processes keep their own, real clock. Under the address sanitizer
 * use the static library: the sanitizer's own time() comes before that of a shared one.
 */

/** Stops the process's clocks at this moment: UTC seconds since 1970. */
void ozu_fake_clock_start(int64_t seconds);
/** Moves them on, or back with a negative number. Starts them at the present moment when they were not
 * started. */
void ozu_fake_clock_advance(double seconds);
/** Returns the present moment in UTC seconds since 1970, of the moved clock or of the real
 * one when it was not started. */
double ozu_fake_clock_now(void);
/** Returns to the real clock. */
void ozu_fake_clock_stop(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* OZU_FAKE_PLATFORM_H */

/*
 * Panel state queries: alarm, arming, bypass, contacts, enrolled devices and safety events, answered from the
 * panel's shared record.
 *
 * Each call fetches the record once and reads it without a lock. An answer is a snapshot; two calls may see
 * different ones. While the platform has no record, every query returns 0 and a search -1. The same holds for
 * a device index below 0 or from MAX_DEVICE_INDEX on; no other memory is read. The reference platform maps
 * the record on the first call, so that queries work before ozuutils_processInit(), too. All of them may run
 * concurrently, and log nothing unless said otherwise.
 *
 * A device index is the device's place in PanelSharedState.devices (ozudb.h), 1 to 205 for enrolled devices;
 * index 0 is read like any other, but holds no device.
 *
 * A partition's state is 0 in alarm, 1 disarmed, 2 to 4 armed. A state above 4 is none of these.
 *
 * docs/glossary.md explains partition, arm type, zone, input, bypass and safety event.
 *
 * Times are signed 32-bit seconds. A bypass stored to end in 2038-01-19T03:14:08Z or later expires at
 * once. From that moment on the 32-bit clock is negative: a bypass stored to end earlier never expires, and
 * no siren sounds.
 */
#ifndef UTILS_OZU_STATE_H
#define UTILS_OZU_STATE_H

#include <utils_ozu/export.h>

#include <stdint.h>

OZU_BEGIN_DECLS

/** One above the highest device index. */
#define MAX_DEVICE_INDEX 206

/** How long a safety siren sounds after its event started, in seconds. */
#define SAFETY_SIREN_PERIOD 180

/** Which of the partitions FULL, DAY, NIGHT, PERIMETER and ANNEX are armed. */
typedef enum PanelArmType {
    PANEL_ARM_FULL = 0,
    PANEL_ARM_DAY = 1,
    PANEL_ARM_NIGHT = 2,
    PANEL_ARM_PERIMETER = 3,
    PANEL_ARM_ANNEX = 4,
    PANEL_ARM_NONE = 5, /**< disarmed */
    PANEL_ARM_FULL_PERIMETER = 6,
    PANEL_ARM_DAY_PERIMETER = 7,
    PANEL_ARM_NIGHT_PERIMETER = 8,
    PANEL_ARM_FULL_ANNEX = 9,
    PANEL_ARM_DAY_ANNEX = 10,
    PANEL_ARM_NIGHT_ANNEX = 11,
    PANEL_ARM_FULL_PERIMETER_ANNEX = 12,
    PANEL_ARM_DAY_PERIMETER_ANNEX = 13,
    PANEL_ARM_NIGHT_PERIMETER_ANNEX = 14,
    PANEL_ARM_PERIMETER_ANNEX = 15
} PanelArmType;

/* ---- Partitions ---- */

/**
 * Returns whether any of the 8 partitions is in alarm.
 * @return 1 or 0
 */
OZU_API int IsPanelInAlarm(void) OZU_NOEXCEPT;

/**
 * Returns whether any of the 8 partitions is in alarm or armed again after one.
 * @return of the first such partition: its armAfterAlarm value, 1 to 255, when that is set, otherwise 1. 0
 *         when there is none.
 */
OZU_API int IsPanelInAlarmOrArmAfterAlarm(void) OZU_NOEXCEPT;

/**
 * Returns whether any partition but PANIC is in alarm or armed again after one.
 * @return 1 or 0, never an armAfterAlarm value
 */
OZU_API int IsPanelInAlarmOrArmAfterAlarmExceptPanic(void) OZU_NOEXCEPT;

/**
 * Returns whether any partition but ANNEX and PANIC is in alarm or armed again after one.
 * @return as IsPanelInAlarmOrArmAfterAlarm()
 */
OZU_API int IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(void) OZU_NOEXCEPT;

/**
 * Returns whether FULL, DAY, NIGHT, PERIMETER and ANNEX are all disarmed. The 24-hours, safety and panic
 * partitions do not count.
 * @return 1 or 0
 */
OZU_API int IsPanelInDisarmNotEmergemcyPartitions(void) OZU_NOEXCEPT;

/**
 * Tells how the panel is armed. A partition in alarm counts as armed, one with a state above 4 does not;
 * where DAY, NIGHT and FULL are armed together, DAY outranks NIGHT and NIGHT outranks FULL.
 * @return the arm type; PANEL_ARM_FULL (0) without a shared record
 */
OZU_API PanelArmType getCurArmType(void) OZU_NOEXCEPT;

/**
 * Returns whether any of the 8 partitions was armed by force.
 * @return 2 when one was with the stronger kind (forcedArm 2), otherwise 1 when one was (forcedArm 1),
 *         otherwise 0; other values of forcedArm do not count
 */
OZU_API int getCurArmForced(void) OZU_NOEXCEPT;

/**
 * Returns the entry time of AU1T devices.
 * @param partition  partition number; 1, 2 and 4 (DAY, NIGHT, ANNEX) have the short delay, every other number
 *                   the full one
 * @return milliseconds, 0 to 65535000
 */
OZU_API uint32_t getAu1tPartitionEntryTime(uint32_t partition) OZU_NOEXCEPT;

/* ---- Devices ---- */

/**
 * Returns whether a device is a magnet contact (type W3 or TQSX).
 * @param deviceIndex  device index
 * @return 1 or 0
 */
OZU_API int IsDeviceMagnetType(int deviceIndex) OZU_NOEXCEPT;

/**
 * Returns whether a device is a camera (type UMK, UMKRL, UMKR or CHEV).
 * @param deviceIndex  device index
 * @return 1 or 0
 */
OZU_API int ozuutils_isCameraDevice(int deviceIndex) OZU_NOEXCEPT;

/**
 * Returns whether a magnet contact is open and its zone watched: its first input is in use and not bypassed.
 * Ends an expired bypass, as ozuutils_isZoneBypassed() does.
 * @param deviceIndex  device index
 * @return 1 or 0
 */
OZU_API int IsMagnetOpen(int deviceIndex) OZU_NOEXCEPT;

/**
 * Returns whether the lid of a camera of type UMKRL is closed and its zone not bypassed. Ends an expired
 * bypass, as ozuutils_isZoneBypassed() does.
 * @param deviceIndex  device index
 * @return 1 or 0
 */
OZU_API int IsCameraLidClosed(int deviceIndex) OZU_NOEXCEPT;

/**
 * Returns whether a device is bypassed, and ends an expired timed bypass: the database clears it, and the
 * messenger reports it to the panel's other processes.
 *
 * A tag reader has its own flag; an RF input is bypassed while its enabled byte is 0. A detector has the flag
 * of its zone's first input, a magnet contact one for each input, and a magnet contact's input that is not in
 * use counts as bypassed. The bypass of input 1 does not expire here.
 *
 * Any other input than 0 and 1 means the second input of a magnet contact, whether in use or not, and the
 * first of other detectors. There the bypass does expire, and the database clears that of the
 * zone's first input.
 *
 * @param deviceIndex  device index
 * @param input        0 for the first input, 1 for the second; tag readers and RF inputs have only one
 * @return 0 when it is not bypassed (any more), and for a device that is none of the three kinds. Otherwise 1
 *         for an RF input and for an input that is not in use, and the stored flag, 1 to 255, for all others.
 *
 * Blocks while the platform stores the end of a bypass.
 */
OZU_API int ozuutils_isZoneBypassed(int deviceIndex, int input) OZU_NOEXCEPT;

/**
 * Finds an active device.
 * @param rfId        radio id
 * @param deviceType  device type code, see getDeviceTypeName()
 * @return the lowest index, 1 to 205, of an active device with this id and type; -1 when there is none
 */
OZU_API int ozuutils_isDeviceExistsAndActive(uint32_t rfId, int32_t deviceType) OZU_NOEXCEPT;

/**
 * Returns whether an active Danalock is enrolled at one of the indexes 164 to 196 that door locks get.
 * @return 1 or 0
 */
OZU_API int isDanalockExistAndActived(void) OZU_NOEXCEPT;

/* ---- Safety events ---- */

/**
 * Returns whether a safety event (flood, smoke, gas) has not ended. Logs the first such event at 40000.
 * @return 1 or 0
 */
OZU_API int ozuutils_isSafetyEventInProgress(void) OZU_NOEXCEPT;

/**
 * Returns how long the safety siren still sounds: SAFETY_SIREN_PERIOD after the newest event started, ended
 * or not. An event of the current second or of the future does not count, nor does one that is
 * SAFETY_SIREN_PERIOD old or older. Of the events that count, logs at 40000 the one in the lowest slot, and
 * every one that started later than all those logged before it.
 * @return seconds, 1 to 179; 0 when no siren sounds
 */
OZU_API unsigned char ozuutils_isSafetySirenInProgress(void) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_STATE_H */

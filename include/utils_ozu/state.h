/*
 * Panel state queries: alarm, arming, bypass, contacts, enrolled devices and safety events, answered from the
 * panel's shared record.
 *
 * Each call fetches the record once and reads it without a lock: an answer is a momentary view, and two calls
 * may see different ones. Without a shared record (the process is not initialised), and for a device index
 * below 0 or from MAX_DEVICE_INDEX on, every query answers 0, a search -1, and no other memory is touched.
 * All of them may run concurrently.
 *
 * A device index is the device's place in PanelSharedState.devices (ozudb.h), 1 to 205 for enrolled devices.
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
 * Tells whether any of the 8 partitions is in alarm.
 * @return 1 or 0
 */
OZU_API int IsPanelInAlarm(void) OZU_NOEXCEPT;

/**
 * Tells whether any of the 8 partitions is in alarm or armed again after one.
 * @return of the first such partition: its armAfterAlarm value, 1 to 255, when that is set; 1 when it is in
 *         alarm. 0 when there is none.
 */
OZU_API int IsPanelInAlarmOrArmAfterAlarm(void) OZU_NOEXCEPT;

/**
 * Tells whether any partition but PANIC is in alarm or armed again after one.
 * @return 1 or 0, never an armAfterAlarm value
 */
OZU_API int IsPanelInAlarmOrArmAfterAlarmExceptPanic(void) OZU_NOEXCEPT;

/**
 * Tells whether any partition but ANNEX and PANIC is in alarm or armed again after one.
 * @return as IsPanelInAlarmOrArmAfterAlarm()
 */
OZU_API int IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(void) OZU_NOEXCEPT;

/**
 * Tells whether FULL, DAY, NIGHT, PERIMETER and ANNEX are all disarmed. The 24-hours, safety and panic
 * partitions do not count.
 * @return 1 or 0
 */
OZU_API int IsPanelInDisarmNotEmergemcyPartitions(void) OZU_NOEXCEPT;

/**
 * Tells how the panel is armed. A partition in alarm counts as armed; where DAY, NIGHT and FULL are armed
 * together, DAY outranks NIGHT and NIGHT outranks FULL.
 * @return the arm type; PANEL_ARM_FULL (0) without a shared record
 */
OZU_API PanelArmType getCurArmType(void) OZU_NOEXCEPT;

/**
 * Tells whether any of the 8 partitions was armed by force.
 * @return 2 when one was with the stronger kind, otherwise 1 when one was, otherwise 0
 */
OZU_API int getCurArmForced(void) OZU_NOEXCEPT;

/**
 * Gives the entry time of AU1T devices.
 * @param partition  partition number; 1, 2 and 4 (DAY, NIGHT, ANNEX) have the short delay, every other number
 *                   the full one
 * @return milliseconds, 0 to 65535000
 */
OZU_API uint32_t getAu1tPartitionEntryTime(uint32_t partition) OZU_NOEXCEPT;

/* ---- Devices ---- */

/**
 * Tells whether a device is a magnet contact (type W3 or TQSX).
 * @param deviceIndex  device index
 * @return 1 or 0
 */
OZU_API int IsDeviceMagnetType(int deviceIndex) OZU_NOEXCEPT;

/**
 * Tells whether a device is a camera (type UMK, UMKRL, UMKR or CHEV).
 * @param deviceIndex  device index
 * @return 1 or 0
 */
OZU_API int ozuutils_isCameraDevice(int deviceIndex) OZU_NOEXCEPT;

/**
 * Tells whether a magnet contact is open and its zone watched: its first input is in use and not bypassed.
 * Ends a bypass that has run out, as ozuutils_isZoneBypassed() does.
 * @param deviceIndex  device index
 * @return 1 or 0
 */
OZU_API int IsMagnetOpen(int deviceIndex) OZU_NOEXCEPT;

/**
 * Tells whether the lid of a camera of type UMKRL is closed and its zone not bypassed. Ends a bypass that has
 * run out, as ozuutils_isZoneBypassed() does.
 * @param deviceIndex  device index
 * @return 1 or 0
 */
OZU_API int IsCameraLidClosed(int deviceIndex) OZU_NOEXCEPT;

/**
 * Tells whether a device is bypassed, and ends a timed bypass that has run out: the database clears it and
 * the messenger reports it to the panel's other processes.
 *
 * A tag reader has its own flag; an RF input is bypassed while it is not enabled. A detector has the flag of
 * its zone's first input, a magnet contact one for each input, and an input that is not in use counts as
 * bypassed. The bypass of input 1 does not run out here.
 *
 * @param deviceIndex  device index
 * @param input        0 for the first input, 1 for the second
 * @return 0 when it is not bypassed (any more); otherwise the stored flag, 1 to 255; 0 for a device that is
 *         none of the three kinds
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
 * Tells whether an active Danalock is enrolled, at the indexes 164 to 196 that door locks get.
 * @return 1 or 0
 */
OZU_API int isDanalockExistAndActived(void) OZU_NOEXCEPT;

/* ---- Safety events ---- */

/**
 * Tells whether a safety event (flood, smoke, gas) has not ended. Logs the first such event at 40000.
 * @return 1 or 0
 */
OZU_API int ozuutils_isSafetyEventInProgress(void) OZU_NOEXCEPT;

/**
 * Tells how long the safety siren still sounds: SAFETY_SIREN_PERIOD after the newest event started, ended or
 * not. An event of the current second or of the future does not count. Logs at 40000 every event that is
 * newer than those in the slots before it.
 * @return seconds, 0 to 179; 0 when no siren sounds
 */
OZU_API unsigned char ozuutils_isSafetySirenInProgress(void) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_STATE_H */

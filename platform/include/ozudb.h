/*
 * Database library of the panel: the shared state of all processes, and its persistent state.
 *
 * Every operation may be called from any process and thread; each is one transaction. A result of 0 is
 * success unless an operation says otherwise; other codes are the implementation's own.
 */
#ifndef OZUDB_H
#define OZUDB_H

#include <panel_codes.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Numbers of records in PanelSharedState. */
#define OZUDB_PARTITIONS 8       /**< partitions */
#define OZUDB_DEVICES 206        /**< devices, index 0 not used */
#define OZUDB_ZONES 256          /**< detector zones */
#define OZUDB_TAG_READERS 256    /**< tag readers */
#define OZUDB_RF_INPUTS 256      /**< RF inputs */
#define OZUDB_SAFETY_EVENTS 50   /**< safety events */
#define OZUDB_MODEMS 2           /**< modems */
#define OZUDB_MODEM_COUNTERS 8   /**< counters of a modem */
#define OZUDB_DNS_SERVER_PAIRS 3 /**< pairs of DNS servers */
#define OZUDB_DNS_TEXT 100       /**< bytes of a DNS server's text */
#define OZUDB_DIALERS 16         /**< dialers */
#define OZUDB_SY9_KEYFOBS 11     /**< SY9 keyfobs, index 0 not used */

/** Expiry of a bypass that does not end by itself. */
#define OZUDB_BYPASS_FOREVER 0xFFFFFFFFu

/** One partition; the index is the partition number of inc_ozu/security_ozu.h. */
typedef struct PanelPartition {
    uint32_t partitionState; /**< a PanelPartitionState */
    uint32_t forcedArm;      /**< a PanelForcedArm */
    uint8_t armAfterAlarm;   /**< non-zero while armed again after an alarm */
    int32_t disarmTime;      /**< UTC seconds of the last disarming */
} PanelPartition;

/** One enrolled device. */
typedef struct PanelDevice {
    uint32_t rfId;       /**< radio identifier */
    uint8_t tableIndex;  /**< index in the table of its own kind: zones, tagReaders or rfInputs */
    uint32_t deviceType; /**< a PanelDeviceType */
    uint8_t active;      /**< 1 enrolled and active; anything else is not */
    uint8_t openState;   /**< non-zero: contact or lid open */
    uint8_t fwMajor;     /**< firmware version major.minor.build */
    uint8_t fwMinor;     /**< firmware version, second number */
    uint8_t fwBuild;     /**< firmware version, third number */
} PanelDevice;

/** Bypass of one input of a zone. */
typedef struct PanelBypass {
    uint8_t bypassed;      /**< non-zero: bypassed */
    uint32_t bypassExpiry; /**< UTC seconds at which the bypass ends; OZUDB_BYPASS_FOREVER: never */
} PanelBypass;

/** One detector zone. */
typedef struct PanelZone {
    uint8_t secondInputEnabled; /**< magnet-type detectors: the second input is in use */
    uint8_t firstInputEnabled;  /**< magnet-type detectors: the first input is in use */
    PanelBypass bypass[2];      /**< of the first input, of a magnet-type detector's second input */
} PanelZone;

/** One tag reader. */
typedef struct PanelTagReader {
    uint8_t bypassed; /**< non-zero: bypassed */
} PanelTagReader;

/** One RF input. */
typedef struct PanelRfInput {
    uint8_t enabled; /**< 1 enabled, 0 bypassed */
} PanelRfInput;

/** One safety event (flood, smoke, gas). */
typedef struct PanelSafetyEvent {
    int32_t startTime;   /**< UTC seconds; 0: free slot */
    uint8_t rfId;        /**< radio id of the device that raised it */
    uint32_t deviceType; /**< a PanelDeviceType */
    uint8_t ended;       /**< non-zero: over */
} PanelSafetyEvent;

/** Counters of one modem; the second counts reboots. */
typedef struct PanelModemStatistics {
    uint16_t counter[OZUDB_MODEM_COUNTERS]; /**< the second one counts reboots */
} PanelModemStatistics;

/** One pair of DNS servers: dotted IPv4 texts, empty for none. */
typedef struct PanelDnsServerPair {
    char primary[OZUDB_DNS_TEXT];   /**< asked first */
    char secondary[OZUDB_DNS_TEXT]; /**< asked when the first does not answer */
} PanelDnsServerPair;

/** One entry of the dialer table. */
typedef struct PanelDialer {
    uint8_t dialerId;     /**< 1 to 16 */
    uint8_t dialerCheckA; /**< first byte that identifies the dialer */
    uint8_t dialerCheckB; /**< second byte that identifies the dialer */
} PanelDialer;

/** One SY9 keyfob. */
typedef struct PanelSy9Keyfob {
    uint8_t userId;      /**< the panel user it belongs to */
    uint8_t reserved[2]; /**< not used by the library */
} PanelSy9Keyfob;

/**
 * The live state of the panel, one record in shared memory that every process maps.
 *
 * The layout is the same on 32-bit and 64-bit machines (little-endian, no pointers, natural
 * alignment of at most 4); the assertions below hold it. Readers take no lock: every answer is a
 * snapshot.
 */
typedef struct PanelSharedState {
    PanelPartition partitions[OZUDB_PARTITIONS];        /**< by partition number */
    PanelDevice devices[OZUDB_DEVICES];                 /**< by device index */
    PanelZone zones[OZUDB_ZONES];                       /**< by tableIndex of a detector */
    PanelTagReader tagReaders[OZUDB_TAG_READERS];       /**< by tableIndex of a tag reader */
    PanelRfInput rfInputs[OZUDB_RF_INPUTS];             /**< by tableIndex of an input */
    PanelSafetyEvent safetyEvents[OZUDB_SAFETY_EVENTS]; /**< a slot with startTime 0 is free */
    PanelModemStatistics modemStatistics[OZUDB_MODEMS]; /**< [0] is modem index 1, [1] is modem index 0 */
    PanelDnsServerPair dnsServerPairs[OZUDB_DNS_SERVER_PAIRS]; /**< for the permanent DNS file */
    PanelDialer dialers[OZUDB_DIALERS];                        /**< the dialer table */
    PanelSy9Keyfob sy9Keyfobs[OZUDB_SY9_KEYFOBS];              /**< by keyfob number */
    uint32_t powerManagerMode;    /**< 1 and 5: the power manager takes part in a reboot */
    uint8_t timeSourceFlagA;      /**< clock-validity marks, see ozuutils_isSystemTimeOk() */
    uint8_t timeSourceFlagB;      /**< as timeSourceFlagA */
    uint16_t au1tEntryDelayFull;  /**< seconds */
    uint16_t au1tEntryDelayShort; /**< seconds */
    uint8_t cpPlasticVersion;     /**< housing version, 1 to 3 */
    uint8_t cBankModeActive;      /**< non-zero: the modem is in CBank mode */
} PanelSharedState;

/** @cond */
#ifdef __cplusplus
#define OZUDB_ASSERT(condition, text) static_assert(condition, text)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define OZUDB_ASSERT(condition, text) _Static_assert(condition, text)
#else
#define OZUDB_ASSERT_NAME_(line) ozudb_assert_##line
#define OZUDB_ASSERT_NAME(line) OZUDB_ASSERT_NAME_(line)
#define OZUDB_ASSERT(condition, text)                                                                        \
    struct OZUDB_ASSERT_NAME(__LINE__) {                                                                     \
        unsigned int holds : (condition) ? 1 : -1;                                                           \
    }
#endif
#define OZUDB_ASSERT_OFFSET(member, offset)                                                                  \
    OZUDB_ASSERT(offsetof(PanelSharedState, member) == (offset), #member " has moved")

OZUDB_ASSERT(sizeof(PanelPartition) == 16, "layout");
OZUDB_ASSERT(sizeof(PanelDevice) == 20, "layout");
OZUDB_ASSERT(sizeof(PanelBypass) == 8, "layout");
OZUDB_ASSERT(sizeof(PanelZone) == 20, "layout");
OZUDB_ASSERT(sizeof(PanelTagReader) == 1, "layout");
OZUDB_ASSERT(sizeof(PanelRfInput) == 1, "layout");
OZUDB_ASSERT(sizeof(PanelSafetyEvent) == 16, "layout");
OZUDB_ASSERT(sizeof(PanelModemStatistics) == 16, "layout");
OZUDB_ASSERT(sizeof(PanelDnsServerPair) == 200, "layout");
OZUDB_ASSERT(sizeof(PanelDialer) == 3, "layout");
OZUDB_ASSERT(sizeof(PanelSy9Keyfob) == 3, "layout");
OZUDB_ASSERT_OFFSET(partitions, 0);
OZUDB_ASSERT_OFFSET(devices, 128);
OZUDB_ASSERT_OFFSET(zones, 4248);
OZUDB_ASSERT_OFFSET(tagReaders, 9368);
OZUDB_ASSERT_OFFSET(rfInputs, 9624);
OZUDB_ASSERT_OFFSET(safetyEvents, 9880);
OZUDB_ASSERT_OFFSET(modemStatistics, 10680);
OZUDB_ASSERT_OFFSET(dnsServerPairs, 10712);
OZUDB_ASSERT_OFFSET(dialers, 11312);
OZUDB_ASSERT_OFFSET(sy9Keyfobs, 11360);
OZUDB_ASSERT_OFFSET(powerManagerMode, 11396);
OZUDB_ASSERT_OFFSET(timeSourceFlagA, 11400);
OZUDB_ASSERT_OFFSET(timeSourceFlagB, 11401);
OZUDB_ASSERT_OFFSET(au1tEntryDelayFull, 11402);
OZUDB_ASSERT_OFFSET(au1tEntryDelayShort, 11404);
OZUDB_ASSERT_OFFSET(cpPlasticVersion, 11406);
OZUDB_ASSERT_OFFSET(cBankModeActive, 11407);
OZUDB_ASSERT(sizeof(PanelSharedState) == 11408, "the shared record has another size");
/** @endcond */

/**
 * Maps the shared record on the first call and returns its address.
 * @param reserved  always 0
 * @return the record, or null when it cannot be mapped
 */
PanelSharedState *ozudb_getSharedMemory(int reserved);

/**
 * Finds the log severity that is registered for a process.
 * @param out      receives the severity's name, at most outSize bytes; not terminated when it fills them
 * @param outSize  capacity of out in bytes
 * @param processName  registered name of the process
 */
int ozudb_getSeverityNameByProcName(char *out, int outSize, const char *processName);

/** Enters a process into the list of logging processes. */
int ozudb_addProc2Log(const char *processName, const char *severityName, pid_t pid);

/** Stores the reason of the next reboot. */
int ozudb_updatePanelRebootReason(int reason);

/**
 * Sets *inFlight non-zero while any process's messages wait for the broker's acknowledgement. Once a process
 * has been without the broker for a time that the implementation sets (the reference platform: its setting
 * bus.patience_s, 30 s unless set), its messages count no more. The answer is of the moment: who waits
 * asks again.
 * @param inFlight  receives the answer; not null
 */
int ozudb_isInFlightData(unsigned char *inFlight);

/**
 * Writes the eight counters of one modem into the record and the database.
 * @param c1,c2,c3,c4,c5,c6,c7,c8  new values of counter[0] to counter[7]
 * @param modemIndex  0 or 1; modem 1 is the first of PanelSharedState.modemStatistics
 */
int ozudb_ModifyModemStatistics(uint16_t c1, uint16_t c2, uint16_t c3, uint16_t c4, uint16_t c5, uint16_t c6,
                                uint16_t c7, uint16_t c8, int modemIndex);

/**
 * Changes the bypass of a zone's first input in the record and the database.
 * @param zoneIndex  index into PanelSharedState.zones
 * @param bypassed   0 or 1
 * @param expiry     UTC seconds at which it ends, -1 for never
 */
int ozudb_ModifyBypassExpiry(int zoneIndex, int bypassed, int expiry);

/** Returns non-zero when the device is a tag reader, 0 otherwise and for an index out of range. */
int ozudb_isTagReader(int deviceIndex);
/** Returns non-zero when the device is an RF input, 0 otherwise and for an index out of range. */
int ozudb_isRfInput(int deviceIndex);
/** Returns non-zero when the device is a radio detector, 0 otherwise and for an index out of range. */
int ozudb_isRfDetector(int deviceIndex);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* OZUDB_H */

/*
 * Security commands and partitions: the numbers all panel processes share, and their names.
 *
 * The name functions are inline so that a process needs nothing but the log to use them.
 */
#ifndef INC_OZU_SECURITY_OZU_H
#define INC_OZU_SECURITY_OZU_H

#include <ozulog.h>
#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/** What the security core is told: commands of users, events of detectors. */
typedef enum sec_cmd {
    SEC_CMD_ARM_PARTITION = 0,
    SEC_CMD_ARM_PARTITION_IMMEDIATE = 1,
    SEC_CMD_FORCE_ARM_PARTITION = 2,
    SEC_CMD_FORCE_ARM_PARTITION_IMMEDIATE = 3,
    SEC_CMD_DISARM_PARTITION = 4,
    SEC_CMD_DISARM = 5,
    SEC_DETECTION_WITH_ENTRY_TIME_EVENT = 6,
    SEC_DETECTION_WALK_THROUGH_EVENT = 7,
    SEC_DETECTION_IMMEDIATE_EVENT = 8,
    SEC_TAMPER_EVENT = 9,
    SEC_DETECTION_24_HOURS_EVENT = 10,
    SEC_DETECTION_JAMMING_EVENT = 11,
    SEC_PANIC_EVENT = 12,
    SEC_SAFETY_FLOOD_EVENT = 13,
    SEC_SAFETY_FLOOD_SUBSIDED_EVENT = 14,
    SEC_SAFETY_SMOKE_EVENT = 15,
    SEC_SAFETY_SMOKE_SUBSIDED_EVENT = 16,
    SEC_SAFETY_GAS_EVENT = 17,
    SEC_SAFETY_GAS_SUBSIDED_EVENT = 18,
    MAX_SEC_CMD = 19
} sec_cmd;

/** Partitions; 0 to 7 are also the indexes of PanelSharedState.partitions. */
typedef enum sec_partition {
    PARTITION_FULL = 0,
    PARTITION_DAY = 1,
    PARTITION_NIGHT = 2,
    PARTITION_PERIMETER = 3,
    PARTITION_ANNEX = 4,
    PARTITION_24_HOURS = 5,
    PARTITION_SAFETY = 6,
    PARTITION_PANIC = 7,
    PARTITION_FDN = 8,
    MAX_PARTITION_ID = 9
} sec_partition;

/** Source that the log lines of this header carry. */
#define SECURITY_OZU_SOURCE "inc_ozu/security_ozu"
/** The value as the log's %d takes it, converted without a warning in C and in C++. */
#ifdef __cplusplus
#define SECURITY_OZU_INT(value) static_cast<int>(value)
#else
#define SECURITY_OZU_INT(value) ((int)(value))
#endif

/**
 * Names a security command.
 * @param command  a sec_cmd value; MAX_SEC_CMD has a name, too
 * @return the enumerator's name; "ERR ENUM" for a larger value (logs at 80000). Never null, never to be
 * freed.
 */
static inline const char *stringFromSec_cmd(unsigned int command) OZU_NOEXCEPT {
    /* One after the other: an array of pointers would have to be relocated in every process. */
    static const char names[] = "SEC_CMD_ARM_PARTITION\0"
                                "SEC_CMD_ARM_PARTITION_IMMEDIATE\0"
                                "SEC_CMD_FORCE_ARM_PARTITION\0"
                                "SEC_CMD_FORCE_ARM_PARTITION_IMMEDIATE\0"
                                "SEC_CMD_DISARM_PARTITION\0"
                                "SEC_CMD_DISARM\0"
                                "SEC_DETECTION_WITH_ENTRY_TIME_EVENT\0"
                                "SEC_DETECTION_WALK_THROUGH_EVENT\0"
                                "SEC_DETECTION_IMMEDIATE_EVENT\0"
                                "SEC_TAMPER_EVENT\0"
                                "SEC_DETECTION_24_HOURS_EVENT\0"
                                "SEC_DETECTION_JAMMING_EVENT\0"
                                "SEC_PANIC_EVENT\0"
                                "SEC_SAFETY_FLOOD_EVENT\0"
                                "SEC_SAFETY_FLOOD_SUBSIDED_EVENT\0"
                                "SEC_SAFETY_SMOKE_EVENT\0"
                                "SEC_SAFETY_SMOKE_SUBSIDED_EVENT\0"
                                "SEC_SAFETY_GAS_EVENT\0"
                                "SEC_SAFETY_GAS_SUBSIDED_EVENT\0"
                                "MAX_SEC_CMD";
    const char *name = names;
    if (command > MAX_SEC_CMD) {
        ozulog_printf_extend(OZULOG_CRITICAL, "%d is not a valid sec_cmd", SECURITY_OZU_SOURCE, __func__,
                             __LINE__, SECURITY_OZU_INT(command));
        return "ERR ENUM";
    }
    for (; command > 0; --command) {
        while (*name++ != '\0') {
        }
    }
    return name;
}

/**
 * Names a partition.
 * @param partition  a sec_partition value; MAX_PARTITION_ID has a name, too
 * @return the enumerator's name; "ERR ENUM" for a larger value (logs at 80000). Never null, never to be
 * freed.
 */
static inline const char *stringFromSec_partition(unsigned int partition) OZU_NOEXCEPT {
    static const char names[MAX_PARTITION_ID + 1][20] = {
        "PARTITION_FULL",  "PARTITION_DAY",      "PARTITION_NIGHT",  "PARTITION_PERIMETER",
        "PARTITION_ANNEX", "PARTITION_24_HOURS", "PARTITION_SAFETY", "PARTITION_PANIC",
        "PARTITION_FDN",   "MAX_PARTITION_ID",
    };
    if (partition > MAX_PARTITION_ID) {
        ozulog_printf_extend(OZULOG_CRITICAL, "%d is not a valid sec_partition", SECURITY_OZU_SOURCE,
                             __func__, __LINE__, SECURITY_OZU_INT(partition));
        return "ERR ENUM";
    }
    return names[partition];
}

OZU_END_DECLS

#endif /* INC_OZU_SECURITY_OZU_H */

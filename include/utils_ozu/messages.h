/*
 * Messages that the library publishes on the panel's bus, for the processes that receive them: topics,
 * classes, commands and the first bytes of the payloads. The values are permanent.
 */
#ifndef UTILS_OZU_MESSAGES_H
#define UTILS_OZU_MESSAGES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

#define OZU_TOPIC_ALL "Process/ALL"                     /**< every process that has subscribed to it */
#define OZU_TOPIC_MDL "Process/MDL"                     /**< the co-processor link process */
#define OZU_TOPIC_POWER_MANAGER "Process/POWER_MANAGER" /**< the power manager */
#define OZU_TOPIC_RF_MANAGER "Process/RF_MANAGER"       /**< the manager of the CC1352 radio */
/** Every process subscribes to it at its start. */
#define OZU_TOPIC_SYSLOG_APPENDER_STATE "Multicast/WIFI_SYSLOG_APPENDER_STATE"

/** Class and command of each message. */
typedef enum OzuMessageCode {
    OZU_MESSAGE_REBOOT_CLASS = 1,           /**< to all: the panel reboots; no payload */
    OZU_MESSAGE_REBOOT_COMMAND = 0,         /**< command of OZU_MESSAGE_REBOOT_CLASS */
    OZU_MESSAGE_TIME_ZONE_CLASS = 6,        /**< to all: the time zone has changed; no payload */
    OZU_MESSAGE_TIME_ZONE_COMMAND = 0,      /**< command of OZU_MESSAGE_TIME_ZONE_CLASS */
    OZU_MESSAGE_POWER_MANAGER_CLASS = 22,   /**< to the power manager */
    OZU_MESSAGE_POWER_MANAGER_REBOOT = 21,  /**< a reboot follows; the payload is one zero byte */
    OZU_MESSAGE_NXP_CLASS = 0,              /**< to the link: an envelope, OZU_MDL_NXP_ENVELOPE */
    OZU_MESSAGE_NXP_COMMAND = 1,            /**< command of OZU_MESSAGE_NXP_CLASS */
    OZU_MESSAGE_CP_REBOOT_CLASS = 1,        /**< to the link: reboot the panel, OZU_MDL_REBOOT */
    OZU_MESSAGE_CP_REBOOT_COMMAND = 1,      /**< command of OZU_MESSAGE_CP_REBOOT_CLASS */
    OZU_MESSAGE_RF_MANAGER_CLASS = 35,      /**< to the radio's manager */
    OZU_MESSAGE_RF_MANAGER_SET_CC_GPIO = 10 /**< set an output; the payload is GPIO number and level */
} OzuMessageCode;

/** First byte of a payload to OZU_TOPIC_MDL. */
typedef enum OzuMdlRecord {
    OZU_MDL_REBOOT = 15,      /**< reboot request; the second byte is 1 */
    OZU_MDL_NXP_ENVELOPE = 17 /**< data for the co-processor; the second byte is its command */
} OzuMdlRecord;

/** Commands of an envelope (its second byte). */
typedef enum OzuNxpCommand {
    OZU_NXP_COMMAND_REQUEST = 4 /**< a request block follows; its first byte is an OzuNxpRequest */
} OzuNxpCommand;

/** Requests to the co-processor: first byte of a request block. */
typedef enum OzuNxpRequest {
    OZU_NXP_SERIAL_NUMBER = 0,      /**< update the panel's serial number in the shared state */
    OZU_NXP_UART_PROTOCOL = 8,      /**< set the UART protocol; the second byte is its number */
    OZU_NXP_MANUFACTURE_VALUES = 9, /**< update the manufacturing values in the shared state */
    OZU_NXP_TAMPER_STATE = 10,      /**< report the state of the tamper switch */
    OZU_NXP_PLASTIC_VERSION = 13    /**< set the housing version; the second byte is 1 to 3 */
} OzuNxpRequest;

OZU_END_DECLS

#endif /* UTILS_OZU_MESSAGES_H */

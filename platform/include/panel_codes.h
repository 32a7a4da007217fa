/*
 * Codes of the panel's shared state, known to every process, the platform and the library. Their values are
 * permanent. docs/glossary.md explains the words.
 */
#ifndef PANEL_CODES_H
#define PANEL_CODES_H

#ifdef __cplusplus
extern "C" {
#endif

/** State of a partition (PanelPartition.partitionState); any other value is neither armed nor disarmed. */
typedef enum PanelPartitionState {
    PANEL_PARTITION_ALARM = 0,    /**< in alarm; counts as armed, too */
    PANEL_PARTITION_DISARMED = 1, /**< disarmed */
    PANEL_PARTITION_ARMED_2 = 2,  /**< armed, first of three equivalent states */
    PANEL_PARTITION_ARMED_3 = 3,  /**< armed */
    PANEL_PARTITION_ARMED_4 = 4   /**< armed */
} PanelPartitionState;

/** How a partition was armed (PanelPartition.forcedArm). */
typedef enum PanelForcedArm {
    PANEL_FORCED_ARM_NONE = 0,    /**< not by force */
    PANEL_FORCED_ARM = 1,         /**< by force */
    PANEL_FORCED_ARM_STRONGER = 2 /**< by force of the stronger kind */
} PanelForcedArm;

/** Type of a device (PanelDevice.deviceType). getDeviceTypeName() names them. */
typedef enum PanelDeviceType {
    PANEL_DEVICE_PIR = 1,
    PANEL_DEVICE_MAG = 2,
    PANEL_DEVICE_SHOCK = 3,
    PANEL_DEVICE_TQF = 4,
    PANEL_DEVICE_QGT = 5,
    PANEL_DEVICE_SIREN = 6,
    PANEL_DEVICE_SMOKE = 7,
    PANEL_DEVICE_CP = 8, /**< the panel itself */
    PANEL_DEVICE_KEYSAFE = 9,
    PANEL_DEVICE_ACCESS = 10,
    PANEL_DEVICE_KEYFOB = 12,
    PANEL_DEVICE_RF_INPUT = 21, /**< bypassed while it is not enabled */
    PANEL_DEVICE_RF_OUTPUT = 22,
    PANEL_DEVICE_REPEATER = 23,
    PANEL_DEVICE_XGD = 24,
    PANEL_DEVICE_OUTSIDE_VIDEO_PIR = 29,
    PANEL_DEVICE_RF_VIDEO_PIR = 32,
    PANEL_DEVICE_DOORLOCK = 33,
    PANEL_DEVICE_BJU = 34,
    PANEL_DEVICE_TQD = 35,
    PANEL_DEVICE_T8F = 36,
    PANEL_DEVICE_TAG_READER = 37,
    PANEL_DEVICE_UMK = 38, /**< camera */
    PANEL_DEVICE_TQP = 39,
    PANEL_DEVICE_MY2 = 40,
    PANEL_DEVICE_VBX = 41,
    PANEL_DEVICE_QAM = 42,
    PANEL_DEVICE_WLM = 43,
    PANEL_DEVICE_YMNL = 44,
    PANEL_DEVICE_CHEB = 45,
    PANEL_DEVICE_RZD = 47,
    PANEL_DEVICE_SY8 = 49,
    PANEL_DEVICE_QWF = 50,
    PANEL_DEVICE_VIDEO_REPEATER = 51,
    PANEL_DEVICE_LFF = 52,
    PANEL_DEVICE_MYLY = 53,
    PANEL_DEVICE_RAAN = 54,
    PANEL_DEVICE_EL7 = 55,
    PANEL_DEVICE_NGY = 56,
    PANEL_DEVICE_TQSX = 57,  /**< magnet contact */
    PANEL_DEVICE_UMKRL = 59, /**< camera; the name of this type is "WQFW" on PANEL_PRODUCT_LUM_PLUS */
    PANEL_DEVICE_UMKR = 60,  /**< camera */
    PANEL_DEVICE_SY9 = 61,
    PANEL_DEVICE_CHEB_WR = 62,
    PANEL_DEVICE_QJ = 65,
    PANEL_DEVICE_PZ = 66,
    PANEL_DEVICE_CHEV = 67, /**< camera */
    PANEL_DEVICE_HHW = 68,
    PANEL_DEVICE_LSB = 69,
    PANEL_DEVICE_FOG = 70,
    PANEL_DEVICE_HHW_A = 71,
    PANEL_DEVICE_HHW_B = 72,
    PANEL_DEVICE_RDK = 73,
    PANEL_DEVICE_LVAFCLPA = 80,
    PANEL_DEVICE_EL9 = 83,
    PANEL_DEVICE_W3 = 85,       /**< magnet contact */
    PANEL_DEVICE_DANALOCK = 87, /**< door lock */
    PANEL_DEVICE_TQS = 132,
    PANEL_DEVICE_JEQ = 133,
    PANEL_DEVICE_UMK_2 = 134, /**< second code of UMK */
    PANEL_DEVICE_SY8_2 = 135, /**< second code of SY8 */
    PANEL_DEVICE_EL7_2 = 138, /**< second code of EL7 */
    PANEL_DEVICE_MYQGT = 145,
    PANEL_DEVICE_YX = 146, /**< has an update folder, but no name */
    PANEL_DEVICE_EL8 = 147,
    PANEL_DEVICE_ZWAVE = 253,
    PANEL_DEVICE_SNIFFER = 254
} PanelDeviceType;

#ifdef __cplusplus
}
#endif

#endif /* PANEL_CODES_H */

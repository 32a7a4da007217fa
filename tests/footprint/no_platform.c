/* The platform's names and nothing behind them: what remains of a start is the library's own share. */
#define EMPTY(name)                                                                                          \
    int name(void);                                                                                          \
    int name(void) {                                                                                         \
        return 0;                                                                                            \
    }
EMPTY(ozudb_getSharedMemory)
EMPTY(ozudb_getSeverityNameByProcName)
EMPTY(ozudb_addProc2Log)
EMPTY(ozudb_updatePanelRebootReason)
EMPTY(ozudb_isInFlightData)
EMPTY(ozudb_ModifyModemStatistics)
EMPTY(ozudb_ModifyBypassExpiry)
EMPTY(ozudb_isTagReader)
EMPTY(ozudb_isRfInput)
EMPTY(ozudb_isRfDetector)
EMPTY(ozulog_init)
EMPTY(ozulog_printf)
EMPTY(ozulog_printf_extend)
EMPTY(ozulog_printf_mqtt_transmission)
EMPTY(mqttc_connect)
EMPTY(mqttc_disconnect)
EMPTY(ozumqttc_topicSubscribe)
EMPTY(ozumqttc_messagePublish)
EMPTY(LOG_system_event)
EMPTY(limited_log_system_event)
EMPTY(MESSENGER_SendTBBEvent)
EMPTY(getProductCodename)

#include "own_platform.h"

#include <messenger.h>
#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>
#include <product_info.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <system_event_log.h>

char recorded[4096];
const char *failing = "";
int failingWith;

void forget(void) {
    recorded[0] = '\0';
    failing = "";
}

static void append(const char *format, va_list arguments) {
    const size_t length = strlen(recorded);
    vsnprintf(recorded + length, sizeof(recorded) - length, format, arguments);
}

void record(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    append(format, arguments);
    va_end(arguments);
}

static int result(const char *function) {
    return strcmp(function, failing) == 0 ? failingWith : 0;
}

PanelSharedState *ozudb_getSharedMemory(int reserved) {
    static PanelSharedState state;
    record("ozudb_getSharedMemory(%d)\n", reserved);
    return &state;
}

int ozudb_getSeverityNameByProcName(char *out, int outSize, const char *processName) {
    record("ozudb_getSeverityNameByProcName(%d, %s)\n", outSize, processName);
    memset(out, 'S', (size_t)outSize); /* fills the buffer, without terminator */
    return result("ozudb_getSeverityNameByProcName");
}

int ozudb_addProc2Log(const char *processName, const char *severityName, pid_t pid) {
    record("ozudb_addProc2Log(%s, %s)\n", processName, severityName);
    return pid > 0 ? result("ozudb_addProc2Log") : -99;
}

int ozudb_updatePanelRebootReason(int reason) {
    record("ozudb_updatePanelRebootReason(%d)\n", reason);
    return 0;
}

int ozudb_isInFlightData(unsigned char *inFlight) {
    *inFlight = 0;
    record("ozudb_isInFlightData()\n");
    return 0;
}

int ozudb_ModifyModemStatistics(uint16_t c1, uint16_t c2, uint16_t c3, uint16_t c4, uint16_t c5, uint16_t c6,
                                uint16_t c7, uint16_t c8, int modemIndex) {
    record("ozudb_ModifyModemStatistics(%d, %d, %d, %d, %d, %d, %d, %d, %d)\n", c1, c2, c3, c4, c5, c6, c7,
           c8, modemIndex);
    return 0;
}

int ozudb_ModifyBypassExpiry(int zoneIndex, int bypassed, int expiry) {
    record("ozudb_ModifyBypassExpiry(%d, %d, %d)\n", zoneIndex, bypassed, expiry);
    return 0;
}

int ozudb_isTagReader(int deviceIndex) {
    record("ozudb_isTagReader(%d)\n", deviceIndex);
    return 0;
}

int ozudb_isRfInput(int deviceIndex) {
    record("ozudb_isRfInput(%d)\n", deviceIndex);
    return 0;
}

int ozudb_isRfDetector(int deviceIndex) {
    record("ozudb_isRfDetector(%d)\n", deviceIndex);
    return 0;
}

int ozulog_init(const char *processName) {
    record("ozulog_init(%s)\n", processName);
    return result("ozulog_init");
}

int ozulog_printf(int level, const char *format, ...) {
    va_list arguments;
    record("log %d ", level);
    va_start(arguments, format);
    append(format, arguments);
    va_end(arguments);
    record("\n");
    return 0;
}

int ozulog_printf_extend(int level, const char *format, const char *sourceFile, const char *functionName,
                         int line, ...) {
    va_list arguments;
    record("log %d %s %s ", level, sourceFile, functionName);
    va_start(arguments, line);
    append(format, arguments);
    va_end(arguments);
    record("\n");
    return 0;
}

int ozulog_printf_mqtt_transmission(int level, const char *format, ...) {
    va_list arguments;
    record("remote %d ", level);
    va_start(arguments, format);
    append(format, arguments);
    va_end(arguments);
    record("\n");
    return 0;
}

int mqttc_connect(const char *host, int port, const char *clientName, void *mqttArg) {
    record("mqttc_connect(%s, %d, %s, %s)\n", host, port, clientName, mqttArg == NULL ? "null" : "argument");
    return result("mqttc_connect");
}

void mqttc_disconnect(void) {
    record("mqttc_disconnect()\n");
}

int ozumqttc_topicSubscribe(const char *topic) {
    record("ozumqttc_topicSubscribe(%s)\n", topic);
    return result("ozumqttc_topicSubscribe");
}

int ozumqttc_messagePublish(const char *topic, unsigned int payloadLength, const char *senderLabel,
                            int messageClass, int command, const void *payload) {
    record("ozumqttc_messagePublish(%s, %u, %s, %d, %d, %s)\n", topic, payloadLength, senderLabel,
           messageClass, command, payload == NULL ? "null" : "payload");
    return 0;
}

int LOG_system_event(int category, const char *text) {
    record("LOG_system_event(%d, %s)\n", category, text);
    return 0;
}

int limited_log_system_event(int category, int subtype, const char *text) {
    record("limited_log_system_event(%d, %d, %s)\n", category, subtype, text);
    return 0;
}

int MESSENGER_SendTBBEvent(int deviceIndex, int deviceType, int eventClass, int eventCode, int partition,
                           int input, int user) {
    record("MESSENGER_SendTBBEvent(%d, %d, %d, %d, %d, %d, %d)\n", deviceIndex, deviceType, eventClass,
           eventCode, partition, input, user);
    return 0;
}

int getProductCodename(void) {
    record("getProductCodename()\n");
    return 0;
}

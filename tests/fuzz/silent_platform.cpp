// A platform for fuzz targets: every call succeeds and leaves nothing. Log lines are formatted, so that a
// text without terminator shows.

#include <messenger.h>
#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>
#include <product_info.h>
#include <system_event_log.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

PanelSharedState state;
volatile int sink;

__attribute__((format(printf, 1, 0))) int format(const char *text, va_list arguments) {
    char line[2048];
    sink = vsnprintf(line, sizeof line, text, arguments);
    return 0;
}

} // namespace

extern "C" {

PanelSharedState *ozudb_getSharedMemory(int) {
    return &state;
}

int ozudb_getSeverityNameByProcName(char *out, int outSize, const char *) {
    memset(out, 0, static_cast<std::size_t>(outSize));
    return 0;
}

int ozudb_addProc2Log(const char *, const char *, pid_t) {
    return 0;
}

int ozudb_updatePanelRebootReason(int) {
    return 0;
}

int ozudb_isInFlightData(unsigned char *inFlight) {
    *inFlight = 0;
    return 0;
}

int ozudb_ModifyModemStatistics(uint16_t, uint16_t, uint16_t, uint16_t, uint16_t, uint16_t, uint16_t,
                                uint16_t, int) {
    return 0;
}

int ozudb_ModifyBypassExpiry(int, int, int) {
    return 0;
}

int ozudb_isTagReader(int) {
    return 0;
}

int ozudb_isRfInput(int) {
    return 0;
}

int ozudb_isRfDetector(int) {
    return 0;
}

int ozulog_init(const char *) {
    return 0;
}

int ozulog_printf(int, const char *text, ...) {
    va_list arguments;
    va_start(arguments, text);
    const int result = format(text, arguments);
    va_end(arguments);
    return result;
}

int ozulog_printf_extend(int, const char *text, const char *, const char *, int line, ...) {
    va_list arguments;
    va_start(arguments, line);
    const int result = format(text, arguments);
    va_end(arguments);
    return result;
}

int ozulog_printf_mqtt_transmission(int, const char *text, ...) {
    va_list arguments;
    va_start(arguments, text);
    const int result = format(text, arguments);
    va_end(arguments);
    return result;
}

int mqttc_connect(const char *, int, const char *, void *) {
    return 0;
}

void mqttc_disconnect(void) {}

int ozumqttc_topicSubscribe(const char *) {
    return 0;
}

int ozumqttc_messagePublish(const char *, unsigned int, const char *, int, int, const void *) {
    return 0;
}

int LOG_system_event(int, const char *) {
    return 0;
}

int limited_log_system_event(int, int, const char *) {
    return 0;
}

int MESSENGER_SendTBBEvent(int, int, int, int, int, int, int) {
    return 0;
}

int getProductCodename(void) {
    return 0;
}

} // extern "C"

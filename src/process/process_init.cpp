// Start of a panel process: log severity, log, message bus.

#include <utils_ozu/process.h>

#include <base/log.h>

#include <mqttc.h>
#include <ozudb.h>
#include <unistd.h>
#include <utils_ozu/messages.h>

#include <cstdlib>

namespace {

constexpr const char *kBrokerHost = "127.0.0.1";
constexpr int kBrokerPort = 1883;
constexpr int kSeverityNameSize = 8;

int processInitDone = 0;

} // namespace

int ozuutils_processInit(const char *processName, void *mqttArg) noexcept {
    if (processInitDone != 0) {
        OZU_LOG_TEXT(OZULOG_WARNING, "ozuutils_processInit function should be called once only");
        return 0;
    }
    static_cast<void>(atexit(cleanup));

    // The database may fill all eight bytes; the ninth keeps the name terminated.
    char severityName[kSeverityNameSize + 1] = {};
    int rc = ozudb_getSeverityNameByProcName(severityName, kSeverityNameSize, processName);
    if (rc != 0) {
        OZU_LOG(OZULOG_CRITICAL, "ozudb_getSeverityNameByProcName returned: %d", rc);
        return rc;
    }
    rc = ozudb_addProc2Log(processName, severityName, getpid());
    if (rc != 0) {
        OZU_LOG(OZULOG_CRITICAL, "ozudb_addProc2Log returned: %d", rc);
        return rc;
    }
    rc = ozulog_init(processName);
    if (rc != 0) {
        OZU_LOG(OZULOG_CRITICAL, "OZULOG_INIT returned: %d", rc);
        return rc;
    }
    rc = mqttc_connect(kBrokerHost, kBrokerPort, processName, mqttArg);
    if (rc != 0) {
        OZU_LOG(OZULOG_CRITICAL, "mqttc_connect returned: %d", rc);
        return rc;
    }
    rc = ozumqttc_topicSubscribe(OZU_TOPIC_SYSLOG_APPENDER_STATE);
    if (rc != 0) {
        OZU_LOG(OZULOG_CRITICAL, "ozumqttc_topicSubscribe returned: %d", rc);
    }
    // Connected but not subscribed still counts as started: a second attempt could only connect twice.
    processInitDone = 1;
    return rc;
}

void cleanup() noexcept {
    processInitDone = 0;
    mqttc_disconnect();
}

/* A started panel process: after ozuutils_processInit it says so and waits to be looked at. The platform's
 * functions that the start needs are its own, so that no broker and no database take part. */
#include <utils_ozu.h>

#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>

#include <stdio.h>
#include <string.h>

int ozudb_getSeverityNameByProcName(char *out, int outSize, const char *processName) {
    (void)processName;
    memset(out, 0, (size_t)outSize);
    return 0;
}

int ozudb_addProc2Log(const char *processName, const char *severityName, pid_t pid) {
    (void)processName;
    (void)severityName;
    return pid > 0 ? 0 : 1;
}

int ozulog_init(const char *processName) {
    return processName != NULL ? 0 : 1;
}

int mqttc_connect(const char *host, int port, const char *clientName, void *mqttArg) {
    (void)clientName;
    (void)mqttArg;
    return host != NULL && port == 1883 ? 0 : 1;
}

int ozumqttc_topicSubscribe(const char *topic) {
    return topic != NULL ? 0 : 1;
}

void mqttc_disconnect(void) {}

int main(void) {
    printf("%d\n", ozuutils_processInit("footprint", NULL));
    fflush(stdout);
    return getchar() == EOF ? 0 : 1;
}

/*
 * A program that defines the platform's functions itself gets its own called by the library, in order and
 * with the documented arguments; a cleanup() of its own does not take the place of the library's.
 */
#include "check.h"
#include "recorded.h"

#include <ozu_fake_platform.h>
#include <stdarg.h>
#include <stdlib.h>
#include <unistd.h>

/* Not from utils_ozu.h, which declares the name that this program uses for something else. */
int ozuutils_processInit(const char *processName, void *mqttArg);
int IsPanelInAlarm(void);

#define SEVERITY "ozudb_getSeverityNameByProcName(8, \"alarmd\")\n"
#define ADD "ozudb_addProc2Log(\"alarmd\", \"SSSSSSSS\", %d)\n"
#define LOG_INIT "ozulog_init(\"alarmd\")\n"
#define CONNECT "mqttc_connect(\"127.0.0.1\", 1883, \"alarmd\", %p)\n"
#define SUBSCRIBE "ozumqttc_topicSubscribe(\"Multicast/WIFI_SYSLOG_APPENDER_STATE\")\n"
#define LINE(level, text) "log " #level " src/utils ozuutils_processInit " text "\n"

static int ownCleanups;

void cleanup(void);
void cleanup(void) {
    ++ownCleanups;
}

static OzuMqttArg argument;

static int start(const char *function, int code) {
    forget();
    if (function != NULL) {
        ozu_fake_result(function, code);
    }
    return ozuutils_processInit("alarmd", &argument);
}

/* The calls were these; the format's arguments are this process's ID and the argument of the start. */
static void check_recorded(const char *format, ...) __attribute__((format(printf, 1, 2)));
static void check_recorded(const char *format, ...) {
    char expected[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(expected, sizeof(expected), format, arguments);
    va_end(arguments);
    CHECK_TEXT(recorded, expected);
}

static void failedStepsStopAndMayBeRepeated(void) {
    CHECK_INT(start("ozudb_getSeverityNameByProcName", 12), 12);
    CHECK_TEXT(recorded, SEVERITY LINE(80000, "ozudb_getSeverityNameByProcName returned: 12"));
    CHECK_INT(start("ozudb_addProc2Log", -3), -3);
    check_recorded(SEVERITY ADD LINE(80000, "ozudb_addProc2Log returned: -3"), (int)getpid());
    CHECK_INT(start("ozulog_init", 1), 1);
    check_recorded(SEVERITY ADD LOG_INIT LINE(80000, "OZULOG_INIT returned: 1"), (int)getpid());
    CHECK_INT(start("mqttc_connect", 111), 111);
    check_recorded(SEVERITY ADD LOG_INIT CONNECT LINE(80000, "mqttc_connect returned: 111"), (int)getpid(),
                   (void *)&argument);
}

static void failedSubscriptionCountsAsStarted(void) {
    CHECK_INT(start("ozumqttc_topicSubscribe", 7), 7);
    check_recorded(SEVERITY ADD LOG_INIT CONNECT SUBSCRIBE LINE(80000, "ozumqttc_topicSubscribe returned: 7"),
                   (int)getpid(), (void *)&argument);
    CHECK_INT(start(NULL, 0), 0);
    CHECK_TEXT(recorded, LINE(50000, "ozuutils_processInit function should be called once only"));
}

/* Runs last: it was registered before the library's handlers. Five starts passed the first step. */
static void exitHandlersHaveRun(void) {
    CHECK_TEXT(recorded, "mqttc_disconnect()\nmqttc_disconnect()\nmqttc_disconnect()\nmqttc_disconnect()\n"
                         "mqttc_disconnect()\n");
    CHECK_INT(ownCleanups, 0);
    if (failures != 0) {
        _exit(1);
    }
}

int main(void) {
    CHECK_INT(atexit(exitHandlersHaveRun), 0);
    failedStepsStopAndMayBeRepeated();
    failedSubscriptionCountsAsStarted();
    forget();
    CHECK_INT(IsPanelInAlarm(), 1);
    CHECK_TEXT(recorded, "ozudb_getSharedMemory(0)\n");
    forget();
    return verdict();
}

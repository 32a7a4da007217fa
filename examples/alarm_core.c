/*
 * alarm_core: arms and disarms partitions on request, and raises the alarm when a contact opens while FULL is
 * armed.
 *
 * A panel process in C: start-up with a function for messages, questions over the panel's state, event lines,
 * a message to another process. It runs until it is told to end.
 *
 * Requests come to Process/ALARM_CORE: class 1, a sec_cmd as command, the partition as the payload's one
 * byte.
 */
#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <utils_ozu.h>

enum { REQUEST_CLASS = 1 };
/* Messages to the siren. */
enum { SIREN_CLASS = 1, SIREN_ON = 1 };

static volatile sig_atomic_t told_to_end = 0;

static void end(int number) {
    (void)number;
    told_to_end = 1;
}

/* [message] */
/* Runs on the bus session's own thread, also for topics of other processes that the session listens to. */
static void on_message(const OzuMqttMessage *message, void *user) {
    (void)user;
    if (strcmp(message->topic, "Process/ALARM_CORE") != 0 || message->messageClass != REQUEST_CLASS ||
        message->payloadLength != 1) {
        return;
    }
    PanelSharedState *panel = ozudb_getSharedMemory(0);
    unsigned int partition = *(const unsigned char *)message->payload;
    int arm = message->command == SEC_CMD_ARM_PARTITION;
    int disarm = message->command == SEC_CMD_DISARM_PARTITION;
    if (panel == NULL || partition >= OZUDB_PARTITIONS || !(arm || disarm)) {
        ozulog_printf(OZULOG_WARNING, "command %d: request for partition %u refused", message->command,
                      partition);
        return;
    }
    panel->partitions[partition].partitionState = arm ? PANEL_PARTITION_ARMED_2 : PANEL_PARTITION_DISARMED;
    writeSecurityCmdToSystemLog((unsigned int)message->command, partition, message->senderLabel);
}
/* [end] */

/* The first device whose contact is open and watched; 0 when there is none. */
static int open_contact(void) {
    for (int device = 1; device < MAX_DEVICE_INDEX; device++) {
        if (IsMagnetOpen(device)) {
            return device;
        }
    }
    return 0;
}

static void raise_alarm(int device) {
    PanelSharedState *panel = ozudb_getSharedMemory(0);
    unsigned char payload = (unsigned char)device;

    panel->partitions[PARTITION_FULL].partitionState = PANEL_PARTITION_ALARM;
    ozulog_printf(OZULOG_NOTICE, "ALARM: contact of device %d (%s) is open", device,
                  getDeviceTypeName((int)panel->devices[device].deviceType));
    writeSecurityEventToSystemLog(SEC_DETECTION_IMMEDIATE_EVENT, PARTITION_FULL, "RADIO");
    /* [publish] */
    int code = ozumqttc_messagePublish("Process/SAFETY_SIREN", sizeof payload, "ALARM_CORE", SIREN_CLASS,
                                       SIREN_ON, &payload);
    if (code != 0) {
        ozulog_printf(OZULOG_ERROR, "the siren was not told, code %d", code);
    }
    /* [end] */
}

int main(void) {
    signal(SIGTERM, end);
    signal(SIGINT, end);

    /* [start] */
    OzuMqttArg bus = {on_message, NULL};
    int code = ozuutils_processInit("ALARM_CORE", &bus);
    if (code == 0) {
        code = ozumqttc_topicSubscribe("Process/ALARM_CORE");
    }
    if (code != 0) {
        fprintf(stderr, "alarm_core: start-up failed with code %d\n", code);
        return 1;
    }
    /* [end] */
    ozulog_printf(OZULOG_NOTICE, "alarm core is up, arm type %d", (int)getCurArmType());

    while (!told_to_end) {
        /* [question] */
        if (getCurArmType() == PANEL_ARM_FULL && !IsPanelInAlarm()) {
            int device = open_contact();
            if (device != 0) {
                raise_alarm(device);
            }
        }
        /* [end] */
        usleep(50 * 1000);
    }
    return 0; /* cleanup() leaves the bus */
}

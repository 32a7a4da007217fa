/*
 * alarm_core: raises the alarm when a contact opens while the panel is armed.
 *
 * A panel process in C: start-up, questions over the panel's state, a message, an event line. It runs until
 * it is told to end.
 */
#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>
#include <utils_ozu.h>

/* Messages of this example to the siren. */
enum { SIREN_CLASS = 1, SIREN_ON = 1 };

static volatile sig_atomic_t told_to_end = 0;

static void end(int number) {
    (void)number;
    told_to_end = 1;
}

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

    panel->partitions[PARTITION_FULL].partitionState = 0;
    ozulog_printf(40000, "ALARM: contact of device %d (%s) is open", device,
                  getDeviceTypeName((int)panel->devices[device].deviceType));
    writeSecurityEventToSystemLog(SEC_DETECTION_IMMEDIATE_EVENT, PARTITION_FULL, "RADIO");
    if (ozumqttc_messagePublish("Process/SAFETY_SIREN", sizeof payload, "ALARM_CORE", SIREN_CLASS, SIREN_ON,
                                &payload) != 0) {
        ozulog_printf(70000, "the siren could not be told");
    }
}

int main(void) {
    signal(SIGTERM, end);
    signal(SIGINT, end);

    /* [start] */
    int code = ozuutils_processInit("ALARM_CORE", NULL);
    if (code != 0) {
        fprintf(stderr, "alarm_core: start-up failed with code %d\n", code);
        return 1;
    }
    /* [end] */
    ozulog_printf(40000, "alarm core is up, arm type %d", (int)getCurArmType());

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

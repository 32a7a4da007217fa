/*
 * doorbell: rings when a message says so, and tells everybody.
 *
 * Process/DOORBELL, class 1, command 1: somebody pressed the button. While the panel is in alarm nothing
 * rings. Otherwise the chime's program runs for 2 seconds at most, the push server is looked up, and
 * Multicast/DOORBELL carries the number of rings so far.
 */
#include <mqttc.h>
#include <ozulog.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>
#include <utils_ozu.h>

enum { BUTTON_CLASS = 1, BUTTON_PRESSED = 1, RINGS_CLASS = 1, RINGS = 2 };
enum { CHIME_SECONDS = 2, ADDRESS_SIZE = 16 };

static volatile sig_atomic_t told_to_end = 0;
static volatile sig_atomic_t pressed = 0;

static void end(int number) {
    (void)number;
    told_to_end = 1;
}

/* Runs on the bus session's own thread. */
static void on_message(const OzuMqttMessage *message, void *user) {
    (void)user;
    if (message->messageClass == BUTTON_CLASS && message->command == BUTTON_PRESSED) {
        pressed = 1;
    }
}

static void ring(void) {
    static unsigned char rings = 0;
    char address[ADDRESS_SIZE] = "";

    if (IsPanelInAlarm()) {
        ozulog_printf(OZULOG_NOTICE, "no chime during an alarm");
        return;
    }
    if (exec_cmd("chime", CHIME_SECONDS, "done", NULL) != 1) {
        ozulog_printf(OZULOG_WARNING, "the chime did not answer");
    }
    if (ozuutils_resolve_hostname("push.test", address) != 0) {
        ozulog_printf(OZULOG_WARNING, "the push server has no address");
    } else {
        ozulog_printf(OZULOG_NOTICE, "push server at %s", address);
    }
    rings++;
    if (ozumqttc_messagePublish("Multicast/DOORBELL", sizeof rings, "DOORBELL", RINGS_CLASS, RINGS, &rings) !=
        0) {
        ozulog_printf(OZULOG_ERROR, "nobody was told of ring %d", rings);
    }
}

int main(void) {
    OzuMqttArg bus = {on_message, NULL};

    signal(SIGTERM, end);
    int code = ozuutils_processInit("DOORBELL", &bus);
    if (code != 0) {
        fprintf(stderr, "doorbell: start-up failed with code %d\n", code);
        return 1;
    }
    ozumqttc_topicSubscribe("Process/DOORBELL");
    ozulog_printf(OZULOG_NOTICE, "the doorbell is up");
    while (!told_to_end) {
        if (pressed) {
            pressed = 0;
            ring();
        }
        usleep(20 * 1000);
    }
    return 0;
}

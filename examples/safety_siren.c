/*
 * safety_siren: sounds while a safety event is young and tells every process how long it still will; also
 * sounds when the alarm core says so.
 *
 * A panel process in C that publishes on the bus and listens to it.
 */
#include <mqttc.h>
#include <ozulog.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>
#include <utils_ozu.h>

/* Messages to Process/SAFETY_SIREN: the payload is the device that raised the alarm. */
enum { SIREN_CLASS = 1, SIREN_ON = 1 };
/* Messages to all processes: the payload is the number of seconds to go. */
enum { COUNTDOWN_CLASS = 1, COUNTDOWN = 2 };

static volatile sig_atomic_t told_to_end = 0;

static void end(int number) {
    (void)number;
    told_to_end = 1;
}

static void on_message(const OzuMqttMessage *message, void *user) {
    (void)user;
    if (message->messageClass == SIREN_CLASS && message->command == SIREN_ON && message->payloadLength == 1) {
        ozulog_printf(OZULOG_NOTICE, "siren sounds: alarm of device %u",
                      *(const unsigned char *)message->payload);
    }
}

static void tell(unsigned char seconds) {
    ozulog_printf(OZULOG_NOTICE, "safety siren %s, %u s to go", seconds != 0 ? "sounds" : "is silent",
                  seconds);
    int code = ozumqttc_messagePublish(OZU_TOPIC_ALL, sizeof seconds, "SAFETY_SIREN", COUNTDOWN_CLASS,
                                       COUNTDOWN, &seconds);
    if (code != 0) {
        ozulog_printf(OZULOG_ERROR, "countdown not sent, code %d", code);
    }
}

int main(void) {
    OzuMqttArg bus = {on_message, NULL};
    unsigned char before = 0;

    signal(SIGTERM, end);
    signal(SIGINT, end);
    int code = ozuutils_processInit("SAFETY_SIREN", &bus);
    if (code == 0) {
        code = ozumqttc_topicSubscribe("Process/SAFETY_SIREN");
    }
    if (code != 0) {
        fprintf(stderr, "safety_siren: start-up failed with code %d\n", code);
        return 1;
    }
    while (!told_to_end) {
        unsigned char seconds = ozuutils_isSafetySirenInProgress();
        if (seconds != before) {
            tell(seconds);
            before = seconds;
        }
        usleep(500 * 1000);
    }
    return 0;
}

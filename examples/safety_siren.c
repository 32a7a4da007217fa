/*
 * safety_siren: sounds while a safety event is young, and tells every process how long it still will.
 *
 * A panel process in C that publishes on the bus.
 */
#include <mqttc.h>
#include <ozulog.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>
#include <utils_ozu.h>

/* Messages of this example to all processes: the payload is the number of seconds to go. */
enum { COUNTDOWN_CLASS = 1, COUNTDOWN = 2 };

static volatile sig_atomic_t told_to_end = 0;

static void end(int number) {
    (void)number;
    told_to_end = 1;
}

static void tell(unsigned char seconds) {
    ozulog_printf(40000, "siren %s, %u s to go", seconds != 0 ? "sounds" : "is silent", seconds);
    /* [publish] */
    int code = ozumqttc_messagePublish("Process/ALL", sizeof seconds, "SAFETY_SIREN", COUNTDOWN_CLASS,
                                       COUNTDOWN, &seconds);
    if (code != 0) {
        ozulog_printf(70000, "countdown not sent, code %d", code);
    }
    /* [end] */
}

int main(void) {
    unsigned char before = 0;

    signal(SIGTERM, end);
    signal(SIGINT, end);
    int code = ozuutils_processInit("SAFETY_SIREN", NULL);
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
        usleep(200 * 1000);
    }
    return 0;
}

/*
 * Unit tests of doorbell: the fake platform answers it and records what it does. No panel, no broker, no
 * network.
 *
 * A panel process starts once, so ctest runs each test in a process of its own: doorbell_test NAME
 */
#include <ozu_fake_platform.h>

#include <netdb.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int doorbell_main(void); /* main() of doorbell.c, see CMakeLists.txt */

#define CHECK(what) ((what) ? (void)0 : failed(#what, __LINE__))

static void failed(const char *what, int line) {
    ozu_fake_print(stderr);
    fprintf(stderr, "doorbell_test.c:%d: not so: %s\n", line, what);
    exit(1);
}

/* The library's lookups end here, not on the network. */
struct hostent *gethostbyname(const char *name) {
    (void)name;
    return NULL;
}

/* Sees every call of the platform: the bell is pressed once it is up, and ends after it has rung or kept
 * silent. */
static void press_once(OzuFakeEntry *entry, void *user) {
    (void)user;
    if (strstr(entry->text, "the doorbell is up") != NULL) {
        ozu_fake_deliver("Process/DOORBELL", "KEYPAD", 1, 1, NULL, 0);
    }
    if (strcmp(entry->function, "ozumqttc_messagePublish") == 0 || strstr(entry->text, "no chime") != NULL) {
        raise(SIGTERM);
    }
}

static void run(void) {
    ozu_fake_clock_start(1700000000);
    ozu_fake_hook(press_once, NULL);
    CHECK(doorbell_main() == 0);
}

static void rings(void) {
    run();
    CHECK(ozu_fake_logged(OZULOG_WARNING, "the chime did not answer") == 1);
    CHECK(ozu_fake_logged(OZULOG_WARNING, "the push server has no address") == 1);
    CHECK(ozu_fake_published("Multicast/DOORBELL") == 1);
    CHECK(*(const unsigned char *)ozu_fake_call("ozumqttc_messagePublish", 0)->payload == 1);
}

static void keeps_silent_during_an_alarm(void) {
    ozu_fake_state()->partitions[0].partitionState = PANEL_PARTITION_ALARM;
    run();
    CHECK(ozu_fake_logged(OZULOG_NOTICE, "no chime during an alarm") == 1);
    CHECK(ozu_fake_published("Multicast/DOORBELL") == 0);
}

static void says_so_when_nobody_is_told(void) {
    ozu_fake_fail("ozumqttc_messagePublish", 1, 21);
    run();
    CHECK(ozu_fake_logged(OZULOG_ERROR, "nobody was told of ring 1") == 1);
}

static const struct {
    const char *name;
    void (*test)(void);
} tests[] = {
    {"rings", rings},
    {"keeps_silent_during_an_alarm", keeps_silent_during_an_alarm},
    {"says_so_when_nobody_is_told", says_so_when_nobody_is_told},
};

int main(int argc, char **argv) {
    ozu_fake_reset();
    for (int partition = 0; partition < OZUDB_PARTITIONS; partition++) {
        ozu_fake_state()->partitions[partition].partitionState = PANEL_PARTITION_DISARMED;
    }
    for (size_t i = 0; argc == 2 && i < sizeof tests / sizeof *tests; i++) {
        if (strcmp(argv[1], tests[i].name) == 0) {
            tests[i].test();
            return 0;
        }
    }
    fprintf(stderr, "usage: doorbell_test NAME\n");
    return 2;
}

/*
 * The fake platform from C, with nothing but the library: records, knobs, the bus, the clock.
 */
#include "check.h"

#include <ozu_fake_platform.h>
#include <utils_ozu.h>

#include <poll.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static int received;
static char lastPayload[8];

static void on_message(const OzuMqttMessage *message, void *user) {
    ++*(int *)user;
    memcpy(lastPayload, message->payload, message->payloadLength);
}

static void test_calls_are_recorded_with_their_arguments(void) {
    ozu_fake_reset();
    CHECK_INT(ozumqttc_messagePublish("Process/ALL", 3, "LTE", 1, 0, "ab"), 0);
    CHECK_INT((int)ozu_fake_count(), 1);
    const OzuFakeEntry *entry = ozu_fake_call("ozumqttc_messagePublish", 0);
    CHECK_TEXT(entry->arguments, "\"Process/ALL\", 3, \"LTE\", 1, 0, payload");
    CHECK_INT(memcmp(entry->payload, "ab", 3), 0);
    CHECK_INT((int)ozu_fake_published("Process/ALL"), 1);
    CHECK_INT((int)ozu_fake_published("Process/AL"), 0);
    CHECK_INT(ozu_fake_call("ozumqttc_messagePublish", 1) == NULL, 1);
    CHECK_INT(ozu_fake_entry(1) == NULL, 1);
    CHECK_INT(ozulog_printf(OZULOG_NOTICE, "contact %d %s", 5, "open"), 0);
    CHECK_TEXT(ozu_fake_call("ozulog_printf", 0)->text, "contact 5 open");
    CHECK_INT((int)ozu_fake_logged(OZULOG_NOTICE, "5 open"), 1);
    CHECK_INT((int)ozu_fake_logged(OZULOG_INFO, "5 open"), 0);
    CHECK_INT((int)ozu_fake_logged(0, "open"), 1);
    ozu_fake_reset();
    CHECK_INT((int)ozu_fake_count(), 0);
}

static void test_the_record_answers_the_library(void) {
    ozu_fake_reset();
    ozu_fake_state()->devices[3].openState = 1;
    CHECK_INT(IsMagnetOpen(3), 0);
    ozu_fake_state()->devices[3].active = 1;
    ozu_fake_state()->devices[3].deviceType = 85;
    ozu_fake_state()->zones[0].firstInputEnabled = 1;
    CHECK_INT(IsMagnetOpen(3), 1);
    ozu_fake_use_state(NULL);
    CHECK_INT(IsMagnetOpen(3), 0);
}

static void test_failures_hit_the_call_that_was_named(void) {
    ozu_fake_reset();
    ozu_fake_result("ozumqttc_topicSubscribe", 4);
    ozu_fake_fail("ozumqttc_topicSubscribe", 2, 21);
    CHECK_INT(ozumqttc_topicSubscribe("a"), 4);
    CHECK_INT(ozumqttc_topicSubscribe("b"), 21);
    CHECK_INT(ozumqttc_topicSubscribe("c"), 4);
    CHECK_INT((int)ozu_fake_calls("ozumqttc_topicSubscribe"), 3);
    ozu_fake_in_flight(2);
    unsigned char inFlight = 9;
    for (int expected = 1; expected >= 0; --expected) {
        CHECK_INT(ozudb_isInFlightData(&inFlight), 0);
        CHECK_INT(inFlight, 255);
    }
    CHECK_INT(ozudb_isInFlightData(&inFlight), 0);
    CHECK_INT(inFlight, 0);
    ozu_fake_device_kind(7, OZU_FAKE_RF_INPUT);
    CHECK_INT(ozudb_isRfInput(7), 1);
    CHECK_INT(ozudb_isTagReader(7), 0);
    CHECK_INT(ozudb_isRfInput(206), 0);
}

static void test_the_bus_delivers_what_was_subscribed_to(void) {
    ozu_fake_reset();
    OzuMqttArg bus = {on_message, &received};
    CHECK_INT(ozu_fake_deliver("Process/X", "", 0, 0, NULL, 0), 1);
    CHECK_INT(mqttc_connect("127.0.0.1", 1883, "x", &bus), 0);
    bus.onMessage = NULL; /* it was copied */
    CHECK_INT(ozu_fake_deliver("Process/X", "", 0, 0, NULL, 0), 3);
    CHECK_INT(ozumqttc_topicSubscribe("Process/+"), 0);
    CHECK_INT(ozu_fake_deliver("Process/X", "KEYPAD", 1, 2, "hi", 3), 0);
    CHECK_INT(received, 1);
    CHECK_TEXT(lastPayload, "hi");
    CHECK_INT(ozu_fake_subscribed("Process/X/y"), 0);
    CHECK_INT(ozu_fake_subscribed("Process"), 0);
    CHECK_INT(ozumqttc_topicSubscribe("A/#"), 0);
    CHECK_INT(ozu_fake_subscribed("A"), 1);
    CHECK_INT(ozu_fake_subscribed("A/b/c"), 1);
    CHECK_INT(ozu_fake_subscribed("AB"), 0);
    mqttc_disconnect();
    CHECK_INT(ozu_fake_deliver("Process/X", "", 0, 0, NULL, 0), 1);
}

static void hook(OzuFakeEntry *entry, void *user) {
    if (strcmp(entry->function, "getProductCodename") == 0) {
        entry->result = *(int *)user;
    }
}

static void test_the_hook_answers_and_silence_keeps_nothing(void) {
    int product = 3;
    ozu_fake_reset();
    ozu_fake_record(0);
    ozu_fake_hook(hook, &product);
    CHECK_INT(getProductCodename(), 3);
    CHECK_INT((int)ozu_fake_count(), 0);
    CHECK_INT((int)ozu_fake_calls("getProductCodename"), 1);
}

static void note_length(OzuFakeEntry *entry, void *user) {
    *(size_t *)user = strlen(entry->text);
}

static void test_a_long_line_is_kept_whole_and_allocates_nothing_in_silence(void) {
    size_t seen = 0;
    ozu_fake_reset();
    ozu_fake_hook(note_length, &seen);
    ozulog_printf(OZULOG_INFO, "%05000d", 0);
    CHECK_INT((int)seen, 5000);
    ozu_fake_record(0);
    ozulog_printf(OZULOG_INFO, "%05000d", 0);
    CHECK_INT((int)seen, 4095);
}

static double monotonic(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

static void test_time_stands_still_until_it_is_moved(void) {
    ozu_fake_reset();
    ozu_fake_clock_start(1000000);
    const double before = monotonic();
    CHECK_INT((int)time(NULL), 1000000);
    CHECK_INT((int)sleep(3600), 0);
    CHECK_INT(usleep(500000), 0);
    CHECK_INT((int)time(NULL), 1003600);
    ozu_fake_clock_advance(0.5);
    CHECK_INT((int)time(NULL), 1003601);
    CHECK_INT((int)(monotonic() - before + 0.001), 3601);
    ozu_fake_clock_advance(-3601);
    CHECK_INT((int)time(NULL), 1000000);
    ozu_fake_clock_stop();
    CHECK_INT(time(NULL) > 1700000000, 1);
}

static void test_timeouts_follow_the_clock(void) {
    ozu_fake_reset();
    int ends[2];
    CHECK_INT(pipe(ends), 0);
    const int udp = socket(AF_INET, SOCK_DGRAM, 0);
    ozu_fake_clock_start(0);

    struct pollfd entry = {ends[0], POLLIN, 0};
    CHECK_INT(poll(&entry, 1, 3000), 0);
    CHECK_INT((int)time(NULL), 3);

    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(ends[0], &readable);
    struct timeval wait = {.tv_sec = 4};
    CHECK_INT(select(ends[0] + 1, &readable, NULL, NULL, &wait), 0);
    CHECK_INT((int)time(NULL), 7);

    const struct timeval patience = {.tv_sec = 5};
    char byte = 0;
    CHECK_INT(setsockopt(udp, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
    CHECK_INT((int)recv(udp, &byte, 1, 0), -1);
    CHECK_INT((int)time(NULL), 12);

    CHECK_INT((int)write(ends[1], "x", 1), 1);
    CHECK_INT(poll(&entry, 1, 3000), 1); /* no time passes where nothing was waited for */
    CHECK_INT((int)time(NULL), 12);
    ozu_fake_clock_stop();
    close(ends[0]);
    close(ends[1]);
    close(udp);
}

/* A command that never ends, in a hundredth of its timeout. */
static void test_a_command_times_out_at_speed(void) {
    char output[512] = "";
    ozu_fake_reset();
    ozu_fake_clock_start(0);
    CHECK_INT(exec_cmd("sleep 1000", 20, NULL, output), -1);
    CHECK_INT((int)time(NULL), 20);
    ozu_fake_clock_stop();
}

int main(void) {
    test_calls_are_recorded_with_their_arguments();
    test_the_record_answers_the_library();
    test_failures_hit_the_call_that_was_named();
    test_the_bus_delivers_what_was_subscribed_to();
    test_the_hook_answers_and_silence_keeps_nothing();
    test_a_long_line_is_kept_whole_and_allocates_nothing_in_silence();
    test_time_stands_still_until_it_is_moved();
    test_timeouts_follow_the_clock();
    test_a_command_times_out_at_speed();
    return verdict();
}

/*
 * Loaded before a program: its sleeps take a thousandth of their time, and its clock goes as if they had
 * taken all of it. For waits of minutes in tests of seconds.
 */
#include <time.h>
#include <unistd.h>

static time_t slept;

unsigned int sleep(unsigned int seconds) {
    struct timespec little = {seconds / 1000, (long)(seconds % 1000) * 1000000};

    slept += (time_t)seconds;
    nanosleep(&little, NULL);
    return 0;
}

time_t time(time_t *out) {
    struct timespec now;

    clock_gettime(CLOCK_REALTIME, &now);
    if (out != NULL) {
        *out = now.tv_sec + slept;
    }
    return now.tv_sec + slept;
}

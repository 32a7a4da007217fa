/*
 * arm_lamp: says how the panel is armed, each time that changes.
 *
 * The smallest useful panel process: start-up, a question, a log line. It runs until the panel goes down or
 * somebody ends it.
 */
/* [all] */
#include <ozulog.h>
#include <stddef.h>
#include <stdio.h>
#include <unistd.h>
#include <utils_ozu.h>

int main(void) {
    int code = ozuutils_processInit("ARM_LAMP", NULL);
    if (code != 0) {
        fprintf(stderr, "arm_lamp: start-up failed with code %d\n", code);
        return 1;
    }
    for (int shown = -1;; usleep(200 * 1000)) {
        int armed = (int)getCurArmType();
        if (armed != shown) {
            printf("%s\n", armed == PANEL_ARM_NONE ? "disarmed" : "armed");
            fflush(stdout);
            ozulog_printf(OZULOG_NOTICE, "arm type is now %d", armed);
            shown = armed;
        }
    }
}
/* [end] */

/* A started panel process: after ozuutils_processInit it says so and waits to be looked at. No broker and no
 * database take part: it is linked with the fake platform, which keeps nothing. */
#include <utils_ozu.h>

#include <ozu_fake_platform.h>

#include <stdio.h>

int main(void) {
    ozu_fake_record(0);
    printf("%d\n", ozuutils_processInit("footprint", NULL));
    fflush(stdout);
    return getchar() == EOF ? 0 : 1;
}

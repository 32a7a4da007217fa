/* A C program of somebody else's: the public header as it stands, the library and the platform beside it. */
#include <utils_ozu.h>

#include <ozudb.h>

#include <stdio.h>

int main(void) {
    char text[8] = "";
    /* Truncated to the buffer, terminator included. */
    printf("copied %u\n", (unsigned)ozuutils_strlcpy(text, "installed", sizeof text));
    printf("text %s\n", text);
    printf("record %u\n", (unsigned)sizeof(PanelSharedState));
    return 0;
}

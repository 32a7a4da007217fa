#include "recorded.h"

#include <ozu_fake_platform.h>

#include <stdio.h>
#include <string.h>

char recorded[4096];

static void append(OzuFakeEntry *entry, void *user) {
    char *end = recorded + strlen(recorded);
    const size_t room = (size_t)(recorded + sizeof(recorded) - end);
    (void)user;
    if (entry->logKind != OZU_FAKE_NO_LOG) {
        snprintf(end, room, "log %d %s %s %s\n", entry->level, entry->sourceFile, entry->functionName,
                 entry->text);
    } else {
        snprintf(end, room, "%s(%s)\n", entry->function, entry->arguments);
    }
}

void forget(void) {
    recorded[0] = '\0';
    ozu_fake_reset();
    ozu_fake_severity("SSSSSSSS");
    ozu_fake_hook(append, NULL);
}

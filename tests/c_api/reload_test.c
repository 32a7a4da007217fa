/*
 * Loads the library, starts the process's frame, unloads it, again and again: each unloading takes the
 * process off the bus through the exit handler, and nothing is left open or mapped.
 *
 * usage: c_api_reload LIBRARY
 */
#define _POSIX_C_SOURCE 200809L

#include "check.h"
#include "recorded.h"

#include <dirent.h>
#include <dlfcn.h>

#define ROUNDS 50

typedef int (*ProcessInit)(const char *processName, void *mqttArg);

static int entries(const char *folder) {
    int count = 0;
    DIR *directory = opendir(folder);
    if (directory != NULL) {
        while (readdir(directory) != NULL) {
            ++count;
        }
        closedir(directory);
    }
    return count;
}

static int lines(const char *path) {
    int count = 0;
    int c;
    FILE *file = fopen(path, "r");
    if (file != NULL) {
        while ((c = fgetc(file)) != EOF) {
            count += c == '\n';
        }
        fclose(file);
    }
    return count;
}

static void loadStartUnload(const char *path) {
    ProcessInit init;
    void *library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        ++failures;
        fprintf(stderr, "%s\n", dlerror());
        return;
    }
    *(void **)&init = dlsym(library, "ozuutils_processInit");
    CHECK_INT(init("alarmd", NULL), 0);
    forget();
    CHECK_INT(dlclose(library), 0);
    CHECK_TEXT(recorded, "mqttc_disconnect()\n");
}

int main(int argc, char **argv) {
    int descriptors;
    int mappings;
    int round;
    if (argc != 2) {
        return 2;
    }
    loadStartUnload(argv[1]); /* what loads for good, loads now */
    descriptors = entries("/proc/self/fd");
    mappings = lines("/proc/self/maps");
    for (round = 0; round < ROUNDS && failures == 0; ++round) {
        loadStartUnload(argv[1]);
    }
    CHECK_INT(entries("/proc/self/fd"), descriptors);
    /* Not one for each round; sanitizers keep a few of their own. */
    CHECK(lines("/proc/self/maps") < mappings + ROUNDS);
    forget();
    return verdict();
}

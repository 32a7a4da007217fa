/*
 * Answers questions about dates, one line of standard input at a time: "FUNCTION TEXT" gives the epoch
 * seconds. "timegm Y M D h m s" asks ozuutils_timegm_to_epoch, and says whether TZ was left as it was.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <utils_ozu/dates.h>

static const struct {
    const char *name;
    int (*parse)(const char *text);
} parsers[] = {
    {"date", date_string_to_time},        {"limited", date_string_to_time_limited},
    {"tools", date_string_to_time_tools}, {"bypass", bypass_string_to_time},
    {"local", localTimeStrToTimeT},
};

static int same_text(const char *a, const char *b) {
    return a == b || (a != NULL && b != NULL && strcmp(a, b) == 0);
}

static void ask_timegm(const char *text) {
    struct tm fields;
    char before[200] = "";
    const char *zone = getenv("TZ");

    if (zone != NULL) {
        snprintf(before, sizeof before, "%s", zone);
    }
    memset(&fields, 0, sizeof fields);
    if (sscanf(text, "%d %d %d %d %d %d", &fields.tm_year, &fields.tm_mon, &fields.tm_mday, &fields.tm_hour,
               &fields.tm_min, &fields.tm_sec) != 6) {
        exit(2);
    }
    fields.tm_year -= 1900;
    fields.tm_mon -= 1;
    printf("%d %s\n", ozuutils_timegm_to_epoch(&fields),
           same_text(getenv("TZ"), zone == NULL ? NULL : before) ? "kept" : "changed");
}

int main(void) {
    char line[300];

    while (fgets(line, sizeof line, stdin) != NULL) {
        char *text = strchr(line, ' ');
        line[strcspn(line, "\n")] = '\0';
        if (text == NULL) {
            return 2;
        }
        *text++ = '\0';
        if (strcmp(line, "timegm") == 0) {
            ask_timegm(text);
        }
        for (size_t i = 0; i < sizeof parsers / sizeof parsers[0]; i++) {
            if (strcmp(line, parsers[i].name) == 0) {
                printf("%d\n", parsers[i].parse(text));
            }
        }
    }
    return 0;
}

/* Checks for test programs in C: each failure is told, the program's status is their number. */
#ifndef CHECK_H
#define CHECK_H

#include <stdio.h>
#include <string.h>

static int failures;

#define CHECK(condition)                                                                                     \
    ((condition) ? (void)0                                                                                   \
                 : (void)(++failures, fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition)))

#define CHECK_INT(actual, expected) check_int((long long)(actual), (long long)(expected), #actual, __LINE__)
#define CHECK_TEXT(actual, expected) check_text((actual), (expected), #actual, __LINE__)

static void check_int(long long actual, long long expected, const char *what, int line) {
    if (actual != expected) {
        ++failures;
        fprintf(stderr, "line %d: %s is %lld, not %lld\n", line, what, actual, expected);
    }
}

static void check_text(const char *actual, const char *expected, const char *what, int line) {
    if (strcmp(actual, expected) != 0) {
        ++failures;
        fprintf(stderr, "line %d: %s is\n%s\nnot\n%s\n", line, what, actual, expected);
    }
}

static int verdict(void) {
    return failures == 0 ? 0 : 1;
}

#endif /* CHECK_H */

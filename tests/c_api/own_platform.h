/*
 * A platform that a program brings itself: every function of the platform libraries, defined in the program.
 * It writes down each call, and fails where it is told to.
 */
#ifndef OWN_PLATFORM_H
#define OWN_PLATFORM_H

/* Calls since the last forget(), one "name(arguments)" a line; log lines as "log LEVEL FUNCTION TEXT". */
extern char recorded[4096];
/* The function that fails next, and with what. */
extern const char *failing;
extern int failingWith;

void forget(void);
void record(const char *format, ...) __attribute__((format(printf, 1, 2)));

#endif /* OWN_PLATFORM_H */

/*
 * The calls of a program's own platform as one text, so that a check can compare them all at once. The
 * platform is the fake one, linked into the program.
 */
#ifndef RECORDED_H
#define RECORDED_H

/* Calls since the last forget(), one "name(arguments)" a line; log lines as "log LEVEL SOURCE FUNCTION TEXT".
 */
extern char recorded[4096];

/* Forgets what was recorded and every failure that was set; the severity registered for processes is
 * "SSSSSSSS". */
void forget(void);

#endif /* RECORDED_H */

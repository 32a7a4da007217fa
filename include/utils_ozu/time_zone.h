/*
 * Time zone of the panel.
 */
#ifndef UTILS_OZU_TIME_ZONE_H
#define UTILS_OZU_TIME_ZONE_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Switches the panel to another time zone: replaces the link "/data/timezone/localtime" with one to the
 * zone's file under "/data/timezone/zoneinfo/". The environment of the calling process is not touched.
 *
 * @param timeZoneString  name of the zone relative to the zone folder, e.g. "Europe/Berlin"; empty for UTC.
 *                        At most 103 characters: a longer name aborts the process. Not checked otherwise, and
 *                        ".." leads out of the folder: the caller checks untrusted names
 * @param notify          bit 0 set: all processes are notified by an empty message to "Process/ALL", class 6,
 *                        command 0, if the link was made and getProductCodename() is not 1. Other bits are
 *                        ignored
 * @return  0 link made, whether or not the message could be sent;
 *          4 null argument (the link stays), or the link could not be made;
 *         70 no such zone file (the link stays)
 *
 * Whatever is in the link's place is removed before the new link is made. In between the panel has none.
 * When the new link cannot be made, the old one is gone, unless it could not be removed either: a folder, for
 * example, or anything on a read-only file system, stays.
 *
 * Logs the zone at 40000, a missing zone file and an empty name at 50000, failures at 70000, the message at
 * 30000. Blocks as long as the platform takes for the message. Not to be called concurrently: two processes
 * that switch at once may both remove the link, and the slower one fails.
 */
OZU_API int applyTimeZone(const char *timeZoneString, int notify) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_TIME_ZONE_H */

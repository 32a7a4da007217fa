/*
 * Time zone of the panel.
 */
#ifndef UTILS_OZU_TIME_ZONE_H
#define UTILS_OZU_TIME_ZONE_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Switches the panel to another time zone: replaces the link "/data/timezone/localtime" by one to the zone's
 * file under "/data/timezone/zoneinfo/". The environment of the calling process is not touched.
 *
 * @param timeZoneString  name of the zone relative to the zone folder, e.g. "Europe/Berlin"; empty for UTC.
 *                        At most 103 characters: a longer one aborts the process. Not examined otherwise
 * (".." leads out of the folder), so names from outside are checked by the caller
 * @param notify          bit 0 set: all processes are told by an empty message to "Process/ALL", class 6, if
 *                        the link was made and getProductCodename() is not 1. Other bits are ignored
 * @return  0 link made, whether or not the message could be sent;
 *          4 null argument, or the link could not be made (there is none then);
 *         70 no such zone file (the link is as before)
 *
 * The old link is removed before the new one is made; in between the panel has none. Logs the zone at 40000,
 * a zone missing or not given at 50000, failures at 70000, the message at 30000.
 */
OZU_API int applyTimeZone(const char *timeZoneString, int notify) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_TIME_ZONE_H */

/*
 * Time zone of the panel.
 */
#ifndef UTILS_OZU_TIME_ZONE_H
#define UTILS_OZU_TIME_ZONE_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_TIME_ZONE_H */

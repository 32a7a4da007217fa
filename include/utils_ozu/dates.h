/*
 * Date texts, clock validity, uptime.
 */
#ifndef UTILS_OZU_DATES_H
#define UTILS_OZU_DATES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_DATES_H */

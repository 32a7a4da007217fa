/*
 * String and number conversions.
 */
#ifndef UTILS_OZU_TEXT_H
#define UTILS_OZU_TEXT_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_TEXT_H */

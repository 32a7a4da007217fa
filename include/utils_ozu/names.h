/*
 * Names of device types and radio messages.
 */
#ifndef UTILS_OZU_NAMES_H
#define UTILS_OZU_NAMES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_NAMES_H */

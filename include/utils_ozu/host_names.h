/*
 * Host-name resolution and the permanent DNS file.
 */
#ifndef UTILS_OZU_HOST_NAMES_H
#define UTILS_OZU_HOST_NAMES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_HOST_NAMES_H */

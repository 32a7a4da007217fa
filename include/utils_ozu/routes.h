/*
 * Routing table and default gateway.
 */
#ifndef UTILS_OZU_ROUTES_H
#define UTILS_OZU_ROUTES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_ROUTES_H */

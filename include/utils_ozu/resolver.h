/*
 * Asynchronous resolver with primary and secondary servers.
 */
#ifndef UTILS_OZU_RESOLVER_H
#define UTILS_OZU_RESOLVER_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_RESOLVER_H */

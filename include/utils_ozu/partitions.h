/*
 * Partitions, alarm types and the security event log.
 */
#ifndef UTILS_OZU_PARTITIONS_H
#define UTILS_OZU_PARTITIONS_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_PARTITIONS_H */

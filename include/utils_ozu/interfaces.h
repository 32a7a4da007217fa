/*
 * Interface and address helpers.
 */
#ifndef UTILS_OZU_INTERFACES_H
#define UTILS_OZU_INTERFACES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_INTERFACES_H */

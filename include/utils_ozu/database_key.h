/*
 * Database cipher key.
 */
#ifndef UTILS_OZU_DATABASE_KEY_H
#define UTILS_OZU_DATABASE_KEY_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_DATABASE_KEY_H */

/*
 * AES files and random bytes.
 */
#ifndef UTILS_OZU_CRYPTO_H
#define UTILS_OZU_CRYPTO_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_CRYPTO_H */

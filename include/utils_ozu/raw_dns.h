/*
 * Raw DNS query client.
 */
#ifndef UTILS_OZU_RAW_DNS_H
#define UTILS_OZU_RAW_DNS_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_RAW_DNS_H */

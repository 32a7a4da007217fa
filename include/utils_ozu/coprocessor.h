/*
 * Co-processor and radio requests.
 */
#ifndef UTILS_OZU_COPROCESSOR_H
#define UTILS_OZU_COPROCESSOR_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_COPROCESSOR_H */

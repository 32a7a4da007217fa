/*
 * Kernel log buffer.
 */
#ifndef UTILS_OZU_KERNEL_LOG_H
#define UTILS_OZU_KERNEL_LOG_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_KERNEL_LOG_H */

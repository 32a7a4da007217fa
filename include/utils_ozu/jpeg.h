/*
 * JPEG validation and its decoder hooks.
 */
#ifndef UTILS_OZU_JPEG_H
#define UTILS_OZU_JPEG_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_JPEG_H */

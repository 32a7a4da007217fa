/*
 * Remote software update folders.
 */
#ifndef UTILS_OZU_UPDATE_FOLDERS_H
#define UTILS_OZU_UPDATE_FOLDERS_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

OZU_END_DECLS

#endif /* UTILS_OZU_UPDATE_FOLDERS_H */

/*
 * Remote software update folders.
 *
 * Firmware images for radio devices lie in one folder per device type under "/customapps/versions/".
 */
#ifndef UTILS_OZU_UPDATE_FOLDERS_H
#define UTILS_OZU_UPDATE_FOLDERS_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Finds the update folder of a device type.
 *
 * @param deviceType  device type code; any value is accepted
 * @return path of the folder with a slash at its end; "UNKNOWN" for a type without one. Constant text, never
 * null, never to be freed. May run concurrently.
 */
OZU_API const char *ozuutils_getRsuFolder(int deviceType) OZU_NOEXCEPT;

/**
 * Deletes everything in the update folder of a device type and keeps the folder. Symbolic links are deleted,
 * not followed. Logs at 30000.
 *
 * @param deviceType  device type code
 * @return 0; -1 when the folder cannot be walked; the non-zero result of a removal that failed, which ends
 * the walk (logs at 70000); for a type without a folder (logs at 50000) a value without meaning
 *
 * Blocks for as long as the removal takes. Needs 64 descriptors at most.
 */
OZU_API int ozuutils_removeRsuFile(int deviceType) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_UPDATE_FOLDERS_H */

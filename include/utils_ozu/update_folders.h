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
 * Finds the update folder of a device type. Logs nothing, and does not look whether the folder exists.
 *
 * @param deviceType  device type code; any value is accepted
 * @return path of the folder with a trailing slash; "UNKNOWN" for a type without one. Constant text, never
 *         null, never to be freed. May run concurrently.
 */
OZU_API const char *ozuutils_getRsuFolder(int deviceType) OZU_NOEXCEPT;

/**
 * Deletes everything in the update folder of a device type and keeps the folder. Symbolic links in it are
 * deleted, not followed. Logs its name at 30000.
 *
 * A 0 does not prove that the folder is empty. It is also the result when a symbolic link or a
 * plain file has the folder's name, and when the process may not read the folder. Then nothing is deleted,
 * neither in the folder nor behind the link.
 *
 * @param deviceType  device type code
 * @return 0; -1 when the folder does not exist or the walk fails; the non-zero result of a removal that
 *         failed, which ends the walk (logs at 70000); for a type without a folder (logs at 50000) a value
 *         without meaning
 *
 * Blocks for as long as the removal takes. Opens 64 descriptors at most and closes them.
 */
OZU_API int ozuutils_removeRsuFile(int deviceType) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_UPDATE_FOLDERS_H */

// Folders of the firmware images for radio devices.

#include <utils_ozu/update_folders.h>

#include <base/log.h>
#include <base/name_table.h>

#include <utils_ozu/files.h>

#include <ftw.h>
#include <panel_codes.h>

namespace {

constexpr int kMaxOpenFolders = 64;

// By device type; 146 has a folder although it has no name.
constexpr ozu::NameRow kFolders[] = {
    {PANEL_DEVICE_MY2, "/customapps/versions/my2/"},
    {PANEL_DEVICE_VBX, "/customapps/versions/vbx/"},
    {PANEL_DEVICE_WLM, "/customapps/versions/wlm/"},
    {PANEL_DEVICE_EL7, "/customapps/versions/el7/"},
    {PANEL_DEVICE_TQSX, "/customapps/versions/tqsx/"},
    {PANEL_DEVICE_UMKRL, "/customapps/versions/umkrl/"},
    {PANEL_DEVICE_UMKR, "/customapps/versions/umkr/"},
    {PANEL_DEVICE_SY9, "/customapps/versions/sy9/"},
    {PANEL_DEVICE_PZ, "/customapps/versions/pz/"},
    {PANEL_DEVICE_CHEV, "/customapps/versions/chev/"},
    {PANEL_DEVICE_FOG, "/customapps/versions/fog/"},
    {PANEL_DEVICE_EL9, "/customapps/versions/el9/"},
    {PANEL_DEVICE_W3, "/customapps/versions/w3/"},
    {PANEL_DEVICE_DANALOCK, "/customapps/versions/danalock/"},
    {PANEL_DEVICE_YX, "/customapps/versions/yx/"},
};
constexpr auto kPaths = ozu::nameTable<kFolders>();

} // namespace

const char *ozuutils_getRsuFolder(int deviceType) noexcept {
    return kPaths.name(static_cast<unsigned int>(deviceType));
}

int ozuutils_removeRsuFile(int deviceType) noexcept {
    OZU_LOG_TEXT(OZULOG_INFO, "ozuutils_removeRsuFile");
    if (!kPaths.has(static_cast<unsigned int>(deviceType))) {
        return ozulog_printf_extend(OZULOG_WARNING, "%s", OZU_LOG_SOURCE, __func__, __LINE__,
                                    "UNKNOWN device type when trying to remove Rsu File");
    }
    return nftw(ozuutils_getRsuFolder(deviceType), unlink_cb, kMaxOpenFolders, FTW_DEPTH | FTW_PHYS);
}

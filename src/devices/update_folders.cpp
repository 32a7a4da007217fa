// Folders of the firmware images for radio devices.

#include <utils_ozu/update_folders.h>

#include <base/log.h>
#include <base/name_table.h>

#include <utils_ozu/files.h>

#include <ftw.h>

namespace {

constexpr int kMostOpenFolders = 64;

// By device type; 146 has a folder although it has no name.
constexpr ozu::NameRow kFolders[] = {
    {40, "/customapps/versions/my2/"},  {41, "/customapps/versions/vbx/"},
    {43, "/customapps/versions/wlm/"},  {55, "/customapps/versions/el7/"},
    {57, "/customapps/versions/tqsx/"}, {59, "/customapps/versions/umkrl/"},
    {60, "/customapps/versions/umkr/"}, {61, "/customapps/versions/sy9/"},
    {66, "/customapps/versions/pz/"},   {67, "/customapps/versions/chev/"},
    {70, "/customapps/versions/fog/"},  {83, "/customapps/versions/el9/"},
    {85, "/customapps/versions/w3/"},   {87, "/customapps/versions/danalock/"},
    {146, "/customapps/versions/yx/"},
};
constexpr auto kText = ozu::packedText<kFolders>();
constexpr auto kList = ozu::nameList<kText, kFolders>();
constexpr auto kPaths = ozu::nameTable<kFolders>(kList);

} // namespace

const char *ozuutils_getRsuFolder(int deviceType) noexcept {
    return kList.at(kPaths.id(static_cast<unsigned int>(deviceType)));
}

int ozuutils_removeRsuFile(int deviceType) noexcept {
    OZU_LOG_TEXT(OZULOG_INFO, "ozuutils_removeRsuFile");
    const auto path = kPaths.id(static_cast<unsigned int>(deviceType));
    if (path == 0) {
        return ozulog_printf_extend(OZULOG_WARNING, "%s", OZU_LOG_SOURCE::name(), __func__, __LINE__,
                                    "UNKNOWN device type when trying to remove Rsu File");
    }
    return nftw(kList.at(path), unlink_cb, kMostOpenFolders, FTW_DEPTH | FTW_PHYS);
}

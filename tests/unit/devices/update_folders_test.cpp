#include <utils_ozu/files.h>
#include <utils_ozu/update_folders.h>

#include "fake_platform.h"

#include <climits>
#include <ftw.h>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::map<int, std::string> kFolders = {
    {40, "my2"},   {41, "vbx"},  {43, "wlm"}, {55, "el7"},      {57, "tqsx"},
    {59, "umkrl"}, {60, "umkr"}, {61, "sy9"}, {66, "pz"},       {67, "chev"},
    {70, "fog"},   {83, "el9"},  {85, "w3"},  {87, "danalock"}, {146, "yx"},
};

struct Walk {
    std::string folder;
    bool withUnlinkCallback = false;
    int descriptors = 0;
    int flags = 0;
    int result = 0;
} walk;

class UpdateFolders : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        walk = Walk();
    }
};

int recordedWalk(const char *folder, __nftw_func_t callback, int descriptors, int flags) {
    platform().journal.emplace_back("nftw");
    walk.folder = folder;
    walk.withUnlinkCallback = callback == unlink_cb;
    walk.descriptors = descriptors;
    walk.flags = flags;
    return walk.result;
}

} // namespace

extern "C" int __wrap_nftw(const char *folder, __nftw_func_t callback, int descriptors, int flags) {
    return recordedWalk(folder, callback, descriptors, flags);
}

namespace {

TEST_F(UpdateFolders, everyTypeAndEveryGap) {
    std::size_t found = 0;
    for (int type = -300; type <= 600; ++type) {
        const auto row = kFolders.find(type);
        const std::string path =
            row == kFolders.end() ? "UNKNOWN" : "/customapps/versions/" + row->second + "/";
        EXPECT_EQ(ozuutils_getRsuFolder(type), path) << type;
        found += row == kFolders.end() ? 0U : 1U;
    }
    EXPECT_EQ(found, 15u);
    for (const int type : {INT_MIN, INT_MAX, 65536 + 40}) {
        EXPECT_STREQ(ozuutils_getRsuFolder(type), "UNKNOWN");
    }
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(UpdateFolders, removalWalksTheFolder) {
    for (const auto &[type, name] : kFolders) {
        for (const int result : {0, -1, 17}) {
            platform().journal.clear();
            platform().log.clear();
            walk = Walk();
            walk.result = result;
            EXPECT_EQ(ozuutils_removeRsuFile(type), result);
            EXPECT_EQ(walk.folder, "/customapps/versions/" + name + "/");
            EXPECT_TRUE(walk.withUnlinkCallback);
            EXPECT_EQ(walk.descriptors, 64);
            EXPECT_EQ(walk.flags, FTW_DEPTH | FTW_PHYS);
            EXPECT_THAT(platform().journal, ElementsAre("log 30000 ozuutils_removeRsuFile", "nftw"));
            EXPECT_THAT(platform().log,
                        ElementsAre(extended(30000, "ozuutils_removeRsuFile", "ozuutils_removeRsuFile")));
            EXPECT_EQ(platform().log.at(0).format, "%s");
        }
    }
}

TEST_F(UpdateFolders, unknownTypeRemovesNothing) {
    for (const int type : {0, 38, 134, 135, 138, -1, 255, INT_MAX}) {
        platform().log.clear();
        platform().journal.clear();
        ozuutils_removeRsuFile(type);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(30000, "ozuutils_removeRsuFile", "ozuutils_removeRsuFile"),
                                extended(50000, "UNKNOWN device type when trying to remove Rsu File",
                                         "ozuutils_removeRsuFile")));
        EXPECT_EQ(platform().log.at(1).format, "%s");
        EXPECT_EQ(platform().callCount("nftw"), 0);
    }
}

} // namespace

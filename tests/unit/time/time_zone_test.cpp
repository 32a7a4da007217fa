// The link is made by wrapped calls here: the machine's /data is not the test's to change.
#include <utils_ozu/time_zone.h>

#include "fake_platform.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <set>

using ozu::test::extended;
using ozu::test::platform;
using ozu::test::shortLine;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Folder {
    std::set<std::string> zones = {"UTC", "Europe/Berlin"};
    bool linkExists = true;
    bool failUnlink = false;
    int symlinkError = 0;
};
Folder folder;

const std::string kZones = "/data/timezone/zoneinfo/";
constexpr const char *kBroadcast = "ozumqttc_messagePublish(\"Process/ALL\", 0, \"\", 6, 0, null)";

class TimeZone : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        folder = Folder();
    }
};

std::string made(const std::string &zone) {
    return "symlink(" + kZones + zone + ", /data/timezone/localtime)";
}

} // namespace

extern "C" {

int __wrap_access(const char *path, int mode) {
    EXPECT_EQ(mode, F_OK);
    platform().journal.push_back(std::string("access(") + path + ")");
    if (std::string(path).rfind(kZones, 0) == 0 && folder.zones.count(path + kZones.size()) != 0) {
        return 0;
    }
    errno = ENOENT;
    return -1;
}

int __wrap_lstat(const char *path, struct stat * /*status*/) {
    platform().journal.push_back(std::string("lstat(") + path + ")");
    return folder.linkExists ? 0 : -1;
}

int __wrap_unlink(const char *path) {
    platform().journal.push_back(std::string("unlink(") + path + ")");
    return folder.failUnlink ? -1 : 0;
}

int __wrap_symlink(const char *target, const char *path) {
    platform().journal.push_back(std::string("symlink(") + target + ", " + path + ")");
    if (folder.symlinkError != 0) {
        errno = folder.symlinkError;
        return -1;
    }
    return 0;
}

} // extern "C"

TEST_F(TimeZone, replacesTheLinkAndTellsEverybody) {
    platform().results["ozumqttc_messagePublish"] = 3;
    EXPECT_EQ(applyTimeZone("Europe/Berlin", 1), 0);
    EXPECT_THAT(
        platform().journal,
        ElementsAre(
            "log 40000 Applying timezone: [Europe/Berlin]", "access(/data/timezone/zoneinfo/Europe/Berlin)",
            "lstat(/data/timezone/localtime)", "unlink(/data/timezone/localtime)", made("Europe/Berlin"),
            "getProductCodename()",
            "log 30000 Sending a broadcast mqtt message to all processes to notify them that the time "
            "zone has changed",
            kBroadcast, "log 30000 The SYS_BROADCAST_TIMEZONE_CHANGED message was sent (result=3)"));
    EXPECT_EQ(platform().log[0], shortLine(40000, "Applying timezone: [Europe/Berlin]"));
    EXPECT_EQ(platform().log[1].function, "applyTimeZone");
    EXPECT_EQ(platform().log[1].source, "src/utils");
    EXPECT_EQ(platform().log[1].format, "%s");
    ASSERT_EQ(platform().published.size(), 1u);
    EXPECT_TRUE(platform().published[0].nullPayload);
}

TEST_F(TimeZone, emptyNameIsUtc) {
    EXPECT_EQ(applyTimeZone("", 1), 0);
    EXPECT_THAT(platform().calls(),
                ElementsAre("access(/data/timezone/zoneinfo/UTC)", "lstat(/data/timezone/localtime)",
                            "unlink(/data/timezone/localtime)", made("UTC"), "getProductCodename()",
                            kBroadcast));
    EXPECT_EQ(platform().log[0],
              extended(50000, "Time zone not defined, setting default UTC", "applyTimeZone"));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_EQ(
        platform().log.back(),
        extended(30000, "The SYS_BROADCAST_TIMEZONE_CHANGED message was sent (result=0)", "applyTimeZone"));
}

TEST_F(TimeZone, nullIsRefused) {
    EXPECT_EQ(applyTimeZone(nullptr, 1), 4);
    EXPECT_THAT(platform().journal,
                ElementsAre("log 70000 Timezone not applied, argument timeZoneString is null"));
    EXPECT_EQ(platform().log[0],
              extended(70000, "Timezone not applied, argument timeZoneString is null", "applyTimeZone"));
    EXPECT_EQ(platform().log[0].format, "%s");
}

TEST_F(TimeZone, unknownZoneLeavesTheLink) {
    EXPECT_EQ(applyTimeZone("Europe/Nowhere", 1), 70);
    EXPECT_THAT(platform().calls(),
                ElementsAre("access(/data/timezone/zoneinfo/Europe/Nowhere)", "getProductCodename()"));
    EXPECT_EQ(platform().log.back(),
              extended(50000, "Time zone file doesn't exist: '/data/timezone/zoneinfo/Europe/Nowhere'",
                       "applyTimeZone"));
    folder.zones.clear();
    EXPECT_EQ(applyTimeZone("", 0), 70);
    EXPECT_EQ(platform().log.back().text, "Time zone file doesn't exist: '/data/timezone/zoneinfo/UTC'");
}

TEST_F(TimeZone, aLinkThatIsNotThereIsNotRemoved) {
    folder.linkExists = false;
    EXPECT_EQ(applyTimeZone("UTC", 0), 0);
    EXPECT_THAT(platform().calls(),
                ElementsAre("access(/data/timezone/zoneinfo/UTC)", "lstat(/data/timezone/localtime)",
                            made("UTC"), "getProductCodename()"));
}

TEST_F(TimeZone, failedRemovalIsLeftToTheLink) {
    folder.failUnlink = true;
    EXPECT_EQ(applyTimeZone("UTC", 0), 0);
    EXPECT_THAT(platform().log, ElementsAre(shortLine(40000, "Applying timezone: [UTC]")));
}

TEST_F(TimeZone, failedLinkTellsNobody) {
    folder.symlinkError = EROFS;
    EXPECT_EQ(applyTimeZone("UTC", 1), 4);
    EXPECT_EQ(platform().calls().back(), made("UTC"));
    EXPECT_EQ(platform().log.back(),
              extended(70000,
                       "Failed to create localtime symlink: /data/timezone/zoneinfo/UTC <-- "
                       "/data/timezone/localtime, Error: Read-only file system",
                       "applyTimeZone"));
}

TEST_F(TimeZone, whatCannotBeRemovedStays) {
    folder.failUnlink = true;
    folder.symlinkError = EEXIST;
    EXPECT_EQ(applyTimeZone("UTC", 1), 4);
    EXPECT_EQ(platform().calls().back(), made("UTC"));
    EXPECT_EQ(platform().log.back().text,
              "Failed to create localtime symlink: /data/timezone/zoneinfo/UTC <-- "
              "/data/timezone/localtime, Error: File exists");
}

TEST_F(TimeZone, onlyBitZeroNotifies) {
    for (const int notify : {0, 1, 2, 3, -1, -2, 255, 256, 257, -2147483647 - 1, 2147483647}) {
        platform().published.clear();
        EXPECT_EQ(applyTimeZone("UTC", notify), 0);
        EXPECT_EQ(platform().published.size(), static_cast<std::size_t>(notify & 1)) << notify;
    }
}

TEST_F(TimeZone, oneProductNeverTells) {
    for (const int product : {0, 1, 2, -1, 257}) {
        platform().published.clear();
        platform().results["getProductCodename"] = product;
        EXPECT_EQ(applyTimeZone("UTC", 1), 0);
        EXPECT_EQ(platform().published.size(), product == 1 ? 0u : 1u) << product;
    }
}

TEST_F(TimeZone, namesEndAt103Characters) {
    const std::string fits(103, 'z');
    folder.zones.insert(fits);
    EXPECT_EQ(applyTimeZone(fits.c_str(), 0), 0);
    EXPECT_EQ(platform().calls()[3], made(fits));
    EXPECT_EQ(platform().log[0].text, "Applying timezone: [" + fits + "]");
    for (const std::size_t length : {104U, 105U, 127U, 128U, 5000U}) {
        EXPECT_EXIT(applyTimeZone(std::string(length, 'z').c_str(), 0), testing::KilledBySignal(SIGABRT), "")
            << length;
    }
}

TEST_F(TimeZone, nothingHappensBeforeTheAbort) {
    // The child dies silently: no call was made that it would have told of.
    EXPECT_EXIT(
        {
            platform().onCall["ozulog_printf"] = [] { fputs("logged", stderr); };
            applyTimeZone(std::string(104, 'z').c_str(), 1);
        },
        testing::KilledBySignal(SIGABRT), testing::Not(testing::HasSubstr("logged")));
}

TEST_F(TimeZone, namesAreTakenAsTheyAre) {
    folder.zones.insert("../../etc/%s");
    EXPECT_EQ(applyTimeZone("../../etc/%s", 0), 0);
    EXPECT_EQ(platform().calls()[3], made("../../etc/%s"));
    EXPECT_EQ(platform().log[0].text, "Applying timezone: [../../etc/%s]");
}

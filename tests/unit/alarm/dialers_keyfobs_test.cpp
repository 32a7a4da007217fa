#include <utils_ozu/identity.h>

#include "fake_platform.h"

#include <climits>
#include <cstring>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Dialers = ozu::test::PlatformTest;
using Keyfobs = ozu::test::PlatformTest;
using CameraProfiles = ozu::test::PlatformTest;

PanelDialer &dialer(int index) {
    return platform().state.dialers[index];
}

TEST_F(Dialers, findsTheEntryWithBothAttributes) {
    for (int i = 0; i < 16; ++i) {
        dialer(i) = {static_cast<std::uint8_t>(16 - i), static_cast<std::uint8_t>(i),
                     static_cast<std::uint8_t>(100 + i)};
    }
    for (int i = 0; i < 16; ++i) {
        const auto id = static_cast<unsigned int>(16 - i);
        const auto a = static_cast<unsigned int>(i);
        const auto b = static_cast<unsigned int>(100 + i);
        EXPECT_EQ(check_dial_table_id(id, b, a), i);
        EXPECT_EQ(check_dial_table_id(id, a, b), -1) << "the attributes have an order";
        EXPECT_EQ(check_dial_table_id(id, b, a + 1), -1);
        EXPECT_EQ(check_dial_table_id(id, b + 1, a), -1);
        EXPECT_EQ(check_dial_table_id(id, b + 256, a), -1) << "attributes are compared whole";
        EXPECT_EQ(check_dial_table_id(id, b, a + 256), -1);
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Dialers, onlyTheFirstEntryOfAnIdCounts) {
    dialer(3) = {7, 1, 2};
    dialer(9) = {7, 5, 6};
    EXPECT_EQ(check_dial_table_id(7, 2, 1), 3);
    EXPECT_EQ(check_dial_table_id(7, 6, 5), -1);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Dialers, idOutOfRange) {
    for (const unsigned int id : {0u, 17u, 255u, 256u + 7u, 0x80000000u, UINT_MAX}) {
        platform().log.clear();
        dialer(0).dialerId = static_cast<std::uint8_t>(id);
        EXPECT_EQ(check_dial_table_id(id, 0, 0), -1);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(
                        70000, "zero or not in range index: [" + std::to_string(static_cast<int>(id)) + "]",
                        "check_dial_table_id")));
        EXPECT_EQ(platform().log.at(0).format, "zero or not in range index: [%d]");
    }
}

TEST_F(Dialers, idOfNoEntry) {
    for (unsigned int id = 1; id <= 16; ++id) {
        platform().log.clear();
        EXPECT_EQ(check_dial_table_id(id, 0, 0), -1);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, "dialer id not found in Data base", "check_dial_table_id")));
        EXPECT_EQ(platform().log.at(0).format, "%s");
    }
}

TEST_F(Dialers, noState) {
    platform().stateMissing = true;
    for (const unsigned int id : {0u, 1u, 17u}) {
        platform().log.clear();
        EXPECT_EQ(check_dial_table_id(id, 0, 0), -1);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, "failure allocating shmem", "check_dial_table_id")));
    }
}

PanelSy9Keyfob &keyfob(int number) {
    return platform().state.sy9Keyfobs[number];
}

TEST_F(Keyfobs, firstKeyfobOfTheUser) {
    for (int k = 1; k <= 10; ++k) {
        keyfob(k).userId = static_cast<std::uint8_t>(200 + k);
    }
    keyfob(8).userId = 204;
    for (int k = 1; k <= 10; ++k) {
        platform().log.clear();
        platform().journal.clear();
        const auto user = static_cast<unsigned int>(200 + k);
        const int expected = k == 8 ? 0 : k;
        EXPECT_EQ(getSY9IdFromUser(user), expected);
        if (expected != 0) {
            EXPECT_THAT(platform().log, ElementsAre(extended(30000,
                                                             "Found SY9 Id " + std::to_string(k) +
                                                                 " for the user ID " + std::to_string(user),
                                                             "getSY9IdFromUser")));
            EXPECT_EQ(platform().log.at(0).format, "Found SY9 Id %d for the user ID %d");
        }
        EXPECT_THAT(platform().calls(), ElementsAre("getProductCodename()", "ozudb_getSharedMemory(0)"));
    }
}

TEST_F(Keyfobs, recordZeroAndOtherBytesDoNotCount) {
    for (int k = 0; k <= 10; ++k) {
        keyfob(k) = {9, {5, 5}};
    }
    keyfob(0).userId = 5;
    EXPECT_EQ(getSY9IdFromUser(5), 0);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(40000, "Can't find any corresponding KeyFob for the user 5",
                                     "getSY9IdFromUser")));
    EXPECT_EQ(platform().log.at(0).format, "Can't find any corresponding KeyFob for the user %d");
}

TEST_F(Keyfobs, userZeroHasWhatIsNotAssigned) {
    keyfob(1).userId = 7;
    keyfob(2).userId = 8;
    EXPECT_EQ(getSY9IdFromUser(0), 3);
    EXPECT_EQ(getSY9IdFromUser(256), 3);
}

TEST_F(Keyfobs, userIsComparedAsAByte) {
    keyfob(3).userId = 255;
    EXPECT_EQ(getSY9IdFromUser(UINT_MAX), 3);
    EXPECT_EQ(getSY9IdFromUser(256 + 255), 3);
    EXPECT_EQ(platform().log.at(1).text, "Found SY9 Id 3 for the user ID 511");
    keyfob(4).userId = 0;
    EXPECT_EQ(getSY9IdFromUser(256), 1) << "an unused record belongs to user 0";
}

TEST_F(Keyfobs, notOnLumPlus) {
    keyfob(1).userId = 5;
    platform().results["getProductCodename"] = 1;
    EXPECT_EQ(getSY9IdFromUser(5), 0);
    EXPECT_THAT(
        platform().journal,
        ElementsAre("getProductCodename()", "log 80000 getSY9IdFromUser not available on the project Lum+."));
    EXPECT_THAT(platform().log,
                ElementsAre(extended(80000, "getSY9IdFromUser not available on the project Lum+.",
                                     "getSY9IdFromUser")));
    EXPECT_EQ(platform().log.at(0).format, "%s not available on the project Lum+.");
    for (const int product : {0, 2, -1}) {
        platform().results["getProductCodename"] = product;
        EXPECT_EQ(getSY9IdFromUser(5), 1);
    }
}

TEST_F(Keyfobs, noState) {
    platform().stateMissing = true;
    EXPECT_EQ(getSY9IdFromUser(5), 0);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(CameraProfiles, firmwareFrom132) {
    const int versions[][4] = {{0, 9, 9, 0}, {0, 255, 255, 0}, {1, 0, 0, 0}, {1, 2, 255, 0},
                               {1, 3, 0, 0}, {1, 3, 1, 0},     {1, 3, 2, 1}, {1, 3, 255, 1},
                               {1, 4, 0, 1}, {1, 255, 0, 1},   {2, 0, 0, 1}, {255, 0, 0, 1}};
    for (const auto &version : versions) {
        auto &device = platform().state.devices[205];
        device.deviceType = 59;
        device.fwMajor = static_cast<std::uint8_t>(version[0]);
        device.fwMinor = static_cast<std::uint8_t>(version[1]);
        device.fwBuild = static_cast<std::uint8_t>(version[2]);
        EXPECT_EQ(isUmkrlVersionSupportProfile(205), version[3])
            << version[0] << '.' << version[1] << '.' << version[2];
    }
    EXPECT_EQ(platform().callCount("getProductCodename"), 0);
}

TEST_F(CameraProfiles, onlyType59) {
    auto &device = platform().state.devices[1];
    device.fwMajor = 9;
    for (const std::uint32_t type : {0u, 38u, 58u, 60u, 59u + 256u, UINT_MAX}) {
        device.deviceType = type;
        EXPECT_EQ(isUmkrlVersionSupportProfile(1), 0) << type;
    }
}

TEST_F(CameraProfiles, indexOutOfRangeAndNoState) {
    memset(&platform().state, 0x3B, sizeof platform().state);
    for (auto &device : platform().state.devices) {
        device.deviceType = 59;
    }
    for (const int index : {-1, 206, 207, 255, 256, 65536, INT_MAX, INT_MIN}) {
        EXPECT_EQ(isUmkrlVersionSupportProfile(index), 0) << index;
    }
    EXPECT_EQ(isUmkrlVersionSupportProfile(205), 1);
    platform().stateMissing = true;
    EXPECT_EQ(isUmkrlVersionSupportProfile(205), 0);
    EXPECT_THAT(platform().log, IsEmpty());
}

} // namespace

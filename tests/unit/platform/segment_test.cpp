// The shared segment: what it begins with, who may attach it, and what a killed writer leaves behind.

#include "captured.h"
#include "data_folders.h"
#include "panel_folder.h"

#include "shared_segment.h"

#include <ozudb.h>
#include <system_event_log.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <functional>

using namespace ozu::platform;
using namespace ozu::test;
using testing::AllOf;
using testing::HasSubstr;

namespace {

class SegmentTest : public PanelFolder {
  protected:
    static std::string segment() {
        std::string file;
        EXPECT_EQ(segmentFile(file), 0);
        return file;
    }
    // Makes a segment, changes bytes of its file, and lets a new process attach it.
    static void patch(std::size_t offset, std::uint32_t value) {
        ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
        const int file = open(segment().c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(pwrite(file, &value, sizeof(value), static_cast<off_t>(offset)),
                  static_cast<ssize_t>(sizeof(value)));
        close(file);
        closePlatform();
    }
    static std::string refusal() {
        ozu::test::captureStderr();
        EXPECT_EQ(ozudb_getSharedMemory(0), nullptr);
        EXPECT_EQ(ozudb_getSharedMemory(0), nullptr);
        EXPECT_EQ(ozudb_ModifyModemStatistics(1, 1, 1, 1, 1, 1, 1, 1, 0), kNoSharedRecord);
        return ozu::test::capturedStderr();
    }
};

} // namespace

TEST_F(SegmentTest, beginsWithADisarmedPanel) {
    const PanelSharedState *state = ozudb_getSharedMemory(0);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(ozudb_getSharedMemory(0), state);
    for (const auto &partition : state->partitions) {
        EXPECT_EQ(partition.partitionState, 1U);
        EXPECT_EQ(partition.forcedArm, 0U);
        EXPECT_EQ(partition.armAfterAlarm, 0);
    }
    for (const auto &zone : state->zones) {
        EXPECT_EQ(zone.firstInputEnabled, 1);
        EXPECT_EQ(zone.secondInputEnabled, 0);
        for (const auto &bypass : zone.bypass) {
            EXPECT_EQ(bypass.bypassed, 0);
            EXPECT_EQ(bypass.bypassExpiry, OZUDB_BYPASS_FOREVER);
        }
    }
    EXPECT_EQ(state->rfInputs[255].enabled, 1);
    EXPECT_EQ(state->safetyEvents[0].startTime, 0);
    EXPECT_EQ(state->devices[1].active, 0);
    EXPECT_EQ(state->au1tEntryDelayFull, 30);
}

TEST_F(SegmentTest, isSharedBetweenProcesses) {
    PanelSharedState *state = ozudb_getSharedMemory(0);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(inChild([] {
                  ozudb_getSharedMemory(0)->powerManagerMode = 5;
                  return 0;
              }),
              0);
    EXPECT_EQ(state->powerManagerMode, 5U);
}

TEST_F(SegmentTest, whatLastsComesBackAfterABoot) {
    ASSERT_EQ(ozudb_ModifyBypassExpiry(9, 1, 1234), 0);
    ASSERT_EQ(ozudb_ModifyModemStatistics(1, 2, 3, 4, 5, 6, 7, 8, 1), 0);
    ozudb_getSharedMemory(0)->powerManagerMode = 5;
    boot();
    const PanelSharedState *state = ozudb_getSharedMemory(0);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->zones[9].bypass[0].bypassed, 1);
    EXPECT_EQ(state->zones[9].bypass[0].bypassExpiry, 1234U);
    EXPECT_EQ(state->modemStatistics[0].counter[1], 2);
    EXPECT_EQ(state->powerManagerMode, 0U);
}

TEST_F(SegmentTest, belongsToItsFolderAlone) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    const std::string first = segment();
    struct stat found {};
    ASSERT_EQ(stat(first.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0660U);
    EXPECT_THAT(first, HasSubstr("/ozu-v" + std::to_string(kLayoutVersion) + "-"));
    const std::string firstFolder = folder();
    PanelFolder::SetUp();
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    EXPECT_NE(segment(), first);
    removeWithSegments(firstFolder);
    EXPECT_NE(access(first.c_str(), F_OK), 0);
    EXPECT_EQ(access(segment().c_str(), F_OK), 0);
}

TEST_F(SegmentTest, manyProcessesStartTogether) {
    std::vector<pid_t> children;
    for (int i = 0; i < 8; ++i) {
        children.push_back(startChild([i] {
            PanelSharedState *state = ozudb_getSharedMemory(0);
            if (state == nullptr || state->partitions[0].partitionState != 1) {
                return 1;
            }
            state->devices[i + 1].rfId = static_cast<std::uint32_t>(i + 1);
            return 0;
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(waitForChild(child), 0);
    }
    for (std::uint32_t i = 1; i <= 8; ++i) {
        EXPECT_EQ(ozudb_getSharedMemory(0)->devices[i].rfId, i);
    }
}

TEST_F(SegmentTest, otherLayoutVersionInTheHeaderIsRefused) {
    patch(offsetof(SegmentHeader, layoutVersion), kLayoutVersion + 1);
    const std::string text = refusal();
    EXPECT_THAT(text,
                AllOf(HasSubstr("has layout version 2, this process needs version 1"),
                      HasSubstr("stop all panel processes, remove " + segment()), HasSubstr(" 80000 C ")));
    // The reason is told once, however often the record is asked for; the change that failed tells its own.
    EXPECT_EQ(text.find(" 80000 C "), text.rfind(" 80000 C "));
}

TEST_F(SegmentTest, processOfAnotherReleaseIsRefused) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    // A release with another layout would have named its segment so.
    const std::string own = segment();
    const std::string other = "/dev/shm/ozu-v7" + own.substr(own.rfind('-'));
    ASSERT_EQ(rename(own.c_str(), other.c_str()), 0);
    closePlatform();
    EXPECT_THAT(refusal(), AllOf(HasSubstr("has layout version 7, this process needs version 1"),
                                 HasSubstr("remove " + other)));
}

TEST_F(SegmentTest, foreignFilesAreRefused) {
    patch(0, 0);
    EXPECT_THAT(refusal(), HasSubstr("does not begin with the mark"));
    unlink(segment().c_str());
    patch(offsetof(SegmentHeader, segmentSize), 4711);
    EXPECT_THAT(refusal(), HasSubstr("says 4711"));
    unlink(segment().c_str());
    patch(offsetof(SegmentHeader, stateSize), 11409);
    EXPECT_THAT(refusal(), HasSubstr("a record of 11409 bytes, this process needs 11408"));
    unlink(segment().c_str());
    patch(offsetof(SegmentHeader, pointerBits), 16);
    EXPECT_THAT(refusal(), HasSubstr("made by a 16-bit process"));
    ASSERT_EQ(truncate(segment().c_str(), 10), 0);
    closePlatform();
    EXPECT_THAT(refusal(), HasSubstr("is too short"));
}

TEST_F(SegmentTest, linkInItsPlaceIsNotFollowed) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    const std::string path = segment();
    const std::string moved = folder() + "/elsewhere";
    rewriteFile(moved, contentOf(path));
    unlink(path.c_str());
    ASSERT_EQ(symlink(moved.c_str(), path.c_str()), 0);
    closePlatform();
    EXPECT_EQ(ozudb_getSharedMemory(0), nullptr);
}

// ---- what other users put beside it
// ---------------------------------------------------------------------------------------

TEST_F(SegmentTest, emptyFileOfAnotherLayoutsNameKeepsNobodyOut) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    const std::string own = segment();
    const std::string other = "/dev/shm/ozu-v2" + own.substr(own.rfind('-'));
    for (const auto &plant : std::vector<std::function<int()>>{
             [&] { return close(creat(other.c_str(), 0666)); }, [&] { return mkfifo(other.c_str(), 0666); },
             [&] { return symlink(own.c_str(), other.c_str()); }, [&] { return mkdir(other.c_str(), 0777); },
             [&] { return link(own.c_str(), other.c_str()); }}) {
        closePlatform();
        ASSERT_EQ(plant(), 0);
        alarm(20);
        EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
        const PanelSharedState *view = nullptr;
        std::string why;
        EXPECT_EQ(attachState(view, why), 0) << why;
        alarm(0);
        remove(other.c_str());
    }
    EXPECT_EQ(segment(), own);
}

class OtherUsers : public SegmentTest {
  protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can make another user's file";
        }
        SegmentTest::SetUp();
    }
    void TearDown() override {
        remove(planted.c_str());
        SegmentTest::TearDown();
    }
    // As another user, in a separate process.
    static void asOtherUser(const std::function<int()> &body) {
        ASSERT_EQ(inChild([&] { return setuid(65534) == 0 && body() == 0 ? 0 : 1; }), 0);
    }
    std::string planted;
};

TEST_F(OtherUsers, nameThatIsTakenIsNotNeeded) {
    const std::string victim = folder() + "/victim";
    rewriteFile(victim, "precious");
    for (const auto &plant : std::vector<std::function<int(const char *)>>{
             [](const char *path) { return close(creat(path, 0666)); },
             [](const char *path) { return mkfifo(path, 0666); },
             [&](const char *path) { return symlink(victim.c_str(), path); },
             [](const char *path) { return mkdir(path, 0777); }}) {
        ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
        planted = segment(); // known from the boot before
        boot();
        asOtherUser([&] { return plant(planted.c_str()); });
        alarm(20);
        PanelSharedState *state = ozudb_getSharedMemory(0);
        alarm(0);
        ASSERT_NE(state, nullptr);
        EXPECT_NE(segment(), planted);
        // All processes of the folder have it.
        EXPECT_EQ(inChild([] {
                      ozudb_getSharedMemory(0)->powerManagerMode = 5;
                      return 0;
                  }),
                  0);
        EXPECT_EQ(state->powerManagerMode, 5U);
        EXPECT_EQ(contentOf(victim), "precious");
        ASSERT_EQ(remove(planted.c_str()), 0);
        boot();
    }
}

TEST_F(OtherUsers, draftsNameIsNobodysToTake) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    planted = segment() + ".new";
    boot();
    asOtherUser([&] { return mkdir(planted.c_str(), 0777); });
    EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
}

TEST_F(OtherUsers, segmentThatAllMayWriteIsClosedToThem) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    ASSERT_EQ(chmod(segment().c_str(), 0666), 0);
    closePlatform();
    EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
    struct stat found {};
    ASSERT_EQ(stat(segment().c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0660U);
}

// ---- the identity
// -------------------------------------------------------------------------------------------------------

// However the file changes while the panel runs: who starts then finds the others, and says so.
TEST_F(SegmentTest, identityIsThatOfTheRunningPanel) {
    PanelSharedState *state = ozudb_getSharedMemory(0);
    ASSERT_NE(state, nullptr);
    const std::string own = segment();
    const std::string identity = contentOf(folder() + "/identity");
    for (const char *damage : {"", "\n", "0123", "zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz\n", "missing",
                               "0123456789abcdef0123456789abcdef\n"}) {
        if (std::string(damage) == "missing") {
            ASSERT_EQ(remove((folder() + "/identity").c_str()), 0);
        } else {
            rewriteFile(folder() + "/identity", damage);
        }
        std::string file;
        EXPECT_EQ(segmentFile(file), 0) << damage;
        EXPECT_EQ(file, own) << damage;
        const std::string said = folder() + "/said";
        EXPECT_EQ(inChild([&] {
                      static_cast<void>(!freopen(said.c_str(), "w", stderr));
                      closePlatform();
                      LOG_system_event(1, "x"); // the database comes first at a process's start
                      PanelSharedState *theirs = ozudb_getSharedMemory(0);
                      if (theirs == nullptr) {
                          return 1;
                      }
                      ++theirs->powerManagerMode;
                      return 0;
                  }),
                  0)
            << damage;
        EXPECT_EQ(state->powerManagerMode, 1U) << damage;
        state->powerManagerMode = 0;
        EXPECT_THAT(contentOf(said), AllOf(HasSubstr(" 80000 C "), HasSubstr("identity"))) << damage;
        EXPECT_EQ(contentOf(folder() + "/identity"), identity) << damage;
    }
}

TEST_F(SegmentTest, damagedIdentityWithoutARunningPanelIsMadeAnew) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    ASSERT_EQ(ozudb_ModifyBypassExpiry(9, 1, 1234), 0);
    boot();
    rewriteFile(folder() + "/identity", "");
    ozu::test::captureStderr();
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    EXPECT_THAT(ozu::test::capturedStderr(), HasSubstr("was empty or damaged"));
    EXPECT_EQ(ozudb_getSharedMemory(0)->zones[9].bypass[0].bypassExpiry, 1234U);
}

TEST_F(SegmentTest, copyOfAFolderWithoutItsIdentityIsAnotherPanel) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    ASSERT_EQ(ozudb_ModifyBypassExpiry(9, 1, 1234), 0);
    const std::string first = segment();
    const std::string firstFolder = folder();
    closePlatform();
    PanelFolder::SetUp();
    for (const char *suffix : {"", "-wal"}) {
        rewriteFile(databaseFile() + suffix, contentOf(firstFolder + "/ozu.db" + suffix));
        chmod((databaseFile() + suffix).c_str(), 0600);
    }
    ozu::test::captureStderr();
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    EXPECT_EQ(ozu::test::capturedStderr(), "");
    EXPECT_NE(segment(), first);
    EXPECT_EQ(ozudb_getSharedMemory(0)->zones[9].bypass[0].bypassExpiry, 1234U);
    removeWithSegments(firstFolder);
}

// Also with its identity, or with that of another panel: nobody joins a record that is not his folder's.
TEST_F(SegmentTest, identityOfAnotherRunningPanelIsNotUsed) {
    PanelSharedState *state = ozudb_getSharedMemory(0);
    ASSERT_NE(state, nullptr);
    ASSERT_EQ(ozudb_ModifyBypassExpiry(9, 1, 1234), 0);
    const std::string first = segment();
    const std::string firstFolder = folder();
    const std::string identity = contentOf(firstFolder + "/identity");
    closePlatform();
    PanelFolder::SetUp();
    for (const char *name : {"/identity", "/ozu.db", "/ozu.db-wal"}) {
        rewriteFile(folder() + name, contentOf(firstFolder + name));
        chmod((folder() + name).c_str(), 0600);
    }
    const PanelSharedState *view = nullptr;
    std::string why;
    EXPECT_EQ(attachState(view, why), kNoSharedRecord); // tools show nobody else's record either
    std::string file;
    EXPECT_EQ(segmentFile(file), kNotFound);
    ozu::test::captureStderr();
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    EXPECT_THAT(ozu::test::capturedStderr(), AllOf(HasSubstr(" 80000 C "), HasSubstr("identity")));
    ozudb_getSharedMemory(0)->powerManagerMode = 5;
    EXPECT_EQ(state->powerManagerMode, 0U);
    EXPECT_NE(segment(), first);
    EXPECT_NE(contentOf(folder() + "/identity"), identity);
    EXPECT_EQ(contentOf(firstFolder + "/identity"), identity);
    EXPECT_EQ(ozudb_getSharedMemory(0)->zones[9].bypass[0].bypassExpiry, 1234U);
    removeWithSegments(firstFolder);
}

TEST_F(SegmentTest, toolsSeeTheRecordWithoutMakingIt) {
    const PanelSharedState *view = nullptr;
    std::string why;
    EXPECT_EQ(attachState(view, why), kNoSharedRecord);
    EXPECT_THAT(why, HasSubstr("no panel process has run"));
    std::string file;
    EXPECT_EQ(segmentFile(file), kNotFound);
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    ASSERT_EQ(attachState(view, why), 0);
    ozudb_getSharedMemory(0)->cBankModeActive = 1;
    EXPECT_EQ(view->cBankModeActive, 1);
}

TEST_F(SegmentTest, aToolThatOnlyLooksMakesNothing) {
    std::vector<SystemEvent> events;
    openOnly(true);
    EXPECT_EQ(ozudb_getSharedMemory(0), nullptr);
    EXPECT_EQ(readEvents(0, 10, events), kNothingThere);
    EXPECT_EQ(updateState([](PanelSharedState &) {}), kNothingThere);
    std::string file;
    EXPECT_EQ(segmentFile(file), kNotFound);
    EXPECT_NE(access(databaseFile().c_str(), F_OK), 0);
    openOnly(false);
    EXPECT_EQ(readEvents(0, 10, events), 0);
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    closePlatform();
    openOnly(true);
    EXPECT_EQ(readEvents(0, 10, events), 0);
    EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
    openOnly(false);
}

TEST_F(SegmentTest, recordThatExistsIsOfUseWithoutTheDatabase) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    closePlatform();
    rewriteFile(databaseFile(), std::string(4096, 'x'));
    EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
    unsigned char inFlight = 9;
    EXPECT_EQ(ozudb_isInFlightData(&inFlight), 0);
    EXPECT_EQ(inFlight, 0);
    EXPECT_EQ(ozudb_ModifyBypassExpiry(1, 1, 5), kCorrupt);
}

// A panel must start even with a database beyond repair: the file is kept for analysis.
TEST_F(SegmentTest, databaseBeyondRepairIsSetAsideAtTheNextBoot) {
    for (const std::string &rubbish : {std::string(4096, 'x'), std::string(8192, '\0'), std::string(100, 'x'),
                                       std::string("SQLite format 3")}) {
        ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
        closePlatform();
        rewriteFile(databaseFile(), rubbish);
        boot();
        ozu::test::captureStderr();
        std::array<char, 8> severity{};
        EXPECT_EQ(ozudb_getSeverityNameByProcName(severity.data(), 8, "alarmd"), 0); // comes first at a start
        EXPECT_NE(ozudb_getSharedMemory(0), nullptr);
        EXPECT_THAT(ozu::test::capturedStderr(),
                    AllOf(HasSubstr(" 80000 C "), HasSubstr("ozu.db.damaged"), HasSubstr("all its tables")));
        EXPECT_EQ(contentOf(databaseFile() + ".damaged"), rubbish);
        EXPECT_EQ(ozudb_ModifyBypassExpiry(1, 1, 5), 0);
        EXPECT_EQ(LOG_system_event(1, "x"), 0);
    }
}

TEST_F(SegmentTest, changedLastingFieldsAreStored) {
    ASSERT_EQ(updateState([](PanelSharedState &state) {
                  state.zones[4].bypass[0] = {1, 77};
                  state.modemStatistics[1].counter[7] = 9;
                  state.partitions[0].partitionState = 2;
              }),
              0);
    EXPECT_EQ(ozudb_getSharedMemory(0)->partitions[0].partitionState, 2U);
    boot();
    const PanelSharedState *state = ozudb_getSharedMemory(0);
    EXPECT_EQ(state->zones[4].bypass[0].bypassExpiry, 77U);
    EXPECT_EQ(state->modemStatistics[1].counter[7], 9);
    EXPECT_EQ(state->partitions[0].partitionState, 1U);
}

TEST_F(SegmentTest, throwingChangeLeavesTheRecordAlone) {
    EXPECT_EQ(updateState([](PanelSharedState &state) {
                  state.partitions[0].partitionState = 2;
                  throw std::runtime_error("on purpose");
              }),
              kInternal);
    EXPECT_EQ(ozudb_getSharedMemory(0)->partitions[0].partitionState, 1U);
    EXPECT_EQ(updateState(nullptr), kInvalidArgument);
}

TEST_F(SegmentTest, writerKilledInAChangeIsUndone) {
    SKIP_WITHOUT_ROBUST_LOCKS();
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    ASSERT_EQ(inChild([] {
                  return updateState([](PanelSharedState &state) {
                      state.partitions[0].partitionState = 2;
                      raise(SIGKILL);
                  });
              }),
              -SIGKILL);
    EXPECT_EQ(ozudb_getSharedMemory(0)->partitions[0].partitionState, 2U); // until somebody writes
    ASSERT_EQ(ozudb_ModifyBypassExpiry(1, 1, 5), 0);
    EXPECT_EQ(ozudb_getSharedMemory(0)->partitions[0].partitionState, 1U);
    EXPECT_EQ(ozudb_getSharedMemory(0)->zones[1].bypass[0].bypassed, 1);
    ASSERT_EQ(ozudb_ModifyBypassExpiry(1, 0, -1), 0);
}

TEST_F(SegmentTest, writersWaitForEachOther) {
    ASSERT_NE(ozudb_getSharedMemory(0), nullptr);
    std::vector<pid_t> children;
    for (int process = 0; process < 4; ++process) {
        children.push_back(startChild([] {
            for (int i = 0; i < 500; ++i) {
                updateState([](PanelSharedState &state) { ++state.devices[1].rfId; });
            }
            return 0;
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(waitForChild(child), 0);
    }
    EXPECT_EQ(ozudb_getSharedMemory(0)->devices[1].rfId, 2000U);
}

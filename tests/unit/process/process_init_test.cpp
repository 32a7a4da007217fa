#include <utils_ozu/process.h>

#include "process_test.h"

#include <unistd.h>

#include <vector>

namespace {

std::vector<void (*)()> registered;

class ProcessInit : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        registered.clear();
        cleanup();
        platform().journal.clear();
    }
};

std::string addProc(const char *severity) {
    return "ozudb_addProc2Log(\"alarmd\", \"" + std::string(severity) + "\", " + std::to_string(getpid()) +
           ")";
}

} // namespace

extern "C" int __wrap_atexit(void (*handler)()) {
    registered.push_back(handler);
    platform().journal.emplace_back("atexit()");
    return 0;
}

TEST_F(ProcessInit, runsTheWholeSequenceInOrder) {
    int argument = 0;
    EXPECT_EQ(ozuutils_processInit("alarmd", &argument), 0);
    std::ostringstream pointer;
    pointer << static_cast<void *>(&argument);
    EXPECT_THAT(platform().journal,
                ElementsAre("atexit()", "ozudb_getSeverityNameByProcName(8, \"alarmd\")", addProc("INFO"),
                            "ozulog_init(\"alarmd\")",
                            "mqttc_connect(\"127.0.0.1\", 1883, \"alarmd\", " + pointer.str() + ")",
                            "ozumqttc_topicSubscribe(\"Multicast/WIFI_SYSLOG_APPENDER_STATE\")"));
    EXPECT_THAT(registered, ElementsAre(&cleanup));
}

TEST_F(ProcessInit, secondCallOnlyWarns) {
    ASSERT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    platform().journal.clear();
    EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    EXPECT_THAT(platform().journal,
                ElementsAre("log 50000 ozuutils_processInit function should be called once only"));
    EXPECT_THAT(platform().log,
                ElementsAre(extended(50000, "ozuutils_processInit function should be called once only",
                                     "ozuutils_processInit")));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_EQ(registered.size(), 1u);
}

struct FailingStep {
    const char *function;
    const char *text;
    std::size_t calls; // made before the sequence stops, atexit included
};

// Keeps the names of the instances free of addresses.
void PrintTo(const FailingStep &step, std::ostream *out) {
    *out << step.function;
}

class ProcessInitFailure : public ProcessInit, public testing::WithParamInterface<FailingStep> {};

TEST_P(ProcessInitFailure, stopsAndMayBeRepeated) {
    const auto &step = GetParam();
    platform().results[step.function] = -17;
    EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), -17);
    EXPECT_EQ(platform().calls().size(), step.calls);
    EXPECT_THAT(platform().log, ElementsAre(extended(80000, step.text, "ozuutils_processInit")));
    EXPECT_NE(platform().log[0].format, "%s");

    platform().results.clear();
    platform().journal.clear();
    EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    EXPECT_EQ(platform().calls().size(), 6u);
    EXPECT_EQ(registered.size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(Steps, ProcessInitFailure,
                         testing::Values(FailingStep{"ozudb_getSeverityNameByProcName",
                                                     "ozudb_getSeverityNameByProcName returned: -17", 2},
                                         FailingStep{"ozudb_addProc2Log", "ozudb_addProc2Log returned: -17",
                                                     3},
                                         FailingStep{"ozulog_init", "OZULOG_INIT returned: -17", 4},
                                         FailingStep{"mqttc_connect", "mqttc_connect returned: -17", 5}),
                         [](const auto &instance) { return std::string(instance.param.function); });

TEST_F(ProcessInit, failedSubscriptionCountsAsStarted) {
    platform().results["ozumqttc_topicSubscribe"] = 5;
    EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 5);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(80000, "ozumqttc_topicSubscribe returned: 5", "ozuutils_processInit")));
    platform().journal.clear();
    EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    EXPECT_THAT(platform().journal,
                ElementsAre("log 50000 ozuutils_processInit function should be called once only"));
}

TEST_F(ProcessInit, severityNameOfEightBytesStaysTerminated) {
    platform().severityName = "CRITICALLY";
    EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    EXPECT_THAT(platform().journal, Contains(addProc("CRITICAL")));
}

TEST_F(ProcessInit, nameThatTheDatabaseDoesNotTerminateIsCleared) {
    for (const char *name : {"INFO", "", "WARNING"}) {
        cleanup();
        platform().journal.clear();
        platform().severityName = name; // these bytes and no more
        EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
        EXPECT_THAT(platform().journal, Contains(addProc(name)));
    }
}

TEST_F(ProcessInit, argumentsAreHandedOnUnread) {
    auto *unreadable = reinterpret_cast<void *>(1);
    EXPECT_EQ(ozuutils_processInit(nullptr, unreadable), 0);
    EXPECT_THAT(platform().journal, Contains("ozudb_getSeverityNameByProcName(8, null)"));
    EXPECT_THAT(platform().journal, Contains("ozulog_init(null)"));
    EXPECT_THAT(platform().journal, Contains("mqttc_connect(\"127.0.0.1\", 1883, null, 0x1)"));
}

TEST_F(ProcessInit, eachAttemptRegistersTheHandlerOnceMore) {
    platform().results["mqttc_connect"] = 21;
    for (std::size_t attempt = 1; attempt <= 3; ++attempt) {
        EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 21);
        EXPECT_EQ(registered.size(), attempt);
    }
    // Nothing is rolled back, and the handler of every attempt may run.
    EXPECT_EQ(platform().callCount("mqttc_disconnect"), 0);
    for (auto *handler : registered) {
        handler();
    }
    EXPECT_EQ(platform().callCount("mqttc_disconnect"), 3);
}

TEST_F(ProcessInit, cleanupForgetsTheStartBeforeItDisconnects) {
    ASSERT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    platform().journal.clear();
    platform().onCall["mqttc_disconnect"] = [] { EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0); };
    cleanup();
    // A start within the disconnection is a real one, not a refused second one.
    EXPECT_THAT(platform().log, IsEmpty());
    EXPECT_EQ(platform().callCount("mqttc_connect"), 1);
}

TEST_F(ProcessInit, countsAsStartedOnlyAfterTheSubscription) {
    bool within = false;
    platform().onCall["ozumqttc_topicSubscribe"] = [&within] {
        if (!within) {
            within = true;
            EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
        }
    };
    EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    EXPECT_TRUE(within);
    EXPECT_THAT(platform().log, IsEmpty());
    EXPECT_EQ(platform().callCount("ozumqttc_topicSubscribe"), 2);
}

TEST_F(ProcessInit, cleanupDisconnectsAndAllowsANewStart) {
    ASSERT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    platform().journal.clear();
    cleanup();
    cleanup();
    EXPECT_THAT(platform().journal, ElementsAre("mqttc_disconnect()", "mqttc_disconnect()"));
    EXPECT_EQ(ozuutils_processInit("alarmd", nullptr), 0);
    EXPECT_EQ(platform().callCount("mqttc_connect"), 1);
}

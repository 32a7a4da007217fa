// The fake platform as our own unit tests see it: what happened and what it answers, in C++ terms.
//
// One FakePlatform exists; PlatformTest resets it before each test and checks after it that the test left no
// descriptor and no child behind (set expectedDescriptors / expectedChildren where a function must).
#pragma once

#include <ozudb.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ozu::test {

enum class LogKind { Extended, Short, Remote };

struct LogLine {
    int level = 0;
    std::string text;     // formatted
    std::string function; // empty for lines without position
    std::string source;
    std::string format;
    LogKind kind = LogKind::Extended;
    int line = 0;
};

struct PublishedMessage {
    std::string topic;
    std::string label;
    int messageClass = 0;
    int command = 0;
    unsigned int length = 0;
    bool nullPayload = false;
    std::string payload; // length bytes
};

struct FakePlatform {
    // What happened, in order: platform calls as "name(argument, ...)" with texts in double quotes, and log
    // lines as "log LEVEL TEXT". Tests may add entries of their own, e.g. from wrapped C library calls.
    std::vector<std::string> journal;
    std::vector<LogLine> log;
    std::vector<PublishedMessage> published;

    // The shared record; ozudb_getSharedMemory() returns null while stateMissing is set, and the test's own
    // record once there is one.
    PanelSharedState state = {};
    bool stateMissing = false;
    PanelSharedState *record = nullptr;

    // Results by function name: queued ones first, then the fixed one, then 0.
    std::map<std::string, std::deque<int>> queuedResults;
    std::map<std::string, int> results;
    // Runs when a platform function is entered, e.g. to change the state under the library's hands.
    std::map<std::string, std::function<void()>> onCall;

    std::string severityName = "INFO";  // bytes handed to ozudb_getSeverityNameByProcName
    std::deque<unsigned char> inFlight; // successive answers of ozudb_isInFlightData, then 0
    std::map<int, int> tagReaders, rfInputs, rfDetectors; // answers by device index, otherwise 0

    int enter(const std::string &name, const std::string &arguments);
    // Journal entries that are not log lines.
    [[nodiscard]] std::vector<std::string> calls() const;
    // Entries of calls() whose function has this name.
    [[nodiscard]] int callCount(const std::string &name) const;
};

FakePlatform &platform();

// One log line as the tests write it down.
LogLine extended(int level, const std::string &text, const std::string &function,
                 const std::string &source = "src/utils");
LogLine shortLine(int level, const std::string &text);
LogLine remote(int level, const std::string &text);
// Equal in kind, level, text, source and function.
bool operator==(const LogLine &a, const LogLine &b);
std::ostream &operator<<(std::ostream &out, const LogLine &line);

class PlatformTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    int expectedDescriptors = 0; // left open by the test on purpose
    int expectedChildren = 0;

  private:
    int descriptorsBefore_ = 0;
    int childrenBefore_ = 0;
};

} // namespace ozu::test

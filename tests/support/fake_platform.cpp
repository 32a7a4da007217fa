#include "fake_platform.h"

#include "resource_count.h"

#include <ozu_fake_platform.h>

#include <algorithm>
#include <ostream>

namespace ozu::test {

namespace {

int answer(const std::map<int, int> &answers, const OzuFakeEntry &call) {
    const auto found = answers.find(std::stoi(call.arguments));
    return found == answers.end() ? 0 : found->second;
}

LogLine lineOf(const OzuFakeEntry &call) {
    static constexpr LogKind kKinds[] = {LogKind::Extended, LogKind::Extended, LogKind::Short,
                                         LogKind::Remote};
    return {call.level,           call.text, call.functionName, call.sourceFile, call.format,
            kKinds[call.logKind], call.line};
}

void noteLine(const OzuFakeEntry &call) {
    platform().journal.push_back("log " + std::to_string(call.level) + " " + call.text);
    platform().log.push_back(lineOf(call));
    if (const auto hook = platform().onCall.find(call.function); hook != platform().onCall.end()) {
        hook->second();
    }
}

void notePublication(const OzuFakeEntry &call) {
    PublishedMessage message{call.topic,
                             call.senderLabel,
                             call.messageClass,
                             call.command,
                             call.payloadLength,
                             call.payload == nullptr,
                             {}};
    if (call.payload != nullptr) {
        message.payload.assign(static_cast<const char *>(call.payload), call.payloadLength);
    }
    platform().published.push_back(std::move(message));
}

// Hands the answers that tests write into FakePlatform over to the fake platform, just before it gives them.
void arrange(const std::string &function) {
    FakePlatform &own = platform();
    if (function == "ozudb_getSharedMemory") {
        PanelSharedState *record = own.record != nullptr ? own.record : &own.state;
        ozu_fake_use_state(own.stateMissing ? nullptr : record);
    } else if (function == "ozudb_getSeverityNameByProcName") {
        ozu_fake_severity(own.severityName.c_str());
    } else if (function == "ozudb_isInFlightData") {
        ozu_fake_in_flight(!own.inFlight.empty() && own.inFlight.front() != 0 ? 1 : 0);
        if (!own.inFlight.empty()) {
            own.inFlight.pop_front();
        }
    }
}

void note(OzuFakeEntry *call, void *) {
    const std::string function = call->function;
    if (call->logKind != OZU_FAKE_NO_LOG) {
        noteLine(*call);
        return;
    }
    if (function == "ozumqttc_messagePublish") {
        notePublication(*call);
    }
    call->result = platform().enter(function, call->arguments);
    if (function == "ozudb_isTagReader") {
        call->result = answer(platform().tagReaders, *call);
    } else if (function == "ozudb_isRfInput") {
        call->result = answer(platform().rfInputs, *call);
    } else if (function == "ozudb_isRfDetector") {
        call->result = answer(platform().rfDetectors, *call);
    }
    arrange(function);
}

// Everything is noted here, in C++ terms; the fake platform itself keeps nothing.
[[maybe_unused]] const bool kListening = [] {
    ozu_fake_record(0);
    ozu_fake_hook(note, nullptr);
    return true;
}();

} // namespace

FakePlatform &platform() {
    static FakePlatform instance;
    return instance;
}

int FakePlatform::enter(const std::string &name, const std::string &arguments) {
    journal.push_back(name + "(" + arguments + ")");
    if (const auto hook = onCall.find(name); hook != onCall.end()) {
        hook->second();
    }
    if (auto &queue = queuedResults[name]; !queue.empty()) {
        const int result = queue.front();
        queue.pop_front();
        return result;
    }
    const auto fixed = results.find(name);
    return fixed == results.end() ? 0 : fixed->second;
}

std::vector<std::string> FakePlatform::calls() const {
    std::vector<std::string> found;
    std::copy_if(journal.begin(), journal.end(), std::back_inserter(found),
                 [](const std::string &entry) { return entry.rfind("log ", 0) != 0; });
    return found;
}

int FakePlatform::callCount(const std::string &name) const {
    return static_cast<int>(std::count_if(journal.begin(), journal.end(), [&](const std::string &entry) {
        return entry.rfind(name + "(", 0) == 0;
    }));
}

LogLine extended(int level, const std::string &text, const std::string &function, const std::string &source) {
    return {level, text, function, source, "", LogKind::Extended, 0};
}

LogLine shortLine(int level, const std::string &text) {
    return {level, text, "", "", "", LogKind::Short, 0};
}

LogLine remote(int level, const std::string &text) {
    return {level, text, "", "", "", LogKind::Remote, 0};
}

bool operator==(const LogLine &a, const LogLine &b) {
    return a.kind == b.kind && a.level == b.level && a.text == b.text && a.source == b.source &&
           a.function == b.function;
}

std::ostream &operator<<(std::ostream &out, const LogLine &line) {
    static constexpr const char *kKinds[] = {"extended", "short", "remote"};
    return out << kKinds[static_cast<int>(line.kind)] << ' ' << line.level << ' ' << line.source << ' '
               << line.function << " \"" << line.text << '"';
}

void PlatformTest::SetUp() {
    platform() = FakePlatform();
    descriptorsBefore_ = openDescriptors();
    childrenBefore_ = children();
}

void PlatformTest::TearDown() {
    EXPECT_EQ(openDescriptors() - descriptorsBefore_, expectedDescriptors) << "descriptors left open";
    EXPECT_EQ(children() - childrenBefore_, expectedChildren) << "children left";
}

} // namespace ozu::test

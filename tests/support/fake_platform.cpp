#include "fake_platform.h"

#include "resource_count.h"

#include <messenger.h>
#include <mqttc.h>
#include <ozulog.h>
#include <product_info.h>
#include <system_event_log.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <sstream>

namespace ozu::test {

namespace {

std::string quoted(const char *text) {
    return text == nullptr ? "null" : '"' + std::string(text) + '"';
}

template <typename... Arguments>
std::string list(const Arguments &...arguments) {
    std::ostringstream out;
    const char *separator = "";
    ((out << separator << arguments, separator = ", "), ...);
    return out.str();
}

std::string formatted(const char *format, va_list arguments) {
    va_list copy;
    va_copy(copy, arguments);
    const int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

int record(LogLine line, const char *entry) {
    platform().journal.push_back("log " + std::to_string(line.level) + " " + line.text);
    platform().log.push_back(std::move(line));
    if (const auto hook = platform().onCall.find(entry); hook != platform().onCall.end()) {
        hook->second();
    }
    return 0;
}

int answer(const std::map<int, int> &answers, int index) {
    const auto found = answers.find(index);
    return found == answers.end() ? 0 : found->second;
}

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

using ozu::test::answer;
using ozu::test::formatted;
using ozu::test::list;
using ozu::test::LogKind;
using ozu::test::platform;
using ozu::test::quoted;

extern "C" {

PanelSharedState *ozudb_getSharedMemory(int reserved) {
    platform().enter("ozudb_getSharedMemory", list(reserved));
    if (platform().stateMissing) {
        return nullptr;
    }
    return platform().record != nullptr ? platform().record : &platform().state;
}

int ozudb_getSeverityNameByProcName(char *out, int outSize, const char *processName) {
    const int result =
        platform().enter("ozudb_getSeverityNameByProcName", list(outSize, quoted(processName)));
    const auto &name = platform().severityName;
    memcpy(out, name.data(), std::min(name.size(), static_cast<std::size_t>(outSize)));
    return result;
}

int ozudb_addProc2Log(const char *processName, const char *severityName, pid_t pid) {
    return platform().enter("ozudb_addProc2Log", list(quoted(processName), quoted(severityName), pid));
}

int ozudb_updatePanelRebootReason(int reason) {
    return platform().enter("ozudb_updatePanelRebootReason", list(reason));
}

int ozudb_isInFlightData(unsigned char *inFlight) {
    const int result = platform().enter("ozudb_isInFlightData", "");
    auto &answers = platform().inFlight;
    *inFlight = answers.empty() ? 0 : answers.front();
    if (!answers.empty()) {
        answers.pop_front();
    }
    return result;
}

int ozudb_ModifyModemStatistics(uint16_t c1, uint16_t c2, uint16_t c3, uint16_t c4, uint16_t c5, uint16_t c6,
                                uint16_t c7, uint16_t c8, int modemIndex) {
    return platform().enter("ozudb_ModifyModemStatistics", list(c1, c2, c3, c4, c5, c6, c7, c8, modemIndex));
}

int ozudb_ModifyBypassExpiry(int zoneIndex, int bypassed, int expiry) {
    return platform().enter("ozudb_ModifyBypassExpiry", list(zoneIndex, bypassed, expiry));
}

int ozudb_isTagReader(int deviceIndex) {
    platform().enter("ozudb_isTagReader", list(deviceIndex));
    return answer(platform().tagReaders, deviceIndex);
}

int ozudb_isRfInput(int deviceIndex) {
    platform().enter("ozudb_isRfInput", list(deviceIndex));
    return answer(platform().rfInputs, deviceIndex);
}

int ozudb_isRfDetector(int deviceIndex) {
    platform().enter("ozudb_isRfDetector", list(deviceIndex));
    return answer(platform().rfDetectors, deviceIndex);
}

int ozulog_init(const char *processName) {
    return platform().enter("ozulog_init", quoted(processName));
}

int ozulog_printf(int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    return ozu::test::record({level, text, "", "", format, LogKind::Short, 0}, "ozulog_printf");
}

int ozulog_printf_extend(int level, const char *format, const char *sourceFile, const char *functionName,
                         int line, ...) {
    va_list arguments;
    va_start(arguments, line);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    return ozu::test::record({level, text, functionName, sourceFile, format, LogKind::Extended, line},
                             "ozulog_printf_extend");
}

int ozulog_printf_mqtt_transmission(int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    return ozu::test::record({level, text, "", "", format, LogKind::Remote, 0},
                             "ozulog_printf_mqtt_transmission");
}

int mqttc_connect(const char *host, int port, const char *clientName, void *mqttArg) {
    return platform().enter("mqttc_connect", list(quoted(host), port, quoted(clientName), mqttArg));
}

void mqttc_disconnect(void) {
    platform().enter("mqttc_disconnect", "");
}

int ozumqttc_topicSubscribe(const char *topic) {
    return platform().enter("ozumqttc_topicSubscribe", quoted(topic));
}

int ozumqttc_messagePublish(const char *topic, unsigned int payloadLength, const char *senderLabel,
                            int messageClass, int command, const void *payload) {
    ozu::test::PublishedMessage message{topic,
                                        senderLabel == nullptr ? "" : senderLabel,
                                        messageClass,
                                        command,
                                        payloadLength,
                                        payload == nullptr,
                                        {}};
    if (payload != nullptr) {
        message.payload.assign(static_cast<const char *>(payload), payloadLength);
    }
    platform().published.push_back(message);
    return platform().enter("ozumqttc_messagePublish",
                            list(quoted(topic), payloadLength, quoted(senderLabel), messageClass, command,
                                 payload == nullptr ? "null" : "payload"));
}

int LOG_system_event(int category, const char *text) {
    return platform().enter("LOG_system_event", list(category, quoted(text)));
}

int limited_log_system_event(int category, int subtype, const char *text) {
    return platform().enter("limited_log_system_event", list(category, subtype, quoted(text)));
}

int MESSENGER_SendTBBEvent(int deviceIndex, int deviceType, int eventClass, int eventCode, int partition,
                           int input, int user) {
    return platform().enter("MESSENGER_SendTBBEvent",
                            list(deviceIndex, deviceType, eventClass, eventCode, partition, input, user));
}

int getProductCodename(void) {
    return platform().enter("getProductCodename", "");
}

} // extern "C"

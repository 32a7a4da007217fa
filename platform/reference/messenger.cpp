// messenger.h: events of devices, sent to every panel process over the bus.

#include <messenger.h>

#include "errors.h"
#include "mqtt_session.h"

#include <spdlog/fmt/fmt.h>

using namespace ozu::platform;

namespace {

constexpr const char *kEventTopic = "Multicast/TBB_EVENT";
constexpr const char *kEventLabel = "MESSENGER";

} // namespace

extern "C" int MESSENGER_SendTBBEvent(int deviceIndex, int deviceType, int eventClass, int eventCode,
                                      int partition, int input, int user) {
    return guarded(__func__, [&]() -> int {
        const std::string payload = fmt::format(
            R"({{"device":{},"type":{},"class":{},"code":{},"partition":{},"input":{},"user":{}}})",
            deviceIndex, deviceType, eventClass, eventCode, partition, input, user);
        return publishOnSession({kEventTopic, kEventLabel, eventClass, eventCode,
                                 std::vector<unsigned char>(payload.begin(), payload.end())});
    });
}

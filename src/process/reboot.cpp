// Coordinated reboot: all processes are notified, persistent state is stored, unsent messages are waited for.

#include <utils_ozu/reboot.h>

#include <base/log.h>
#include <base/panel_state.h>

#include <mqttc.h>
#include <ozudb.h>
#include <unistd.h>
#include <utils_ozu/messages.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

constexpr int kProgressEverySeconds = 5;
constexpr unsigned int kForcePollSeconds = 10;
constexpr std::int64_t kForceAfterSeconds = 60;

// One object for all askings of a wait: a database that fails to answer leaves the last answer standing.
class InFlightQuestion {
  public:
    bool ask() noexcept {
        static_cast<void>(ozudb_isInFlightData(&inFlight_));
        return inFlight_ != 0;
    }

  private:
    unsigned char inFlight_ = 0;
};

bool powerManagerTakesPart(const PanelSharedState &state) noexcept {
    const std::uint32_t mode = ozu::readOnce(state.powerManagerMode);
    return mode == 5 || mode == 1;
}

void countReboot(const PanelModemStatistics &record, int modemIndex) noexcept {
    std::array<std::uint16_t, OZUDB_MODEM_COUNTERS> c = {};
    for (std::size_t i = 0; i < c.size(); ++i) {
        c[i] = ozu::readOnce(record.counter[i]);
    }
    const auto reboots = static_cast<std::uint16_t>(c[1] + 1);
    static_cast<void>(
        ozudb_ModifyModemStatistics(c[0], reboots, c[2], c[3], c[4], c[5], c[6], c[7], modemIndex));
}

// Its result decides nothing: a command that failed is repeated or forced later.
void run(const char *command) noexcept {
    [[maybe_unused]] const int status = system(command);
}

int WaitForUnsentDataBeforeReboot(int extraWaitSeconds) noexcept {
    InFlightQuestion question;
    bool inFlight = question.ask();
    if (!inFlight) {
        return 1;
    }
    int nextProgress = 0;
    for (int i = 0; i < extraWaitSeconds && inFlight; ++i) {
        if (i == nextProgress) {
            nextProgress += kProgressEverySeconds;
            OZU_LOG_SHORT(OZULOG_NOTICE,
                          "RebootSystem: Additional waiting for unsent messages to be sent (+%ds)", i);
        }
        sleep(1);
        inFlight = question.ask();
    }
    if (inFlight) {
        OZU_LOG_TEXT(OZULOG_ERROR, "RebootSystem: Timeout while waiting for unsent messages! The "
                                   "system will reboot now with unsent messages!");
        return 0;
    }
    OZU_LOG_SHORT(OZULOG_NOTICE, "%s",
                  "RebootSystem: All messages have been sent. The system will reboot now ...");
    return 1;
}

} // namespace

void ozuutils_RebootSystem(unsigned int delaySeconds, int rebootReason, int extraWaitSeconds,
                           const char *reasonText) noexcept {
    const PanelSharedState *state = ozu::panelState();
    const char *reason = reasonText == nullptr ? "" : reasonText;
    OZU_LOG_SHORT(OZULOG_NOTICE, "REBOOT CP, boot reason = %d, [%s]", rebootReason, reason);

    if (state != nullptr && powerManagerTakesPart(*state)) {
        const std::uint8_t payload = 0;
        const int rc = ozumqttc_messagePublish(OZU_TOPIC_POWER_MANAGER, sizeof(payload), "",
                                               OZU_MESSAGE_POWER_MANAGER_CLASS,
                                               OZU_MESSAGE_POWER_MANAGER_REBOOT, &payload);
        if (rc != 0) {
            OZU_LOG(OZULOG_ERROR, "MQTT message publish failed with code: %d", rc);
        }
    }
    if (*reason != '\0') {
        const int rc = ozudb_updatePanelRebootReason(rebootReason);
        if (rc != 0) {
            OZU_LOG(OZULOG_ERROR, "Failed to update DB with the reason, code: %d", rc);
        }
    }
    static_cast<void>(ozumqttc_messagePublish(OZU_TOPIC_ALL, 0, "LTE", OZU_MESSAGE_REBOOT_CLASS,
                                              OZU_MESSAGE_REBOOT_COMMAND, ""));

    OZU_LOG(OZULOG_INFO, "System reset will begin after [%2u] seconds", delaySeconds);
    sleep(delaySeconds);

    if (state != nullptr) {
        countReboot(state->modemStatistics[1], 0);
        countReboot(state->modemStatistics[0], 1);
    }
    WaitForUnsentDataBeforeReboot(extraWaitSeconds);
    run("sync; reboot");

    const std::int64_t start = time(nullptr);
    for (;;) {
        OZU_LOG_TEXT(OZULOG_WARNING, "Waiting for Linux reboot...");
        sleep(kForcePollSeconds);
        if (time(nullptr) - start > kForceAfterSeconds) {
            OZU_LOG_TEXT(OZULOG_WARNING, "Force reboot ...");
            run("reboot -idf");
        }
    }
}

int WaitForUnsentData(int maxSeconds) noexcept {
    InFlightQuestion question;
    bool inFlight = question.ask();
    for (int i = 0; i < maxSeconds && inFlight; ++i) {
        sleep(1);
        inFlight = question.ask();
    }
    return inFlight ? 0 : 1;
}

void request_CP_reboot_from() noexcept {
    // The record has seven bytes, of which the receiver reads two: command and argument.
    static constexpr std::array<std::uint8_t, 7> kRequest = {OZU_MDL_REBOOT, 1};
    if (ozumqttc_messagePublish(OZU_TOPIC_MDL, kRequest.size(), "RSU", OZU_MESSAGE_CP_REBOOT_CLASS,
                                OZU_MESSAGE_CP_REBOOT_COMMAND, kRequest.data()) != 0) {
        OZU_LOG_TEXT(OZULOG_ERROR, "ozumqttc_messagePublish \n");
    }
}

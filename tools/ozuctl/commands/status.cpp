// ozuctl status: what the panel state queries answer now.

#include "commands/commands.h"
#include "state_fields.h"

#include <utils_ozu/names.h>
#include <utils_ozu/state.h>

#include <ctime>

namespace ozuctl {

namespace {

struct PanelQuery {
    const char *name;
    int (*ask)();
    std::string (*meaning)(int answer);
};

std::string yesOrNo(int answer) {
    return answer != 0 ? "yes" : "no";
}

std::string armTypeName(int answer) {
    static constexpr const char *kNames[] = {"FULL",
                                             "DAY",
                                             "NIGHT",
                                             "PERIMETER",
                                             "ANNEX",
                                             "DISARMED",
                                             "FULL+PERIMETER",
                                             "DAY+PERIMETER",
                                             "NIGHT+PERIMETER",
                                             "FULL+ANNEX",
                                             "DAY+ANNEX",
                                             "NIGHT+ANNEX",
                                             "FULL+PERIMETER+ANNEX",
                                             "DAY+PERIMETER+ANNEX",
                                             "NIGHT+PERIMETER+ANNEX",
                                             "PERIMETER+ANNEX"};
    return answer >= 0 && static_cast<std::size_t>(answer) < std::size(kNames) ? kNames[answer] : "UNKNOWN";
}

std::string forcedName(int answer) {
    return answer == 0 ? "not forced" : answer == 1 ? "forced" : "forced, stronger kind";
}

std::string sirenText(int answer) {
    return answer == 0 ? "silent" : std::to_string(answer) + " s to go";
}

constexpr PanelQuery kPanelQueries[] = {
    {"IsPanelInAlarm", IsPanelInAlarm, yesOrNo},
    {"IsPanelInAlarmOrArmAfterAlarm", IsPanelInAlarmOrArmAfterAlarm, yesOrNo},
    {"IsPanelInAlarmOrArmAfterAlarmExceptPanic", IsPanelInAlarmOrArmAfterAlarmExceptPanic, yesOrNo},
    {"IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic", IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic, yesOrNo},
    {"IsPanelInDisarmNotEmergemcyPartitions", IsPanelInDisarmNotEmergemcyPartitions, yesOrNo},
    {"getCurArmType", [] { return static_cast<int>(getCurArmType()); }, armTypeName},
    {"getCurArmForced", getCurArmForced, forcedName},
    {"isDanalockExistAndActived", isDanalockExistAndActived, yesOrNo},
    {"ozuutils_isSafetyEventInProgress", ozuutils_isSafetyEventInProgress, yesOrNo},
    {"ozuutils_isSafetySirenInProgress", [] { return static_cast<int>(ozuutils_isSafetySirenInProgress()); },
     sirenText},
};

Json askPanel() {
    Json answers = Json::array();
    for (const PanelQuery &query : kPanelQueries) {
        const int answer = query.ask();
        answers.push_back({{"query", query.name}, {"answer", answer}, {"meaning", query.meaning(answer)}});
    }
    return answers;
}

Json askPartitions(const PanelSharedState &state) {
    Json partitions = Json::array();
    for (unsigned int index = 0; index < OZUDB_PARTITIONS; ++index) {
        const PanelPartition &partition = state.partitions[index];
        partitions.push_back(
            {{"partition", coded(static_cast<int>(index), partitionName(index))},
             {"state", coded(partition.partitionState, partitionStateName(partition.partitionState))},
             {"forcedArm", partition.forcedArm},
             {"armAfterAlarm", partition.armAfterAlarm},
             {"entryTimeMs", getAu1tPartitionEntryTime(index)}});
    }
    return partitions;
}

Json askDevice(const PanelSharedState &state, int index) {
    const PanelDevice &device = state.devices[index];
    const auto type = static_cast<int32_t>(device.deviceType);
    return {{"device", index},
            {"type", coded(device.deviceType, getDeviceTypeName(type))},
            {"rfId", device.rfId},
            {"active", device.active == 1},
            {"found", ozuutils_isDeviceExistsAndActive(device.rfId, type)},
            {"magnet", IsDeviceMagnetType(index) != 0},
            {"camera", ozuutils_isCameraDevice(index) != 0},
            {"open", device.openState != 0},
            {"magnetOpen", IsMagnetOpen(index) != 0},
            {"lidClosed", IsCameraLidClosed(index) != 0},
            {"bypassed", ozuutils_isZoneBypassed(index, 0) != 0},
            {"bypassedInput2", ozuutils_isZoneBypassed(index, 1) != 0}};
}

Json askDevices(const PanelSharedState &state) {
    Json devices = Json::array();
    for (int index = 1; index < MAX_DEVICE_INDEX; ++index) {
        if (state.devices[index].deviceType != 0) {
            devices.push_back(askDevice(state, index));
        }
    }
    return devices;
}

ExitCode status(const Context &context) {
    const PanelSharedState &state = Context::state();
    const Json document = {{"time", isoTime(time(nullptr))},
                           {"panel", askPanel()},
                           {"partitions", askPartitions(state)},
                           {"devices", askDevices(state)}};
    if (context.json) {
        print(context, document);
        return kDone;
    }
    for (const char *part : {"panel", "partitions", "devices"}) {
        if (!document[part].empty()) {
            print(context, document[part]);
            print(context, "");
        }
    }
    return kDone;
}

} // namespace

void registerStatus(CLI::App &app, Context &context) {
    CLI::App *command = app.add_subcommand(
        "status", "What every panel state query answers now, with names. Asking whether a zone is bypassed ends a\n"
                  "timed bypass that has run out, as it does for any panel process.");
    command->callback([&context] { context.command = [&context] { return status(context); }; });
}

} // namespace ozuctl

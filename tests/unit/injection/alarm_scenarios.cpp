#include "scenarios.h"

#include <utils_ozu/identity.h>
#include <utils_ozu/partitions.h>
#include <utils_ozu/state.h>

#include "fake_platform.h"

#include <array>

namespace ozu::test {

namespace {

constexpr std::uint32_t kUntouched = 777;

// An armed panel in alarm, so that no answer is the one given without a shared record.
void armedPanel() {
    auto &state = platform().state;
    for (auto &partition : state.partitions) {
        partition.partitionState = 2;
        partition.forcedArm = 1;
        partition.armAfterAlarm = 1;
        partition.disarmTime = 1000;
    }
    state.partitions[7].partitionState = 0;
    state.au1tEntryDelayFull = 30;
    for (auto &device : state.devices) {
        device.deviceType = 87;
        device.active = 1;
        device.openState = 1;
        device.rfId = 5;
    }
    state.devices[1].deviceType = 59;
    state.devices[1].fwMajor = 2;
    state.devices[1].openState = 0;
    state.devices[2].deviceType = 85;
    for (const std::uint8_t detector : {std::uint8_t{2}, std::uint8_t{3}, std::uint8_t{4}}) {
        state.devices[detector].tableIndex = detector;
        state.zones[detector].firstInputEnabled = 1;
        platform().rfDetectors[detector] = 1;
    }
    state.zones[3].bypass[0] = {1, OZUDB_BYPASS_FOREVER};
    state.zones[4].bypass[0] = {1, 5};
    state.safetyEvents[0] = {1699999990, 5, 7, 0};
    state.dialers[3] = {4, 1, 2};
    state.sy9Keyfobs[2].userId = 9;
}

Scenario question(const std::string &name, int (*ask)()) {
    return {name, [ask] {
                armedPanel();
                return returns(ask());
            }};
}

} // namespace

std::vector<Scenario> alarmScenarios() {
    return {
        {"calcConfigUniqueId",
         [] {
             std::array<char, 9> out = {'#', '#', '#', '#', '#', '#', '#', '#', '\0'};
             const int result = calcConfigUniqueId(out.data(), 0);
             return told(returns(result), output("ID", out.data()));
         }},
        question("check_dial_table_id", [] { return check_dial_table_id(4, 2, 1); }),
        question("getSY9IdFromUser", [] { return getSY9IdFromUser(9); }),
        question("isUmkrlVersionSupportProfile", [] { return isUmkrlVersionSupportProfile(1); }),
        {"ozuutils_getDisarmTimestamp",
         [] {
             armedPanel();
             std::uint32_t time = kUntouched;
             const int result = ozuutils_getDisarmTimestamp("main", &time);
             return told(returns(result),
                         time == kUntouched ? "time untouched" : "time " + std::to_string(time));
         }},
        {"ozuutils_getSecPartition",
         [] {
             armedPanel();
             std::uint32_t partition = kUntouched;
             const int result = ozuutils_getSecPartition("perimeter", "FIND_ARM_TYPE", &partition);
             return told(returns(result), partition == kUntouched ? "partition untouched"
                                                                  : "partition " + std::to_string(partition));
         }},
        question("writeSecurityCmdToSystemLog, limited",
                 [] { return writeSecurityCmdToSystemLog(0, 0, "x"); }),
        question("writeSecurityCmdToSystemLog", [] { return writeSecurityCmdToSystemLog(3, 0, "x"); }),
        question("writeSecurityEventToSystemLog, limited",
                 [] { return writeSecurityEventToSystemLog(12, 7, "x"); }),
        question("writeSecurityEventToSystemLog", [] { return writeSecurityEventToSystemLog(12, 6, "x"); }),
        {"ozuutils_sysLogSocketPrinter",
         [] {
             const int result = ozuutils_sysLogSocketPrinter(-1, 1);
             return told(returns(result), "calls " + platform().calls().back());
         }},
        question("ozuutils_sysLogHTTPSPrinter",
                 [] { return ozuutils_sysLogHTTPSPrinter("GET", "host.test", "", 200); }),
        question("IsPanelInAlarm", [] { return IsPanelInAlarm(); }),
        question("IsPanelInAlarmOrArmAfterAlarm", [] { return IsPanelInAlarmOrArmAfterAlarm(); }),
        question("IsPanelInAlarmOrArmAfterAlarmExceptPanic",
                 [] { return IsPanelInAlarmOrArmAfterAlarmExceptPanic(); }),
        question("IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic",
                 [] { return IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(); }),
        question("getCurArmType", [] { return static_cast<int>(getCurArmType()); }),
        question("getCurArmForced", [] { return getCurArmForced(); }),
        question("getAu1tPartitionEntryTime", [] { return static_cast<int>(getAu1tPartitionEntryTime(0)); }),
        question("IsDeviceMagnetType", [] { return IsDeviceMagnetType(2); }),
        question("ozuutils_isCameraDevice", [] { return ozuutils_isCameraDevice(1); }),
        question("IsMagnetOpen", [] { return IsMagnetOpen(2); }),
        question("IsCameraLidClosed", [] { return IsCameraLidClosed(1); }),
        question("ozuutils_isZoneBypassed, for good", [] { return ozuutils_isZoneBypassed(3, 0); }),
        question("ozuutils_isZoneBypassed, run out", [] { return ozuutils_isZoneBypassed(4, 0); }),
        question("ozuutils_isSafetyEventInProgress", [] { return ozuutils_isSafetyEventInProgress(); }),
        question("ozuutils_isSafetySirenInProgress",
                 [] { return static_cast<int>(ozuutils_isSafetySirenInProgress()); }),
        question("isDanalockExistAndActived", [] { return isDanalockExistAndActived(); }),
        question("ozuutils_isDeviceExistsAndActive", [] { return ozuutils_isDeviceExistsAndActive(5, 87); }),
    };
}

} // namespace ozu::test

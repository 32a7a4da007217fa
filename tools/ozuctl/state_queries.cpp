#include "state_queries.h"

#include <utils_ozu/state.h>

#include <iterator>
#include <sstream>

namespace ozuctl {

namespace {

std::string yesOrNo(std::int64_t answer) {
    return answer != 0 ? "yes" : "no";
}

std::string armTypeName(std::int64_t answer) {
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
    return answer >= 0 && answer < std::ssize(kNames) ? kNames[answer] : "UNKNOWN";
}

std::string forcedName(std::int64_t answer) {
    return answer == 0 ? "not forced" : answer == 1 ? "forced" : "forced, stronger kind";
}

std::string sirenText(std::int64_t answer) {
    return answer == 0 ? "silent" : std::to_string(answer) + " s to go";
}

std::string millisecondsText(std::int64_t answer) {
    return std::to_string(answer) + " ms";
}

std::string deviceText(std::int64_t answer) {
    return answer < 0 ? "no such device" : "device " + std::to_string(answer);
}

// A plain question as the table wants it.
template <auto Question>
std::int64_t asked(const std::int64_t * /*arguments*/) {
    return static_cast<std::int64_t>(Question());
}
template <auto Question>
std::int64_t askedOf(const std::int64_t *arguments) {
    return Question(static_cast<int>(arguments[0]));
}

constexpr StateQuery kQueries[] = {
    {"IsPanelInAlarm", "", asked<IsPanelInAlarm>, yesOrNo, true},
    {"IsPanelInAlarmOrArmAfterAlarm", "", asked<IsPanelInAlarmOrArmAfterAlarm>, yesOrNo, true},
    {"IsPanelInAlarmOrArmAfterAlarmExceptPanic", "", asked<IsPanelInAlarmOrArmAfterAlarmExceptPanic>, yesOrNo,
     true},
    {"IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic", "",
     asked<IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic>, yesOrNo, true},
    {"IsPanelInDisarmNotEmergemcyPartitions", "", asked<IsPanelInDisarmNotEmergemcyPartitions>, yesOrNo,
     true},
    {"getCurArmType", "", asked<getCurArmType>, armTypeName, false},
    {"getCurArmForced", "", asked<getCurArmForced>, forcedName, false},
    {"getAu1tPartitionEntryTime", "PARTITION",
     [](const std::int64_t *arguments) {
         return std::int64_t{getAu1tPartitionEntryTime(static_cast<std::uint32_t>(arguments[0]))};
     },
     millisecondsText, false},
    {"IsDeviceMagnetType", "DEVICE", askedOf<IsDeviceMagnetType>, yesOrNo, true},
    {"ozuutils_isCameraDevice", "DEVICE", askedOf<ozuutils_isCameraDevice>, yesOrNo, true},
    {"IsMagnetOpen", "DEVICE", askedOf<IsMagnetOpen>, yesOrNo, true},
    {"IsCameraLidClosed", "DEVICE", askedOf<IsCameraLidClosed>, yesOrNo, true},
    {"ozuutils_isZoneBypassed", "DEVICE INPUT",
     [](const std::int64_t *arguments) {
         return std::int64_t{
             ozuutils_isZoneBypassed(static_cast<int>(arguments[0]), static_cast<int>(arguments[1]))};
     },
     yesOrNo, true},
    {"ozuutils_isDeviceExistsAndActive", "RFID TYPE",
     [](const std::int64_t *arguments) {
         return std::int64_t{ozuutils_isDeviceExistsAndActive(static_cast<std::uint32_t>(arguments[0]),
                                                              static_cast<std::int32_t>(arguments[1]))};
     },
     deviceText, false},
    {"isDanalockExistAndActived", "", asked<isDanalockExistAndActived>, yesOrNo, true},
    {"ozuutils_isSafetyEventInProgress", "", asked<ozuutils_isSafetyEventInProgress>, yesOrNo, true},
    {"ozuutils_isSafetySirenInProgress", "", asked<ozuutils_isSafetySirenInProgress>, sirenText, false},
};

} // namespace

std::vector<std::string> StateQuery::argumentNames() const {
    std::vector<std::string> names;
    std::istringstream words{std::string(arguments)};
    for (std::string word; words >> word;) {
        names.push_back(word);
    }
    return names;
}

std::span<const StateQuery> stateQueries() {
    return kQueries;
}

} // namespace ozuctl

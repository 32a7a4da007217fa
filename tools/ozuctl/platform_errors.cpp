#include "platform_errors.h"

#include "codes.h"
#include "text.h"

#include <ozu_platform_tools.h>

namespace ozuctl {

namespace {

namespace platform = ozu::platform;

ExitCode statusOf(int code) {
    switch (code) {
    case platform::kInvalidArgument:
        return kUsage;
    case platform::kNotFound:
        return kNo;
    case platform::kNothingThere:
    case platform::kNoSharedRecord:
    case platform::kCannotOpen:
    case platform::kReadOnly:
    case platform::kNotConnected:
    case platform::kBrokerUnreachable:
    case platform::kBrokerRefused:
        return kUnreachable;
    default:
        return kLibraryFailed;
    }
}

} // namespace

CommandError platformFailure(const std::string &doing, int code) {
    std::string hint = "The data folder is " + visible(platform::dataFolder()) + " (OZU_PLATFORM_DIR).";
    if (code == platform::kNothingThere) {
        hint += "\nIs a panel process running? 'ozuctl box shell' gives you a panel of your own.";
    } else if (code == platform::kCorrupt) {
        hint += "\nStop all panel processes, move ozu.db and its -wal and -shm away, restore a copy.";
    }
    return {statusOf(code), doing + " (" + platformCode(code) + ")", hint};
}

} // namespace ozuctl

#include "context.h"

#include "codes.h"
#include "log_tap.h"
#include "text.h"

#include <ozulog.h>
#include <utils_ozu/process.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#ifdef OZUCTL_REFERENCE_PLATFORM
#include <ozu_platform_tools.h>
#endif

#include <cstddef>
#include <cstdlib>
#include <iostream>

namespace ozuctl {

namespace {

[[noreturn]] void unreachable(const std::string &why) {
    throw CommandError(kUnreachable, "the panel's shared record cannot be reached" + why,
                       "Is a panel process running? OZU_PLATFORM_DIR names the platform's data folder "
                       "(default\n/var/lib/ozu); 'ozuctl box shell' gives you a panel of your own.");
}

} // namespace

#ifdef OZUCTL_REFERENCE_PLATFORM

const PanelSharedState &Context::state() {
    const PanelSharedState *record = nullptr;
    std::string why;
    if (ozu::platform::attachState(record, why) != 0) {
        unreachable(": " + why);
    }
    return *record;
}

void Context::changeState(const std::function<void(PanelSharedState &)> &change) {
    if (const int code = ozu::platform::updateState(change); code != 0) {
        unreachable(" (" + platformCode(code) + ")");
    }
}

#else

const PanelSharedState &Context::state() {
    const PanelSharedState *record = ozudb_getSharedMemory(0);
    if (record == nullptr) {
        unreachable("");
    }
    return *record;
}

void Context::changeState(const std::function<void(PanelSharedState &)> &change) {
    PanelSharedState *record = ozudb_getSharedMemory(0);
    if (record == nullptr) {
        unreachable("");
    }
    change(*record);
}

#endif

namespace {

// What helps when a panel process cannot start.
std::string whatToDo(int code) {
#ifdef OZUCTL_REFERENCE_PLATFORM
    namespace platform = ozu::platform;
    const bool broker = code == platform::kBrokerUnreachable || code == platform::kBrokerRefused;
    if (!broker && code < platform::kNotConnected) {
        return "The platform's data folder is " + visible(platform::dataFolder()) +
               " (OZU_PLATFORM_DIR); 'ozuctl box shell' gives\nyou a panel of your own.";
    }
#else
    static_cast<void>(code);
#endif
    return "Is the broker running on 127.0.0.1:1883? Type 'ozuctl box shell' for a box with a broker of its "
           "own.";
}

// A name that no other ozuctl on this broker uses, out of a few, so that names do not pile up in the process
// list and the log folder. A socket without a file holds it; the kernel gives it back when the process ends.
std::string freeProcessName() {
    constexpr int kNames = 100;
    for (int number = 1; number <= kNames; ++number) {
        std::string name = "OZUCTL_" + std::to_string(number);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
        const int holder = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
        if (holder >= 0 && bind(holder, reinterpret_cast<const sockaddr *>(&address), length) == 0) {
            return name; // the socket stays open as long as the process
        }
        close(holder);
    }
    throw CommandError(kUnreachable, "too many ozuctl run at the same time");
}

} // namespace

void Context::startPanelProcess(void *mqttArg) {
    const std::string name = freeProcessName();
    int code = 0;
    std::string why;
    {
        const LogTap tap([&why](const LoggedLine &line) {
            why = why.empty() && line.level >= OZULOG_ERROR ? line.text : why;
            return std::string();
        });
        code = ozuutils_processInit(name.c_str(), mqttArg);
    }
    if (code != 0) {
        throw CommandError(kUnreachable,
                           "cannot start as a panel process (" + platformCode(code) + ")" +
                               (why.empty() ? "" : ": " + why),
                           whatToDo(code));
    }
}

bool Context::insideBox() {
    // The box mounts this folder; a variable alone could be set anywhere.
    return getenv("PANEL_BOX") != nullptr && access("/panel-box/control", F_OK) == 0;
}

namespace {

// Asks at the terminal, if there is one to ask at.
bool agreed(const std::string &what) {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        return false;
    }
    std::cerr << "ozuctl: this " << visible(what) << ". Go on? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

} // namespace

void Context::requireConsent(const std::string &what) const {
    if (!yes && !insideBox() && !agreed(what)) {
        throw CommandError(kRefused, "refused: this " + what,
                           "Add --yes if that is what you want, or work in a panel box ('ozuctl box "
                           "shell').");
    }
#ifdef OZUCTL_REFERENCE_PLATFORM
    ozu::platform::openOnly(false);
#endif
}

} // namespace ozuctl

#include "context.h"

#include <utils_ozu/process.h>

#include <unistd.h>

#include <cstdlib>

namespace ozuctl {

PanelSharedState &Context::state() {
    PanelSharedState *record = ozudb_getSharedMemory(0);
    if (record == nullptr) {
        throw CommandError(kUnreachable, "the panel's shared record cannot be reached (see the line above).\n"
                                         "Type 'ozuctl box run -- COMMAND' to work in a panel box, or set "
                                         "OZU_PLATFORM_DIR to the platform's data folder.");
    }
    return *record;
}

void Context::startPanelProcess(void *mqttArg) {
    static_cast<void>(state());
    const std::string name = "ozuctl-" + std::to_string(getpid());
    if (const int code = ozuutils_processInit(name.c_str(), mqttArg); code != 0) {
        throw CommandError(kUnreachable, "cannot start as a panel process (code " + std::to_string(code) +
                                             "): is the broker running on 127.0.0.1:1883?\n"
                                             "Type 'ozuctl box shell' for a box with a broker of its own.");
    }
}

bool Context::insideBox() {
    // The box mounts this folder; a variable alone could be set anywhere.
    return getenv("PANEL_BOX") != nullptr && access("/panel-box/control", F_OK) == 0;
}

void Context::requireConsent(const std::string &what) const {
    if (!yes && !insideBox()) {
        throw CommandError(kRefused, "refused: this " + what +
                                         ". Add --yes if that is what you want, or work in a panel box "
                                         "('ozuctl box shell').");
    }
}

} // namespace ozuctl

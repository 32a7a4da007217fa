#include "scenarios.h"

#include <utils_ozu/command.h>
#include <utils_ozu/files.h>
#include <utils_ozu/kernel_log.h>
#include <utils_ozu/process.h>
#include <utils_ozu/reboot.h>

#include "fake_platform.h"
#include "injection.h"
#include "reboot_end.h"
#include "test_files.h"

#include <ftw.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace ozu::test {

namespace {

std::string start() {
    const int result = ozuutils_processInit("ALARM_CORE", nullptr);
    const int again = ozuutils_processInit("ALARM_CORE", nullptr); // shows whether the start counts
    cleanup();
    return told(result, "then", again);
}

std::string reboot() {
    platform().state.powerManagerMode = 1;
    platform().inFlight = {1, 1};
    if (setjmp(rebootEnd()) == 0) {
        ozuutils_RebootSystem(3, 42, 30, "firmware");
    }
    std::string commands;
    for (const std::string &entry : platform().calls()) {
        if (entry.rfind("system ", 0) == 0) {
            commands += "[" + entry.substr(strlen("system ")) + "]";
        }
    }
    return commands;
}

std::string execute() {
    std::array<char, 513> output;
    output.fill('#');
    output.back() = '\0';
    const int result = exec_cmd("/bin/echo READY", 30, "READY", output.data());
    std::string shown = output.data();
    const bool untouched = shown == std::string(512, '#');
    std::replace(shown.begin(), shown.end(), '\n', '$');
    return told(result, untouched ? "untouched" : '[' + shown + ']');
}

std::string startChild() {
    std::array<char, 10> program = {"/bin/true"};
    std::array<char *, 2> words = {program.data(), nullptr};
    int in = -7;
    int out = -7;
    int error = -7;
    const pid_t child = popen2(words.data(), &in, &out, &error);
    const std::string result = told(child > 0 ? "child" : std::to_string(child),
                                    in == -7 ? "untouched" : "in", out == -7 ? "untouched" : "out", error);
    if (child > 0) {
        injection().pause();
        close(in);
        close(out);
    }
    return result;
}

std::string readWholeFile() {
    static char untouched = 0;
    void *buffer = &untouched;
    writeFile(worldFile("content"), std::string(300, 'x'));
    const int result = allocFileToBuff(worldFile("content").c_str(), &buffer);
    const bool kept = buffer == &untouched;
    const bool allocated = !kept && buffer != nullptr;
    const std::string text = told(result, kept ? "untouched" : allocated ? "buffer" : "null");
    if (allocated) {
        free(buffer);
    }
    return text;
}

std::string removeEntry() {
    writeFile(worldFile("entry"), "x");
    struct FTW position = {0, 1};
    return told(unlink_cb(worldFile("entry").c_str(), nullptr, FTW_F, &position));
}

std::string findProcess() {
    injection().pause();
    testing::internal::CaptureStderr();
    injection().resume();
    const int result = ozuutils_findProcessId("panel_core");
    injection().pause();
    return told(result, '"' + testing::internal::GetCapturedStderr() + '"');
}

std::string searchKernelLog() {
    std::array<char, 64> buffer = {};
    return told(locate_in_kernel_ring_buffer(buffer.data(), buffer.size(), "usb"));
}

} // namespace

std::vector<Scenario> processScenarios() {
    return {
        {"ozuutils_processInit", start},
        {"ozuutils_RebootSystem", reboot},
        {"WaitForUnsentData",
         [] {
             platform().inFlight = {1, 1};
             return told(WaitForUnsentData(5));
         }},
        {"request_CP_reboot_from",
         [] {
             request_CP_reboot_from();
             return std::string("done");
         }},
        {"exec_cmd", execute},
        {"popen2", startChild},
        {"unlink_cb", removeEntry},
        {"ozuutils_findProcessId", findProcess},
        {"allocFileToBuff", readWholeFile},
        {"get_ring_buffer_size", [] { return told(get_ring_buffer_size()); }},
        {"locate_in_kernel_ring_buffer", searchKernelLog},
        {"clear_ring_buffer", [] { return told(clear_ring_buffer()); }},
    };
}

} // namespace ozu::test

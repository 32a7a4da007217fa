#include "scenarios.h"

#include <utils_ozu/command.h>
#include <utils_ozu/files.h>
#include <utils_ozu/kernel_log.h>
#include <utils_ozu/process.h>
#include <utils_ozu/reboot.h>

#include "captured.h"
#include "fake_platform.h"
#include "injection.h"
#include "reboot_end.h"
#include "test_files.h"

#include <ftw.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

namespace ozu::test {

namespace {

std::string start() {
    const int result = ozuutils_processInit("ALARM_CORE", nullptr);
    const int again = ozuutils_processInit("ALARM_CORE", nullptr); // shows whether the start counts
    cleanup();
    return told(returns(result), "when called again " + std::to_string(again));
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
            commands +=
                (commands.empty() ? "runs " : " and ") + ('"' + entry.substr(strlen("system ")) + '"');
        }
    }
    return commands.empty() ? "runs nothing" : commands;
}

std::string execute() {
    std::array<char, 513> answer;
    answer.fill('#');
    answer.back() = '\0';
    const int result = exec_cmd("/bin/echo READY", 30, "READY", answer.data());
    return told(returns(result), output("answer", answer.data()));
}

std::string startChild() {
    std::array<char, 10> program = {"/bin/true"};
    std::array<char *, 2> words = {program.data(), nullptr};
    int in = -7;
    int out = -7;
    int error = -7;
    const pid_t child = popen2(words.data(), &in, &out, &error);
    const auto pipe = [](const char *name, int descriptor) {
        return std::string(name) + (descriptor == -7 ? " untouched" : " a descriptor");
    };
    const std::string result = told(child > 0 ? "returns a child" : returns(child), pipe("input", in),
                                    pipe("output", out), pipe("error", error));
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
    const std::string text = told(returns(result), kept        ? "buffer untouched"
                                                   : allocated ? "buffer allocated"
                                                               : "buffer null");
    if (allocated) {
        free(buffer);
    }
    return text;
}

std::string removeEntry() {
    writeFile(worldFile("entry"), "x");
    struct FTW position = {0, 1};
    return returns(unlink_cb(worldFile("entry").c_str(), nullptr, FTW_F, &position));
}

std::string findProcess() {
    injection().pause();
    ozu::test::captureStderr();
    injection().resume();
    const int result = ozuutils_findProcessId("panel_core");
    injection().pause();
    const std::string printed = ozu::test::capturedStderr();
    return printed.empty() ? returns(result) : told(returns(result), "prints " + printed);
}

std::string searchKernelLog() {
    std::array<char, 64> buffer = {};
    return returns(locate_in_kernel_ring_buffer(buffer.data(), buffer.size(), "usb"));
}

} // namespace

std::vector<Scenario> processScenarios() {
    return {
        {"ozuutils_processInit", start},
        {"ozuutils_RebootSystem", reboot},
        {"WaitForUnsentData",
         [] {
             platform().inFlight = {1, 1};
             return returns(WaitForUnsentData(5));
         }},
        {"request_CP_reboot_from",
         [] {
             request_CP_reboot_from();
             return std::string("ends");
         }},
        {"exec_cmd", execute},
        {"popen2", startChild},
        {"unlink_cb", removeEntry},
        {"ozuutils_findProcessId", findProcess},
        {"allocFileToBuff", readWholeFile},
        {"get_ring_buffer_size", [] { return returns(get_ring_buffer_size()); }},
        {"locate_in_kernel_ring_buffer", searchKernelLog},
        {"clear_ring_buffer", [] { return returns(clear_ring_buffer()); }},
    };
}

} // namespace ozu::test

#include "codes.h"

#include "context.h"

#ifdef OZUCTL_REFERENCE_PLATFORM
#include <ozu_platform_tools.h>
#endif

#include <algorithm>

namespace ozuctl {

namespace {

std::string told(const std::vector<CodeWords> &codes, int code) {
    const auto words = wordsFor(codes, code);
    return "code " + std::to_string(code) + (words ? ": " + *words : "");
}

} // namespace

const std::vector<CodeWords> &libraryCodes() {
    static const std::vector<CodeWords> codes = {
        {-2, "a system call failed"},
        {-1, "failed, or nothing found"},
        {0, "success"},
        {1, "the operation failed"},
        {2, "a null argument, or the panel's shared state is missing"},
        {4, "translation or validation failed"},
        {5, "host name not resolved"},
        {7, "socket not created"},
        {8, "ioctl or write failed"},
        {70, "file missing"},
    };
    return codes;
}

const std::vector<CodeWords> &platformCodes() {
    static const std::vector<CodeWords> codes = [] {
        std::vector<CodeWords> rows;
#ifdef OZUCTL_REFERENCE_PLATFORM
        namespace platform = ozu::platform;
        const std::string unknown = platform::codeText(platform::kInternal);
        for (int code = 0; code <= platform::kTakenOver; ++code) {
            if (std::string words = platform::codeText(code);
                words != unknown || code == platform::kInternal) {
                rows.push_back({code, std::move(words)});
            }
        }
#endif
        return rows;
    }();
    return codes;
}

const std::vector<CodeWords> &exitCodes() {
    static const std::vector<CodeWords> codes = {
        {kDone, "done, or yes"},
        {kNo, "no, or not found"},
        {kUsage, "the command line is wrong; nothing was done"},
        {kUnreachable, "the platform cannot be reached"},
        {kLibraryFailed, "the library or the platform failed, or the output could not be written"},
        {kRefused, "refused: it would change this machine, and nobody confirmed"},
        {kRebooted, "the panel box was rebooted"},
        {kNoBoot, "the panel box could not boot"},
        {kTimedOut, "timed out"},
    };
    return codes;
}

std::optional<std::string> wordsFor(const std::vector<CodeWords> &codes, int code) {
    const auto found = std::ranges::find(codes, code, &CodeWords::code);
    return found == codes.end() ? std::nullopt : std::optional(found->words);
}

std::string libraryCode(int code) {
    return told(libraryCodes(), code);
}

std::string platformCode(int code) {
    return told(platformCodes(), code);
}

} // namespace ozuctl

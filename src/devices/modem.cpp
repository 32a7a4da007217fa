// Versions and power state of the cellular modem.

#include <utils_ozu/modem.h>

#include <base/log.h>
#include <base/panel_state.h>
#include <base/unique_file.h>

#include <utils_ozu/text.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr int kFailed = 2;
constexpr const char *kVersionFile = "/var/run/version";
constexpr char kMarker[] = "A0F.";

// The first line of a file, which the caller frees; null when there is none.
char *firstLine(FILE *file) noexcept {
    char *line = nullptr;
    std::size_t capacity = 0;
    if (getline(&line, &capacity, file) < 0) {
        std::free(line);
        return nullptr;
    }
    return line;
}

constexpr bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

// What follows the marker, or null.
const char *afterMarker(const char *text) noexcept {
    const char *marker = std::strstr(text, kMarker);
    return marker != nullptr ? marker + sizeof kMarker - 1 : nullptr;
}

// How many of the first count characters are digits before one is not.
std::size_t leadingDigits(const char *text, std::size_t count) noexcept {
    std::size_t digits = 0;
    while (digits < count && isDigit(text[digits])) {
        ++digits;
    }
    return digits;
}

} // namespace

int ozuutils_readTelitFwFile(char *out, std::size_t outSize) noexcept {
    if (access(kVersionFile, R_OK) != 0) {
        return kFailed;
    }
    const ozu::UniqueFile file(fopen(kVersionFile, "re"));
    if (!file.valid()) {
        return kFailed;
    }
    char *line = firstLine(file.get());
    if (line == nullptr) {
        return kFailed;
    }
    // A size that the copy cannot take is larger than any line.
    constexpr std::size_t kMaxSize = std::numeric_limits<unsigned int>::max();
    static_cast<void>(
        ozuutils_strlcpy(out, line, static_cast<unsigned int>(outSize < kMaxSize ? outSize : kMaxSize)));
    std::free(line);
    return 0;
}

int getAppModemVersion(const char *text, char *out, std::size_t digits) noexcept {
    std::memset(out, 0, digits);
    const char *version = afterMarker(text);
    if (version == nullptr || sscanf(version, "%6s", out) != 1 || leadingDigits(out, digits) != digits) {
        out[0] = '\0';
        return kFailed;
    }
    out[digits] = '\0';
    return 0;
}

int getAppBetaModemVersion(const char *text, char *out, std::size_t digits) noexcept {
    std::memset(out, 0, digits);
    const char *version = afterMarker(text);
    if (version == nullptr || sscanf(version, "%*[^-]-B%3s", out) != 1) {
        out[0] = '\0';
        return kFailed;
    }
    const std::size_t found = leadingDigits(out, digits);
    out[found] = '\0';
    return found == digits ? 0 : kFailed;
}

int isNoPSMandNoCBankMode(int psmMode) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        OZU_LOG_TEXT(OZULOG_ERROR, "Shared memory pointer is null in isNoPSMandNoCBankMode");
        return 0;
    }
    const bool awake = psmMode == 0 || psmMode == 4;
    return awake && ozu::readOnce(state->cBankModeActive) == 0 ? 1 : 0;
}

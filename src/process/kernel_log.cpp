// The kernel's log buffer, through the syslog system call.

#include <utils_ozu/kernel_log.h>

#include <base/error_text.h>
#include <base/log.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

enum class Action : int { ReadAll = 3, Clear = 5, SizeBuffer = 10 };

constexpr int kMaxFoundLine = 100;

int kernelLog(Action action, char *buffer, int length) noexcept {
    return static_cast<int>(syscall(SYS_syslog, static_cast<int>(action), buffer, length));
}

// Ends the line that begins at match. last is the buffer's last byte; match lies before it.
void cutLine(char *match, const char *last) noexcept {
    char *end = match + 1;
    const char *limit = std::min<const char *>(match + kMaxFoundLine, last);
    while (end < limit && *end != '\n' && *end != '\0') {
        ++end;
    }
    *end = '\0';
}

} // namespace

int get_ring_buffer_size() noexcept {
    const int size = kernelLog(Action::SizeBuffer, nullptr, 0);
    // A refusal is -1 and shows as size 0; anything below would be no answer of the system call at all.
    if (size < -1) {
        OZU_LOG(OZULOG_ERROR, "SYSLOG_ACTION_SIZE_BUFFER failed: %s", ozu::errorText());
    }
    return size + 1;
}

int locate_in_kernel_ring_buffer(char *buffer, int bufferSize, const char *text) noexcept {
    if (buffer == nullptr || bufferSize <= 0 || text == nullptr || *text == '\0') {
        OZU_LOG_TEXT(OZULOG_ERROR, "Bad arguments");
        return 0;
    }
    const int size = get_ring_buffer_size();
    if (size < 0) {
        return 0;
    }
    if (size != bufferSize) {
        OZU_LOG(OZULOG_WARNING,
                "The size of the provided buffer %d is different than get_ring_buffer_size() %d", bufferSize,
                size);
    }
    const int length = kernelLog(Action::ReadAll, buffer, bufferSize - 1);
    if (length == 0) {
        OZU_LOG_TEXT(OZULOG_WARNING, "SYSLOG_ACTION_READ_ALL: O bytes read");
        return 0;
    }
    if (length < 0) {
        OZU_LOG(OZULOG_ERROR, "SYSLOG_ACTION_READ_ALL failed: %s", ozu::errorText());
        return 0;
    }
    char *last = buffer + (bufferSize - 1);
    *std::min(buffer + length, last) = '\0';
    char *match = strstr(buffer, text);
    if (match == nullptr) {
        return 0;
    }
    cutLine(match, last);
    OZU_LOG(OZULOG_ERROR, "Found in kernel ring buffer: [%s]", match);
    return 1;
}

int clear_ring_buffer() noexcept {
    if (kernelLog(Action::Clear, nullptr, 0) < 0) {
        OZU_LOG(OZULOG_ERROR, "SYSLOG_ACTION_CLEAR failed: %s", ozu::errorText());
        return 0;
    }
    return 1;
}

// The kernel command line: the same serial number as the C library's own string functions find.

#include <utils_ozu/database_key.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string line;

void require(bool holds) {
    if (!holds) {
        abort();
    }
}

enum class Found { Nothing, NoValue, Value };

// Scans as the 32-bit panel does, on any machine.
std::uint32_t scan(const char *text) {
    text += strspn(text, " \t\n\v\f\r");
    const bool negative = *text == '-';
    text += negative || *text == '+' ? 1 : 0;
    if (strspn(text, "0123456789abcdefABCDEF") == 0) {
        return 0; // the C library would go on with another sign or space
    }
    const unsigned long long magnitude = strtoull(text, nullptr, 16);
    if (magnitude > 0xFFFFFFFFULL) {
        return 0xFFFFFFFFU;
    }
    const auto number = static_cast<std::uint32_t>(magnitude);
    return negative ? 0U - number : number;
}

Found find(std::uint32_t &serial) {
    char text[1024] = {};
    memcpy(text, line.data(), std::min<std::size_t>(line.size(), 1023));
    if (line.empty()) {
        return Found::NoValue;
    }
    char *parameter = strstr(text, "androidboot.serialno=");
    if (parameter == nullptr) {
        return Found::Nothing;
    }
    strtok(parameter, "=");
    const char *value = strtok(nullptr, " ");
    if (value == nullptr) {
        return Found::NoValue;
    }
    serial = scan(value);
    return Found::Value;
}

// The key of a command line that is known to be understood.
std::string keyOf(const std::string &commandLine) {
    line = commandLine;
    char key[41];
    require(ozuutils_getDBcypher(key) == 0);
    return key;
}

} // namespace

extern "C" {

int __wrap_open(const char * /*path*/, int /*flags*/, ...) {
    return memfd_create("command line", MFD_CLOEXEC);
}
int __wrap_open64(const char * /*path*/, int /*flags*/, ...) {
    return memfd_create("command line", MFD_CLOEXEC);
}
ssize_t __wrap_read(int /*fd*/, void *buffer, std::size_t size) {
    const std::size_t count = std::min(size, line.size());
    memcpy(buffer, line.data(), count);
    return static_cast<ssize_t>(count);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    line.assign(reinterpret_cast<const char *>(data), size);
    char out[43];
    memset(out, '#', sizeof(out));
    const int result = ozuutils_getDBcypher(out + 1);
    std::uint32_t serial = 0;
    const Found found = find(serial);
    require(out[0] == '#' && out[42] == '#');
    require(result == (found == Found::Value ? 0 : -1));
    if (result != 0) {
        require(std::string(out, sizeof(out)) == std::string(sizeof(out), '#'));
        return 0;
    }
    require(strlen(out + 1) == 40 && strspn(out + 1, "0123456789ABCDEF") == 40);
    char plain[64];
    snprintf(plain, sizeof(plain), "androidboot.serialno=%X", static_cast<unsigned>(serial));
    require(keyOf(plain) == out + 1);
    return 0;
}

} // extern "C"

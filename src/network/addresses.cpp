// Address literals, and the host in a URL.

#include <utils_ozu/interfaces.h>

#include <base/log.h>
#include <base/panel_width.h>

#include <arpa/inet.h>

#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kNumbers = 4;

bool isHostName(const char *text) noexcept {
    for (const char *c = text; *c != '\0'; ++c) {
        if (*c != '.' && (*c < '0' || *c > '9')) {
            return true;
        }
    }
    return false;
}

// How many of the four numbers were there; each saturates at the panel's int.
int scanNumbers(const char *text, std::array<int, kNumbers> &numbers) noexcept {
    std::array<long long, kNumbers> wide = {};
    // NOLINTNEXTLINE(cert-err34-c): a number out of range saturates, which no range check accepts
    const int found = sscanf(text, "%lld.%lld.%lld.%lld", &wide[0], &wide[1], &wide[2], &wide[3]);
    for (std::size_t i = 0; i < wide.size(); ++i) {
        numbers[i] = ozu::panelLong(wide[i]);
    }
    return found;
}

constexpr bool isByte(int number) noexcept {
    return number >= 0 && number <= 255;
}

// The third number of a host on the panel's networks is never 0.
constexpr bool inRange(const std::array<int, kNumbers> &numbers) noexcept {
    return isByte(numbers[0]) && isByte(numbers[1]) && numbers[2] >= 1 && numbers[2] <= 255 &&
           isByte(numbers[3]);
}

const char *hostStart(const char *url) noexcept {
    if (const char *at = strchr(url, '@'); at != nullptr) {
        return at + 1;
    }
    constexpr const char *kSchemeEnd = "://";
    const char *scheme = strstr(url, kSchemeEnd);
    return scheme == nullptr ? url : scheme + strlen(kSchemeEnd);
}

// A port wins over a path, wherever they stand.
const char *hostEnd(const char *start) noexcept {
    if (const char *port = strchr(start, ':'); port != nullptr) {
        return port;
    }
    return strchrnul(start, '/');
}

} // namespace

int is_valid_ip(const char *s, int *a, int *b, int *c, int *d) noexcept {
    if (isHostName(s)) {
        OZU_LOG_SHORT(OZULOG_TRACE, "%s is a host name.", s);
        return 0;
    }
    std::array<int, kNumbers> numbers = {};
    const int found = scanNumbers(s, numbers);
    if (a != nullptr && b != nullptr && c != nullptr && d != nullptr) {
        const std::array<int *, kNumbers> outputs = {a, b, c, d};
        for (int i = 0; i < found; ++i) {
            *outputs[static_cast<std::size_t>(i)] = numbers[static_cast<std::size_t>(i)];
        }
    }
    if (found < kNumbers) {
        OZU_LOG(OZULOG_ERROR, "IP %s has invalid content.", s);
        return 0;
    }
    if (!inRange(numbers)) {
        OZU_LOG(OZULOG_ERROR, "%s has invalid range.", s);
        return 0;
    }
    return 1;
}

int isValidIpAddress(const char *cp) noexcept {
    in_addr address = {};
    return inet_pton(AF_INET, cp, &address) != 0 ? 1 : 0;
}

int parse_host(char *url, char *host, unsigned int hostSize) noexcept {
    if (url == nullptr || host == nullptr || hostSize == 0) {
        return 0;
    }
    const char *start = hostStart(url);
    auto length = static_cast<std::size_t>(hostEnd(start) - start);
    if (length > hostSize - 1) {
        length = hostSize - 1;
    }
    memmove(host, start, length);
    host[length] = '\0';
    return length != 0 ? 1 : 0;
}

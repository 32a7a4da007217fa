#include "severity.h"

#include <ozu_platform_tools.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace ozu::platform {

namespace {

constexpr std::array<SeverityRow, 9> kSeverities{{
    {OZULOG_TRACE, "TRACE", 'T'},
    {OZULOG_DEBUG, "DEBUG", 'D'},
    {OZULOG_INFO, "INFO", 'I'},
    {OZULOG_NOTICE, "NOTICE", 'N'},
    {OZULOG_WARNING, "WARNING", 'W'},
    {OZULOG_REMOTE, "REMOTE", 'R'},
    {OZULOG_ERROR, "ERROR", 'E'},
    {OZULOG_CRITICAL, "CRITICAL", 'C'},
    {OZULOG_OFF, "OFF", 'C'},
}};
static_assert(std::all_of(kSeverities.begin(), kSeverities.end(),
                          [](const SeverityRow &row) { return row.name.size() <= 8; }));

constexpr std::size_t kMaxName = 64;

} // namespace

const SeverityRow &severityRow(int level) noexcept {
    const auto *above =
        std::upper_bound(kSeverities.begin(), kSeverities.end(), level,
                         [](int wanted, const SeverityRow &row) { return wanted < row.level; });
    return above == kSeverities.begin() ? kSeverities.front() : *std::prev(above);
}

std::optional<int> levelOfSeverity(std::string_view name) noexcept {
    for (const auto &row : kSeverities) {
        if (row.name == name) {
            return row.level;
        }
    }
    return std::nullopt;
}

bool usableProcessName(const char *name) noexcept {
    if (name == nullptr || *name == '\0' || *name == '.') {
        return false;
    }
    std::size_t length = 0;
    for (const char *at = name; *at != '\0'; ++at, ++length) {
        const auto byte = static_cast<unsigned char>(*at);
        if (byte == '/' || byte < 0x20 || byte == 0x7F || length == kMaxName) {
            return false;
        }
    }
    return true;
}

const std::vector<std::string> &severityNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        all.reserve(std::size(kSeverities));
        for (const auto &row : kSeverities) {
            all.emplace_back(row.name);
        }
        return all;
    }();
    return names;
}

std::optional<int> severityLevel(const std::string &name) {
    return levelOfSeverity(name);
}

} // namespace ozu::platform

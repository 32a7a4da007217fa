// The file of the DNS servers that the panel knows.

#include <utils_ozu/host_names.h>

#include <utils_ozu/results.h>

#include <base/log.h>
#include <base/panel_state.h>
#include <base/unique_file.h>

#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char *kDnsFile = "/data/permanent-dns.conf";
// The shortest address, as 1.1.1.1, has one character more.
constexpr std::size_t kTooShort = 6;

// Another process may change the text at any time: what is checked and written is one copy of it, which ends
// within its field.
bool writeServer(FILE *file, const char (&field)[OZUDB_DNS_TEXT]) noexcept {
    std::array<char, OZUDB_DNS_TEXT + 1> server = {};
    for (std::size_t i = 0; i < sizeof field; ++i) {
        server[i] = ozu::readOnce(field[i]);
    }
    if (strlen(server.data()) <= kTooShort) {
        return true;
    }
    return fprintf(file, "nameserver %s\n", server.data()) >= 0;
}

} // namespace

int write_permanent_dns(void) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state == nullptr) {
        return OZU_RESULT_MISSING;
    }
    ozu::UniqueFile file(fopen(kDnsFile, "we"));
    if (!file.valid()) {
        return 0;
    }
    file.unbuffered(); // a full disk shows with the line that does not fit
    for (std::size_t pair = OZUDB_DNS_SERVER_PAIRS; pair-- > 0;) {
        const PanelDnsServerPair &servers = state->dnsServerPairs[pair];
        if (!writeServer(file.get(), servers.primary) || !writeServer(file.get(), servers.secondary)) {
            OZU_LOG_TEXT(OZULOG_ERROR, "Error writing to [/data/permanent-dns.conf] file.");
            return OZU_RESULT_IO_FAILED;
        }
    }
    return 0;
}

// Passphrase of the panel's encrypted database, from the board's serial number.

#include <utils_ozu/database_key.h>

#include <base/log.h>
#include <base/unique_fd.h>
#include <security/secret.h>
#include <security/serial_number.h>

#include <build_secrets.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <iterator>

namespace {

constexpr const char *kCommandLine = "/proc/cmdline";
constexpr std::size_t kReadLimit = 1023;
constexpr std::size_t kKeySize = 20;
constexpr std::size_t kTextSize = 2 * kKeySize + 1;

static_assert(std::size(ozu::kDatabaseMaskA) == kKeySize && std::size(ozu::kDatabaseMaskB) == kKeySize);

void renderKey(std::uint32_t serial, ozu::SecretArray<char, kTextSize> &text) noexcept {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    ozu::SecretArray<std::uint8_t, kKeySize> mask;
    ozu::joinShares(ozu::kDatabaseMaskA, ozu::kDatabaseMaskB, mask);
    for (std::size_t i = 0; i < kKeySize; ++i) {
        const auto byte = static_cast<std::uint8_t>((serial >> (8 * (i % 4))) ^ mask[i]);
        text[2 * i] = kDigits[byte >> 4];
        text[2 * i + 1] = kDigits[byte & 0xF];
    }
    text[kTextSize - 1] = '\0';
}

} // namespace

int ozuutils_getDBcypher(char *out) noexcept {
    ozu::SecretArray<char, kReadLimit> line;
    ssize_t length = 0;
    {
        const ozu::UniqueFd file(open(kCommandLine, O_RDONLY | O_CLOEXEC));
        if (!file.valid()) {
            OZU_LOG_TEXT(OZULOG_CRITICAL, "open() error: /proc/cmdline");
            return -1;
        }
        length = read(file.get(), line.data(), kReadLimit);
    }
    ozu::SerialParameter parameter;
    if (length > 0) {
        parameter = ozu::findSerialNumber({line.data(), static_cast<std::size_t>(length)});
        if (!parameter.present) {
            return -1;
        }
    }
    if (parameter.value.empty()) {
        OZU_LOG_TEXT(OZULOG_CRITICAL, "The serial number is missing");
        return -1;
    }
    ozu::SecretArray<char, kTextSize> text;
    renderKey(ozu::scanHexadecimal(parameter.value), text);
    std::memcpy(out, text.data(), kTextSize);
    return 0;
}

#include "archive.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace ozuctl {

namespace {

constexpr std::size_t kTarBlock = 512;
constexpr std::size_t kMaxSafeName = 60;

// The fields of a header block.
struct Header {
    char name[100];
    char mode[8];
    char owner[8];
    char group[8];
    char size[12];
    char time[12];
    char checksum[8];
    char type;
    char link[100];
    char magic[6];
    char version[2];
    char ownerName[32];
    char groupName[32];
    char device[16];
    char prefix[155];
    char rest[12];
};
static_assert(sizeof(Header) == kTarBlock);

template <std::size_t size>
void putOctal(char (&field)[size], std::uint64_t value) {
    field[size - 1] = '\0';
    for (std::size_t place = size - 1; place > 0; --place) {
        field[place - 1] = static_cast<char>('0' + (value & 7U));
        value >>= 3U;
    }
}

bool isPlainCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

} // namespace

void Archive::add(const std::string &name, std::string_view content) {
    Header header = {};
    name.copy(header.name, sizeof header.name - 1);
    putOctal(header.mode, 0600);
    putOctal(header.owner, 0);
    putOctal(header.group, 0);
    putOctal(header.size, content.size());
    putOctal(header.time, static_cast<std::uint64_t>(std::max<std::int64_t>(timeMs_, 0)) / 1000);
    memset(header.checksum, ' ', sizeof header.checksum);
    header.type = '0';
    memcpy(header.magic, "ustar", sizeof header.magic);
    memcpy(header.version, "00", sizeof header.version);
    std::array<unsigned char, kTarBlock> block{};
    memcpy(block.data(), &header, kTarBlock);
    unsigned sum = 0;
    for (const unsigned char byte : block) {
        sum += byte;
    }
    snprintf(header.checksum, sizeof header.checksum, "%06o", sum); // the last byte stays a space
    header.checksum[7] = ' ';
    bytes_.append(reinterpret_cast<const char *>(&header), kTarBlock);
    bytes_.append(content);
    bytes_.append((kTarBlock - content.size() % kTarBlock) % kTarBlock, '\0');
}

std::string Archive::finished() const {
    return bytes_ + std::string(2 * kTarBlock, '\0');
}

std::string safeName(std::string_view name) {
    std::string safe(name.substr(0, kMaxSafeName));
    for (char &c : safe) {
        if (!isPlainCharacter(c) && c != '.' && c != '_' && c != '-') {
            c = '_';
        }
    }
    if (safe.empty() || !isPlainCharacter(safe.front())) {
        safe.insert(safe.begin(), '0');
    }
    return safe;
}

} // namespace ozuctl

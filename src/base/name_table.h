// Names for codes, as data: rows of {code, name} written once, packed at compile time.
//
// The rows themselves never reach the binary. What does is one text that holds every name once,
// zero-terminated, and for each table an array of 16-bit offsets into that text, indexed by code: no pointer,
// so no relocation, and a look-up is one comparison and one load. The text begins with "UNKNOWN", so offset 0
// is the name of every code without a row.
//
//     constexpr ozu::NameRow kRows[] = {{1, "PIR"}, {2, "MAG"}};      // sorted by code, each code once
//     constexpr auto kText = ozu::packedText<kRows>();                // several row arrays may share a text
//     constexpr auto kNames = ozu::nameTable<kRows>(kText);
//     const char *name = kText.at(kNames.offset(code));
//
// PairRow, pairTable do the same for names of pairs; nameIndex gives the way back from name to code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

namespace ozu {

// Not defined: a table that reaches this call does not compile.
void badTable(const char *why);

struct NameRow {
    unsigned int code;
    std::string_view name;
};

// A name that depends on two numbers, e.g. opcode and sub-opcode.
struct PairRow {
    unsigned int group;
    unsigned int code;
    std::string_view name;
};

constexpr bool before(const NameRow &a, const NameRow &b) noexcept {
    return a.code < b.code;
}
constexpr bool before(const PairRow &a, const PairRow &b) noexcept {
    return a.group < b.group || (a.group == b.group && a.code < b.code);
}

template <typename Row, std::size_t Count>
consteval bool sortedAndUnique(const Row (&rows)[Count]) {
    for (std::size_t i = 1; i < Count; ++i) {
        if (!before(rows[i - 1], rows[i])) {
            return false;
        }
    }
    return true;
}

inline constexpr std::string_view kUnknownName = "UNKNOWN";

// Zero-terminated names one after the other, each once.
template <std::size_t Capacity>
struct NameText {
    char bytes[Capacity] = {};
    std::size_t used = 0;

    [[nodiscard]] constexpr const char *at(std::uint16_t offset) const noexcept { return bytes + offset; }

    // Offset of a name, or used when it is not there.
    [[nodiscard]] constexpr std::size_t find(std::string_view name) const {
        std::size_t start = 0;
        while (start < used) {
            const std::string_view entry(bytes + start);
            if (entry == name) {
                return start;
            }
            start += entry.size() + 1;
        }
        return used;
    }
    constexpr void add(std::string_view name) {
        if (find(name) != used) {
            return;
        }
        for (const char c : name) {
            bytes[used++] = c;
        }
        bytes[used++] = '\0';
    }
    // An unknown name does not compile.
    [[nodiscard]] constexpr std::uint16_t offsetOf(std::string_view name) const {
        const std::size_t start = find(name);
        if (start == used || start > UINT16_MAX) {
            badTable("the name is not in this text");
        }
        return static_cast<std::uint16_t>(start);
    }
};

template <typename Row, std::size_t Count>
consteval std::size_t nameBytes(const Row (&rows)[Count]) {
    std::size_t bytes = 0;
    for (const Row &row : rows) {
        bytes += row.name.size() + 1;
    }
    return bytes;
}

template <std::size_t Capacity, typename Row, std::size_t Count>
consteval void addNames(NameText<Capacity> &text, const Row (&rows)[Count]) {
    for (const Row &row : rows) {
        text.add(row.name);
    }
}

template <std::size_t Capacity, const auto &...Rows>
consteval auto filledText() {
    NameText<Capacity> text;
    text.add(kUnknownName);
    (addNames(text, Rows), ...);
    return text;
}

// The text of all names of the given row arrays, of exactly the size they need.
template <const auto &...Rows>
consteval auto packedText() {
    constexpr std::size_t kRoom = ((kUnknownName.size() + 1) + ... + nameBytes(Rows));
    constexpr std::size_t kUsed = filledText<kRoom, Rows...>().used;
    return filledText<kUsed, Rows...>();
}

template <std::size_t Codes>
struct NameTable {
    std::uint16_t offsets[Codes + 1] = {}; // the last one is of every code too large

    // Negative codes are large here, so one comparison answers for both ends; it selects, it does not branch:
    // codes come from the air in no order that could be predicted.
    [[nodiscard]] constexpr std::uint16_t offset(unsigned int code) const noexcept {
        return offsets[code < Codes ? code : Codes];
    }
};

template <const auto &Rows, std::size_t Capacity>
consteval auto nameTable(const NameText<Capacity> &text) {
    static_assert(sortedAndUnique(Rows), "rows must be sorted by code, each code once");
    NameTable<Rows[std::size(Rows) - 1].code + 1> table;
    for (const auto &row : Rows) {
        table.offsets[row.code] = text.offsetOf(row.name);
    }
    return table;
}

// The codes of one group are neighbours in offsets, starting at first with code 0.
struct CodeRange {
    std::uint16_t first = 0;
    std::uint16_t count = 0;
};

template <std::size_t Groups, std::size_t Codes>
struct PairTable {
    CodeRange ranges[Groups + 1] = {};     // the last one, empty, is of every group too large
    std::uint16_t offsets[Codes + 1] = {}; // the first one is of every code outside its group's range

    [[nodiscard]] constexpr std::uint16_t offset(unsigned int group, unsigned int code) const noexcept {
        const CodeRange range = ranges[group < Groups ? group : Groups];
        // Selects, too.
        const auto inside = static_cast<std::uint32_t>(code < range.count);
        return offsets[(range.first + code) & (0U - inside)];
    }
};

template <const auto &Rows>
consteval std::size_t pairCodes() {
    std::size_t codes = 0;
    for (std::size_t i = 0; i < std::size(Rows); ++i) {
        if (i + 1 == std::size(Rows) || Rows[i + 1].group != Rows[i].group) {
            codes += Rows[i].code + 1;
        }
    }
    return codes;
}

template <const auto &Rows, std::size_t Capacity>
consteval auto pairTable(const NameText<Capacity> &text) {
    static_assert(sortedAndUnique(Rows), "rows must be sorted by group and code, each pair once");
    PairTable<Rows[std::size(Rows) - 1].group + 1, pairCodes<Rows>()> table;
    std::size_t start = 0;
    std::size_t end = 1;
    for (std::size_t i = 0; i < std::size(Rows); ++i) {
        if (i == 0 || Rows[i - 1].group != Rows[i].group) {
            start = end;
        }
        end = start + Rows[i].code + 1;
        table.ranges[Rows[i].group] = {static_cast<std::uint16_t>(start),
                                       static_cast<std::uint16_t>(Rows[i].code + 1)};
        table.offsets[start + Rows[i].code] = text.offsetOf(Rows[i].name);
    }
    return table;
}

// From name to code: a hash of length and some characters, for which a multiplier without collisions is
// searched at compile time. A name that several rows share leads to the lowest of their codes.
inline constexpr unsigned int kNoSuchName = 255;

struct NameIndex {
    static constexpr std::size_t kShortest = 2;

    std::uint32_t multiplier = 1;
    std::size_t longest = 0;
    std::uint8_t codes[256] = {};
    std::uint16_t names[256] = {}; // offset of the slot's name

    // The length is kShortest or more.
    static constexpr std::uint32_t hashOf(const char *name, std::size_t length) noexcept {
        const auto at = [name](std::size_t i) -> std::uint32_t {
            return static_cast<unsigned char>(name[i]);
        };
        const std::uint32_t ends = at(0) | at(1) << 8U | at(length - 2) << 16U | at(length - 1) << 24U;
        return ends + at(length / 2) * 0x01010101U + static_cast<std::uint32_t>(length) * 0x9E3779B1U;
    }
    [[nodiscard]] constexpr std::size_t slotOf(std::uint32_t hash) const noexcept {
        return (hash * multiplier) >> 24U;
    }

    // The code of a name, or kNoSuchName. Reads at most one character more than the longest name has.
    template <std::size_t Capacity>
    [[nodiscard]] unsigned int find(const NameText<Capacity> &text, const char *name) const noexcept {
        const std::size_t length = strnlen(name, longest + 1);
        if (length < kShortest || length > longest) {
            return kNoSuchName;
        }
        const std::size_t slot = slotOf(hashOf(name, length));
        return std::strcmp(text.at(names[slot]), name) == 0 ? codes[slot] : kNoSuchName;
    }

    template <std::size_t Count>
    [[nodiscard]] consteval bool spreads(const std::uint32_t (&hashes)[Count], std::size_t used) const {
        bool taken[256] = {};
        for (std::size_t i = 0; i < used; ++i) {
            bool &slot = taken[slotOf(hashes[i])];
            if (slot) {
                return false;
            }
            slot = true;
        }
        return true;
    }
};

// The hashes of different names.
template <std::size_t Count>
struct HashSet {
    std::uint32_t hashes[Count] = {};
    std::size_t used = 0;

    template <std::size_t RowCount>
    consteval void add(const NameRow (&rows)[RowCount]) {
        for (const NameRow &row : rows) {
            if (row.name.size() < NameIndex::kShortest) {
                badTable("the name is too short");
            }
            const std::uint32_t hash = NameIndex::hashOf(row.name.data(), row.name.size());
            bool known = false;
            for (std::size_t i = 0; i < used; ++i) {
                known = known || hashes[i] == hash;
            }
            if (!known) {
                hashes[used++] = hash;
            }
        }
    }
};

template <std::size_t Capacity, std::size_t RowCount>
consteval void enterRows(NameIndex &index, const NameText<Capacity> &text, const NameRow (&rows)[RowCount]) {
    for (const NameRow &row : rows) {
        const std::size_t slot = index.slotOf(NameIndex::hashOf(row.name.data(), row.name.size()));
        const bool taken = index.names[slot] != 0 || index.codes[slot] != kNoSuchName;
        if (taken && std::string_view(text.bytes + index.names[slot]) != row.name) {
            badTable("two names have the same hash");
        }
        if (!taken || row.code < index.codes[slot]) {
            index.codes[slot] = static_cast<std::uint8_t>(row.code);
            index.names[slot] = text.offsetOf(row.name);
        }
        index.longest = row.name.size() > index.longest ? row.name.size() : index.longest;
    }
}

// The index of one or more row arrays whose names are all in the text; codes are below kNoSuchName.
template <const auto &...Rows, std::size_t Capacity>
consteval auto nameIndex(const NameText<Capacity> &text) {
    HashSet<(std::size(Rows) + ...)> set;
    (set.add(Rows), ...);
    NameIndex index;
    while (!index.spreads(set.hashes, set.used)) {
        index.multiplier += 0x9E3779B2U; // odd stays odd
    }
    // An empty slot holds offset 0 and no code: to find "UNKNOWN" there is not to find it.
    for (auto &code : index.codes) {
        code = kNoSuchName;
    }
    (enterRows(index, text, Rows), ...);
    return index;
}

} // namespace ozu

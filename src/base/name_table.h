// Names for codes, as data: rows of {code, name} written once, packed at compile time.
//
// The rows themselves never reach the binary. What does is one text that holds every name once,
// zero-terminated, with a list of where each begins, and for each table an array of one byte per code, the
// number of its name in that list: no pointer, so no relocation, and a look-up is one comparison and two
// loads. The text begins with "UNKNOWN", so number 0 is the name of every code without a row.
//
//     constexpr ozu::NameRow kRows[] = {{1, "PIR"}, {2, "MAG"}};      // sorted by code, each code once
//     constexpr auto kText = ozu::packedText<kRows>();                // several row arrays may share a text
//     constexpr auto kNames = ozu::nameTable<kRows>(kText);
//     const char *name = kText.at(kNames.id(code));
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

// The number of a name in its text.
using NameId = std::uint8_t;
inline constexpr std::size_t kMostNames = 255;

// Zero-terminated names one after the other, each once.
template <std::size_t Bytes, std::size_t Names>
struct NameText {
    char bytes[Bytes] = {};
    std::uint16_t starts[Names] = {};

    [[nodiscard]] constexpr const char *at(NameId id) const noexcept { return bytes + starts[id]; }

    // An unknown name does not compile.
    [[nodiscard]] constexpr NameId idOf(std::string_view name) const {
        for (std::size_t id = 0; id < Names; ++id) {
            if (std::string_view(bytes + starts[id]) == name) {
                return static_cast<NameId>(id);
            }
        }
        badTable("the name is not in this text");
        return 0;
    }
};

// Puts a text together; there is room for more than it will need.
template <std::size_t Bytes, std::size_t Names>
struct NameCollector {
    NameText<Bytes, Names> text;
    std::size_t used = 0;
    std::size_t names = 0;

    consteval void add(std::string_view name) {
        for (std::size_t id = 0; id < names; ++id) {
            if (std::string_view(text.bytes + text.starts[id]) == name) {
                return;
            }
        }
        if (used > UINT16_MAX || names == kMostNames) {
            badTable("too many names");
        }
        text.starts[names++] = static_cast<std::uint16_t>(used);
        for (const char c : name) {
            text.bytes[used++] = c;
        }
        text.bytes[used++] = '\0';
    }
    template <typename Row, std::size_t Count>
    consteval void addRows(const Row (&rows)[Count]) {
        for (const Row &row : rows) {
            add(row.name);
        }
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

template <std::size_t Bytes, std::size_t Names, const auto &...Rows>
consteval auto collected() {
    NameCollector<Bytes, Names> collector;
    collector.add(kUnknownName);
    (collector.addRows(Rows), ...);
    return collector;
}

// The text of all names of the given row arrays, of exactly the size they need.
template <const auto &...Rows>
consteval auto packedText() {
    constexpr std::size_t kBytes = ((kUnknownName.size() + 1) + ... + nameBytes(Rows));
    constexpr std::size_t kNames = (1 + ... + std::size(Rows));
    constexpr auto kAll = collected<kBytes, kNames, Rows...>();
    return collected<kAll.used, kAll.names, Rows...>().text;
}

template <std::size_t Codes>
struct NameTable {
    NameId ids[Codes + 1] = {}; // the last one is of every code too large

    // Negative codes are large here, so one comparison answers for both ends; it selects, it does not branch:
    // codes come from the air in no order that could be predicted.
    [[nodiscard]] constexpr NameId id(unsigned int code) const noexcept {
        return ids[code < Codes ? code : Codes];
    }
};

template <const auto &Rows, typename Text>
consteval auto nameTable(const Text &text) {
    static_assert(sortedAndUnique(Rows), "rows must be sorted by code, each code once");
    NameTable<Rows[std::size(Rows) - 1].code + 1> table;
    for (const auto &row : Rows) {
        table.ids[row.code] = text.idOf(row.name);
    }
    return table;
}

// The codes of one group are neighbours in ids, starting at first with code 0.
struct CodeRange {
    std::uint16_t first = 0;
    std::uint16_t count = 0;
};

template <std::size_t Groups, std::size_t UsedGroups, std::size_t Codes>
struct PairTable {
    std::uint8_t groups[Groups + 1] =
        {};                           // number of the group's range; the last one is of every group too large
    CodeRange ranges[UsedGroups + 1]; // the first one, empty, is of every group without a row
    NameId ids[Codes + 1] = {};       // the first one is of every code outside its group's range

    [[nodiscard]] constexpr NameId id(unsigned int group, unsigned int code) const noexcept {
        const CodeRange range = ranges[groups[group < Groups ? group : Groups]];
        // Selects, too.
        const auto inside = static_cast<std::uint32_t>(code < range.count);
        return ids[(range.first + code) & (0U - inside)];
    }
};

template <const auto &Rows>
consteval bool lastOfGroup(std::size_t i) {
    return i + 1 == std::size(Rows) || Rows[i + 1].group != Rows[i].group;
}

template <const auto &Rows>
consteval std::size_t pairGroups() {
    std::size_t groups = 0;
    for (std::size_t i = 0; i < std::size(Rows); ++i) {
        groups += lastOfGroup<Rows>(i) ? 1U : 0U;
    }
    return groups;
}

template <const auto &Rows>
consteval std::size_t pairCodes() {
    std::size_t codes = 0;
    for (std::size_t i = 0; i < std::size(Rows); ++i) {
        codes += lastOfGroup<Rows>(i) ? Rows[i].code + 1 : 0U;
    }
    return codes;
}

template <const auto &Rows, typename Text>
consteval auto pairTable(const Text &text) {
    static_assert(sortedAndUnique(Rows), "rows must be sorted by group and code, each pair once");
    PairTable<Rows[std::size(Rows) - 1].group + 1, pairGroups<Rows>(), pairCodes<Rows>()> table;
    std::size_t start = 1;
    std::uint8_t range = 1;
    for (std::size_t i = 0; i < std::size(Rows); ++i) {
        table.ids[start + Rows[i].code] = text.idOf(Rows[i].name);
        if (lastOfGroup<Rows>(i)) {
            const auto count = static_cast<std::uint16_t>(Rows[i].code + 1);
            table.groups[Rows[i].group] = range;
            table.ranges[range++] = {static_cast<std::uint16_t>(start), count};
            start += count;
        }
    }
    return table;
}

// From name to code: a hash of length and some characters, for which a multiplier without collisions is
// searched at compile time. A name that several rows share leads to the lowest of their codes.
inline constexpr unsigned int kNoSuchName = 255;

inline constexpr std::size_t kShortestName = 2;

// The length is kShortestName or more.
constexpr std::uint32_t nameHash(const char *name, std::size_t length) noexcept {
    const auto at = [name](std::size_t i) -> std::uint32_t { return static_cast<unsigned char>(name[i]); };
    const std::uint32_t ends = at(0) | at(1) << 8U | at(length - 2) << 16U | at(length - 1) << 24U;
    return ends + at(length / 2) * 0x01010101U + static_cast<std::uint32_t>(length) * 0x9E3779B1U;
}

template <std::size_t Names>
struct NameIndex {

    std::uint32_t multiplier = 1;
    std::size_t longest = 0;
    NameId ids[256] = {};           // of the slot's name; 0 in an empty slot
    std::uint8_t codes[Names] = {}; // by the name's number

    [[nodiscard]] constexpr std::size_t slotOf(std::uint32_t hash) const noexcept {
        return (hash * multiplier) >> 24U;
    }

    // The code of a name, or kNoSuchName. Reads at most one character more than the longest name has.
    template <typename Text>
    [[nodiscard]] unsigned int find(const Text &text, const char *name) const noexcept {
        const std::size_t length = strnlen(name, longest + 1);
        if (length < kShortestName || length > longest) {
            return kNoSuchName;
        }
        const NameId id = ids[slotOf(nameHash(name, length))];
        return std::strcmp(text.at(id), name) == 0 ? codes[id] : kNoSuchName;
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
            if (row.name.size() < kShortestName) {
                badTable("the name is too short");
            }
            const std::uint32_t hash = nameHash(row.name.data(), row.name.size());
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

template <typename Index, typename Text, std::size_t RowCount>
consteval void enterRows(Index &index, const Text &text, const NameRow (&rows)[RowCount]) {
    for (const NameRow &row : rows) {
        const NameId id = text.idOf(row.name);
        NameId &slot = index.ids[index.slotOf(nameHash(row.name.data(), row.name.size()))];
        if (slot != 0 && slot != id) {
            badTable("two names have the same hash");
        }
        slot = id;
        // An unused code is kNoSuchName, the largest.
        index.codes[id] = row.code < index.codes[id] ? static_cast<std::uint8_t>(row.code) : index.codes[id];
        index.longest = row.name.size() > index.longest ? row.name.size() : index.longest;
    }
}

// The index of one or more row arrays whose names are all in the text; codes are below kNoSuchName. To find
// "UNKNOWN" in an empty slot is not to find it, unless it has a row.
template <const auto &...Rows, std::size_t Bytes, std::size_t Names>
consteval auto nameIndex(const NameText<Bytes, Names> &text) {
    HashSet<(std::size(Rows) + ...)> set;
    (set.add(Rows), ...);
    NameIndex<Names> index;
    while (!index.spreads(set.hashes, set.used)) {
        index.multiplier += 0x9E3779B2U; // odd stays odd
    }
    for (auto &code : index.codes) {
        code = kNoSuchName;
    }
    (enterRows(index, text, Rows), ...);
    return index;
}

} // namespace ozu

// Names for codes, as data: rows of {code, name} written once, packed at compile time.
//
// The rows themselves never reach the binary. What does is one text that holds every name once,
// zero-terminated, with a list of where each begins, and for each table an array of one byte per code, the
// number of its name in that list: no pointer, so no relocation, and a look-up is one comparison and two
// loads. A list begins with "UNKNOWN", so number 0 is the name of every code without a row.
//
//     constexpr ozu::NameRow kRows[] = {{1, "PIR"}, {2, "MAG"}};      // sorted by code, each code once
//     constexpr auto kText = ozu::packedText<kRows>();                // several row arrays may share a text
//     constexpr auto kList = ozu::nameList<kText, kRows>();           // and some of them a list
//     constexpr auto kNames = ozu::nameTable<kRows>(kList);
//     const char *name = kList.at(kNames.id(code));
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

// Zero-terminated names one after the other, each once; a name that ends another one lies within it.
template <std::size_t Bytes>
struct NameText {
    char bytes[Bytes] = {};

    // An unknown name does not compile.
    [[nodiscard]] constexpr std::uint16_t startOf(std::string_view name) const {
        for (std::size_t start = 0; start < Bytes;) {
            const std::string_view held(bytes + start);
            if (held.ends_with(name)) {
                return static_cast<std::uint16_t>(start + held.size() - name.size());
            }
            start += held.size() + 1;
        }
        badTable("the name is not in this text");
        return 0;
    }
};

// Different names, at most Most of them.
template <std::size_t Most>
struct NameSet {
    std::string_view names[Most];
    std::size_t used = 0;

    consteval void add(std::string_view name) {
        for (std::size_t i = 0; i < used; ++i) {
            if (names[i] == name) {
                return;
            }
        }
        names[used++] = name;
    }
    template <typename Row, std::size_t Count>
    consteval void addRows(const Row (&rows)[Count]) {
        for (const Row &row : rows) {
            add(row.name);
        }
    }
    [[nodiscard]] consteval bool endsAnother(std::string_view name) const {
        for (std::size_t i = 0; i < used; ++i) {
            if (names[i].size() > name.size() && names[i].ends_with(name)) {
                return true;
            }
        }
        return false;
    }
    [[nodiscard]] consteval std::size_t textBytes() const {
        std::size_t bytes = 0;
        for (std::size_t i = 0; i < used; ++i) {
            bytes += endsAnother(names[i]) ? 0 : names[i].size() + 1;
        }
        return bytes;
    }
};

template <const auto &...Rows>
consteval auto namesOf() {
    NameSet<(1 + ... + std::size(Rows))> set;
    set.add(kUnknownName);
    (set.addRows(Rows), ...);
    return set;
}

// The text of all names of the given row arrays.
template <const auto &...Rows>
consteval auto packedText() {
    constexpr auto kNames = namesOf<Rows...>();
    constexpr std::size_t kBytes = kNames.textBytes();
    static_assert(kBytes <= UINT16_MAX, "the text is too long");
    NameText<kBytes> text;
    std::size_t end = 0;
    for (std::size_t i = 0; i < kNames.used; ++i) {
        if (!kNames.endsAnother(kNames.names[i])) {
            kNames.names[i].copy(text.bytes + end, kNames.names[i].size());
            end += kNames.names[i].size() + 1;
        }
    }
    return text;
}

// The number of a name in its list.
using NameId = std::uint8_t;
inline constexpr std::size_t kMostNames = 255;

// Some names of a text, each once.
template <const auto &Text, std::size_t Names>
struct NameList {
    std::uint16_t starts[Names] = {};

    [[nodiscard]] constexpr const char *at(NameId id) const noexcept { return Text.bytes + starts[id]; }

    // An unknown name does not compile.
    [[nodiscard]] constexpr NameId idOf(std::string_view name) const {
        for (std::size_t id = 0; id < Names; ++id) {
            if (name == at(static_cast<NameId>(id))) {
                return static_cast<NameId>(id);
            }
        }
        badTable("the name is not in this list");
        return 0;
    }
};

// The names of the given row arrays, all of which are in the text.
template <const auto &Text, const auto &...Rows>
consteval auto nameList() {
    constexpr auto kNames = namesOf<Rows...>();
    static_assert(kNames.used <= kMostNames, "too many names");
    NameList<Text, kNames.used> list;
    for (std::size_t id = 0; id < kNames.used; ++id) {
        list.starts[id] = Text.startOf(kNames.names[id]);
    }
    return list;
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

template <const auto &Rows, typename List>
consteval auto nameTable(const List &list) {
    static_assert(sortedAndUnique(Rows), "rows must be sorted by code, each code once");
    NameTable<Rows[std::size(Rows) - 1].code + 1> table;
    for (const auto &row : Rows) {
        table.ids[row.code] = list.idOf(row.name);
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

template <const auto &Rows, typename List>
consteval auto pairTable(const List &list) {
    static_assert(sortedAndUnique(Rows), "rows must be sorted by group and code, each pair once");
    PairTable<Rows[std::size(Rows) - 1].group + 1, pairGroups<Rows>(), pairCodes<Rows>()> table;
    std::size_t start = 1;
    std::uint8_t range = 1;
    for (std::size_t i = 0; i < std::size(Rows); ++i) {
        table.ids[start + Rows[i].code] = list.idOf(Rows[i].name);
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
    template <typename List>
    [[nodiscard]] unsigned int find(const List &list, const char *name) const noexcept {
        const std::size_t length = strnlen(name, longest + 1);
        if (length < kShortestName || length > longest) {
            return kNoSuchName;
        }
        const NameId id = ids[slotOf(nameHash(name, length))];
        return std::strcmp(list.at(id), name) == 0 ? codes[id] : kNoSuchName;
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

template <typename Index, typename List, std::size_t RowCount>
consteval void enterRows(Index &index, const List &list, const NameRow (&rows)[RowCount]) {
    for (const NameRow &row : rows) {
        const NameId id = list.idOf(row.name);
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

// The index of one or more row arrays whose names are all in the list; codes are below kNoSuchName. To find
// "UNKNOWN" in an empty slot is not to find it, unless it has a row.
template <const auto &...Rows, const auto &Text, std::size_t Names>
consteval auto nameIndex(const NameList<Text, Names> &list) {
    HashSet<(std::size(Rows) + ...)> set;
    (set.add(Rows), ...);
    NameIndex<Names> index;
    while (!index.spreads(set.hashes, set.used)) {
        index.multiplier += 0x9E3779B2U; // odd stays odd
    }
    for (auto &code : index.codes) {
        code = kNoSuchName;
    }
    (enterRows(index, list, Rows), ...);
    return index;
}

} // namespace ozu

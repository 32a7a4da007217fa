// Names for codes and for pairs of codes: rows of {code, name} written once, made into tables at compile
// time.
//
// A table holds no pointers, which the loader would have to patch: the names stand one after the other in one
// text, and a table says where each begins. The text begins with "UNKNOWN", the name of every code without a
// row.
//
//     constexpr ozu::NameRow kRows[] = {{1, "PIR"}, {2, "MAG"}};      // sorted by code, each code once
//     constexpr auto kNames = ozu::nameTable<kRows>();
//     const char *name = kNames.name(code);
//
// PairRow does the same for pairs: name(group, code). codesByName() helps to find the code of a name.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <string_view>
#include <utility>

namespace ozu {

// A table of single codes is one of pairs with a single group.
struct NameRow {
    static constexpr std::uint8_t group = 0;
    std::uint8_t code;
    std::string_view name;
};

// A name that depends on two numbers, e.g. opcode and sub-opcode.
struct PairRow {
    std::uint8_t group;
    std::uint8_t code;
    std::string_view name;
};

inline constexpr std::string_view kUnknownName = "UNKNOWN";

template <const auto &Rows>
consteval bool sortedAndUnique() {
    const auto key = [](const auto &row) { return std::pair(row.group, row.code); };
    return std::ranges::adjacent_find(Rows, std::greater_equal(), key) == std::end(Rows);
}

template <std::size_t Groups, std::size_t Codes, std::size_t Size>
struct NameTable {
    // Where in starts a group's codes begin, from 0 to its last one; they end where those of the next group
    // begin.
    std::array<std::uint16_t, Groups + 1> firsts;
    std::array<std::uint16_t, Codes> starts; // where the code's name begins in the text
    std::array<char, Size> text;

    // Negative numbers are large here, so one comparison answers for both ends.
    [[nodiscard]] constexpr const char *name(unsigned int group, unsigned int code) const noexcept {
        if (group >= Groups) {
            return text.data();
        }
        const unsigned int first = firsts[group];
        return text.data() + (code < firsts[group + 1] - first ? starts[first + code] : 0);
    }
    [[nodiscard]] constexpr const char *name(unsigned int code) const noexcept { return name(0, code); }
    [[nodiscard]] constexpr bool has(unsigned int code) const noexcept { return name(code) != text.data(); }
};

template <const auto &Rows>
consteval auto firstsOf() {
    std::array<std::uint16_t, std::rbegin(Rows)->group + 2U> firsts{};
    for (const auto &row : Rows) {
        firsts[row.group + 1U] = static_cast<std::uint16_t>(row.code + 1); // how many, at first
    }
    for (std::size_t group = 1; group < firsts.size(); ++group) {
        firsts[group] = static_cast<std::uint16_t>(firsts[group] + firsts[group - 1]);
    }
    return firsts;
}

template <const auto &Rows>
consteval std::size_t textSize() {
    std::size_t size = kUnknownName.size() + 1;
    for (const auto &row : Rows) {
        size += row.name.size() + 1;
    }
    return size;
}

template <const auto &Rows>
consteval auto nameTable() {
    static_assert(sortedAndUnique<Rows>() && textSize<Rows>() <= UINT16_MAX);
    constexpr auto kFirsts = firstsOf<Rows>();
    NameTable<kFirsts.size() - 1, kFirsts.back(), textSize<Rows>()> table{kFirsts, {}, {}};
    kUnknownName.copy(table.text.data(), kUnknownName.size());
    std::size_t start = kUnknownName.size() + 1;
    for (const auto &row : Rows) {
        table.starts[std::size_t{kFirsts[row.group]} + row.code] = static_cast<std::uint16_t>(start);
        row.name.copy(table.text.data() + start, row.name.size());
        start += row.name.size() + 1;
    }
    return table;
}

// The codes of the rows in the order of their names, for a binary search. Rows that share a name have the
// lowest of their codes.
template <const auto &Rows>
consteval auto codesByName() {
    auto rows = std::to_array(Rows);
    std::ranges::sort(rows, {}, [](const NameRow &row) { return std::pair(row.name, row.code); });
    std::array<std::uint8_t, rows.size()> codes{};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        codes[i] = i > 0 && rows[i].name == rows[i - 1].name ? codes[i - 1] : rows[i].code;
    }
    return codes;
}

} // namespace ozu

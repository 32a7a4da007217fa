// The fields of the panel's shared record by name: "partitions[0].partitionState", "powerManagerMode".
#pragma once

#include "output.h"

#include <ozudb.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ozuctl {

// How a field's value is stored and read. Time is UTC seconds, DeviceType and PartitionState have names.
enum class FieldKind : std::uint8_t { U8, U16, U32, I32, Text, Time, Expiry, DeviceType, PartitionState };

// One field of the record or, with counts above 1, one per array element.
struct FieldRow {
    std::string_view name; // "zones[].bypass[].bypassed"
    std::size_t offset;    // of the first element's
    FieldKind kind;
    std::array<std::size_t, 2> count;  // of each pair of brackets
    std::array<std::size_t, 2> stride; // bytes between elements
    std::size_t size;                  // bytes of the value
};

// One field of one element.
struct Field {
    const FieldRow *row;
    std::size_t first;  // index in the first pair of brackets
    std::size_t second; // index in the second one

    [[nodiscard]] std::string path() const;
    [[nodiscard]] std::size_t offset() const;
    // Holds what it holds on a panel that nobody has told anything yet. The state of a partition is always
    // worth a look.
    [[nodiscard]] bool isUsual(const PanelSharedState &state) const;
    [[nodiscard]] bool differs(const PanelSharedState &one, const PanelSharedState &other) const;

    // The value as JSON: a number, a text, or a code with its name.
    [[nodiscard]] Json read(const PanelSharedState &state) const;

    // Stores a value given as text: a number (0x for hexadecimal); for times also ISO UTC, "now", "now+30",
    // for an expiry also "never"; a device type's or partition state's name. Throws CommandError(kUsage).
    void write(PanelSharedState &state, const std::string &text) const;
};

// All fields below a path, in the record's order: "" everything, "devices[3]", "partitions",
// "zones[1].bypass". Empty when nothing has that name; throws CommandError(kUsage) for an index out of range.
std::vector<Field> fieldsBelow(std::string_view path);

// The same for a path from the command line; throws kNo with a hint when nothing has that name.
std::vector<Field> requireFields(const std::string &path);

// Exactly one field; throws CommandError(kUsage) when the path names several.
Field requireField(const std::string &path);

// Values of the fields, nested as the record is: arrays of objects.
Json nested(const PanelSharedState &state, const std::vector<Field> &fields);

// Names of codes that the record holds.
std::string partitionName(unsigned int partition);
std::string partitionStateName(unsigned int state);

} // namespace ozuctl

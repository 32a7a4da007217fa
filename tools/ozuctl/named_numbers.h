// Numbers that have names: device types, partitions and zones, their states, commands, categories.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ozuctl {

// What the library calls a code without a name.
inline constexpr std::string_view kUnknownName = "UNKNOWN";

struct NamedNumber {
    std::string name;
    std::int64_t number;
};
using NamedNumbers = std::vector<NamedNumber>;

const NamedNumbers &deviceTypes();      // W3
const NamedNumbers &partitions();       // PARTITION_FULL, also FULL and the zones' words
const NamedNumbers &partitionStates();  // ARMED_2
const NamedNumbers &securityCommands(); // SEC_CMD_DISARM
const NamedNumbers &eventCategories();  // SECURITY

// The number of a name, in either case.
std::optional<std::int64_t> numberNamed(const NamedNumbers &names, std::string_view name);
std::vector<std::string> namesIn(const NamedNumbers &names);

// A number of a range, or a name. Throws CommandError(kUsage).
std::int64_t requireNamed(std::string_view what, std::string_view text, std::int64_t low, std::int64_t high,
                          const NamedNumbers &names);

} // namespace ozuctl

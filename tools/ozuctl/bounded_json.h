// JSON from the bus, read within bounds.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <span>

namespace ozuctl {

using Json = nlohmann::ordered_json;

// The document, or nothing when it is none, has more than 16 KiB, or is nested more than 16 deep: what the
// panel's processes send has neither.
std::optional<Json> boundedJson(std::span<const unsigned char> bytes);

} // namespace ozuctl

// Output of ozuctl: data on standard output, as text for people or as JSON for programs.
#pragma once

#include "context.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <span>
#include <string>

namespace ozuctl {

using Json = nlohmann::ordered_json;

// A code with its name: {"code": 85, "name": "W3"} in JSON, "85 W3" as text.
Json coded(std::int64_t code, const std::string &name);

// UTC seconds as ISO 8601 text, e.g. 2026-03-01T12:00:00Z; with milliseconds in the second form.
std::string isoTime(std::int64_t seconds);
std::string isoTimeMilliseconds(std::int64_t milliseconds);

// Bytes as upper-case hexadecimal text.
std::string hexText(std::span<const unsigned char> bytes);

// A JSON value as people read it: texts without quotes, codes as "85 W3", yes and no.
std::string plainText(const Json &value);

// Prints one document: with --json as it is, otherwise an object as aligned "key  value" lines, an array of
// objects as a table, anything else as text. Bytes that are not UTF-8 are replaced.
void print(const Context &context, const Json &document);

// Prints one record of a stream: a JSON line, or the text given for people. Flushes.
void printRecord(const Context &context, const Json &record, const std::string &text);

} // namespace ozuctl

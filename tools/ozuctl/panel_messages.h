// What the records on the panel's bus and the categories of its event log mean.
#pragma once

#include "output.h"

#include <optional>
#include <span>
#include <string>

namespace ozuctl {

// Name of a request to the co-processor, "UNKNOWN" for a code without one.
std::string nxpRequestName(int code);

// Name of a category of the system event log, "UNKNOWN" for one the library does not write.
std::string eventCategoryName(int category);

// A message in plain words.
struct Meaning {
    Json record;      // "message": its name, and its fields with names for their codes
    std::string text; // the same for people
};

// What a record says to its receivers; nothing for one that the library does not send.
std::optional<Meaning> meaningOf(const std::string &topic, int messageClass, int command,
                                 std::span<const unsigned char> payload);

} // namespace ozuctl

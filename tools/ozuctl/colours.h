// Colours of a terminal. Only what goes through paint() has any.
#pragma once

#include "bounded_json.h"

#include <string>
#include <string_view>

namespace ozuctl {

enum class Look { plain, name, warning, error };

// "auto": where standard output is a terminal that knows colours (TERM is set and not "dumb") and NO_COLOR
// is empty or not there. "always" and "never": so.
void chooseColours(std::string_view mode);

// The text escaped by visible(), in its colour.
std::string paint(std::string_view text, Look look);

// What a happening looks like: log lines by their level, trouble as an error.
Look lookOf(const Json &record);

} // namespace ozuctl

// Text from outside: what was typed, what came over the bus, out of a log, a file, the record. It reaches a
// terminal or a message through these functions only.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ozuctl {

// One line that shows what the text holds and does nothing else: line feeds, control bytes (C1, too), bytes
// that are not UTF-8, line and paragraph separators, and characters that are not seen or turn the direction
// of writing are escaped: \n, \x1B, \u{202E}. A text that was escaped before stays as it is.
std::string visible(std::string_view text);

// The same for a text of several lines: its line feeds and tabs stay.
std::string visibleLines(std::string_view text);

// visible() in quotes, cut where a message would lose its point.
std::string inQuotes(std::string_view text);

// JSON that a terminal shows as it is: what visible() escapes becomes \u escapes. Such characters stand in
// texts only, so that a program reads the same document.
std::string visibleJson(std::string_view json);

// Well-formed UTF-8 throughout.
bool isUtf8(std::string_view text);

// Whether a character of the text, which is UTF-8, is one of those.
bool anyCharacter(std::string_view text, bool (*isOne)(char32_t code));

} // namespace ozuctl

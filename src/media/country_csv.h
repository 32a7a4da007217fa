// Lines of the panel's country file.
#pragma once

#include <cstddef>

namespace ozu {

// Cuts a line in place into at most maxCount fields and returns how many there are. A comma ends a field
// unless it stands between double quotes. A field with balanced quotes is what stands between its first and
// its last one; with unbalanced quotes it stays whole.
std::size_t splitCsvFields(char *line, char **fields, std::size_t maxCount) noexcept;

// Copies a text upper-cased and without spaces and line ends. At most size - 1 characters of the source are
// looked at, skipped ones included. A null source is the empty text.
void normalizeCountryField(char *destination, const char *source, std::size_t size) noexcept;

} // namespace ozu

#include <media/country_csv.h>

namespace ozu {

namespace {

// Takes one field off the line, which moves on behind it, to null after the last one.
char *takeField(char *&line) noexcept {
    char *field = line;
    char *firstQuote = nullptr;
    char *lastQuote = nullptr;
    bool quoted = false;
    char *c = line;
    for (; *c != '\0' && (quoted || *c != ','); ++c) {
        if (*c == '"') {
            quoted = !quoted;
            firstQuote = firstQuote == nullptr ? c : firstQuote;
            lastQuote = c;
        }
    }
    line = *c == '\0' ? nullptr : c + 1;
    *c = '\0';
    if (firstQuote == nullptr || quoted) {
        return field;
    }
    *lastQuote = '\0';
    return firstQuote + 1;
}

// Letters as ASCII has them: a process's locale does not change the country it is in.
constexpr char upperCase(char c) noexcept {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

} // namespace

std::size_t splitCsvFields(char *line, char **fields, std::size_t maxCount) noexcept {
    std::size_t count = 0;
    while (count < maxCount && line != nullptr) {
        fields[count++] = takeField(line);
    }
    return count;
}

void normalizeCountryField(char *destination, const char *source, std::size_t size) noexcept {
    if (source != nullptr) {
        for (std::size_t budget = size - 1; budget > 0 && *source != '\0'; --budget, ++source) {
            if (*source != ' ' && *source != '\n' && *source != '\r') {
                *destination++ = upperCase(*source);
            }
        }
    }
    *destination = '\0';
}

} // namespace ozu

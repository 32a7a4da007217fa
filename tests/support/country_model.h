// A second reading of the country file's rules, as strings.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace ozu::test {

struct CountryAnswer {
    unsigned result;
    std::string alpha2, alpha3, numeric;
    bool operator==(const CountryAnswer &) const = default;
};

inline void PrintTo(const CountryAnswer &answer, std::ostream *out) {
    *out << answer.result << ' ' << answer.alpha2 << ' ' << answer.alpha3 << ' ' << answer.numeric;
}

inline std::string normalCountryText(const std::optional<std::string> &text, std::size_t size) {
    std::string normal;
    for (const char c : text.value_or("").substr(0, size - 1)) {
        if (std::string(" \n\r").find(c) == std::string::npos) {
            normal += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
        }
    }
    return normal;
}

inline std::vector<std::optional<std::string>> modelFields(const std::string &line) {
    std::vector<std::string> pieces(1);
    bool quoted = false;
    for (const char c : line) {
        quoted ^= c == '"';
        if (c == ',' && !quoted) {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    std::vector<std::optional<std::string>> fields(4);
    for (std::size_t i = 0; i < std::min<std::size_t>(4, pieces.size()); ++i) {
        const std::string &piece = pieces[i];
        const auto quotes = std::count(piece.begin(), piece.end(), '"');
        const std::size_t first = piece.find('"'), last = piece.rfind('"');
        fields[i] = quotes > 0 && quotes % 2 == 0 ? piece.substr(first + 1, last - first - 1) : piece;
    }
    return fields;
}

inline std::vector<std::string> modelLines(const std::string &content) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < content.size();) {
        const std::size_t feed = content.find('\n', at);
        const std::size_t length =
            std::min<std::size_t>(127, (feed == std::string::npos ? content.size() : feed + 1) - at);
        const std::string line = content.substr(at, length);
        lines.push_back(line.substr(0, line.find('\0')));
        at += length;
    }
    return lines;
}

inline CountryAnswer modelRow(const std::vector<std::optional<std::string>> &fields) {
    std::string numeric = normalCountryText(fields[3], 4);
    if (numeric.size() < 3) {
        char padded[16];
        snprintf(padded, sizeof(padded), "%03d", atoi(numeric.c_str())); // NOLINT(cert-err34-c)
        numeric = padded;
    }
    return {1, normalCountryText(fields[1], 3), normalCountryText(fields[2], 4), numeric};
}

inline std::optional<CountryAnswer> countryModel(const std::string &content, const std::string &country) {
    const std::string key = normalCountryText(country, 64);
    if (key.empty()) {
        return std::nullopt;
    }
    std::optional<CountryAnswer> found;
    for (const std::string &line : modelLines(content)) {
        if (!line.empty() && line[0] == '#') {
            continue;
        }
        const auto fields = modelFields(line);
        const std::string name = normalCountryText(fields[0], 64);
        if (!name.empty() && name == key) {
            return modelRow(fields);
        }
        if (name.find(',') != std::string::npos && name.substr(0, name.find(',')) == key) {
            found = modelRow(fields);
        }
    }
    return found;
}

} // namespace ozu::test

#include "log_line.h"

#include "severity.h"

#include <array>
#include <cstdio>

namespace ozu::platform {

namespace {

// Room for the time, its blank and the line feed.
constexpr std::size_t kTimeRoom = 32;

// Length of the well-formed, printable UTF-8 character at the start of the text, 0 for none.
std::size_t printableLength(std::string_view text) noexcept {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = at(0);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const unsigned char second = at(1);
    const bool control = first == 0xC2 && second < 0xA0; // U+0080 to U+009F
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool outside = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    return control || overlong || outside ? 0 : length;
}

std::string escapedByte(unsigned char byte) {
    switch (byte) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default: {
        constexpr std::string_view digits = "0123456789ABCDEF";
        return {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    }
    }
}

} // namespace

std::string formatText(const char *format, std::va_list arguments) {
    if (format == nullptr) {
        return "(no format)";
    }
    std::array<char, kLongestLine> text; // NOLINT: filled by the next line
    const int length = vsnprintf(text.data(), text.size(), format, arguments);
    if (length < 0) {
        return "(text cannot be formatted)";
    }
    const auto size = static_cast<std::size_t>(length);
    return {text.data(), size < text.size() ? size : text.size() - 1};
}

std::string escaped(std::string_view text, std::size_t most) {
    constexpr std::string_view kCut = "...";
    std::string line;
    std::size_t cutAt = 0; // where the line may end so that the mark of the cut still fits
    while (!text.empty()) {
        const std::size_t length = printableLength(text);
        std::string piece = length == 0       ? escapedByte(static_cast<unsigned char>(text[0]))
                            : text[0] == '\\' ? std::string("\\\\")
                                              : std::string(text.substr(0, length));
        if (line.size() + piece.size() > most) {
            line.resize(cutAt);
            return line.append(kCut.substr(0, most));
        }
        line += piece;
        if (line.size() + kCut.size() <= most) {
            cutAt = line.size();
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return line;
}

std::string lineBody(int level, const std::string &process, int pid, const LinePosition &position,
                     std::string_view text) {
    constexpr std::size_t kLongestName = 128;
    std::string body = std::to_string(level) + ' ' + severityRow(level).letter + ' ' +
                       escaped(process, kLongestName) + '[' + std::to_string(pid) + "] ";
    if (position.source == nullptr) {
        body += "- - ";
    } else {
        body += escaped(position.source, kLongestName) + ' ' +
                escaped(position.function != nullptr ? position.function : "-", kLongestName) + ':' +
                std::to_string(position.line) + ' ';
    }
    return body + escaped(text, kLongestLine - kTimeRoom - body.size());
}

} // namespace ozu::platform

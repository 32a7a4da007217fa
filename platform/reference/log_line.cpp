#include "log_line.h"

#include "severity.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace ozu::platform {

namespace {

// Room for the time, its space and the line feed.
constexpr std::size_t kTimeRoom = 32;

struct Range {
    char32_t first;
    char32_t last;
};

// Characters that nobody sees, or that change how a terminal shows others: controls, marks and overrides of
// direction, line and paragraph separators, joiners, tags, and what is no character at all.
constexpr std::array<Range, 14> kUnprintable{{{0x0000, 0x001F},
                                              {0x007F, 0x009F},
                                              {0x00AD, 0x00AD},
                                              {0x061C, 0x061C},
                                              {0x180E, 0x180E},
                                              {0x200B, 0x200F},
                                              {0x2028, 0x202E},
                                              {0x2060, 0x206F},
                                              {0xD800, 0xDFFF},
                                              {0xFDD0, 0xFDEF},
                                              {0xFEFF, 0xFEFF},
                                              {0xFFF9, 0xFFFB},
                                              {0xFFFE, 0xFFFF},
                                              {0xE0000, 0xE0FFF}}};

constexpr bool isPrintable(char32_t character) noexcept {
    return std::none_of(kUnprintable.begin(), kUnprintable.end(), [=](const Range &range) {
        return character >= range.first && character <= range.last;
    });
}

// Length of the well-formed, printable UTF-8 character at the start of the text, 0 for none.
std::size_t printableLength(std::string_view text) noexcept {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = at(0);
    if (first < 0x80) {
        return isPrintable(first) ? 1 : 0;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return 0;
    }
    constexpr std::array<unsigned char, 5> kFirstBits{0, 0, 0x1F, 0x0F, 0x07};
    char32_t character = first & kFirstBits[length];
    for (std::size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xC0) != 0x80) {
            return 0;
        }
        character = character << 6 | (at(i) & 0x3F);
    }
    constexpr std::array<char32_t, 5> kLeast{0, 0, 0x80, 0x800, 0x10000}; // a shorter form would do
    return character >= kLeast[length] && character <= 0x10FFFF && isPrintable(character) ? length : 0;
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
    std::array<char, kMaxLine> text; // NOLINT: filled by the next line
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
    constexpr std::size_t kMaxName = 128;
    std::string body = std::to_string(level) + ' ' + severityRow(level).letter + ' ' +
                       escaped(process, kMaxName) + '[' + std::to_string(pid) + "] ";
    if (position.source == nullptr) {
        body += "- - ";
    } else {
        body += escaped(position.source, kMaxName) + ' ' +
                escaped(position.function != nullptr ? position.function : "-", kMaxName) + ':' +
                std::to_string(position.line) + ' ';
    }
    return body + escaped(text, kMaxLine - kTimeRoom - body.size());
}

} // namespace ozu::platform

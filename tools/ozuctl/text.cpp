#include "text.h"

#include <cstdint>

namespace ozuctl {

namespace {

struct Character {
    char32_t code;      // meaningless when length is 0
    std::size_t length; // bytes; 0: the first byte begins no character
};

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0U) == 0x80U;
}

// The character at the start of a text that is not empty.
Character characterOf(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        return {first, 1};
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return {0, 0};
    }
    char32_t code = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (!isContinuation(byte)) {
            return {0, 0};
        }
        code = code << 6 | (byte & 0x3FU);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool outside = code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF);
    return overlong || outside ? Character{0, 0} : Character{code, length};
}

struct Span {
    char32_t first, last;
};

// Not seen, or seen as something else: controls, directions, separators of lines, tags.
constexpr Span kHidden[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},      {0x180B, 0x180F},
    {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFE00, 0xFE0F},    {0xFEFF, 0xFEFF},
    {0xFFF0, 0xFFFB}, {0xFFFE, 0xFFFF}, {0xE000, 0xF8FF}, {0xE0000, 0x10FFFF},
};

bool isHidden(char32_t code) {
    for (const Span &span : kHidden) {
        if (code >= span.first && code <= span.last) {
            return true;
        }
    }
    return false;
}

// A number in hexadecimal, with so many digits at least.
std::string hexadecimal(std::uint32_t value, std::size_t digits, const char *alphabet) {
    std::string text;
    for (; value != 0 || text.size() < digits; value >>= 4) {
        text.insert(text.begin(), alphabet[value & 15U]);
    }
    return text;
}

constexpr const char *kUpper = "0123456789ABCDEF";
constexpr const char *kLower = "0123456789abcdef";

std::string escapedCharacter(char32_t code) {
    switch (code) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        return code < 0x80 ? "\\x" + hexadecimal(code, 2, kUpper)
                           : "\\u{" + hexadecimal(code, 1, kUpper) + "}";
    }
}

// Goes through a text; what is hidden, or no character (length 0), is handed to the function.
template <class Escape>
std::string transformed(std::string_view text, Escape &&escape) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Character character = characterOf(text);
        const std::size_t length = character.length == 0 ? 1 : character.length;
        if (character.length == 0 || isHidden(character.code)) {
            result += escape(character, text.substr(0, length));
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string escapedPiece(const Character &character, std::string_view bytes) {
    return character.length == 0 ? "\\x" + hexadecimal(static_cast<unsigned char>(bytes[0]), 2, kUpper)
                                 : escapedCharacter(character.code);
}

std::string jsonEscape(char32_t code) {
    if (code < 0x10000) {
        return "\\u" + hexadecimal(code, 4, kLower);
    }
    const char32_t rest = code - 0x10000;
    return "\\u" + hexadecimal(0xD800 + (rest >> 10), 4, kLower) + "\\u" +
           hexadecimal(0xDC00 + (rest & 0x3FF), 4, kLower);
}

} // namespace

std::string visible(std::string_view text) {
    return transformed(text, escapedPiece);
}

std::string visibleLines(std::string_view text) {
    return transformed(text, [](const Character &character, std::string_view bytes) {
        return bytes == "\n" || bytes == "\t" ? std::string(bytes) : escapedPiece(character, bytes);
    });
}

std::string inQuotes(std::string_view text) {
    constexpr std::size_t kMaxShown = 120;
    std::string_view shown = text.substr(0, kMaxShown);
    // Not in the middle of a character.
    while (shown.size() < text.size() && !shown.empty() &&
           isContinuation(static_cast<unsigned char>(text[shown.size()]))) {
        shown.remove_suffix(1);
    }
    return "'" + visible(shown) + (shown.size() < text.size() ? "...'" : "'");
}

std::string visibleJson(std::string_view json) {
    return transformed(json, [](const Character &character, std::string_view bytes) {
        return bytes == "\n" ? std::string("\n") // between its lines; in texts it is escaped already
               : character.length == 0 ? std::string("\\ufffd")
                                       : jsonEscape(character.code);
    });
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = characterOf(text).length;
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

bool anyCharacter(std::string_view text, bool (*isOne)(char32_t code)) {
    while (!text.empty()) {
        const Character character = characterOf(text);
        if (character.length == 0 || isOne(character.code)) {
            return true;
        }
        text.remove_prefix(character.length);
    }
    return false;
}

} // namespace ozuctl

#include "secrets.h"

#include <algorithm>
#include <array>
#include <vector>

namespace ozuctl {

namespace {

constexpr std::size_t kKeyDigits = 32;

constexpr std::string_view kSecretWords[] = {
    "key",    "mask",     "iv",   "token",         "secret", "password", "passwd", "passphrase",
    "pass",   "pwd",      "pin",  "credential",    "cookie", "imsi",     "imei",   "iccid",
    "serial", "serialno", "auth", "authorization", "psk",    "cipher",   "cypher", "credentials"};

bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}
bool isDecimal(char c) {
    return c >= '0' && c <= '9';
}
bool isHexDigit(char c) {
    return isDecimal(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isNameCharacter(char c) {
    return isUpper(c) || isLower(c) || isDecimal(c) || c == '_' || c == '.' || c == '-';
}

// Words of "dbKey", "DB_KEY", "db.key2", in lower case.
std::vector<std::string> wordsOf(std::string_view name) {
    std::vector<std::string> words(1);
    char before = '\0';
    for (const char c : name) {
        const bool letter = isUpper(c) || isLower(c);
        if (!letter || (isUpper(c) && isLower(before))) {
            words.emplace_back();
        }
        if (letter) {
            words.back() += static_cast<char>(isUpper(c) ? c - 'A' + 'a' : c);
        }
        before = c;
    }
    return words;
}

bool isSecretWord(std::string_view word) {
    const std::string_view one = word.ends_with('s') ? word.substr(0, word.size() - 1) : word;
    return std::ranges::find(kSecretWords, word) != std::end(kSecretWords) ||
           std::ranges::find(kSecretWords, one) != std::end(kSecretWords);
}

// Where the value after a name's '=' or ':' ends.
std::size_t endOfValue(std::string_view text, std::size_t begin) {
    if (begin < text.size() && (text[begin] == '"' || text[begin] == '\'')) {
        const std::size_t quote = text.find(text[begin], begin + 1);
        return quote == std::string_view::npos ? text.size() : quote + 1;
    }
    const std::size_t end = text.find_first_of(" \t\n,;&", begin);
    return end == std::string_view::npos ? text.size() : end;
}

// Behind a name: past '=' or ':', a closing quote and spaces around them; 0 when nothing is assigned.
std::size_t beginOfValue(std::string_view text, std::size_t at) {
    if (at < text.size() && (text[at] == '"' || text[at] == '\'')) {
        ++at;
    }
    while (at < text.size() && text[at] == ' ') {
        ++at;
    }
    if (at >= text.size() || (text[at] != '=' && text[at] != ':')) {
        return 0;
    }
    ++at;
    while (at < text.size() && (text[at] == ' ' || text[at] == '=')) {
        ++at;
    }
    return at;
}

// "Bearer abc", "Basic abc": a value of two words.
std::size_t pastScheme(std::string_view text, std::size_t begin) {
    for (const std::string_view scheme : {"Bearer ", "Basic ", "bearer ", "basic "}) {
        if (text.substr(begin).starts_with(scheme)) {
            return begin + scheme.size();
        }
    }
    return begin;
}

} // namespace

bool isSecretName(std::string_view name) {
    const auto words = wordsOf(name);
    return std::ranges::any_of(words, [](const std::string &word) { return isSecretWord(word); });
}

std::string withoutSecrets(std::string_view text) {
    std::string result;
    std::size_t at = 0;
    while (at < text.size()) {
        if (!isNameCharacter(text[at])) {
            // user:password@ of a URL
            if (text.substr(at).starts_with("://")) {
                const std::size_t end = text.find_first_of(" \t\n/\"'", at + 3);
                const std::size_t sign = text.substr(0, end).rfind('@');
                if (sign != std::string_view::npos && sign > at) {
                    result += std::string("://") + kLeftOut;
                    at = sign;
                    continue;
                }
            }
            result += text[at++];
            continue;
        }
        std::size_t end = at;
        while (end < text.size() && isNameCharacter(text[end])) {
            ++end;
        }
        const std::string_view word = text.substr(at, end - at);
        const std::size_t value = isSecretName(word) ? beginOfValue(text, end) : 0;
        if (value != 0) {
            result += text.substr(at, value - at);
            result += kLeftOut;
            at = endOfValue(text, pastScheme(text, value));
            continue;
        }
        const bool key = word.size() >= kKeyDigits && std::ranges::all_of(word, isHexDigit);
        result += key ? std::string_view(kLeftOut) : word;
        at = end;
    }
    return result;
}

} // namespace ozuctl

// Changing a text in its own buffer.

#include <utils_ozu/text.h>

#include <utils_ozu/results.h>

#include <cstring>

unsigned int ozuutils_replaceSubstrInStr(char *str, const char *find, const char *replacement,
                                         unsigned int /*bufSize*/) noexcept {
    if (str == nullptr || find == nullptr || *find == '\0') {
        return OZU_RESULT_INVALID;
    }
    if (replacement == nullptr) {
        replacement = "";
    }
    const char *found = strstr(str, find);
    if (found == nullptr) {
        return OZU_RESULT_OK;
    }
    const char *tail = found + strlen(find);
    const auto prefixLength = static_cast<std::size_t>(found - str);
    const std::size_t replacementLength = strlen(replacement);
    const std::size_t tailSize = strlen(tail) + 1;
    const std::size_t resultSize = prefixLength + replacementLength + tailSize;
    // The result is put together beside str, which the replacement may be part of.
    auto *scratch = static_cast<char *>(__builtin_alloca(resultSize));
    memcpy(scratch, str, prefixLength);
    memcpy(scratch + prefixLength, replacement, replacementLength);
    memcpy(scratch + prefixLength + replacementLength, tail, tailSize);
    memcpy(str, scratch, resultSize);
    return OZU_RESULT_OK;
}

void replace_char_from_string(int from, int to, char *s) noexcept {
    if (s == nullptr) {
        return;
    }
    const std::size_t length = strlen(s);
    for (std::size_t i = 0; i < length; ++i) {
        if (static_cast<unsigned char>(s[i]) == from) {
            s[i] = static_cast<char>(to);
        }
    }
}

// Bounded copies.

#include <utils_ozu/text.h>

#include <cctype>
#include <cerrno> // program_invocation_short_name
#include <cstring>

#include <algorithm>

namespace {

template <int (*MapCase)(int)>
char *copyMapped(char *dst, const char *src, unsigned int n) noexcept {
    if (dst == nullptr || src == nullptr) {
        return nullptr;
    }
    const std::size_t length = strnlen(src, n);
    for (std::size_t i = 0; i < length; ++i) {
        dst[i] = static_cast<char>(MapCase(static_cast<unsigned char>(src[i])));
    }
    dst[length] = '\0';
    return dst;
}

} // namespace

char *ozuutils_strncpy2Lower(char *dst, const char *src, unsigned int n) noexcept {
    return copyMapped<tolower>(dst, src, n);
}

char *ozuutils_strncpy2Upper(char *dst, const char *src, unsigned int n) noexcept {
    return copyMapped<toupper>(dst, src, n);
}

unsigned int ozuutils_strlcpy(char *dst, const char *src, unsigned int size) noexcept {
    const std::size_t length = src == nullptr ? 0 : strlen(src);
    if (dst != nullptr && size > 0) {
        const std::size_t copied = std::min<std::size_t>(size - 1, length);
        if (copied > 0) {
            memmove(dst, src, copied);
        }
        dst[copied] = '\0';
    }
    return static_cast<unsigned int>(length);
}

void ozuutils_FixedStringCopyAndTrimRight(char *dst, unsigned int dstSize, const char *src,
                                          unsigned int srcLen) noexcept {
    unsigned int end = std::min(dstSize - 1, srcLen);
    memmove(dst, src, end);
    dst[end] = '\0';
    while (end > 0 && dst[end - 1] == ' ') {
        dst[--end] = '\0';
    }
}

char *ozuutils_getShortUpperModName(char *dst, const char *name, unsigned int size) noexcept {
    if (dst == nullptr) {
        return nullptr;
    }
    memset(dst, 0, size);
    const char *source = name != nullptr ? name : program_invocation_short_name;
    memcpy(dst, source, strnlen(source, size - 1));
    dst[size - 1] = '\0';
    return ozuutils_strncpy2Upper(dst, dst, size);
}

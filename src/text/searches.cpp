// Checks of texts and searches in bytes; nothing is changed.

#include <utils_ozu/text.h>

#include <cstring>

unsigned int ozuutils_isStringIsStandardAscii(const char *s) noexcept {
    if (s == nullptr) {
        return 0;
    }
    for (; *s != '\0'; ++s) {
        if (static_cast<unsigned char>(*s) > 0x7F) {
            return 0;
        }
    }
    return 1;
}

unsigned char *ozuutils_searchInBuf(const unsigned char *buf, const unsigned char *pattern,
                                    unsigned int bufLen, unsigned int patLen) noexcept {
    // memmem() would look at a pattern of one byte even then.
    if (patLen > bufLen) {
        return nullptr;
    }
    return static_cast<unsigned char *>(memmem(buf, bufLen, pattern, patLen));
}

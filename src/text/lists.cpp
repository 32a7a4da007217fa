// Lists of items separated by commas.

#include <utils_ozu/text.h>

#include <cstdio>
#include <cstring>

namespace {

// Where the item stands in the list as a whole token, or null. Commas without a token between them are
// skipped.
const char *findToken(const char *list, const char *item, std::size_t itemLength) noexcept {
    for (const char *end = list; *list != '\0'; list = *end == ',' ? end + 1 : end) {
        end = strchrnul(list, ',');
        const auto length = static_cast<std::size_t>(end - list);
        if (length > 0 && length == itemLength && memcmp(list, item, length) == 0) {
            return list;
        }
    }
    return nullptr;
}

// Takes out the item and one comma beside it.
void cutOut(char *list, std::size_t listLength, std::size_t offset, std::size_t itemLength) noexcept {
    const std::size_t end = offset + itemLength;
    if (offset > 0) {
        memmove(&list[offset - 1], &list[end], listLength - end + 1);
    } else if (itemLength < listLength) {
        memmove(list, &list[end + 1], listLength - end);
    } else {
        list[0] = '\0';
    }
}

} // namespace

unsigned int ozuutils_addToCommaSeparatedStringList(char *list, const char *item,
                                                    unsigned int listSize) noexcept {
    if (list == nullptr || item == nullptr || *item == '\0') {
        return 0;
    }
    const std::size_t listLength = strlen(list);
    const std::size_t itemLength = strlen(item);
    const std::size_t commaLength = listLength > 0 ? 1 : 0;
    if (itemLength + listLength + commaLength >= listSize) {
        return 0;
    }
    static_cast<void>(
        snprintf(list + listLength, listSize - listLength, listLength > 0 ? ",%s" : "%s", item));
    return 1;
}

unsigned int ozuutils_removeFromCommaSeparatedStringList(char *list, const char *item,
                                                         unsigned int maxLen) noexcept {
    if (list == nullptr || item == nullptr) {
        return 0;
    }
    const std::size_t listLength = strnlen(list, maxLen);
    const std::size_t itemLength = strnlen(item, maxLen);
    if (listLength == maxLen || itemLength == maxLen) {
        return 0;
    }
    const char *token = findToken(list, item, itemLength);
    if (token == nullptr) {
        return 0;
    }
    const auto offset = static_cast<std::size_t>(token - list);
    cutOut(list, listLength, offset, itemLength);
    // Part of what the function does, as odd as it looks: callers' consoles show this trace.
    printf("\n--%d--", static_cast<int>(listLength - offset - itemLength + 1));
    return 1;
}

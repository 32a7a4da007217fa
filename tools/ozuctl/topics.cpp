#include "topics.h"

#include "context.h"
#include "text.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace ozuctl {

namespace {

constexpr std::size_t kMaxTopicBytes = 65535;
constexpr std::ptrdiff_t kMaxLevels = 200; // of the broker
constexpr std::string_view kShared = "$share";

bool isControl(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code <= 0x9F);
}

bool isNoncharacter(char32_t code) {
    return (code & 0xFFFE) == 0xFFFE || (code >= 0xFDD0 && code <= 0xFDEF);
}

[[noreturn]] void refuse(const std::string &topic, const std::string &why) {
    throw CommandError(kUsage, "the topic " + inQuotes(topic) + " " + why);
}

void requireText(const std::string &topic) {
    if (topic.empty()) {
        throw CommandError(kUsage, "the topic is empty; a topic is a text like Process/ALL");
    }
    if (topic.size() > kMaxTopicBytes) {
        refuse(topic, "is too long: at most 65535 bytes");
    }
    if (!isUtf8(topic)) {
        refuse(topic, "is not UTF-8");
    }
    if (anyCharacter(topic, isControl)) {
        refuse(topic, "holds a control character");
    }
    if (anyCharacter(topic, isNoncharacter)) {
        refuse(topic, "holds a code point that is no character");
    }
    if (std::ranges::count(topic, '/') >= kMaxLevels) {
        refuse(topic, "has more than 200 levels");
    }
}

// "$share/GROUP/FILTER": the members of a group share what comes.
void requireGroup(const std::string &filter) {
    const std::string_view rest =
        std::string_view(filter).substr(std::min(filter.size(), kShared.size() + 1));
    const std::size_t end = rest.find('/');
    if (end == std::string_view::npos || end == 0 || end + 1 == rest.size() ||
        rest.substr(0, end).find_first_of("+#") != std::string_view::npos) {
        refuse(filter, "names no group: $share/GROUP/FILTER, and no wildcard in GROUP");
    }
}

} // namespace

void requireTopic(const std::string &topic) {
    requireText(topic);
    if (topic.find_first_of("+#") != std::string::npos) {
        refuse(topic, "holds a wildcard ('+' or '#'): a message goes to one topic");
    }
    if (topic[0] == '$') {
        refuse(topic, "begins with '$': such topics are the broker's own");
    }
}

void requireFilter(const std::string &filter) {
    requireText(filter);
    if (filter == kShared || filter.starts_with(std::string(kShared) + "/")) {
        requireGroup(filter);
    }
    std::string_view rest = filter;
    for (;;) {
        const std::size_t end = rest.find('/');
        const std::string_view level = rest.substr(0, end);
        const bool last = end == std::string_view::npos;
        if (level.find('#') != std::string_view::npos && (level.size() > 1 || !last)) {
            refuse(filter, "has '#' in the middle: it stands alone as the last level, as in a/#");
        }
        if (level.find('+') != std::string_view::npos && level.size() > 1) {
            refuse(filter, "has '+' beside other characters: it stands for a whole level, as in a/+/b");
        }
        if (last) {
            return;
        }
        rest.remove_prefix(end + 1);
    }
}

} // namespace ozuctl

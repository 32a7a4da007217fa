#include "topics.h"

#include "context.h"
#include "text.h"

#include <string_view>

namespace ozuctl {

namespace {

constexpr std::size_t kMaxTopicBytes = 65535;

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

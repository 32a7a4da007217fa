#include "bus_text.h"

#include <mosquitto.h>

#include <algorithm>

namespace ozu::platform {

namespace {

constexpr std::size_t kMaxText = 65535;    // two bytes tell the length
constexpr std::ptrdiff_t kMaxLevels = 200; // of the broker
constexpr std::string_view kShared = "$share/";
constexpr std::string_view kStatus = "$SYS";

bool isText(std::string_view text) noexcept {
    return text.size() <= kMaxText && text.find('\0') == std::string_view::npos &&
           mosquitto_validate_utf8(text.data(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS;
}

bool isTopicText(std::string_view topic) noexcept {
    return !topic.empty() && isText(topic) && std::count(topic.begin(), topic.end(), '/') < kMaxLevels;
}

// "$share/GROUP/FILTER": neither may be empty, the group has no wildcards.
bool isSharedFilter(std::string_view filter) noexcept {
    const std::string_view rest = filter.substr(kShared.size());
    const std::size_t end = rest.find('/');
    return end != std::string_view::npos && end != 0 && end + 1 < rest.size() &&
           rest.substr(0, end).find_first_of("+#") == std::string_view::npos;
}

// The broker lets nobody publish there, and may end the session of a process that tries.
bool isBrokers(std::string_view topic) noexcept {
    return topic.starts_with(kStatus) || topic == "$share" || topic.starts_with(kShared);
}

} // namespace

bool isPublishable(std::string_view topic) noexcept {
    return isTopicText(topic) && !isBrokers(topic) &&
           mosquitto_pub_topic_check2(topic.data(), topic.size()) == MOSQ_ERR_SUCCESS;
}

bool isSubscribable(std::string_view filter) noexcept {
    return isTopicText(filter) && filter != "$share" &&
           (!filter.starts_with(kShared) || isSharedFilter(filter)) &&
           mosquitto_sub_topic_check2(filter.data(), filter.size()) == MOSQ_ERR_SUCCESS;
}

bool isLabel(std::string_view label) noexcept {
    return isText(label);
}

} // namespace ozu::platform

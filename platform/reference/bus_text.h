// What may be said on the bus: texts that the broker takes, so that none of them makes it end the session.
#pragma once

#include <string_view>

namespace ozu::platform {

// A topic that a message can be sent to: 1 to 65535 bytes of UTF-8 without control characters, at most 200
// levels, no wildcards.
bool isPublishable(std::string_view topic) noexcept;

// A topic or a filter that can be subscribed to; wildcards stand for whole levels, '#' for the last ones.
bool isSubscribable(std::string_view filter) noexcept;

// A sender's label: at most 65535 bytes of UTF-8 without control characters, may be empty.
bool isLabel(std::string_view label) noexcept;

} // namespace ozu::platform

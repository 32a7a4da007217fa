// Topics of the bus, checked as the broker would.
#pragma once

#include <string>

namespace ozuctl {

// Throw CommandError(kUsage) and say what is wrong with the topic: to publish to, or to subscribe to with
// wildcards.
void requireTopic(const std::string &topic);
void requireFilter(const std::string &filter);

} // namespace ozuctl

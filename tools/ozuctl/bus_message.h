// A message of the panel's bus as a happening.
#pragma once

#include "timeline.h"

#include <mosquitto.h>

namespace ozuctl {

// With the sender's label, class, command and time, which stand in its properties. Anybody may have sent it.
Happening messageHappening(const mosquitto_message &message, const mosquitto_property *properties);

} // namespace ozuctl

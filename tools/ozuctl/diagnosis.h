// What a panel's platform needs, and whether it is there.
#pragma once

#include "output.h"

namespace ozuctl {

// A row for each check: check, state (ok, note, wrong), found, advice (empty where nothing is to be done).
Json diagnosis();

// Whether something is wrong.
bool isSound(const Json &rows);

} // namespace ozuctl

// Failures of the reference platform as ozuctl reports them.
#pragma once

#include "context.h"

#include <string>

namespace ozuctl {

// What ended a command: the code in words, the data folder, what helps; with the fitting exit status.
CommandError platformFailure(const std::string &doing, int code);

} // namespace ozuctl

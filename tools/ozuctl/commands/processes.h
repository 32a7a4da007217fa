// The processes that have entered the panel's log list.
#pragma once

#include "output.h"

namespace ozuctl {

// One row per running process: process, pid, severity, since.
Json runningProcesses();

} // namespace ozuctl

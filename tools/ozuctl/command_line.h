// Reads ozuctl's command line, and says in words what is wrong with it.
#pragma once

#include "context.h"

#include <CLI/CLI.hpp>

namespace ozuctl {

// Parses; prints a help or the version where that is asked for, and returns false then. Throws
// CommandError(kUsage) otherwise when the line is wrong.
bool parseCommandLine(CLI::App &app, int argc, char **argv);

} // namespace ozuctl

// ozuctl scenario: tests of panel processes in plain text.
#pragma once

#include "context.h"

#include <CLI/CLI.hpp>

namespace ozuctl {

void registerScenario(CLI::App &app, Context &context);

} // namespace ozuctl

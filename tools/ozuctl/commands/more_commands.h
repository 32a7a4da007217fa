// The command groups that look at happenings of a panel, keep them, and look after the panel's installation.
#pragma once

#include "commands/commands.h"

namespace ozuctl {

void registerCompletion(CLI::App &app, Context &context);
void registerDoctor(CLI::App &app, Context &context);
void registerLog(CLI::App &app, Context &context);
void registerReplay(CLI::App &app, Context &context);
void registerSettings(CLI::App &app, Context &context);
void registerWaitFor(CLI::App &app, Context &context);

} // namespace ozuctl

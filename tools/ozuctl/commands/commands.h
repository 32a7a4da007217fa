// The command groups of ozuctl. Each adds its subcommands to the application; a subcommand's callback stores
// what is to run in context.command.
#pragma once

#include "context.h"
#include "output.h"

#include <CLI/CLI.hpp>

namespace ozuctl {

// Where the arguments say "box VERB ...", this process becomes the panel-box script, which reads all that
// follows itself; its exit status is ozuctl's.
void becomeBoxIfAsked(char **arguments);

void registerBox(CLI::App &app, Context &context);
void registerDeviceType(CLI::App &app, Context &context);
void registerError(CLI::App &app, Context &context);
void registerEvents(CLI::App &app, Context &context);
void registerGpio(CLI::App &app, Context &context);
void registerIdentity(CLI::App &app, Context &context);
void registerImsi(CLI::App &app, Context &context);
void registerModem(CLI::App &app, Context &context);
void registerMonitor(CLI::App &app, Context &context);
void registerBus(CLI::App &app, Context &context);
void registerCall(CLI::App &app, Context &context);
void registerNet(CLI::App &app, Context &context);
void registerNames(CLI::App &app, Context &context);
void registerNxp(CLI::App &app, Context &context);
void registerPartition(CLI::App &app, Context &context);
void registerCrypt(CLI::App &app, Context &context);
void registerMedia(CLI::App &app, Context &context);
void registerProcesses(CLI::App &app, Context &context);
void registerRsu(CLI::App &app, Context &context);
void registerScenario(CLI::App &app, Context &context);
void registerSeverity(CLI::App &app, Context &context);
void registerState(CLI::App &app, Context &context);
void registerStatus(CLI::App &app, Context &context);
void registerSystem(CLI::App &app, Context &context);
void registerTime(CLI::App &app, Context &context);
void registerCompletion(CLI::App &app, Context &context);
void registerDoctor(CLI::App &app, Context &context);
void registerDraw(CLI::App &app, Context &context);
void registerLog(CLI::App &app, Context &context);
void registerReplay(CLI::App &app, Context &context);
void registerReport(CLI::App &app, Context &context);
void registerSettings(CLI::App &app, Context &context);
void registerWaitFor(CLI::App &app, Context &context);

} // namespace ozuctl

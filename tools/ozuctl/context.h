// What every command of ozuctl shares: global options, exit codes, the panel it talks to.
#pragma once

#include <ozudb.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace ozuctl {

enum ExitCode {
    kDone = 0,          // done, or yes
    kNo = 1,            // no, or not found
    kUsage = 2,         // the command line is wrong
    kUnreachable = 3,   // the platform cannot be reached
    kLibraryFailed = 4, // the library reported a failure
    kRefused = 5,       // refused as unsafe
    kTimedOut = 124,
};

// Ends a command: the message goes to standard error, the code is the exit status.
class CommandError : public std::runtime_error {
  public:
    CommandError(ExitCode status, const std::string &message) : std::runtime_error(message), code(status) {}
    ExitCode code;
};

class Context {
  public:
    bool json = false; // one JSON document, or JSON Lines for streams
    bool yes = false;  // consent to what changes the machine

    // The command line's command; set by the subcommand's callback, run by main.
    std::function<ExitCode()> command;

    // The panel's shared record, for reading. Throws kUnreachable and says what to do when it is not there.
    static const PanelSharedState &state();

    // Changes the record the way the platform's own writers do, and makes it first if need be.
    static void changeState(const std::function<void(PanelSharedState &)> &change);

    // Starts ozuctl as a panel process on the bus; needed by commands that publish or listen. The session's
    // name is OZUCTL_1, or a higher number while others run. Throws kUnreachable.
    static void startPanelProcess(void *mqttArg = nullptr);

    // In a panel box, where changing the machine changes nothing but the box.
    static bool insideBox();

    // Throws kRefused unless inside a box or --yes was given. What: "reboots this machine".
    void requireConsent(const std::string &what) const;
};

} // namespace ozuctl

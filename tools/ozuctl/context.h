// What every command of ozuctl shares: global options, exit codes, the panel it talks to.
#pragma once

#include <ozudb.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace ozuctl {

enum ExitCode {
    kDone = 0,          // done, or yes
    kNo = 1,            // no, or not found
    kUsage = 2,         // the command line is wrong; nothing was done
    kUnreachable = 3,   // the platform cannot be reached
    kLibraryFailed = 4, // the library or the platform failed, or the output could not be written
    kRefused = 5,       // refused as unsafe
    kRebooted = 90,     // the panel box was rebooted
    kNoBoot = 91,       // the panel box could not boot
    kTimedOut = 124,
};

// Ends a command: the message goes to standard error, the code is the exit status. The message is one line;
// what was typed or came from outside stands in it through inQuotes(). The hint, of our own words only, may
// have several.
class CommandError : public std::runtime_error {
  public:
    CommandError(ExitCode status, const std::string &message, std::string hint = {})
        : std::runtime_error(message), code(status), hint_(std::move(hint)) {}
    ExitCode code;
    [[nodiscard]] const std::string &hint() const { return hint_; }

  private:
    std::string hint_;
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

    // What changes the panel asks here first, and makes what is missing from then on: until then this process
    // creates no data folder, no database and no shared segment. Consent is a panel box, --yes, or a yes at
    // the terminal; throws kRefused without it. What: "reboots this machine".
    void requireConsent(const std::string &what) const;
};

} // namespace ozuctl

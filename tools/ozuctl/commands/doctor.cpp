// ozuctl doctor: what is wrong with this panel's platform, and what to do about it.

#include "commands/commands.h"
#include "diagnosis.h"

namespace ozuctl {

namespace {

ExitCode doctor(const Context &context) {
    const Json rows = diagnosis();
    if (context.json) {
        print(context, rows);
    } else {
        for (const Json &one : rows) {
            writeLine(plainText(one["state"]) + "  " + plainText(one["check"]) + ": " +
                      plainText(one["found"]));
            if (one["advice"] != "") {
                writeLine("    " + plainText(one["advice"]));
            }
        }
    }
    return isSound(rows) ? kDone : kNo;
}

} // namespace

void registerDoctor(CLI::App &app, Context &context) {
    app.add_subcommand("doctor", "Check platform folder, database, record, broker, clock and rights; 1 when\n"
                                 "something is wrong")
        ->callback([&context] { context.command = [&context] { return doctor(context); }; });
}

} // namespace ozuctl

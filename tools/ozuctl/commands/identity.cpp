// ozuctl identity, dialer, keyfob: who the panel is, and lookups in its tables.

#include "arguments.h"
#include "commands/commands.h"

#include <utils_ozu/identity.h>

#include <memory>

namespace ozuctl {

namespace {

std::string identityIn(bool decimal) {
    char text[9] = {};
    if (calcConfigUniqueId(text, decimal ? 1 : 0) != 1) {
        throw CommandError(kLibraryFailed, "no network interface has a hardware address (see the log)");
    }
    return text;
}

ExitCode dialer(const Context &context, unsigned id, unsigned checkA, unsigned checkB) {
    static_cast<void>(Context::state());
    const int index = check_dial_table_id(id, checkB, checkA);
    print(context,
          {{"id", id}, {"index", index < 0 ? Json(nullptr) : Json(index)}, {"accepted", index >= 0}});
    return index < 0 ? kNo : kDone;
}

ExitCode keyfob(const Context &context, unsigned user) {
    static_cast<void>(Context::state());
    const int number = getSY9IdFromUser(user);
    print(context, {{"user", user}, {"keyfob", number == 0 ? Json(nullptr) : Json(number)}});
    return number == 0 ? kNo : kDone;
}

ExitCode profiles(const Context &context, int device) {
    static_cast<void>(Context::state());
    const bool supported = isUmkrlVersionSupportProfile(device) != 0;
    print(context, {{"device", device}, {"profiles", supported}});
    return supported ? kDone : kNo;
}

struct Numbers {
    unsigned id = 0;
    unsigned checkA = 0;
    unsigned checkB = 0;
    int device = 0;
};

} // namespace

void registerIdentity(CLI::App &app, Context &context) {
    CLI::App *command =
        app.add_subcommand("identity", "The panel's eight-character identity, from its hardware address");
    command->callback([&context] {
        context.command = [&context] {
            print(context, {{"hexadecimal", identityIn(false)}, {"decimal", identityIn(true)}});
            return kDone;
        };
    });

    auto given = std::make_shared<Numbers>();
    command = app.add_subcommand("dialer", "Whether the dialer table has an entry with these attributes");
    addNumber(*command, "ID", given->id, 0, 255, "1 to 16")->required();
    addNumber(*command, "A", given->checkA, 0, 255, "dialerCheckA")->required();
    addNumber(*command, "B", given->checkB, 0, 255, "dialerCheckB")->required();
    command->callback([given, &context] {
        context.command = [given, &context] {
            return dialer(context, given->id, given->checkA, given->checkB);
        };
    });

    command = app.add_subcommand("keyfob", "The SY9 keyfob of a user");
    addNumber(*command, "USER", given->id, 0, 255, "Number of the user")->required();
    command->callback(
        [given, &context] { context.command = [given, &context] { return keyfob(context, given->id); }; });

    command = app.add_subcommand("profiles", "Whether a UMKRL camera's firmware supports profiles");
    addNumber(*command, "DEVICE", given->device, 0, kMaxInt, "Index of the device")->required();
    command->callback([given, &context] {
        context.command = [given, &context] { return profiles(context, given->device); };
    });
}

} // namespace ozuctl

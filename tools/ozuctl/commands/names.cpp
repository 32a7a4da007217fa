// ozuctl names, device-type: names of device types and radio messages, both ways.

#include "arguments.h"
#include "commands/commands.h"
#include "device_types.h"
#include "named_numbers.h"

#include <utils_ozu/names.h>

#include <memory>

namespace ozuctl {

namespace {

constexpr int kCodes = 256; // more than any table has

struct Table {
    const char *word;
    const char *help;
    std::string (*nameOf)(int code);
    std::string (*subNameOf)(int code, int sub); // null: the table has no sub-codes
};

constexpr Table kTables[] = {
    {"device", "Device types", [](int code) -> std::string { return getDeviceTypeName(code); }, nullptr},
    {"tarn1", "Tarn-1 opcodes, with SUB their sub-opcodes",
     [](int code) -> std::string { return getTarn1OpcodeName(static_cast<unsigned>(code)); },
     [](int code, int sub) -> std::string { return getTarn1SubOpcodeName(code, sub); }},
    {"tarn1old", "Old Tarn-1 message types",
     [](int code) -> std::string { return getTarn1OldMessageTypeString(static_cast<unsigned>(code)); },
     nullptr},
    {"tarn2", "Tarn-2 message types",
     [](int code) -> std::string { return getTarn2MessageTypeName(static_cast<unsigned>(code)); }, nullptr},
    {"tarnplus", "Tarn-Plus opcodes, with SUB their sub-opcodes",
     [](int code) -> std::string { return getTarnPlusOpcodeName(static_cast<unsigned>(code)); },
     [](int code, int sub) -> std::string { return getTarnPlusSubOpcodeName(code, sub); }},
};

struct NamesOptions {
    std::optional<int> code;
    std::optional<int> sub;
};

NamedNumbers namesOf(const Table &table) {
    NamedNumbers names;
    for (int code = 0; code < kCodes; ++code) {
        if (std::string name = table.nameOf(code); name != kUnknownName) {
            names.push_back({std::move(name), code});
        }
    }
    return names;
}

ExitCode listTable(const Context &context, const Table &table) {
    Json rows = Json::array();
    for (const NamedNumber &one : namesOf(table)) {
        rows.push_back(coded(one.number, one.name));
    }
    print(context, rows);
    return kDone;
}

ExitCode showName(const Context &context, const Table &table, const NamesOptions &options) {
    if (!options.code) {
        return listTable(context, table);
    }
    std::string name = table.nameOf(*options.code);
    Json document = coded(*options.code, name);
    if (options.sub) {
        name = table.subNameOf(*options.code, *options.sub);
        document = {{"opcode", document}, {"subOpcode", coded(*options.sub, name)}};
    }
    print(context, document);
    return name == kUnknownName ? kNo : kDone;
}

} // namespace

void registerNames(CLI::App &app, Context &context) {
    CLI::App *names = app.add_subcommand(
        "names", "The name of a code in the panel's logs; without CODE the whole table. 1 when it has none");
    names->require_subcommand(1);
    for (const Table &table : kTables) {
        auto options = std::make_shared<NamesOptions>();
        CLI::App *command = names->add_subcommand(table.word, table.help);
        addChecked(
            *command, "CODE", "N",
            [options, &table](const std::string &what, const std::string &text) {
                options->code =
                    static_cast<int>(requireNamed(what, text, kLeastInt, kMaxInt, namesOf(table)));
            },
            "Decimal, or hexadecimal with 0x; or a name");
        if (table.subNameOf != nullptr) {
            addNumber(*command, "SUB", options->sub, kLeastInt, kMaxInt, "Sub-opcode of CODE");
        }
        command->callback([options, &table, &context] {
            context.command = [options, &table, &context] { return showName(context, table, *options); };
        });
    }
}

void registerDeviceType(CLI::App &app, Context &context) {
    auto name = std::make_shared<std::string>();
    CLI::App *command =
        app.add_subcommand("device-type", "The code of a device type's name. 1 when there is none");
    command->add_option("NAME", *name, "As in the panel's logs, e.g. W3 or 'TAG READER'")->required();
    command->callback([name, &context] {
        context.command = [name, &context] {
            print(context, coded(requireDeviceType(*name), *name));
            return kDone;
        };
    });
}

} // namespace ozuctl

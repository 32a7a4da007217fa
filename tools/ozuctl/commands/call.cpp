// ozuctl call: any function of the library that no other command reaches.

#include "arguments.h"
#include "call_table.h"
#include "commands/commands.h"
#include "log_tap.h"
#include "numbers.h"
#include "suggest.h"
#include "text.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>

namespace ozuctl {

namespace {

struct CallOptions {
    bool list = false;
    std::string name;
    std::vector<std::string> words;
    std::vector<std::string> nulls; // parameters that are null pointers
};

// --- the list ---

std::string argumentWords(const CallableFunction &function) {
    std::string words;
    for (const CallParameter &parameter : function.parameters) {
        words += (words.empty() ? "" : ", ") + typeWords(parameter);
    }
    return words;
}

std::string outputWords(const CallableFunction &function) {
    std::string words;
    for (const std::string_view name : function.outputs) {
        words += (words.empty() ? "" : ", ") + std::string(name);
    }
    return words;
}

ExitCode listCalls(const Context &context) {
    Json rows = Json::array();
    for (const CallableFunction &function : callableFunctions()) {
        rows.push_back({{"function", function.name},
                        {"command", "call " + std::string(function.name)},
                        {"arguments", argumentWords(function)},
                        {"result", function.result},
                        {"outputs", outputWords(function)}});
    }
    for (const ReachedFunction &function : reachedFunctions()) {
        rows.push_back({{"function", function.name},
                        {"command", function.command},
                        {"arguments", ""},
                        {"result", ""},
                        {"outputs", ""}});
    }
    if (context.json) {
        print(context, rows);
        return kDone;
    }
    for (const CallableFunction &function : callableFunctions()) {
        std::string line(function.name);
        for (const CallParameter &parameter : function.parameters) {
            line += " [" + typeWords(parameter) + "]";
        }
        line += function.result == "nothing" ? "" : " = " + std::string(function.result);
        line += function.outputs.empty() ? "" : " -> " + outputWords(function);
        writeLine(line);
    }
    writeLine("The others are reached by:");
    for (const ReachedFunction &function : reachedFunctions()) {
        writeLine(std::string(function.name) + ": ozuctl " + std::string(function.command));
    }
    return kDone;
}

// --- arguments ---

const CallableFunction &requireFunction(const std::string &name) {
    const auto &all = callableFunctions();
    const auto found = std::ranges::find(all, name, &CallableFunction::name);
    if (found != all.end()) {
        return *found;
    }
    const auto &others = reachedFunctions();
    const auto other = std::ranges::find(others, name, &ReachedFunction::name);
    if (other != others.end()) {
        throw CommandError(kUsage, inQuotes(name) + " has a command of its own: 'ozuctl " +
                                       std::string(other->command) + "'");
    }
    std::vector<std::string> names;
    names.reserve(all.size() + others.size());
    for (const CallableFunction &one : all) {
        names.emplace_back(one.name);
    }
    for (const ReachedFunction &one : others) {
        names.emplace_back(one.name);
    }
    throw CommandError(kUsage, "the library has no function " + inQuotes(name) + didYouMean(name, names),
                       "'ozuctl call --list' lists them.");
}

std::uint64_t requireWide(std::string_view what, std::string_view given) {
    const bool hex = given.starts_with("0x") || given.starts_with("0X");
    const std::string_view digits = hex ? given.substr(2) : given;
    std::uint64_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        throw CommandError(kUsage, std::string(what) +
                                       " must be a number from 0 to 18446744073709551615, not " +
                                       inQuotes(given));
    }
    return value;
}

void checkCount(const CallParameter &parameter, std::size_t count) {
    const auto bytes = static_cast<std::int64_t>(count);
    if (bytes < parameter.low || bytes > parameter.high) {
        throw CommandError(
            kUsage, std::string(parameter.name) + " must have " + std::to_string(parameter.low) + " to " +
                        std::to_string(parameter.high) + " bytes, not " + std::to_string(bytes));
    }
}

CallValue requireValue(const CallParameter &parameter, const std::string &given) {
    CallValue value;
    switch (parameter.type) {
    case ValueType::character:
        if (given.size() != 1) {
            throw CommandError(kUsage, std::string(parameter.name) +
                                           " must be one character of one byte, not " + inQuotes(given));
        }
        [[fallthrough]];
    case ValueType::text:
        value.text = given;
        break;
    case ValueType::bytes:
        value.bytes = requireBytes(parameter.name, given);
        checkCount(parameter, value.bytes.size());
        break;
    case ValueType::number:
        value.number = requireNumber(parameter.name, given, parameter.low, parameter.high);
        break;
    case ValueType::wide:
        value.wide = requireWide(parameter.name, given);
        break;
    }
    return value;
}

[[noreturn]] void wrongCount(const CallableFunction &function, std::size_t wanted, std::size_t given) {
    throw CommandError(kUsage, "'" + std::string(function.name) + "' takes " + std::to_string(wanted) +
                                   (wanted == 1 ? " argument" : " arguments") +
                                   (wanted == 0 ? "" : " (" + argumentWords(function) + ")") + ", not " +
                                   std::to_string(given));
}

CallArguments requireArguments(const CallableFunction &function, const CallOptions &options) {
    for (const std::string &name : options.nulls) {
        if (std::ranges::none_of(function.parameters, [&name](const CallParameter &one) {
                return one.name == name && one.nullable;
            })) {
            throw CommandError(kUsage, "'" + std::string(function.name) + "' accepts no null pointer for " +
                                           inQuotes(name));
        }
    }
    const auto isNull = [&options](const CallParameter &one) {
        return std::ranges::find(options.nulls, one.name) != options.nulls.end();
    };
    const auto nulls = static_cast<std::size_t>(std::ranges::count_if(function.parameters, isNull));
    const std::size_t wanted = function.parameters.size() - nulls;
    if (options.words.size() != wanted) {
        wrongCount(function, wanted, options.words.size());
    }
    std::vector<CallValue> values;
    auto word = options.words.begin();
    for (const CallParameter &parameter : function.parameters) {
        values.push_back(isNull(parameter) ? CallValue{} : requireValue(parameter, *word++));
    }
    return CallArguments(std::move(values));
}

// --- the call ---

// What the library itself prints on standard output, so that it does not stand in the midst of ours.
class PrintedText {
  public:
    PrintedText()
        : own_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)), file_(memfd_create("printed", MFD_CLOEXEC)) {
        fflush(stdout);
        if (own_ >= 0 && file_ >= 0) {
            dup2(file_, STDOUT_FILENO);
        }
    }
    ~PrintedText() {
        restore();
        close(own_);
        close(file_);
    }
    PrintedText(const PrintedText &) = delete;
    PrintedText &operator=(const PrintedText &) = delete;

    std::string taken() {
        restore();
        std::array<char, 4096> bytes{};
        const ssize_t count = pread(file_, bytes.data(), bytes.size(), 0);
        return count > 0 ? std::string(bytes.data(), static_cast<std::size_t>(count)) : std::string();
    }

  private:
    void restore() {
        fflush(stdout);
        if (own_ >= 0 && file_ >= 0) {
            dup2(own_, STDOUT_FILENO);
        }
    }
    int own_;
    int file_;
};

Json lineRows(const std::vector<LoggedLine> &lines) {
    Json rows = Json::array();
    for (const LoggedLine &line : lines) {
        rows.push_back({{"level", line.level}, {"function", line.function}, {"text", line.text}});
    }
    return rows;
}

void writeCallText(const Json &document) {
    if (!document["result"].is_null()) {
        writeLine("result  " + plainText(document["result"]));
    }
    for (const auto &[name, value] : document["outputs"].items()) {
        writeLine(name + "  " + plainText(value));
    }
    if (document["printed"] != "") {
        writeLine("printed  " + plainText(document["printed"]));
    }
    for (const Json &line : document["lines"]) {
        writeLine("logged  " + plainText(line["level"]) + " " + plainText(line["text"]));
    }
}

ExitCode call(const Context &context, const CallOptions &options) {
    if (options.list) {
        return listCalls(context);
    }
    if (options.name.empty()) {
        throw CommandError(kUsage, "FUNCTION is required", "'ozuctl call --list' lists them.");
    }
    const CallableFunction &function = requireFunction(options.name);
    const CallArguments arguments = requireArguments(function, options);
    if (function.check != nullptr) {
        function.check(arguments);
    }
    if (function.needs != CallNeeds::nothing) {
        context.requireConsent(std::string(function.consent));
    }
    if (function.needs == CallNeeds::bus) {
        Context::startPanelProcess();
    }
    Json result;
    Json outputs = Json::object();
    std::string printed;
    const auto lines = linesOf([&] {
        PrintedText standardOutput;
        result = function.run(arguments, outputs);
        printed = standardOutput.taken();
    });
    const Json document = {{"function", function.name},
                           {"result", result},
                           {"outputs", outputs},
                           {"printed", printed},
                           {"lines", lineRows(lines)}};
    if (context.json) {
        print(context, document);
    } else {
        writeCallText(document);
    }
    return kDone;
}

} // namespace

void registerCall(CLI::App &app, Context &context) {
    auto options = std::make_shared<CallOptions>();
    CLI::App *command =
        app.add_subcommand("call", "Call a function of the library that no other command reaches; prints its "
                                   "result, its outputs and the lines it logged. Bytes are given in "
                                   "hexadecimal. Words that begin with '-' stand after '--'");
    command->add_flag("--list", options->list,
                      "List the functions with their arguments, and the commands that reach the others");
    command
        ->add_option("--null", options->nulls, "Pass a null pointer for this parameter; may be given again")
        ->allow_extra_args(false);
    command->add_option("FUNCTION", options->name, "Name of the function");
    command->add_option("ARGUMENT", options->words, "Its arguments, in the order of the list")
        ->expected(0, 1000);
    command->callback(
        [options, &context] { context.command = [options, &context] { return call(context, *options); }; });
}

} // namespace ozuctl

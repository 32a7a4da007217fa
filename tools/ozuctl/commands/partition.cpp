// ozuctl partition: the words of the Lum interface, their partitions, and when they were disarmed.

#include "arguments.h"
#include "commands/commands.h"
#include "log_tap.h"
#include "named_numbers.h"
#include "numbers.h"
#include "suggest.h"
#include "text.h"

#include <utils_ozu/partitions.h>

#include <algorithm>
#include <iterator>
#include <memory>

namespace ozuctl {

namespace {

constexpr const char *kZones[] = {"main", "perimeter", "safety", "panic"};
constexpr const char *kFindArmType = "FIND_ARM_TYPE";
constexpr const char *kAlarmWords[] = {"flood", "smoke", "gas", "intrusion", "panic", "duress", "shock"};
constexpr const char *kArmTypes[] = {"full", "partial1", "partial2"};

Json partitionJson(unsigned number) {
    return coded(number, number < MAX_PARTITION_ID ? stringFromSec_partition(number) : "UNKNOWN");
}

// A word that the library does not know, with the nearest that it does; the log lines about it are ours to
// tell.
[[noreturn]] void unknown(const std::string &kind, const std::string &word,
                          const std::vector<std::string> &known) {
    throw CommandError(kNo, "there is no " + kind + " " + inQuotes(word) + didYouMean(word, known),
                       "There are " + listed(known) + ".");
}

template <class Words>
std::vector<std::string> known(const Words &words) {
    return {std::begin(words), std::end(words)};
}

bool isOneOf(const std::vector<std::string> &words, const std::string &word) {
    return std::ranges::find(words, word) != words.end();
}

// Zone words of the Lum interface; numbers stand for them, too: 0 main, 1 perimeter, 2 safety, 3 panic.
std::string zoneWord(const std::string &text) {
    const auto number = wholeNumber(text);
    return number && *number >= 0 && *number < std::ssize(kZones) ? kZones[*number] : text;
}

// Which zone and arm type a partition is, or nulls.
Json wordsOf(unsigned number) {
    std::uint32_t zone = 0;
    std::uint32_t armType = 0;
    if (ozuutils_getLumPartition(number, &zone, &armType) != 0) {
        return {{"zone", nullptr}, {"armType", nullptr}};
    }
    return {{"zone", kZones[zone]}, {"armType", kArmTypes[armType]}};
}

ExitCode list(const Context &context) {
    Json rows = Json::array();
    for (unsigned number = PARTITION_FULL; number < MAX_PARTITION_ID; ++number) {
        Json row = {{"partition", partitionJson(number)}};
        // Partitions that are no zone are known; they need no line in the log.
        const bool isZone =
            number != PARTITION_ANNEX && number != PARTITION_24_HOURS && number != PARTITION_FDN;
        row.update(isZone ? wordsOf(number) : Json{{"zone", nullptr}, {"armType", nullptr}});
        rows.push_back(std::move(row));
    }
    print(context, rows);
    return kDone;
}

ExitCode words(const Context &context, unsigned number) {
    const Json found = wordsOf(number);
    if (found["zone"].is_null()) {
        throw CommandError(kNo, "partition " + plainText(partitionJson(number)) +
                                    " is no zone of the Lum interface");
    }
    Json document = {{"partition", partitionJson(number)}};
    document.update(found);
    print(context, document);
    return kDone;
}

ExitCode find(const Context &context, const std::string &zone, const std::string &armType) {
    if (armType == kFindArmType && isOneOf(known(kZones), zone)) {
        static_cast<void>(Context::state());
    }
    std::uint32_t partition = 0;
    int code = 0;
    static_cast<void>(
        linesOf([&] { code = ozuutils_getSecPartition(zone.c_str(), armType.c_str(), &partition); }));
    if (code != 0) {
        if (!isOneOf(known(kZones), zone)) {
            unknown("zone", zone, known(kZones));
        }
        if (armType != kFindArmType && !isOneOf(known(kArmTypes), armType)) {
            unknown("arm type", armType, known(kArmTypes));
        }
        throw CommandError(
            kNo, "zone '" + zone + "' has no partition " +
                     (armType == kFindArmType ? "that is armed now" : "for arm type '" + armType + "'"));
    }
    print(context, partitionJson(partition));
    return kDone;
}

ExitCode disarmed(const Context &context, const std::string &zone) {
    if (isOneOf(known(kZones), zone)) {
        static_cast<void>(Context::state());
    }
    std::uint32_t time = 0;
    int code = 0;
    static_cast<void>(linesOf([&] { code = ozuutils_getDisarmTimestamp(zone.c_str(), &time); }));
    if (code != 0) {
        unknown("zone that is disarmed,", zone, {"main", "perimeter", "safety"});
    }
    print(context, {{"zone", zone}, {"disarmed", isoTime(static_cast<std::int32_t>(time))}});
    return kDone;
}

ExitCode alarmType(const Context &context, const std::string &word) {
    std::uint32_t type = 0;
    int code = 0;
    static_cast<void>(linesOf([&] { code = ozuutils_getLumAlarmType(word.c_str(), &type); }));
    if (code != 0) {
        unknown("alarm word", word, known(kAlarmWords));
    }
    print(context, coded(type, word));
    return kDone;
}

struct Words {
    std::string zone;
    std::string armType = kFindArmType;
    unsigned number = 0;
};

} // namespace

void registerPartition(CLI::App &app, Context &context) {
    auto given = std::make_shared<Words>();
    CLI::App *partition =
        app.add_subcommand("partition", "Partitions in the terms of the Lum interface. 1 for unknown terms");
    partition->require_subcommand(1);

    CLI::App *command = partition->add_subcommand("list", "All partitions");
    command->callback([&context] { context.command = [&context] { return list(context); }; });

    command = partition->add_subcommand("find", "The partition of a zone");
    command->add_option("ZONE", given->zone, "main, perimeter, safety or panic")->required();
    command->add_option("ARM_TYPE", given->armType, "full, partial1, partial2; by default what is armed now");
    command->callback([given, &context] {
        context.command = [given, &context] { return find(context, zoneWord(given->zone), given->armType); };
    });

    command = partition->add_subcommand("words", "Zone and arm type of a partition");
    addChecked(
        *command, "NUMBER", "N",
        [given](const std::string &what, const std::string &text) {
            given->number = static_cast<unsigned>(requireNamed(what, text, 0, kMaxUnsigned, partitions()));
        },
        "Its number or name, e.g. 0 or PARTITION_FULL")
        ->required();
    command->callback(
        [given, &context] { context.command = [given, &context] { return words(context, given->number); }; });

    command = partition->add_subcommand("disarmed", "When a zone was last disarmed");
    command->add_option("ZONE", given->zone, "main, perimeter or safety")->required();
    command->callback([given, &context] {
        context.command = [given, &context] { return disarmed(context, zoneWord(given->zone)); };
    });

    command = partition->add_subcommand("alarm-type", "The number of an alarm word");
    command->add_option("WORD", given->zone, "flood, smoke, gas, intrusion, panic, duress or shock")
        ->required();
    command->callback([given, &context] {
        context.command = [given, &context] { return alarmType(context, given->zone); };
    });
}

} // namespace ozuctl

// ozuctl partition: the words of the Lum interface, their partitions, and when they were disarmed.

#include "commands/commands.h"

#include <utils_ozu/partitions.h>

#include <memory>

namespace ozuctl {

namespace {

constexpr const char *kZones[] = {"main", "perimeter", "safety", "panic"};
constexpr const char *kFindArmType = "FIND_ARM_TYPE";
constexpr const char *kArmTypes[] = {"full", "partial1", "partial2"};

Json partitionJson(unsigned number) {
    return coded(number, stringFromSec_partition(number));
}

[[noreturn]] void notTranslated(const std::string &what) {
    throw CommandError(kNo, what + " does not translate (see the log)");
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
        notTranslated("partition " + std::to_string(number));
    }
    Json document = {{"partition", partitionJson(number)}};
    document.update(found);
    print(context, document);
    return kDone;
}

ExitCode find(const Context &context, const std::string &zone, const std::string &armType) {
    if (armType == kFindArmType) {
        static_cast<void>(Context::state());
    }
    std::uint32_t partition = 0;
    if (ozuutils_getSecPartition(zone.c_str(), armType.c_str(), &partition) != 0) {
        notTranslated("zone '" + zone + "' with arm type '" + armType + "'" +
                      (armType == kFindArmType ? ": nothing in it is armed, or it" : ""));
    }
    print(context, partitionJson(partition));
    return kDone;
}

ExitCode disarmed(const Context &context, const std::string &zone) {
    static_cast<void>(Context::state());
    std::uint32_t time = 0;
    if (ozuutils_getDisarmTimestamp(zone.c_str(), &time) != 0) {
        notTranslated("zone '" + zone + "'");
    }
    print(context, {{"zone", zone}, {"disarmed", isoTime(static_cast<std::int32_t>(time))}});
    return kDone;
}

ExitCode alarmType(const Context &context, const std::string &word) {
    std::uint32_t type = 0;
    if (ozuutils_getLumAlarmType(word.c_str(), &type) != 0) {
        notTranslated("alarm type '" + word + "'");
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
    CLI::App *partition = app.add_subcommand(
        "partition", "Partitions in the words of the Lum interface. 1 when words do not translate");
    partition->require_subcommand(1);

    CLI::App *command = partition->add_subcommand("list", "All partitions");
    command->callback([&context] { context.command = [&context] { return list(context); }; });

    command = partition->add_subcommand("find", "The partition of a zone");
    command->add_option("ZONE", given->zone, "main, perimeter, safety or panic")->required();
    command->add_option("ARM_TYPE", given->armType, "full, partial1, partial2; by default what is armed now");
    command->callback([given, &context] {
        context.command = [given, &context] { return find(context, given->zone, given->armType); };
    });

    command = partition->add_subcommand("words", "Zone and arm type of a partition");
    command->add_option("NUMBER", given->number)->required();
    command->callback(
        [given, &context] { context.command = [given, &context] { return words(context, given->number); }; });

    command = partition->add_subcommand("disarmed", "When a zone was last disarmed");
    command->add_option("ZONE", given->zone, "main, perimeter or safety")->required();
    command->callback([given, &context] {
        context.command = [given, &context] { return disarmed(context, given->zone); };
    });

    command = partition->add_subcommand("alarm-type", "The number of an alarm word");
    command->add_option("WORD", given->zone, "flood, smoke, gas, intrusion, panic, duress or shock")
        ->required();
    command->callback([given, &context] {
        context.command = [given, &context] { return alarmType(context, given->zone); };
    });
}

} // namespace ozuctl

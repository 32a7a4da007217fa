// ozuctl status, ask: what the panel state queries answer now.

#include "arguments.h"
#include "commands/commands.h"
#include "named_numbers.h"
#include "numbers.h"
#include "state_fields.h"
#include "state_queries.h"
#include "suggest.h"
#include "text.h"

#include <utils_ozu/names.h>
#include <utils_ozu/state.h>

#include <algorithm>
#include <ctime>
#include <memory>

namespace ozuctl {

namespace {

const StateQuery &queryNamed(std::string_view name) {
    const auto queries = stateQueries();
    const auto found = std::ranges::find(queries, name, &StateQuery::name);
    if (found == queries.end()) {
        std::vector<std::string> names;
        for (const StateQuery &query : queries) {
            names.emplace_back(query.name);
        }
        throw CommandError(kUsage, "there is no query " + inQuotes(name) + didYouMean(name, names),
                           "'ozuctl ask' lists them.");
    }
    return *found;
}

std::int64_t answerTo(std::string_view name, std::initializer_list<std::int64_t> arguments = {}) {
    return queryNamed(name).ask(arguments.begin());
}

Json answered(const StateQuery &query, const std::int64_t *arguments) {
    const std::int64_t answer = query.ask(arguments);
    return {{"query", query.name}, {"answer", answer}, {"meaning", query.meaning(answer)}};
}

// --- status ---

Json askPanel() {
    Json answers = Json::array();
    for (const StateQuery &query : stateQueries()) {
        if (query.arguments.empty()) {
            answers.push_back(answered(query, nullptr));
        }
    }
    return answers;
}

Json askPartitions(const PanelSharedState &state) {
    Json partitions = Json::array();
    for (unsigned int index = 0; index < OZUDB_PARTITIONS; ++index) {
        const PanelPartition &partition = state.partitions[index];
        partitions.push_back(
            {{"partition", coded(index, partitionName(index))},
             {"state", coded(partition.partitionState, partitionStateName(partition.partitionState))},
             {"forcedArm", partition.forcedArm},
             {"armAfterAlarm", partition.armAfterAlarm},
             {"entryTimeMs", answerTo("getAu1tPartitionEntryTime", {index})}});
    }
    return partitions;
}

Json askDevice(const PanelSharedState &state, int index) {
    const PanelDevice &device = state.devices[index];
    const auto is = [index](std::string_view name) { return answerTo(name, {index}) != 0; };
    return {
        {"device", index},
        {"type", coded(device.deviceType, getDeviceTypeName(static_cast<int>(device.deviceType)))},
        {"rfId", device.rfId},
        {"active", answerTo("ozuutils_isDeviceExistsAndActive", {device.rfId, device.deviceType}) == index},
        {"open", device.openState != 0},
        {"isMagnet", is("IsDeviceMagnetType")},
        {"magnetOpen", is("IsMagnetOpen")},
        {"isCamera", is("ozuutils_isCameraDevice")},
        {"lidClosed", is("IsCameraLidClosed")},
        {"bypassed", answerTo("ozuutils_isZoneBypassed", {index, 0}) != 0},
        {"bypassedInput2", answerTo("ozuutils_isZoneBypassed", {index, 1}) != 0}};
}

Json askDevices(const PanelSharedState &state) {
    Json devices = Json::array();
    for (int index = 1; index < MAX_DEVICE_INDEX; ++index) {
        if (state.devices[index].deviceType != 0) {
            devices.push_back(askDevice(state, index));
        }
    }
    return devices;
}

ExitCode status(const Context &context) {
    const PanelSharedState &state = Context::state();
    const Json document = {{"time", isoTime(time(nullptr))},
                           {"panel", askPanel()},
                           {"partitions", askPartitions(state)},
                           {"devices", askDevices(state)}};
    if (context.json) {
        print(context, document);
        return kDone;
    }
    for (const char *part : {"panel", "partitions", "devices"}) {
        if (!document[part].empty()) {
            print(context, document[part]);
            writeLine("");
        }
    }
    return kDone;
}

// --- ask ---

Json queryList() {
    Json rows = Json::array();
    for (const StateQuery &query : stateQueries()) {
        rows.push_back({{"query", query.name}, {"arguments", query.arguments}});
    }
    return rows;
}

// The numbers for a query's arguments, which must fit what the function takes.
std::vector<std::int64_t> numbersFor(const StateQuery &query, const std::vector<std::string> &words) {
    const auto names = query.argumentNames();
    if (words.size() != names.size()) {
        throw CommandError(kUsage, std::string(query.name) + " takes " +
                                       (names.empty() ? "no arguments" : std::string(query.arguments)));
    }
    std::vector<std::int64_t> numbers;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string &what = names[i];
        numbers.push_back(what == "PARTITION" ? requireNamed(what, words[i], 0, kMaxUnsigned, partitions())
                          : what == "TYPE" ? requireNamed(what, words[i], kLeastInt, kMaxInt, deviceTypes())
                          : what == "RFID" ? requireNumber(what, words[i], 0, kMaxUnsigned)
                                           : requireNumber(what, words[i], kLeastInt, kMaxInt));
    }
    return numbers;
}

ExitCode ask(const Context &context, const std::vector<std::string> &words) {
    if (words.empty()) {
        print(context, queryList());
        return kDone;
    }
    const StateQuery &query = queryNamed(words.front());
    const auto arguments = numbersFor(query, {words.begin() + 1, words.end()});
    static_cast<void>(Context::state());
    const Json answer = answered(query, arguments.data());
    print(context, answer, plainText(answer["answer"]) + " " + plainText(answer["meaning"]));
    const std::int64_t value = answer["answer"];
    const bool isNo = query.yesOrNo ? value == 0 : value < 0;
    return isNo ? kNo : kDone;
}

} // namespace

void registerStatus(CLI::App &app, Context &context) {
    CLI::App *command = app.add_subcommand(
        "status",
        "What every panel state query answers now, with names. Asking whether a zone is bypassed ends a\n"
        "timed bypass that has run out, as it does for any panel process");
    command->callback([&context] { context.command = [&context] { return status(context); }; });

    auto words = std::make_shared<std::vector<std::string>>();
    CLI::App *one =
        app.add_subcommand("ask", "One panel state query: ask IsMagnetOpen 3; alone lists the queries.\n"
                                  "Exit status 1 for no, and for nothing found");
    one->add_option("QUERY", *words, "The query's name and its arguments");
    one->callback(
        [words, &context] { context.command = [words, &context] { return ask(context, *words); }; });
}

} // namespace ozuctl

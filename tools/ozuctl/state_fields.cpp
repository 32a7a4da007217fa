#include "state_fields.h"

#include "log_line.h"
#include "named_numbers.h"
#include "numbers.h"
#include "suggest.h"
#include "text.h"

#include <inc_ozu/security_ozu.h>
#include <utils_ozu/names.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace ozuctl {

namespace {

// offsetof of nested arrays is a constant for this plain record.
#define OZU_SCALAR(member, kind)                                                                             \
    { #member, offsetof(PanelSharedState, member), kind, {1, 1 }, {0, 0 }, sizeof(PanelSharedState::member) }
#define OZU_ARRAY(array, member, type, number, kind)                                                         \
    {                                                                                                        \
#array "[]." #member, offsetof(PanelSharedState, array) + offsetof(type, member), kind,              \
            {number, 1 }, {sizeof(type), 0 }, sizeof(type::member)                                           \
    }

constexpr FieldRow kRows[] = {
    OZU_ARRAY(partitions, partitionState, PanelPartition, OZUDB_PARTITIONS, FieldKind::PartitionState),
    OZU_ARRAY(partitions, forcedArm, PanelPartition, OZUDB_PARTITIONS, FieldKind::U32),
    OZU_ARRAY(partitions, armAfterAlarm, PanelPartition, OZUDB_PARTITIONS, FieldKind::U8),
    OZU_ARRAY(partitions, disarmTime, PanelPartition, OZUDB_PARTITIONS, FieldKind::Time),
    OZU_ARRAY(devices, rfId, PanelDevice, OZUDB_DEVICES, FieldKind::U32),
    OZU_ARRAY(devices, tableIndex, PanelDevice, OZUDB_DEVICES, FieldKind::U8),
    OZU_ARRAY(devices, deviceType, PanelDevice, OZUDB_DEVICES, FieldKind::DeviceType),
    OZU_ARRAY(devices, active, PanelDevice, OZUDB_DEVICES, FieldKind::U8),
    OZU_ARRAY(devices, openState, PanelDevice, OZUDB_DEVICES, FieldKind::U8),
    OZU_ARRAY(devices, fwMajor, PanelDevice, OZUDB_DEVICES, FieldKind::U8),
    OZU_ARRAY(devices, fwMinor, PanelDevice, OZUDB_DEVICES, FieldKind::U8),
    OZU_ARRAY(devices, fwBuild, PanelDevice, OZUDB_DEVICES, FieldKind::U8),
    OZU_ARRAY(zones, secondInputEnabled, PanelZone, OZUDB_ZONES, FieldKind::U8),
    OZU_ARRAY(zones, firstInputEnabled, PanelZone, OZUDB_ZONES, FieldKind::U8),
    {"zones[].bypass[].bypassed",
     offsetof(PanelSharedState, zones) + offsetof(PanelZone, bypass) + offsetof(PanelBypass, bypassed),
     FieldKind::U8,
     {OZUDB_ZONES, 2},
     {sizeof(PanelZone), sizeof(PanelBypass)},
     sizeof(PanelBypass::bypassed)},
    {"zones[].bypass[].bypassExpiry",
     offsetof(PanelSharedState, zones) + offsetof(PanelZone, bypass) + offsetof(PanelBypass, bypassExpiry),
     FieldKind::Expiry,
     {OZUDB_ZONES, 2},
     {sizeof(PanelZone), sizeof(PanelBypass)},
     sizeof(PanelBypass::bypassExpiry)},
    OZU_ARRAY(tagReaders, bypassed, PanelTagReader, OZUDB_TAG_READERS, FieldKind::U8),
    OZU_ARRAY(rfInputs, enabled, PanelRfInput, OZUDB_RF_INPUTS, FieldKind::U8),
    OZU_ARRAY(safetyEvents, startTime, PanelSafetyEvent, OZUDB_SAFETY_EVENTS, FieldKind::Time),
    OZU_ARRAY(safetyEvents, rfId, PanelSafetyEvent, OZUDB_SAFETY_EVENTS, FieldKind::U8),
    OZU_ARRAY(safetyEvents, deviceType, PanelSafetyEvent, OZUDB_SAFETY_EVENTS, FieldKind::DeviceType),
    OZU_ARRAY(safetyEvents, ended, PanelSafetyEvent, OZUDB_SAFETY_EVENTS, FieldKind::U8),
    {"modemStatistics[].counter[]",
     offsetof(PanelSharedState, modemStatistics),
     FieldKind::U16,
     {OZUDB_MODEMS, OZUDB_MODEM_COUNTERS},
     {sizeof(PanelModemStatistics), sizeof(uint16_t)},
     sizeof(uint16_t)},
    OZU_ARRAY(dnsServerPairs, primary, PanelDnsServerPair, OZUDB_DNS_SERVER_PAIRS, FieldKind::Text),
    OZU_ARRAY(dnsServerPairs, secondary, PanelDnsServerPair, OZUDB_DNS_SERVER_PAIRS, FieldKind::Text),
    OZU_ARRAY(dialers, dialerId, PanelDialer, OZUDB_DIALERS, FieldKind::U8),
    OZU_ARRAY(dialers, dialerCheckA, PanelDialer, OZUDB_DIALERS, FieldKind::U8),
    OZU_ARRAY(dialers, dialerCheckB, PanelDialer, OZUDB_DIALERS, FieldKind::U8),
    OZU_ARRAY(sy9Keyfobs, userId, PanelSy9Keyfob, OZUDB_SY9_KEYFOBS, FieldKind::U8),
    {"sy9Keyfobs[].reserved[]",
     offsetof(PanelSharedState, sy9Keyfobs) + offsetof(PanelSy9Keyfob, reserved),
     FieldKind::U8,
     {OZUDB_SY9_KEYFOBS, 2},
     {sizeof(PanelSy9Keyfob), 1},
     1},
    OZU_SCALAR(powerManagerMode, FieldKind::U32),
    OZU_SCALAR(timeSourceFlagA, FieldKind::U8),
    OZU_SCALAR(timeSourceFlagB, FieldKind::U8),
    OZU_SCALAR(au1tEntryDelayFull, FieldKind::U16),
    OZU_SCALAR(au1tEntryDelayShort, FieldKind::U16),
    OZU_SCALAR(cpPlasticVersion, FieldKind::U8),
    OZU_SCALAR(cBankModeActive, FieldKind::U8),
};
#undef OZU_SCALAR
#undef OZU_ARRAY

const unsigned char *bytesOf(const PanelSharedState &state) {
    return reinterpret_cast<const unsigned char *>(&state);
}

bool isText(const Field &field) {
    return field.row->kind == FieldKind::Text;
}

// The field's bytes as a number; little-endian, as the record.
std::int64_t number(const PanelSharedState &state, const Field &field) {
    const unsigned char *at = bytesOf(state) + field.offset();
    std::uint32_t value = 0;
    for (std::size_t i = field.row->size; i-- > 0;) {
        value = value << 8 | at[i];
    }
    const bool isSigned = field.row->kind == FieldKind::I32 || field.row->kind == FieldKind::Time;
    return isSigned ? static_cast<std::int32_t>(value) : static_cast<std::int64_t>(value);
}

[[noreturn]] void refuse(const Field &field, const std::string &text, const std::string &wanted) {
    throw CommandError(kUsage, inQuotes(text) + " does not fit " + field.path() + ": " + wanted);
}

std::optional<std::int64_t> timeNumber(const std::string &text) {
    if (text == "now") {
        return time(nullptr);
    }
    if (text.starts_with("now+") || text.starts_with("now-")) {
        const auto distance = wholeNumber(text.substr(4));
        if (!distance || *distance < 0 || *distance > INT32_MAX) {
            return std::nullopt;
        }
        return time(nullptr) + (text[3] == '+' ? *distance : -*distance);
    }
    const auto milliseconds = millisecondsOf(text);
    return milliseconds && *milliseconds % 1000 == 0 ? std::optional(*milliseconds / 1000) : std::nullopt;
}

// Names that a field takes beside numbers.
const NamedNumbers &namesFor(FieldKind kind) {
    static const NamedNumbers none;
    return kind == FieldKind::DeviceType       ? deviceTypes()
           : kind == FieldKind::PartitionState ? partitionStates()
                                               : none;
}

std::optional<std::int64_t> namedNumber(FieldKind kind, const std::string &text) {
    if (kind == FieldKind::Expiry && text == "never") {
        return OZUDB_BYPASS_FOREVER;
    }
    return kind == FieldKind::Expiry || kind == FieldKind::Time ? timeNumber(text)
                                                                : numberNamed(namesFor(kind), text);
}

std::pair<std::int64_t, std::int64_t> limits(const Field &field) {
    if (field.row->kind == FieldKind::I32 || field.row->kind == FieldKind::Time) {
        return {INT32_MIN, INT32_MAX};
    }
    return {0, (std::int64_t{1} << (8 * field.row->size)) - 1};
}

// What a field takes, in words.
std::string wantedBy(FieldKind kind, std::int64_t low, std::int64_t high) {
    std::string number = rangeWords(low, high);
    switch (kind) {
    case FieldKind::Expiry:
        return number + ", a time (2026-03-01T12:00:00Z, now, now+30) or never";
    case FieldKind::Time:
        return number + ", or a time (2026-03-01T12:00:00Z, now, now+30)";
    case FieldKind::PartitionState:
        return number + ", " + listed(namesIn(partitionStates()));
    case FieldKind::DeviceType:
        return number + ", or a name as in 'ozuctl names device'";
    default:
        return number;
    }
}

// A path's next step: a name, or an index in brackets.
struct Step {
    std::string_view name;
    std::optional<std::size_t> index;
};

// What no array has: a number that does not fit, too, is out of every range.
constexpr std::size_t kNoIndex = SIZE_MAX;

std::size_t indexOf(std::string_view array, std::string_view text) {
    if (array == "partitions") {
        if (const auto named = numberNamed(partitions(), text)) {
            return static_cast<std::size_t>(*named);
        }
    }
    const bool digits = text.find_first_not_of("0123456789") == std::string_view::npos;
    const auto number = digits ? wholeNumber(text) : std::nullopt;
    return number ? static_cast<std::size_t>(*number) : kNoIndex;
}

std::optional<std::vector<Step>> stepsOf(std::string_view path) {
    std::vector<Step> steps;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of(".["), path.size());
        Step step{path.substr(0, end), std::nullopt};
        path.remove_prefix(end);
        if (step.name.empty()) {
            return std::nullopt;
        }
        if (path.starts_with('[')) {
            const std::size_t close = path.find(']');
            if (close == std::string_view::npos || close == 1) {
                return std::nullopt;
            }
            step.index = indexOf(step.name, path.substr(1, close - 1));
            path.remove_prefix(close + 1);
        }
        steps.push_back(step);
        if (path.starts_with('.') && path.size() > 1) {
            path.remove_prefix(1);
        } else if (!path.empty()) {
            return std::nullopt;
        }
    }
    return steps;
}

// The indexes that a row has under the wanted steps; nothing when the row is not below them.
struct Range {
    std::array<std::size_t, 2> from = {0, 0};
    std::array<std::size_t, 2> to = {1, 1};
};

std::optional<Range> rangeOf(const FieldRow &row, const std::vector<Step> &wanted) {
    Range range;
    range.to = row.count;
    std::string_view rest = row.name;
    std::size_t bracket = 0;
    for (const Step &step : wanted) {
        const std::size_t end = std::min(rest.find_first_of(".["), rest.size());
        if (rest.substr(0, end) != step.name) {
            return std::nullopt;
        }
        rest.remove_prefix(end);
        const bool isArray = rest.starts_with("[]");
        if (step.index) {
            if (!isArray) {
                return std::nullopt;
            }
            if (*step.index >= row.count[bracket]) {
                throw CommandError(kUsage, std::string(step.name) + " has the indexes 0 to " +
                                               std::to_string(row.count[bracket] - 1));
            }
            range.from[bracket] = *step.index;
            range.to[bracket] = *step.index + 1;
        }
        rest.remove_prefix(isArray ? 2 : 0);
        bracket += isArray ? 1 : 0;
        rest.remove_prefix(rest.starts_with('.') ? 1 : 0);
    }
    return range;
}

} // namespace

std::string Field::path() const {
    std::string text;
    std::size_t bracket = 0;
    for (const char letter : row->name) {
        text += letter;
        if (letter == '[') {
            text += std::to_string(bracket++ == 0 ? first : second);
        }
    }
    return text;
}

std::size_t Field::offset() const {
    return row->offset + first * row->stride[0] + second * row->stride[1];
}

bool Field::isUsual(const PanelSharedState &state) const {
    if (isText(*this)) {
        return bytesOf(state)[offset()] == 0;
    }
    if (row->name == "partitions[].partitionState") {
        return false;
    }
    const std::int64_t value = number(state, *this);
    if (row->kind == FieldKind::Expiry) {
        return value == 0 || value == OZUDB_BYPASS_FOREVER;
    }
    const bool usuallyOne = row->name == "zones[].firstInputEnabled" || row->name == "rfInputs[].enabled";
    return value == (usuallyOne ? 1 : 0);
}

bool Field::differs(const PanelSharedState &one, const PanelSharedState &other) const {
    return isText(*this) ? read(one) != read(other) : number(one, *this) != number(other, *this);
}

Json Field::read(const PanelSharedState &state) const {
    if (isText(*this)) {
        const char *text = reinterpret_cast<const char *>(bytesOf(state) + offset());
        return std::string(text, strnlen(text, row->size));
    }
    const std::int64_t value = number(state, *this);
    switch (row->kind) {
    case FieldKind::Time:
        return value == 0 ? Json(nullptr) : Json(isoTime(value));
    case FieldKind::Expiry:
        return value == OZUDB_BYPASS_FOREVER ? Json("never")
               : value == 0                  ? Json(nullptr)
                                             : Json(isoTime(value));
    case FieldKind::DeviceType:
        return value == 0 ? Json(nullptr) : coded(value, getDeviceTypeName(static_cast<int>(value)));
    case FieldKind::PartitionState:
        return coded(value, partitionStateName(static_cast<unsigned int>(value)));
    default:
        return value;
    }
}

void Field::write(PanelSharedState &state, const std::string &text) const {
    unsigned char *at = reinterpret_cast<unsigned char *>(&state) + offset();
    if (isText(*this)) {
        if (text.size() >= row->size) {
            refuse(*this, text, "at most " + std::to_string(row->size - 1) + " characters");
        }
        memset(at, 0, row->size);
        memcpy(at, text.data(), text.size());
        return;
    }
    const auto [low, high] = limits(*this);
    auto value = wholeNumber(text);
    if (!value) {
        value = namedNumber(row->kind, text);
    }
    if (!value || *value < low || *value > high) {
        refuse(*this, text, wantedBy(row->kind, low, high) + didYouMean(text, namesIn(namesFor(row->kind))));
    }
    const auto bits = static_cast<std::uint32_t>(*value);
    // One store per field: readers take no lock.
    if (row->size == 1) {
        *at = static_cast<unsigned char>(bits);
    } else if (row->size == 2) {
        __atomic_store_n(static_cast<std::uint16_t *>(static_cast<void *>(at)),
                         static_cast<std::uint16_t>(bits), __ATOMIC_RELAXED);
    } else {
        __atomic_store_n(static_cast<std::uint32_t *>(static_cast<void *>(at)), bits, __ATOMIC_RELAXED);
    }
}

std::vector<Field> fieldsBelow(std::string_view path) {
    std::vector<Field> fields;
    const auto steps = stepsOf(path);
    if (!steps) {
        return fields;
    }
    for (const FieldRow &row : kRows) {
        const auto range = rangeOf(row, *steps);
        if (!range) {
            continue;
        }
        for (std::size_t first = range->from[0]; first < range->to[0]; ++first) {
            for (std::size_t second = range->from[1]; second < range->to[1]; ++second) {
                fields.push_back({&row, first, second});
            }
        }
    }
    // Element by element, not field by field.
    std::stable_sort(fields.begin(), fields.end(),
                     [](const Field &a, const Field &b) { return a.offset() < b.offset(); });
    return fields;
}

namespace {

// Names of fields and of their arrays, with the index that was typed: what a wrong path is compared with.
std::vector<std::string> knownPaths(const std::string &typed) {
    const std::size_t open = typed.find('[');
    const std::size_t close = typed.find(']', open == std::string::npos ? 0 : open);
    const bool indexed = open != std::string::npos && close != std::string::npos;
    const std::string inside = indexed ? typed.substr(open + 1, close - open - 1) : "";
    const bool plain = !inside.empty() &&
                       std::ranges::all_of(inside, [](unsigned char c) { return isalnum(c) || c == '_'; });
    const std::string index = "[" + (plain ? inside : "0") + "]";
    std::vector<std::string> paths;
    for (const FieldRow &row : kRows) {
        std::string path(row.name);
        if (const std::size_t brackets = path.find("[]"); brackets != std::string::npos) {
            paths.push_back(path.substr(0, brackets));
            path.replace(brackets, 2, index);
        }
        if (const std::size_t brackets = path.find("[]"); brackets != std::string::npos) {
            path.replace(brackets, 2, "[0]");
        }
        paths.push_back(path);
    }
    return paths;
}

} // namespace

std::vector<Field> requireFields(const std::string &path) {
    if (path.empty()) {
        throw CommandError(kUsage, "the name of the field is empty");
    }
    auto fields = fieldsBelow(path);
    if (fields.empty()) {
        throw CommandError(
            kNo, "the shared record has no field " + inQuotes(path) + didYouMean(path, knownPaths(path)),
            "'ozuctl state get --all' lists all of them.");
    }
    return fields;
}

Field requireField(const std::string &path) {
    const auto fields = requireFields(path);
    if (fields.size() != 1) {
        throw CommandError(kUsage, inQuotes(path) + " names " + std::to_string(fields.size()) +
                                       " fields, for example " + fields.front().path());
    }
    return fields.front();
}

Json nested(const PanelSharedState &state, const std::vector<Field> &fields) {
    Json document = Json::object();
    for (const Field &field : fields) {
        Json *place = &document;
        const std::string path = field.path();
        const auto steps = stepsOf(path);
        for (const Step &step : *steps) {
            place = &(*place)[std::string(step.name)];
            if (step.index) {
                // An index in a part of the record is kept as the record has it: earlier elements are null.
                place = &(*place)[*step.index];
            }
        }
        *place = field.read(state);
    }
    return document;
}

std::string partitionName(unsigned int partition) {
    return stringFromSec_partition(partition);
}

std::string partitionStateName(unsigned int state) {
    switch (state) {
    case PANEL_PARTITION_ALARM:
        return "ALARM";
    case PANEL_PARTITION_DISARMED:
        return "DISARMED";
    case PANEL_PARTITION_ARMED_2:
    case PANEL_PARTITION_ARMED_3:
    case PANEL_PARTITION_ARMED_4:
        return "ARMED_" + std::to_string(state);
    default:
        return "UNKNOWN";
    }
}

} // namespace ozuctl

#include "named_numbers.h"

#include "context.h"
#include "numbers.h"
#include "panel_messages.h"
#include "state_fields.h"
#include "suggest.h"
#include "text.h"

#include <inc_ozu/security_ozu.h>
#include <utils_ozu/names.h>

#include <algorithm>
#include <strings.h>

namespace ozuctl {

namespace {

template <class NameOf>
NamedNumbers namesUpTo(int end, NameOf nameOf) {
    NamedNumbers names;
    for (int number = 0; number < end; ++number) {
        if (std::string name = nameOf(number); name != kUnknownName) {
            names.push_back({std::move(name), number});
        }
    }
    return names;
}

bool same(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace

const NamedNumbers &deviceTypes() {
    static const NamedNumbers names = namesUpTo(255, [](int type) { return getDeviceTypeName(type); });
    return names;
}

const NamedNumbers &partitions() {
    static const NamedNumbers names = [] {
        constexpr std::string_view kPrefix = "PARTITION_";
        NamedNumbers rows = namesUpTo(MAX_PARTITION_ID, [](int number) {
            return stringFromSec_partition(static_cast<unsigned>(number));
        });
        for (int number = 0; number < MAX_PARTITION_ID; ++number) {
            const std::string whole = rows[static_cast<std::size_t>(number)].name;
            rows.push_back({whole.substr(kPrefix.size()), number});
        }
        rows.push_back({"MAIN", PARTITION_FULL}); // the zone, armed in full
        return rows;
    }();
    return names;
}

const NamedNumbers &partitionStates() {
    static const NamedNumbers names = namesUpTo(PANEL_PARTITION_ARMED_4 + 1, [](int state) {
        return partitionStateName(static_cast<unsigned>(state));
    });
    return names;
}

const NamedNumbers &securityCommands() {
    static const NamedNumbers names =
        namesUpTo(MAX_SEC_CMD, [](int number) { return stringFromSec_cmd(static_cast<unsigned>(number)); });
    return names;
}

const NamedNumbers &eventCategories() {
    static const NamedNumbers names = namesUpTo(256, eventCategoryName);
    return names;
}

std::optional<std::int64_t> numberNamed(const NamedNumbers &names, std::string_view name) {
    const auto found =
        std::ranges::find_if(names, [name](const NamedNumber &one) { return same(one.name, name); });
    return found == names.end() ? std::nullopt : std::optional(found->number);
}

std::vector<std::string> namesIn(const NamedNumbers &names) {
    std::vector<std::string> found;
    for (const NamedNumber &one : names) {
        found.push_back(one.name);
    }
    return found;
}

std::int64_t requireNamed(std::string_view what, std::string_view text, std::int64_t low, std::int64_t high,
                          const NamedNumbers &names) {
    if (const auto named = numberNamed(names, text)) {
        return *named;
    }
    const auto number = wholeNumber(text);
    if (!number || *number < low || *number > high) {
        throw CommandError(kUsage, std::string(what) + " must be " + rangeWords(low, high) +
                                       " or a name such as " + names.front().name + ", not " +
                                       inQuotes(text) + didYouMean(text, namesIn(names)));
    }
    return *number;
}

} // namespace ozuctl

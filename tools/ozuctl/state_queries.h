// Every panel state query of the library, with its arguments and what its answers mean.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ozuctl {

struct StateQuery {
    std::string_view name;      // the exported function's
    std::string_view arguments; // their names, separated by blanks; empty for none
    std::int64_t (*ask)(const std::int64_t *arguments);
    std::string (*meaning)(std::int64_t answer);
    bool yesOrNo; // 0 is no, everything else yes

    [[nodiscard]] std::vector<std::string> argumentNames() const;
};

std::span<const StateQuery> stateQueries();

} // namespace ozuctl

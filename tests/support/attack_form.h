// The two forms of the tests that attack: few trials in every run, all of them with OZU_ATTACK=long.
#pragma once

#include <cstdlib>
#include <string_view>

namespace ozu::test {

inline bool isLongAttack() {
    const char *form = std::getenv("OZU_ATTACK");
    return form != nullptr && std::string_view(form) == "long";
}

} // namespace ozu::test

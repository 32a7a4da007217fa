// The uses of the library that are disturbed.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ozu::test {

struct Scenario {
    std::string name;
    std::function<std::string()> run; // tells result and outputs
};

// Result and outputs as one text.
template <typename... Values>
std::string told(const Values &...values);

std::vector<Scenario> alarmScenarios();
std::vector<Scenario> deviceScenarios();
std::vector<Scenario> mediaScenarios();
std::vector<Scenario> networkScenarios();
std::vector<Scenario> processScenarios();
std::vector<Scenario> securityScenarios();
std::vector<Scenario> timeScenarios();

} // namespace ozu::test

#include <sstream>

template <typename... Values>
std::string ozu::test::told(const Values &...values) {
    std::ostringstream out;
    const char *separator = "";
    ((out << separator << values, separator = " "), ...);
    return out.str();
}

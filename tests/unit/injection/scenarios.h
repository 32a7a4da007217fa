// The uses of the library that are disturbed.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ozu::test {

struct Scenario {
    std::string name;
    std::function<std::string()> run; // tells result and outputs, in words
};

// "returns 7"
inline std::string returns(long long result) {
    return "returns " + std::to_string(result);
}
// An output under its name: "address 10.1.2.3"; one filled with # beforehand that still is: "address
// untouched".
inline std::string output(const std::string &name, const std::string &value) {
    if (value.empty()) {
        return name + " empty";
    }
    return name + (value.find_first_not_of('#') == std::string::npos ? " untouched" : " " + value);
}
// Result and outputs as one text.
template <typename... Texts>
std::string told(const std::string &first, const Texts &...others) {
    std::string text = first;
    ((text += ", " + std::string(others)), ...);
    return text;
}

std::vector<Scenario> alarmScenarios();
std::vector<Scenario> deviceScenarios();
std::vector<Scenario> mediaScenarios();
std::vector<Scenario> networkScenarios();
std::vector<Scenario> processScenarios();
std::vector<Scenario> securityScenarios();
std::vector<Scenario> timeScenarios();

} // namespace ozu::test

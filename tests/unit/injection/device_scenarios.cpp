#include "scenarios.h"

#include <utils_ozu/coprocessor.h>
#include <utils_ozu/modem.h>
#include <utils_ozu/update_folders.h>

#include "fake_platform.h"

#include <array>

namespace ozu::test {

std::vector<Scenario> deviceScenarios() {
    return {
        {"ozuutils_SendDataToNXP",
         [] {
             const std::array<std::uint8_t, 3> data = {1, 2, 3};
             return returns(ozuutils_SendDataToNXP(data.data(), data.size(), 4));
         }},
        {"ozuutils_updateCPserialNumberInShmem",
         [] { return returns(ozuutils_updateCPserialNumberInShmem()); }},
        {"ozuutils_updateNxpUartProtocol", [] { return returns(ozuutils_updateNxpUartProtocol(2)); }},
        {"ozuutils_updateNxpManufactureParamsInShmem",
         [] { return returns(ozuutils_updateNxpManufactureParamsInShmem()); }},
        {"ozuutils_GetNxpTamperState", [] { return returns(ozuutils_GetNxpTamperState()); }},
        {"ozuutils_setNxpPlasticVersion",
         [] {
             platform().state.cpPlasticVersion = 2;
             return returns(ozuutils_setNxpPlasticVersion());
         }},
        {"controlCC1352Gpio",
         [] {
             controlCC1352Gpio("RSU", 3, 1);
             return std::string("ends");
         }},
        {"ozuutils_readTelitFwFile",
         [] {
             std::array<char, 8> out = {'#', '#', '#', '#', '#', '#', '#', '\0'};
             const int result = ozuutils_readTelitFwFile(out.data(), out.size());
             const std::string line = out.data();
             return told(returns(result), output("line", line));
         }},
        {"isNoPSMandNoCBankMode", [] { return returns(isNoPSMandNoCBankMode(4)); }},
        {"ozuutils_removeRsuFile", [] { return returns(ozuutils_removeRsuFile(146)); }},
    };
}

} // namespace ozu::test

#include "scenarios.h"

#include <utils_ozu/country.h>
#include <utils_ozu/jpeg.h>

#include "injection.h"
#include "pictures.h"

#include <cstdlib>

namespace ozu::test {

namespace {

// A picture whose buffer has whole pages in it, or its beginning.
std::string validate(std::size_t missing) {
    injection().pause();
    const std::string jpeg = picture({100, 100});
    injection().resume();
    const int result =
        ozuutils_jpegValidator(reinterpret_cast<const unsigned char *>(jpeg.data()), jpeg.size() - missing);
    injection().pause();
    const std::size_t abandoned = injection().memory.size();
    for (const void *block : injection().memory) {
        free(const_cast<void *>(block));
    }
    injection().memory.clear();
    return told(returns(result), "blocks abandoned: " + std::to_string(abandoned));
}

std::string codes(const char *country) {
    char alpha2[3], alpha3[4], numeric[4];
    const unsigned found = get_country_codes(country, alpha2, alpha3, numeric);
    return told(returns(found), "codes " + std::string(alpha2) + " " + alpha3 + " " + numeric);
}

} // namespace

std::vector<Scenario> mediaScenarios() {
    return {
        {"ozuutils_jpegValidator", [] { return validate(0); }},
        {"ozuutils_jpegValidator damaged", [] { return validate(100); }},
        {"get_country_codes of the file", [] { return codes("Utopia"); }},
        {"get_country_codes built in", [] { return codes("France"); }},
        {"get_country_codes unknown", [] { return codes("Atlantis"); }},
    };
}

} // namespace ozu::test

// The country file: the same answer as the model gives.
//
// The input is the length of a name, the name, and the file.

#include <utils_ozu/country.h>

#include "../support/country_model.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string content;

} // namespace

extern "C" {

// The fuzzer's own files are opened as ever.
FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
    if (strcmp(path, "/data/ozu/etc/countries_codes.csv") != 0) {
        return __real_fopen(path, mode);
    }
    return content.empty() ? nullptr : fmemopen(content.data(), content.size(), mode);
}
FILE *__wrap_fopen64(const char *path, const char *mode) {
    return __wrap_fopen(path, mode);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return -1;
    }
    const std::string input(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::string name = std::string(input, 0, std::min<std::size_t>(data[0], input.size())).c_str();
    content = input.substr(std::min<std::size_t>(data[0], input.size()));
    char codes[16];
    memset(codes, '#', sizeof(codes));
    const unsigned result = get_country_codes(name.c_str(), codes + 1, codes + 5, codes + 10);
    if (codes[0] != '#' || codes[4] != '#' || codes[9] != '#' || codes[14] != '#' || result > 1) {
        abort();
    }
    if (const auto expected = ozu::test::countryModel(content, name); expected.has_value()) {
        const ozu::test::CountryAnswer answer = {result, codes + 1, codes + 5, codes + 10};
        if (!(answer == *expected)) {
            abort();
        }
    }
    return 0;
}

} // extern "C"

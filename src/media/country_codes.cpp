// ISO 3166 codes of a country: from the panel's file, else from the built-in rows, else those of the default.

#include <utils_ozu/country.h>

#include <base/log.h>
#include <base/unique_file.h>
#include <media/country_csv.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *kFile = "/data/ozu/etc/countries_codes.csv";
constexpr std::size_t kLineSize = 128;
constexpr std::size_t kNameSize = 64;
constexpr std::size_t kFields = 4;
constexpr std::size_t kNumericDigits = 3;

constexpr std::size_t kAlpha2Size = 3;
constexpr std::size_t kAlpha3Size = 4;
constexpr std::size_t kNumericSize = 4;

// The texts stand in the rows themselves, so that the table needs no relocation.
struct Country {
    char name[16];
    char alpha2[kAlpha2Size];
    char alpha3[kAlpha3Size];
    char numeric[kNumericSize];
};

constexpr Country kBuiltIn[] = {
    {"Spain", "ES", "ESP", "724"},  {"France", "FR", "FRA", "250"},         {"Portugal", "PT", "PRT", "620"},
    {"Italy", "IT", "ITA", "380"},  {"United Kingdom", "GB", "GBR", "826"}, {"Argentina", "AR", "ARG", "032"},
    {"Brazil", "BR", "BRA", "076"}, {"Peru", "PE", "PER", "604"},           {"Israel", "IL", "ISR", "376"},
    {"Chile", "CL", "CHL", "152"},
};
constexpr const Country &kDefault = kBuiltIn[0];

// Where the caller wants the codes; each may be null.
struct Outputs {
    char *alpha2;
    char *alpha3;
    char *numeric;

    void take(const Country &row) const noexcept {
        copy(alpha2, row.alpha2);
        copy(alpha3, row.alpha3);
        copy(numeric, row.numeric);
    }

    // The fields of a line of the file.
    void take(char *const (&fields)[kFields]) const noexcept {
        if (alpha2 != nullptr) {
            ozu::normalizeCountryField(alpha2, fields[1], kAlpha2Size);
        }
        if (alpha3 != nullptr) {
            ozu::normalizeCountryField(alpha3, fields[2], kAlpha3Size);
        }
        if (numeric != nullptr) {
            ozu::normalizeCountryField(numeric, fields[3], kNumericSize);
            padNumeric();
        }
    }

  private:
    template <std::size_t Size>
    static void copy(char *output, const char (&text)[Size]) noexcept {
        if (output != nullptr) {
            std::memcpy(output, text, Size);
        }
    }

    void padNumeric() const noexcept {
        if (std::strlen(numeric) < kNumericDigits) {
            // Two characters at most: the number fits the three.
            static_cast<void>(std::snprintf(numeric, kNumericSize, "%03d",
                                            static_cast<int>(std::strtol(numeric, nullptr, 10))));
        }
    }
};

bool searchFile(const char *key, const Outputs &outputs) noexcept {
    const ozu::UniqueFile file(std::fopen(kFile, "re"));
    if (!file.valid()) {
        return false;
    }
    bool found = false;
    char line[kLineSize];
    while (std::fgets(line, sizeof(line), file.get()) != nullptr) {
        if (line[0] == '#') {
            continue;
        }
        char *fields[kFields] = {};
        ozu::splitCsvFields(line, fields, kFields);
        char name[kNameSize];
        ozu::normalizeCountryField(name, fields[0], sizeof(name));
        if (std::strcmp(key, name) == 0) {
            outputs.take(fields);
            return true;
        }
        if (char *comma = std::strchr(name, ','); comma != nullptr) {
            *comma = '\0';
            // A later line may name the country in full, so the first of alternative names is only kept in
            // mind.
            if (std::strcmp(key, name) == 0) {
                outputs.take(fields);
                found = true;
            }
        }
    }
    return found;
}

bool searchBuiltIn(const char *key, const Outputs &outputs) noexcept {
    for (const Country &row : kBuiltIn) {
        char name[kNameSize];
        ozu::normalizeCountryField(name, row.name, sizeof(name));
        if (std::strcmp(key, name) == 0) {
            outputs.take(row);
            return true;
        }
    }
    return false;
}

} // namespace

unsigned get_country_codes(const char *country, char alpha2[3], char alpha3[4], char numeric[4]) noexcept {
    const Outputs outputs = {alpha2, alpha3, numeric};
    outputs.take(kDefault);
    if (country == nullptr || *country == '\0') {
        return 0;
    }
    char key[kNameSize];
    ozu::normalizeCountryField(key, country, sizeof(key));
    if (*key == '\0') {
        return 0;
    }
    if (searchFile(key, outputs) || searchBuiltIn(key, outputs)) {
        return 1;
    }
    OZU_LOG_SHORT(OZULOG_NOTICE, "Unknown country %s. The country codes for %s (%s, %s, %s) will be used.",
                  country, kDefault.name, kDefault.alpha2, kDefault.alpha3, kDefault.numeric);
    return 0;
}

unsigned get_country_alpha2Code(const char *country, char alpha2[3]) noexcept {
    return get_country_codes(country, alpha2, nullptr, nullptr);
}

unsigned get_country_alpha3Code(const char *country, char alpha3[4]) noexcept {
    return get_country_codes(country, nullptr, alpha3, nullptr);
}

unsigned get_country_numericCode(const char *country, char numeric[4]) noexcept {
    return get_country_codes(country, nullptr, nullptr, numeric);
}

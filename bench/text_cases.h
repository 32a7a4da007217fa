// The conversions that are measured: ours and the peers that a program would take instead, over the same
// input.
#pragma once

#include <utils_ozu/text.h>

#include <absl/strings/escaping.h>
#include <openssl/crypto.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace text_bench {

inline constexpr std::size_t kNumbers = 1024;

// Numbers of all lengths.
inline const std::vector<std::uint32_t> &numbers() {
    static const std::vector<std::uint32_t> all = [] {
        std::mt19937 random(1);
        std::vector<std::uint32_t> some(kNumbers);
        for (std::uint32_t &number : some) {
            number = static_cast<std::uint32_t>(random()) >> random() % 32;
        }
        return some;
    }();
    return all;
}

// Their texts, those that an int holds.
inline const std::vector<std::string> &numberTexts() {
    static const std::vector<std::string> all = [] {
        std::vector<std::string> some;
        for (const std::uint32_t number : numbers()) {
            some.push_back(std::to_string(number >> 1));
        }
        return some;
    }();
    return all;
}

inline std::vector<std::uint8_t> bytes(std::size_t count) {
    std::mt19937 random(2);
    std::vector<std::uint8_t> all(count);
    for (std::uint8_t &byte : all) {
        byte = static_cast<std::uint8_t>(random());
    }
    return all;
}

// What a call reads, and room for what it writes; the sum of all results keeps every call.
struct Input {
    explicit Input(std::size_t count) : data(bytes(count)), text(3 * count + 1), back(count) {
        ozuutils_data2hexstr(data.data(), static_cast<unsigned int>(count), text.data(),
                             static_cast<unsigned int>(text.size()), nullptr);
        hex = text.data();
    }
    std::vector<std::uint8_t> data;
    std::vector<char> text;
    std::vector<std::uint8_t> back;
    std::string hex;
};

using Job = void (*)(Input &input);

struct Case {
    std::string_view what;
    std::string_view way; // "ours" is ours
    Job run;
    double atMost = 0; // of this peer, instructions; 0 where it is only shown
};

template <typename Convert>
void eachNumber(Input &input, Convert convert) {
    for (const std::uint32_t number : numbers()) {
        convert(number, input.text.data());
    }
}

template <typename Parse>
void eachText(Input &input, Parse parse) {
    std::size_t sum = 0;
    for (const std::string &text : numberTexts()) {
        sum += static_cast<std::size_t>(parse(text.c_str()));
    }
    std::memcpy(input.text.data(), &sum, sizeof sum);
}

inline unsigned int sizeOf(const std::vector<char> &text) {
    return static_cast<unsigned int>(text.size());
}

inline void padded(std::uint32_t number, char *text) {
    char digits[10];
    const char *end = std::to_chars(digits, digits + 10, number).ptr;
    const auto count = static_cast<std::size_t>(end - digits);
    std::memset(text, '0', 10 - count);
    std::memcpy(text + 10 - count, digits, count);
}

inline const Case kCases[] = {
    {"hex text with separator", "ours",
     [](Input &in) {
         ozuutils_data2hexstr(in.data.data(), static_cast<unsigned int>(in.data.size()), in.text.data(),
                              sizeOf(in.text), ":");
     }},
    {"hex text with separator", "OPENSSL_buf2hexstr_ex",
     [](Input &in) {
         std::size_t length = 0;
         OPENSSL_buf2hexstr_ex(in.text.data(), in.text.size(), &length, in.data.data(), in.data.size(), ':');
     },
     1.0},
    {"hex text", "ours",
     [](Input &in) {
         ozuutils_data2hexstr(in.data.data(), static_cast<unsigned int>(in.data.size()), in.text.data(),
                              sizeOf(in.text), nullptr);
     }},
    {"hex text", "absl::BytesToHexString",
     [](Input &in) {
         const std::string text = absl::BytesToHexString(
             absl::string_view(reinterpret_cast<const char *>(in.data.data()), in.data.size()));
         in.text[0] = text[0];
     },
     1.0},
    {"bytes of hex text", "ours",
     [](Input &in) {
         ozuutils_hexStringToBinary(in.hex.c_str(), in.back.data(), static_cast<unsigned int>(in.back.size()),
                                    0);
     }},
    {"bytes of hex text", "absl::HexStringToBytes",
     [](Input &in) {
         const std::string back = absl::HexStringToBytes(in.hex.c_str());
         in.text[0] = back[0];
     },
     1.0},
    {"decimal", "ours",
     [](Input &in) {
         eachNumber(in, [](std::uint32_t n, char *text) { ozuutils_Num2MinimalDecStr(n, text, 10); });
     }},
    {"decimal", "std::to_chars",
     [](Input &in) {
         eachNumber(in, [](std::uint32_t n, char *text) { std::to_chars(text, text + 10, n); });
     },
     1.15},
    {"decimal, 10 digits", "ours",
     [](Input &in) {
         eachNumber(in, [](std::uint32_t n, char *text) { ozuutils_num2decstr(n, text, 10); });
     }},
    {"decimal, 10 digits", "std::to_chars, padded", [](Input &in) { eachNumber(in, padded); }, 1.15},
    {"number of a text", "ours", [](Input &in) { eachText(in, safe_atoi); }},
    {"number of a text", "strtoul",
     [](Input &in) { eachText(in, [](const char *text) { return std::strtoul(text, nullptr, 10); }); }, 1.0},
};

} // namespace text_bench

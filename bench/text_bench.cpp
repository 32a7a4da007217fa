// Conversions against what a program would take from the C library.
#include <utils_ozu/text.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kNumbers = 1024;

// Numbers of all lengths.
std::vector<std::uint32_t> numbers() {
    std::mt19937 random(1);
    std::vector<std::uint32_t> all(kNumbers);
    for (std::uint32_t &number : all) {
        number = static_cast<std::uint32_t>(random()) >> random() % 32;
    }
    return all;
}

// Calls convert(number, buffer) for one number after the other.
template <typename Convert>
void convertNumbers(benchmark::State &state, Convert convert) {
    const auto all = numbers();
    std::array<char, 32> text{};
    std::size_t next = 0;
    for (auto _ : state) {
        convert(all[next], text.data());
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
        next = (next + 1) % kNumbers;
    }
}

std::vector<std::uint8_t> bytes(std::size_t count) {
    std::mt19937 random(2);
    std::vector<std::uint8_t> all(count);
    for (std::uint8_t &byte : all) {
        byte = static_cast<std::uint8_t>(random());
    }
    return all;
}

using Search = void *(*)(const std::uint8_t *buf, const std::uint8_t *pattern, unsigned int bufLen,
                         unsigned int patLen);

void *searchOurs(const std::uint8_t *buf, const std::uint8_t *pattern, unsigned int bufLen,
                 unsigned int patLen) {
    return ozuutils_searchInBuf(buf, pattern, bufLen, patLen);
}

void *searchMemmem(const std::uint8_t *buf, const std::uint8_t *pattern, unsigned int bufLen,
                   unsigned int patLen) {
    return memmem(buf, bufLen, pattern, patLen);
}

// The pattern stands at the buffer's end only.
void search(benchmark::State &state, Search function, std::size_t bufLen, std::size_t patLen) {
    const auto buf = bytes(bufLen);
    const std::vector<std::uint8_t> pattern(buf.end() - static_cast<std::ptrdiff_t>(patLen), buf.end());
    for (auto _ : state) {
        benchmark::DoNotOptimize(function(buf.data(), pattern.data(), static_cast<unsigned int>(bufLen),
                                          static_cast<unsigned int>(patLen)));
    }
    state.SetBytesProcessed(
        static_cast<std::int64_t>(state.iterations() * static_cast<std::int64_t>(bufLen)));
}

// A buffer and a pattern of one letter but for the pattern's first: the worst for a plain loop.
void searchRepeated(benchmark::State &state, Search function) {
    const std::vector<std::uint8_t> buf(65536, 'a');
    std::vector<std::uint8_t> pattern(64, 'a');
    pattern.front() = 'b';
    for (auto _ : state) {
        benchmark::DoNotOptimize(function(buf.data(), pattern.data(), 65536, 64));
    }
}

constexpr std::size_t kHexBytes = 1024;

void hexTextOurs(benchmark::State &state) {
    const auto data = bytes(kHexBytes);
    std::vector<char> text(2 * kHexBytes);
    for (auto _ : state) {
        ozuutils_String2Ascii(text.data(), data.data(), kHexBytes);
        benchmark::ClobberMemory();
    }
}

void hexTextSnprintf(benchmark::State &state) {
    const auto data = bytes(kHexBytes);
    std::vector<char> text(2 * kHexBytes + 1);
    for (auto _ : state) {
        for (std::size_t i = 0; i < kHexBytes; ++i) {
            snprintf(&text[2 * i], 3, "%02X", data[i]);
        }
        benchmark::ClobberMemory();
    }
}

std::string hexText() {
    const auto data = bytes(kHexBytes);
    std::string text(2 * kHexBytes, '\0');
    ozuutils_String2Ascii(text.data(), data.data(), kHexBytes);
    return text;
}

void hexParseOurs(benchmark::State &state) {
    const std::string text = hexText();
    std::vector<std::uint8_t> data(kHexBytes);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ozuutils_hexStringToBinary(text.c_str(), data.data(), kHexBytes, 0));
        benchmark::ClobberMemory();
    }
}

void hexParseStrtoul(benchmark::State &state) {
    const std::string text = hexText();
    std::vector<std::uint8_t> data(kHexBytes);
    for (auto _ : state) {
        for (std::size_t i = 0; i < kHexBytes; ++i) {
            const char pair[] = {text[2 * i], text[2 * i + 1], '\0'};
            data[i] = static_cast<std::uint8_t>(strtoul(pair, nullptr, 16));
        }
        benchmark::ClobberMemory();
    }
}

void registerAll() {
    const auto add = [](const std::string &name, auto function) {
        benchmark::RegisterBenchmark(name.c_str(), function);
    };
    for (const std::size_t bufLen : {std::size_t{64}, std::size_t{4096}, std::size_t{1} << 20}) {
        for (const std::size_t patLen : {std::size_t{1}, std::size_t{4}, std::size_t{32}}) {
            const std::string name = "search/" + std::to_string(patLen) + "_in_" + std::to_string(bufLen);
            add(name + "/ours", [=](benchmark::State &s) { search(s, searchOurs, bufLen, patLen); });
            add(name + "/memmem", [=](benchmark::State &s) { search(s, searchMemmem, bufLen, patLen); });
        }
    }
    add("search/repeated/ours", [](benchmark::State &s) { searchRepeated(s, searchOurs); });
    add("search/repeated/memmem", [](benchmark::State &s) { searchRepeated(s, searchMemmem); });

    add("decimal/minimal/ours", [](benchmark::State &s) {
        convertNumbers(s, [](std::uint32_t n, char *text) { ozuutils_Num2MinimalDecStr(n, text, 10); });
    });
    add("decimal/minimal/snprintf", [](benchmark::State &s) {
        convertNumbers(s, [](std::uint32_t n, char *text) { snprintf(text, 32, "%u", n); });
    });
    add("decimal/10_digits/ours", [](benchmark::State &s) {
        convertNumbers(s, [](std::uint32_t n, char *text) { ozuutils_num2decstr(n, text, 10); });
    });
    add("decimal/10_digits/snprintf", [](benchmark::State &s) {
        convertNumbers(s, [](std::uint32_t n, char *text) { snprintf(text, 32, "%010u", n); });
    });
    add("hex/8_digits/ours", [](benchmark::State &s) {
        convertNumbers(s, [](std::uint32_t n, char *text) { ozuutils_num2hexstr(n, text, 8); });
    });
    add("hex/8_digits/snprintf", [](benchmark::State &s) {
        convertNumbers(s, [](std::uint32_t n, char *text) { snprintf(text, 32, "%08X", n); });
    });
    add("hex/bytes_1024/ours", hexTextOurs);
    add("hex/bytes_1024/snprintf", hexTextSnprintf);
    add("hex/parse_1024/ours", hexParseOurs);
    add("hex/parse_1024/strtoul", hexParseStrtoul);
}

const bool kRegistered = (registerAll(), true);

} // namespace

// Conversions against what a program would take instead, in time: the cases of text_cases.h, and searches.
#include "text_cases.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using text_bench::bytes;

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

void convert(benchmark::State &state, text_bench::Job job, std::size_t count) {
    text_bench::Input input(count);
    for (auto _ : state) {
        job(input);
        benchmark::ClobberMemory();
    }
}

// CASE/WAY, spaces as underscores.
std::string nameOf(const text_bench::Case &measured, std::size_t count) {
    std::string name(measured.what);
    if (name.find("hex") != std::string::npos) {
        name += ", " + std::to_string(count) + " bytes";
    }
    name += "/" + std::string(measured.way);
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
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

    for (const auto &measured : text_bench::kCases) {
        const bool sized = measured.what.find("hex") != std::string_view::npos;
        for (const std::size_t count : {std::size_t{20}, std::size_t{4096}}) {
            if (sized || count == 20) {
                add(nameOf(measured, count),
                    [&measured, count](benchmark::State &s) { convert(s, measured.run, count); });
            }
        }
    }
}

const bool kRegistered = (registerAll(), true);

} // namespace

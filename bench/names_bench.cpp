// Lookups of names in time: ours, a compiled switch, a perfect hash of gperf, the scan that
// getDeviceTypeEnum() answers like. One iteration is a lookup of all codes.

#include "names_cases.h"

#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

namespace {

bool registerAll() {
    for (const auto &measured : names_bench::kCases) {
        const std::string_view way(measured.way);
        if (way == "loop" || way == "unordered_map") {
            continue; // only for counting
        }
        benchmark::RegisterBenchmark((std::string(measured.question) + "/" + measured.way).c_str(),
                                     [&measured](benchmark::State &state) {
                                         for (auto _ : state) {
                                             benchmark::DoNotOptimize(measured.run());
                                         }
                                     });
    }
    return true;
}

const bool registered = registerAll();

} // namespace

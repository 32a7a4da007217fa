// Look-ups of names in time: ours, a compiled switch, a perfect hash of gperf, the scan that
// getDeviceTypeEnum() answers like.

#include "names_cases.h"

#include <benchmark/benchmark.h>

#include <string>

int main(int argc, char **argv) {
    for (const auto &measured : names_bench::kCases) {
        benchmark::RegisterBenchmark((std::string(measured.question) + "/" + measured.way).c_str(),
                                     [&measured](benchmark::State &state) {
                                         for (auto _ : state) {
                                             benchmark::DoNotOptimize(measured.run());
                                         }
                                         state.SetItemsProcessed(
                                             static_cast<std::int64_t>(state.iterations()) *
                                             static_cast<std::int64_t>(names_bench::kSteps));
                                     });
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

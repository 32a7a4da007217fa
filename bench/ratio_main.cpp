// Runs the benchmarks, five times each in mixed order, and compares those that share a case: a benchmark is
// named "CASE/ours" or "CASE/PEER", and the closing lines tell how much of the peer's time ours takes
// (median; below 1 is faster):
//
//   ratio CASE 0.71 of PEER (12.3 ns, 17.3 ns)
//
// All options of Google Benchmark work; for machine-readable results use --benchmark_out=FILE.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr const char *kOurs = "ours";

// Shows what the console shows, and remembers the medians.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    RatioReporter() : ConsoleReporter(OO_None) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.aggregate_name == "median") {
                remember(run.run_name.function_name + argumentsOf(run), run.GetAdjustedCPUTime());
            }
        }
    }

    void printRatios() const {
        for (const auto &[name, peers] : cases_) {
            const auto ours = peers.find(kOurs);
            for (const auto &[peer, time] : peers) {
                if (ours != peers.end() && peer != kOurs) {
                    std::printf("ratio %s %.2f of %s (%.1f ns, %.1f ns)\n", name.c_str(), ours->second / time,
                                peer.c_str(), ours->second, time);
                }
            }
        }
    }

  private:
    static std::string argumentsOf(const Run &run) {
        return run.run_name.args.empty() ? "" : "/" + run.run_name.args;
    }

    void remember(const std::string &full, double time) {
        const std::size_t slash = full.rfind('/');
        if (slash != std::string::npos) {
            cases_[full.substr(0, slash)][full.substr(slash + 1)] = time;
        }
    }

    std::map<std::string, std::map<std::string, double>> cases_;
};

} // namespace

int main(int argc, char **argv) {
    // Given first, so that the caller's own options win.
    std::vector<std::string> defaults = {"--benchmark_repetitions=5", "--benchmark_min_time=0.05",
                                         "--benchmark_enable_random_interleaving=true",
                                         "--benchmark_report_aggregates_only=true"};
    std::vector<char *> arguments = {argv[0]};
    for (std::string &option : defaults) {
        arguments.push_back(option.data());
    }
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    return 0;
}

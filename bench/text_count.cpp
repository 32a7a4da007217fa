// Runs one conversion, for counting instructions: text_count WHAT WAY BYTES CALLS. Without arguments it lists
// all, with the most that ours may take of a peer.

#include "text_cases.h"

int main(int argc, char **argv) {
    if (argc != 5) {
        for (const auto &measured : text_bench::kCases) {
            std::printf("%s|%s|%g\n", measured.what.data(), measured.way.data(), measured.atMost);
        }
        return argc == 1 ? 0 : 2;
    }
    text_bench::Input input(std::strtoul(argv[3], nullptr, 10));
    for (const auto &measured : text_bench::kCases) {
        if (argv[1] == measured.what && argv[2] == measured.way) {
            for (auto calls = std::strtoul(argv[4], nullptr, 10); calls > 0; --calls) {
                measured.run(input);
            }
        }
    }
    return 0;
}

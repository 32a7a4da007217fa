// Runs one lookup of names over all codes, for counting instructions: names_count QUESTION WAY. Without
// arguments it lists both.

#include "names_cases.h"

#include <cstdio>
#include <string_view>

int main(int argc, char **argv) {
    if (argc != 3) {
        for (const auto &measured : names_bench::kCases) {
            std::printf("%s %s\n", measured.question, measured.way);
        }
        return argc == 1 ? 0 : 2;
    }
    for (const auto &measured : names_bench::kCases) {
        if (std::string_view(argv[1]) == measured.question && std::string_view(argv[2]) == measured.way) {
            std::printf("%zu\n", measured.run());
            return 0;
        }
    }
    return 2;
}

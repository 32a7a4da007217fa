// libFuzzer's side of the families: OZU_FUZZ_TARGET says which of them runs.

#include "targets.h"

#include <cstdio>

namespace {

const ozu::fuzz::Target *chosen = nullptr;

} // namespace

extern "C" {

int LLVMFuzzerInitialize(int *argc, char ***argv);
int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
    const char *name = getenv("OZU_FUZZ_TARGET");
    for (const auto &target : ozu::fuzz::kTargets) {
        if (name != nullptr && strcmp(target.name, name) == 0) {
            chosen = &target;
        }
    }
    if (chosen == nullptr) {
        printf("OZU_FUZZ_TARGET must name one of:");
        for (const auto &target : ozu::fuzz::kTargets) {
            printf(" %s", target.name);
        }
        printf("\n");
        exit(2);
    }
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    ozu::fuzz::Input input({data, size});
    chosen->run(input);
    return 0;
}

} // extern "C"

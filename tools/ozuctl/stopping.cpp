#include "stopping.h"

#include <csignal>
#include <initializer_list>

namespace ozuctl {
namespace {

volatile std::sig_atomic_t signalled = 0;

} // namespace

void stopOnSignals() {
    for (const int number : {SIGINT, SIGTERM}) {
        static_cast<void>(signal(number, [](int) { signalled = 1; }));
    }
}

bool stopped() {
    return signalled != 0;
}

} // namespace ozuctl

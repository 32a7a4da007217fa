// door_contact: tells when the contact of one device opens and closes, and when its bypass ends.
//
// usage: door_contact DEVICE-INDEX
//
// A panel process in C++. Asking whether a zone is bypassed is also what ends a timed bypass that has run
// out.

#include <ozulog.h>
#include <utils_ozu.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

volatile std::sig_atomic_t toldToEnd = 0;

struct Contact {
    int device;
    bool open;
    bool bypassed;

    static Contact look(int device) {
        return {device, IsMagnetOpen(device) != 0, ozuutils_isZoneBypassed(device, 0) != 0};
    }
};

void tell(const Contact &before, const Contact &now) {
    if (before.bypassed != now.bypassed) {
        ozulog_printf(OZULOG_NOTICE, "device %d: bypass %s", now.device, now.bypassed ? "begins" : "ends");
    }
    if (before.open != now.open) {
        ozulog_printf(OZULOG_NOTICE, "device %d: contact %s", now.device, now.open ? "open" : "closed");
    }
}

} // namespace

int main(int argc, char **argv) {
    const int device = argc == 2 ? std::atoi(argv[1]) : 0;
    if (device < 1 || device >= MAX_DEVICE_INDEX) {
        std::fprintf(stderr, "usage: door_contact DEVICE-INDEX (1 to %d)\n", MAX_DEVICE_INDEX - 1);
        return 2;
    }
    std::signal(SIGTERM, [](int) { toldToEnd = 1; });
    std::signal(SIGINT, [](int) { toldToEnd = 1; });
    if (const int code = ozuutils_processInit("DOOR_CONTACT", nullptr); code != 0) {
        std::fprintf(stderr, "door_contact: start-up failed with code %d\n", code);
        return 1;
    }
    Contact before = Contact::look(device);
    while (toldToEnd == 0) {
        const Contact now = Contact::look(device);
        tell(before, now);
        before = now;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return 0;
}

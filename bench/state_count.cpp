// Runs one question about the shared record 4096 times, for counting instructions: state_count QUESTION WAY.
// Without arguments it lists both. "loads" reads the same fields and adds them up; "loop" only asks the
// platform for the record, whose share is taken off.

#include <base/panel_state.h>
#include <utils_ozu/state.h>

#include <ozu_fake_platform.h>

#include <cstdio>
#include <string_view>

namespace {

constexpr int kSteps = 4096;
constexpr int kFirstLock = 164;
constexpr int kLastLock = 196;
constexpr int kUnknownRfId = 77;

[[gnu::noinline]] unsigned int loadPartitions(unsigned int count) {
    const PanelSharedState *state = ozu::panelState();
    unsigned int sum = 0;
    for (unsigned int i = 0; i < count; ++i) {
        sum += ozu::readOnce(state->partitions[i].partitionState);
    }
    return sum;
}

[[gnu::noinline]] unsigned int loadType(int index) {
    return ozu::readOnce(ozu::panelState()->devices[index].deviceType);
}

[[gnu::noinline]] unsigned int loadTypes(int first, int last) {
    const PanelSharedState *state = ozu::panelState();
    unsigned int sum = 0;
    for (int index = first; index <= last; ++index) {
        sum += ozu::readOnce(state->devices[index].deviceType);
    }
    return sum;
}

[[gnu::noinline]] unsigned int loadRfIds() {
    const PanelSharedState *state = ozu::panelState();
    unsigned int sum = 0;
    for (int index = 1; index < OZUDB_DEVICES; ++index) {
        sum += ozu::readOnce(state->devices[index].rfId);
    }
    return sum;
}

// The sum keeps the compiler from leaving any out.
template <typename Ask>
unsigned int often(Ask ask) {
    unsigned int sum = 0;
    for (int step = 0; step < kSteps; ++step) {
        sum += static_cast<unsigned int>(ask(step % OZUDB_DEVICES));
    }
    return sum;
}

unsigned int loop() {
    return often([](int) { return ozu::panelState() != nullptr; });
}

struct Case {
    const char *question;
    const char *way; // "ours" is ours
    unsigned int (*run)();
};

const Case kCases[] = {
    {"panel_in_alarm", "loop", loop},
    {"panel_in_alarm", "ours", [] { return often([](int) { return IsPanelInAlarm(); }); }},
    {"panel_in_alarm", "loads", [] { return often([](int) { return loadPartitions(OZUDB_PARTITIONS); }); }},
    {"arm_type", "loop", loop},
    {"arm_type", "ours", [] { return often([](int) { return getCurArmType(); }); }},
    {"arm_type", "loads", [] { return often([](int) { return loadPartitions(5); }); }},
    {"magnet_type", "loop", loop},
    {"magnet_type", "ours", [] { return often(IsDeviceMagnetType); }},
    {"magnet_type", "loads", [] { return often(loadType); }},
    {"active_device", "loop", loop},
    {"active_device", "ours",
     [] { return often([](int) { return ozuutils_isDeviceExistsAndActive(kUnknownRfId, 0); }); }},
    {"active_device", "loads", [] { return often([](int) { return loadRfIds(); }); }},
    {"active_lock", "loop", loop},
    {"active_lock", "ours", [] { return often([](int) { return isDanalockExistAndActived(); }); }},
    {"active_lock", "loads", [] { return often([](int) { return loadTypes(kFirstLock, kLastLock); }); }},
};

} // namespace

int main(int argc, char **argv) {
    ozu_fake_record(0);
    for (PanelPartition &partition : ozu_fake_state()->partitions) {
        partition.partitionState = PANEL_PARTITION_DISARMED;
    }
    for (const Case &measured : kCases) {
        if (argc != 3) {
            std::printf("%s %s\n", measured.question, measured.way);
        } else if (std::string_view(argv[1]) == measured.question &&
                   std::string_view(argv[2]) == measured.way) {
            static_cast<void>(measured.run());
            return 0;
        }
    }
    return argc == 1 ? 0 : 2;
}

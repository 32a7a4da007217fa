// Access to the panel's shared record.
#pragma once

#include <ozudb.h>

namespace ozu {

// The record, or null when it is not mapped. Fetch it once per question.
inline PanelSharedState *panelState() noexcept {
    return ozudb_getSharedMemory(0);
}

// One read of a field that other processes write: each answer sees one value of it, whole.
template <typename Field>
Field readOnce(const Field &field) noexcept {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

// The same for a field that is written last and read first: what is read after it is at least as new.
template <typename Field>
Field readFirst(const Field &field) noexcept {
    return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

// The device record of an index in range, null otherwise.
inline const PanelDevice *deviceAt(const PanelSharedState *state, unsigned int index) noexcept {
    return state != nullptr && index < OZUDB_DEVICES ? &state->devices[index] : nullptr;
}

} // namespace ozu

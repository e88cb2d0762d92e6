// The memory reserve's hooks put into the default zone by hand, over what it
// holds now and in the order an outermost Enter uses: 64-bit builds hold no
// reserve, so this is how tests and benchmarks reach the hooked paths there.
#pragma once

#include <vtcore/core/memory/allocation/malloc_zone.h>
#include <vtcore/core/memory/allocation/memory_reserve.h>

namespace vtcore::testing {

inline void installReserveHooks() {
  g_tKWMemReserveSystemZone = vtcore::mallocZoneFunctions(nullptr);
  KWMallocZoneFunctions hooks{};
  hooks.malloc = KWMemoryReserveMallocOverride;
  hooks.calloc = KWMemoryReserveCallocOverride;
  hooks.valloc = KWMemoryReserveVallocOverride;
  hooks.free = KWMemoryReserveFreeOverride;
  vtcore::setMallocZoneFunctions(nullptr, hooks);
}

/// Puts back what installReserveHooks() found.
inline void removeReserveHooks() {
  vtcore::setMallocZoneFunctions(nullptr, g_tKWMemReserveSystemZone);
}

} // namespace vtcore::testing

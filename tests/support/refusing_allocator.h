// Test helper: an allocator that refuses every request for a scope, through
// the default zone's table, so that every malloc, calloc, valloc, realloc
// and operator new of the process fails while it is in place.
#pragma once

#include <vtcore/core/memory/allocation/malloc_zone.h>

namespace vtcore::test {

/// While alive, every allocation of the process answers null (operator new
/// throws std::bad_alloc); free still works, so blocks made before are
/// released normally. Only where the library defines the malloc family
/// (available()); under a sanitizer's allocator the zone sees nothing. Do
/// not use gtest's assertions inside the scope: they allocate.
class RefusingAllocator {
public:
  /// Whether the refusal reaches every allocation in this build.
  static bool available() { return mallocZoneInterposed(); }

  RefusingAllocator() : m_saved(mallocZoneFunctions(nullptr)) {
    KWMallocZoneFunctions refusing{};
    refusing.malloc = [](KWMallocZone*, size_t) -> void* { return nullptr; };
    refusing.calloc = [](KWMallocZone*, size_t, size_t) -> void* { return nullptr; };
    refusing.valloc = [](KWMallocZone*, size_t) -> void* { return nullptr; };
    // A refused realloc leaves the block as it was, as realloc(3) does.
    refusing.realloc = [](KWMallocZone*, void*, size_t) -> void* { return nullptr; };
    setMallocZoneFunctions(nullptr, refusing);
  }
  ~RefusingAllocator() { setMallocZoneFunctions(nullptr, m_saved); }
  RefusingAllocator(const RefusingAllocator&) = delete;
  RefusingAllocator& operator=(const RefusingAllocator&) = delete;

private:
  KWMallocZoneFunctions m_saved;
};

} // namespace vtcore::test

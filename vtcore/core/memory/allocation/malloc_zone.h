// The allocator zone: the table of entry points through which every malloc,
// calloc, valloc, realloc and free of the process passes.
//
// The core library defines malloc, calloc, valloc, realloc, free and
// malloc_usable_size (the table's block-size query); each behaves as a call
// through the default zone's table, which starts out
// pointing at the C library's own allocator. (Each actually jumps through a
// pointer derived from the table when it is written, so that an untouched
// table costs one jump; hooks only take effect through
// setMallocZoneFunctions.) The memory reserve and the leak guard save the
// table, write their hooks in its place and call the saved entries from the
// hooks. The aligned entry points (posix_memalign, aligned_alloc, memalign)
// stay the C library's; their blocks may be freed through the table.
//
// Programs built with a sanitizer keep the sanitizer's allocator: there the
// library does not define the allocator functions, the table points at the
// ordinary malloc family and installed hooks see only calls made through the
// table itself (mallocZoneInterposed() is false).
#pragma once

#include <vtcore/export.h>

#include <stddef.h>

/// The default zone of the system allocator. Opaque: its table of entry
/// points is read and written only through the functions below, which keep
/// the malloc family's dispatch in step with the table.
typedef struct KWMallocZone KWMallocZone;

/// A copy of the zone's entry points. Each takes the zone first, then the
/// arguments of the C function it stands for; `size` is the block-size query
/// (the usable size of an allocated block, 0 for null).
typedef struct KWMallocZoneFunctions {
  size_t (*size)(KWMallocZone* zone, const void* block);          ///< block-size query
  void* (*malloc)(KWMallocZone* zone, size_t size);               ///< malloc
  void* (*calloc)(KWMallocZone* zone, size_t count, size_t size); ///< calloc
  void* (*valloc)(KWMallocZone* zone, size_t size);               ///< valloc (page-aligned)
  void (*free)(KWMallocZone* zone, void* block);                  ///< free
  void* (*realloc)(KWMallocZone* zone, void* block, size_t size); ///< realloc
} KWMallocZoneFunctions;

#ifdef __cplusplus

namespace vtcore {

/// The process's default zone. Usable at any time, also before any static
/// constructor has run.
VTCORE_EXPORT KWMallocZone* defaultMallocZone();

/// The zone's current entry points. A null zone reads as the default zone.
VTCORE_EXPORT KWMallocZoneFunctions mallocZoneFunctions(KWMallocZone* zone);

/// Writes all six entry points of `functions` into the zone (a null zone is
/// the default zone). A null entry in `functions` leaves that entry point as
/// it is. Each entry is switched atomically, so other threads keep
/// allocating safely, but callers installing hooks must make sure the hooks
/// hand every block to the free entry that matches its allocator.
VTCORE_EXPORT void setMallocZoneFunctions(KWMallocZone* zone,
                                          const KWMallocZoneFunctions& functions);

/// The C library's own entry points, as the default zone holds them before
/// anything is installed.
VTCORE_EXPORT KWMallocZoneFunctions systemMallocZoneFunctions();

/// True when this build of the library defines the process's malloc family,
/// so that hooks installed in the zone see every allocation.
VTCORE_EXPORT bool mallocZoneInterposed();

/// What a client of the zone says about a pair of its hooks: whenever the
/// zone's malloc and free are exactly `malloc` and `free` and
/// `passesThrough()` answers true, the pair does nothing but call the C
/// library's malloc and free, except that a malloc the C library fails is
/// handed to `mallocFailed` (whose result the caller gets). The malloc family
/// then calls the C library itself, without going through the pair, and
/// calls `mallocFailed` only for failures. `passesThrough` is asked whenever
/// the zone's entries change and after mallocZonePassThroughChanged(); it
/// must not allocate, lock or throw. All four entries are required.
struct MallocZonePassThrough {
  void* (*malloc)(KWMallocZone* zone, size_t size);
  void (*free)(KWMallocZone* zone, void* block);
  bool (*passesThrough)() noexcept;
  void* (*mallocFailed)(size_t size) noexcept;
};

/// Registers a pass-through pair for the rest of the process (up to four
/// pairs; registering the same pair again replaces the other two entries).
/// Returns false, changing nothing, for a missing entry or when four other
/// pairs are registered. Only a client's own hooks should be registered:
/// the zone trusts the declaration.
VTCORE_EXPORT bool addMallocZonePassThrough(const MallocZonePassThrough& pair);

/// Tells the zone that the answer of a registered pair's passesThrough() may
/// have changed. Never allocates or throws: callable from inside hooks.
VTCORE_EXPORT void mallocZonePassThroughChanged() noexcept;

namespace detail {

/// Per-thread guard for allocator hooks: while a thread holds it, hooks pass
/// calls straight to the entries they saved. Hooks take it around any helper
/// that may allocate (stack bounds, the unwinder, reporting).
class VTCORE_EXPORT HookReentrancyGuard {
public:
  HookReentrancyGuard();
  ~HookReentrancyGuard();
  HookReentrancyGuard(const HookReentrancyGuard&) = delete;
  HookReentrancyGuard& operator=(const HookReentrancyGuard&) = delete;

  /// Whether the calling thread is inside a guarded region.
  static bool active();
};

/// Writes a fixed text to standard error with write(2): usable inside hooks.
VTCORE_EXPORT void writeToStandardError(const char* text);

} // namespace detail
} // namespace vtcore

#endif

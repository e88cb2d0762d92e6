// The memory reserve: large blocks held while the application runs normally
// and given back when an allocation fails, so that the failed request can be
// retried; a low-memory level reported through a callback and polling; and a
// probe of whether an amount of memory could be had in fragments.
//
// While entered, the reserve replaces the malloc, calloc, valloc and free
// entry points of the default allocator zone (malloc_zone.h) with its hooks.
//
// In builds for a 64-bit address space the reserve is switched off unless
// the library was configured with VTCORE_MEMORY_RESERVE_ON_64BIT=ON: Enter
// then reads the preferences, sets the block size to 0 and only makes its
// closing allocation; Exit does nothing; the level stays 0 and the probe
// answers 1 at once.
//
// Preferences: the dictionary "MemoryReserve" of the user-defaults store
// (user_defaults.h), with integer entries "MaxSensibleSize", "BlockSize",
// "FinalBlockSize", "MemAvailSize", "MemAvailFragment" and "Verbose", read at
// the first Enter of the process only.
//
// Reserve blocks are committed memory: each page is written once when a block
// is taken, so that giving it back returns real memory on Linux, where
// untouched pages cost nothing and free nothing. The reserve therefore costs
// BlockSize + FinalBlockSize megabytes of resident memory while held (600 MB
// with the defaults), and a block that does not fit what the system can
// really give (platform/available_memory.h) counts as not allocated.
//
// Nothing here locks: Enter and Exit belong to one thread (application start
// and end); the hooks run on every allocating thread over plain counters.
#pragma once

#include <vtcore/core/memory/allocation/malloc_zone.h>
#include <vtcore/export.h>

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#include <atomic>
#include <cstdint>
#endif

/// Called after every change of the low-memory level, with the user value
/// given to KWMemoryReserveEnter. It runs inside an allocator hook on the
/// thread whose allocation failed or whose free brought the reserve back, so
/// it must not rely on allocating memory.
typedef void (*KWMemoryReserveCallback)(void* userValue);

/// Option identifiers of KWMemoryReserveSetOption / KWMemoryReserveGetOption.
enum {
  kKWMemReserveOptionMaxSensibleSize = 0,  ///< MB; default 100
  kKWMemReserveOptionBlockSize = 1,        ///< MB; default 500; below 1 disables
  kKWMemReserveOptionFinalBlockSize = 2,   ///< MB; default 100
  kKWMemReserveOptionMemAvailSize = 3,     ///< MB; default 200; for callers of the probe
  kKWMemReserveOptionMemAvailFragment = 4, ///< MB; default 10; for callers of the probe
  kKWMemReserveOptionVerbose = 5           ///< stored and returned only
};

VTCORE_EXTERN_C_BEGIN

/// Stores `value` for the option. Identifiers outside 0..5 are ignored.
VTCORE_EXPORT void KWMemoryReserveSetOption(int option, int value);
/// The option's current value; 0 for an identifier above 5.
VTCORE_EXPORT int KWMemoryReserveGetOption(unsigned option);

/// Enters the reserve. The first call in the process reads the preferences
/// (overriding options set before it). The outermost Enter allocates the
/// reserve (split into 1, 2, 4, 8 or 16 blocks in Proscen mode), then the
/// final block, installs the hooks and keeps `callback` and `userValue`;
/// nested calls only count. A block size below 1 counts the entry and does
/// nothing else. Every call ends with one zero-filled allocation of 5 × 10
/// bytes, returned and never freed by the library (callers ignore it).
VTCORE_EXPORT void* KWMemoryReserveEnter(KWMemoryReserveCallback callback, void* userValue);
/// Undoes the matching Enter; only the Exit that brings the count to 0
/// restores the zone's entry points (when Enter installed hooks), forgets the
/// callback and frees the reserve and the final block. An Exit without an
/// Enter is ignored.
VTCORE_EXPORT void KWMemoryReserveExit(void);

/// The current level: 0 normal, 1 reserve given back, 2 final block too.
VTCORE_EXPORT int KWMemoryReserveGetLowMemoryLevel(void);
/// The level entered by the last release (1 or 2), or 0 when none happened
/// since it was last cleared; cleared after reading when `reset` is non-zero.
/// Taking the reserve back never changes it.
VTCORE_EXPORT int KWMemoryReserveDidLowMemoryLevelChange(int reset);
/// The number of failed probes; cleared after reading when `reset` is
/// non-zero.
VTCORE_EXPORT int KWMemoryReserveDidProbingFail(int reset);

/// Whether `size` bytes could be allocated in fragments of at least
/// `minFragment` bytes (1 yes, 0 no): tries 1 block of `size`, then 2 of
/// half, 4 of a quarter, ... through the zone's saved malloc, giving every
/// block back at once. Answers 1 without probing when no final block is held
/// (no reserve in force). `size` below `minFragment`, or more than the
/// system can really give (vtcore::availableMemoryFits), fails without
/// allocating; otherwise a `minFragment` of 0 can never fail. Each failure is
/// counted.
VTCORE_EXPORT int KWMemoryReserveTestAvailableMemory(size_t size, size_t minFragment);

/// Makes the next free seen by the hooks while monitoring try to take the
/// reserve back, whatever was freed.
VTCORE_EXPORT void KWMemoryReserveTryReserveReallocation(void);

/// The release step run by the hooks after a failed allocation of `size`
/// bytes: gives back the reserve (level 1) or else the final block (level
/// 2), then calls the callback. At level 1 a request of more than the
/// "MaxSensibleSize" megabytes gives nothing back.
VTCORE_EXPORT void KWMemoryReserveHandleLowMemorySituation(KWMallocZone* zone, size_t size);

/// The hooks installed into the default zone while the reserve is entered.
/// Each forwards to the entry point saved by Enter; they must only be called
/// while the reserve is entered.
VTCORE_EXPORT void* KWMemoryReserveMallocOverride(KWMallocZone* zone, size_t size);
VTCORE_EXPORT void* KWMemoryReserveCallocOverride(KWMallocZone* zone, size_t count, size_t size);
VTCORE_EXPORT void* KWMemoryReserveVallocOverride(KWMallocZone* zone, size_t size);
VTCORE_EXPORT void KWMemoryReserveFreeOverride(KWMallocZone* zone, void* ptr);

VTCORE_EXTERN_C_END

#ifdef __cplusplus

// The reserve's process-wide state. Plain values by contract; relaxed atomic
// loads and stores keep concurrent hooks free of undefined behaviour without
// adding any synchronisation. Sizes are megabytes unless said otherwise.
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveMaxSensibleSize;      // 100
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveBlockSize;            // 500
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveFinalBlockSize;       // 100
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveMemAvailSize;         // 200
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveDFLTMemAvailFragment; // 10
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveVerbose;              // 0
extern VTCORE_EXPORT std::atomic<std::uint8_t> g_bKWMemReservePrefsRead;
extern VTCORE_EXPORT std::atomic<std::uint32_t> g_u32KWMemReserveInitCount;
/// Number of blocks the reserve is split into (1, 2, 4, 8, 16; 32 after a
/// total failure).
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveCurDivide;
extern VTCORE_EXPORT std::atomic<void*> g_aptrKWMemReservePtr[16];
extern VTCORE_EXPORT std::atomic<void*> g_ptrKWMemReserveFinalPtr;
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveLowMemoryLevel;
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveMemoryLevelDidChange;
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveProbingFailed;
/// Set from a release until the reserve is back. Written by the library
/// only: while it is clear and the reserve's hooks sit directly on the C
/// library, the malloc family calls glibc without entering the hooks, and it
/// learns of each change through the library's own writes.
extern VTCORE_EXPORT std::atomic<std::uint8_t> g_bKWMemReserveUsageMonitoring;
/// Net bytes allocated since monitoring began (wraps at 32 bits).
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveUsageMonitor;
extern VTCORE_EXPORT std::atomic<std::int32_t> g_iKWMemReserveLastReallocCheck;
extern VTCORE_EXPORT std::atomic<std::uint8_t> g_bKWMemoryReserveForceTryReallocation;
/// Proscen mode (split reserve) when set, Arbor mode (one block) when clear.
/// Initialised on; the library never changes it.
extern VTCORE_EXPORT std::atomic<std::uint8_t> g_bKWMemReserveProscenMode;
extern VTCORE_EXPORT std::atomic<KWMemoryReserveCallback> g_funcKWMemReserveCallback;
extern VTCORE_EXPORT std::atomic<void*> g_ptrKWMemReserveUserValue;
/// The zone's own entry points, saved by Enter for the hooks and the probe.
/// Written by the library only, before it installs the hooks.
extern VTCORE_EXPORT KWMallocZoneFunctions g_tKWMemReserveSystemZone;

namespace vtcore {
/// Whether this build holds a reserve at all (32-bit builds, or 64-bit builds
/// configured with VTCORE_MEMORY_RESERVE_ON_64BIT=ON).
VTCORE_EXPORT bool memoryReserveAvailable();
} // namespace vtcore

#endif

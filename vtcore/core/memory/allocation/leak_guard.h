// The leak guard: finds memory that a chosen stretch of code allocates and
// never frees.
//
// A stretch is marked by a scope: a KWLeakGuard on the stack (or one opened
// with KWOpenLeakGuardScope). While a scope is open, every allocation whose
// frame-pointer chain passes through the scope's function is given an
// 88-byte trailer and recorded with its call chain; frees remove the record.
// malloc_usable_size of a tracked block leaves the trailer out. Scopes may
// open and close while other threads allocate.
// KWResetLeakGuardHistory(true) prints what is left on standard output, as
// lines starting with "LLD: ", and discards it; the same report is printed
// at process exit.
//
// The guard is off unless switched on: by the environment variable
// VTCORE_LEAK_GUARD (non-zero enables; read once, at the first scope
// opening) or by vtcore::setLeakGuardEnabled. Switched on, the first scope
// opening installs hooks for malloc, calloc, valloc, realloc and free into
// the default allocator zone for the rest of the process, and loads the
// "LeakGuard" preference dictionary (group → key → integer) from the
// user-defaults store. The number of leaks printed in detail is limited by
// VTCORE_LEAK_GUARD_REPORT_LIMIT or vtcore::setLeakGuardReportLimit (0: all).
//
// Call chains are read from frame pointers: code that should be recognised
// inside a scope must be built with -fno-omit-frame-pointer, and file names
// and lines in reports need debug information (-g).
#pragma once

#include <vtcore/core/memory/allocation/malloc_zone.h>
#include <vtcore/export.h>

#include <atomic>
#include <cstddef>
#include <optional>
#include <pthread.h>
#include <unicode/unistr.h>

/// The process-wide bookkeeping of the leak guard: one instance,
/// KWLeakGuardHandler::s_cSingleton, alive from library load to process exit.
class VTCORE_EXPORT KWLeakGuardHandler {
public:
  /// One record per tracked block, allocated through the saved malloc.
  struct SMallocEntry {
    SMallocEntry* previous; ///< the record before, null for the first
    SMallocEntry* next;     ///< the record after, null for the last
    void* block;            ///< the tracked block; null once released
    unsigned long size;     ///< the size the caller asked for; 0 once released
    void* addresses[16];    ///< return addresses, innermost first, 0-terminated when fewer
  };

  /// Size of the trailer added to every block allocated through the hooks.
  static constexpr std::size_t kTrailerSize = 88;
  /// The trailer written into tracked blocks: zeros around the magic
  /// "VTLeakDebug" at offset 32; the entry pointer goes to offset 48.
  static const unsigned char s_sHeaderPrototype[kTrailerSize];

  /// The one handler of the process.
  static KWLeakGuardHandler s_cSingleton;

  constexpr KWLeakGuardHandler() = default;
  /// At process exit: when switched on and initialised, restores the zone
  /// and prints the report of what is left (ResetHistory(true)).
  ~KWLeakGuardHandler();
  KWLeakGuardHandler(const KWLeakGuardHandler&) = delete;
  KWLeakGuardHandler& operator=(const KWLeakGuardHandler&) = delete;

  /// Marks the handler initialised (reading the environment the first time)
  /// and, when switched on and not yet done, sets up the record list, loads
  /// the preferences and installs the hooks.
  void Initialize();
  /// Saves the zone's entry points and installs the five hooks.
  void OverrideMallocCalls();
  /// Writes the saved entry points (the block-size query included) back into
  /// the zone.
  void RestoreMallocCalls();

  /// Opens a scope rooted at `frame`. With a group or a key, both must be
  /// given and CheckPreference must be non-zero; otherwise nothing opens.
  /// Nothing opens while the guard is switched off. Returns whether the
  /// scope opened. Safe while other threads allocate.
  bool SetRoot(const std::optional<icu::UnicodeString>& group,
               const std::optional<icu::UnicodeString>& key, void* frame);
  /// Closes one scope rooted at `frame`, also when the guard was switched
  /// off meanwhile (a root left behind would track any later function at the
  /// same stack depth); an unknown frame is ignored. Safe while other threads
  /// allocate.
  void ClearRoot(void* frame);

  /// The scope condition: the override value of group/key if there is one,
  /// else the preference value (a string holding a number is accepted, and
  /// stored back as that number), else 0.
  int CheckPreference(const icu::UnicodeString& group, const icu::UnicodeString& key);
  /// Overrides the preference group/key with `value` in this process. A null
  /// group or key is ignored.
  void OverridePreference(const std::optional<icu::UnicodeString>& group,
                          const std::optional<icu::UnicodeString>& key, unsigned value);

  /// Discards all records and returns the sum of their sizes; with `report`
  /// prints them ("LLD: " lines) and the total first. Scopes stay open.
  /// Returns 0 before the first scope opening.
  long ResetHistory(bool report);

  /// Allocates a zeroed record and links it at the end of the list; null
  /// when the allocator fails. The caller holds the handler's lock.
  SMallocEntry* CreateEntry();
  /// Unlinks and frees a record. The caller holds the handler's lock.
  void ReleaseEntry(SMallocEntry* entry);
  /// Tracks `block` (the caller asked for `size` bytes) when the calling
  /// thread is inside a scope, or when `entry` continues an earlier record:
  /// writes the trailer and fills the record. Returns `block`.
  void* PaddMemory(void* block, unsigned long size, SMallocEntry* entry);

  ///@{
  /// The hooks installed into the default zone, one per entry point of
  /// KWMallocZoneFunctions.
  static void* MallocOverride(KWMallocZone* zone, std::size_t size);
  static void* CallocOverride(KWMallocZone* zone, std::size_t count, std::size_t size);
  static void* VallocOverride(KWMallocZone* zone, std::size_t size);
  static void* ReallocOverride(KWMallocZone* zone, void* ptr, std::size_t size);
  static void FreeOverride(KWMallocZone* zone, void* ptr);
  /// The block-size query (what malloc_usable_size answers): a tracked
  /// block's usable size without its trailer, which the caller must not
  /// overwrite; other blocks' as the saved query gives it.
  static std::size_t SizeOverride(KWMallocZone* zone, const void* block);
  ///@}

  ///@{
  /// The switch and the report limit (see vtcore::setLeakGuardEnabled).
  void setEnabled(bool enabled);
  bool enabled();
  void setReportLimit(unsigned long limit);
  ///@}

  /// The lock of the hooks (taken across fork by the library itself).
  pthread_mutex_t& forkLock() { return m_lock; }

private:
  void readEnvironmentOnce();
  // The saved malloc and free of the default zone, for the scope roots.
  static void* savedAllocate(std::size_t size);
  static void savedRelease(void* block);

  void* m_preferences = nullptr; // nlohmann::json object, or null
  void* m_overrides = nullptr;   // nlohmann::json object, or null
  KWMallocZoneFunctions m_saved{};
  pthread_mutex_t m_lock = PTHREAD_MUTEX_INITIALIZER;
  SMallocEntry* m_head = nullptr;
  SMallocEntry* m_tail = nullptr;
  std::atomic<int> m_enabled{0};
  std::atomic<unsigned long> m_reportLimit{0};
  std::atomic<bool> m_enabledSet{false};
  std::atomic<bool> m_reportLimitSet{false};
  bool m_initialised = false;
  bool m_installed = false;
};

/// A leak-guard scope: allocations are tracked while the function that
/// constructed it is active, on that thread.
class VTCORE_EXPORT KWLeakGuard {
public:
  /// Opens a scope rooted at the calling function's frame, or with `outer`
  /// at its caller's. A group and key make the scope conditional (see
  /// KWLeakGuardHandler::CheckPreference); one without the other opens
  /// nothing.
  explicit KWLeakGuard(const std::optional<icu::UnicodeString>& group = std::nullopt,
                       const std::optional<icu::UnicodeString>& key = std::nullopt,
                       bool outer = false);
  /// Closes the scope.
  ~KWLeakGuard();
  KWLeakGuard(const KWLeakGuard&) = delete;
  KWLeakGuard& operator=(const KWLeakGuard&) = delete;

  /// Forwards to KWLeakGuardHandler::ResetHistory.
  static long ResetHistory(bool report);
  /// Forwards to KWLeakGuardHandler::OverridePreference.
  static void OverridePreference(const std::optional<icu::UnicodeString>& group,
                                 const std::optional<icu::UnicodeString>& key, unsigned value);

private:
  void* m_root = nullptr;
};

/// Opens a scope rooted at the caller's frame; close it by deleting the
/// returned object.
VTCORE_EXPORT KWLeakGuard* KWOpenLeakGuardScope();
/// The same, conditional on group/key.
VTCORE_EXPORT KWLeakGuard*
KWOpenLeakGuardScopeWithGroupAndKey(const std::optional<icu::UnicodeString>& group,
                                    const std::optional<icu::UnicodeString>& key);
/// Forwards to KWLeakGuardHandler::OverridePreference.
VTCORE_EXPORT void KWOverrideLeakGuardPreference(const std::optional<icu::UnicodeString>& group,
                                                 const std::optional<icu::UnicodeString>& key,
                                                 unsigned value);
/// Forwards to KWLeakGuardHandler::ResetHistory.
VTCORE_EXPORT long KWResetLeakGuardHistory(bool report);

VTCORE_EXTERN_C_BEGIN
/// Prints a call chain on standard output, one "LLD: " line per address, up
/// to `count` addresses or the first null one: address, the last 32
/// characters of the source file ("???" without debug information), line
/// and demangled function name; an address without a symbol prints "???".
/// `flag` has no effect.
VTCORE_EXPORT void KWLeakGuardPrintStack(void* const* addresses, unsigned long count, int flag);
VTCORE_EXTERN_C_END

namespace vtcore {
/// Switches the leak guard on or off, overriding VTCORE_LEAK_GUARD. Switching
/// on takes effect at the next scope opening; switching off stops new scopes
/// from opening (installed hooks stay, tracking the scopes still open until
/// they close).
VTCORE_EXPORT void setLeakGuardEnabled(bool enabled);
/// Whether the guard is switched on (reads VTCORE_LEAK_GUARD the first time).
VTCORE_EXPORT bool leakGuardEnabled();
/// Number of leaks a report prints in detail (0: all), overriding
/// VTCORE_LEAK_GUARD_REPORT_LIMIT.
VTCORE_EXPORT void setLeakGuardReportLimit(unsigned long limit);
} // namespace vtcore

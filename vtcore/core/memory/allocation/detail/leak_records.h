// Internal to the leak guard: the trailer that marks a tracked block and
// points at its record, and the lock that guards the records.
#pragma once

#include <vtcore/core/memory/allocation/leak_guard.h>

#include <cstddef>
#include <pthread.h>

namespace vtcore::detail {

using LeakRecord = KWLeakGuardHandler::SMallocEntry;

/// Trailer layout: 32 zero bytes, the magic "VTLeakDebug" padded with zeros
/// to 16 bytes, the record pointer, 32 zero bytes.
inline constexpr std::size_t kTrailerMagicOffset = 32;
inline constexpr std::size_t kTrailerMagicSize = 16;
inline constexpr std::size_t kTrailerEntryOffset = 48;
/// The bytes cleared when a block stops being tracked: magic and record pointer.
inline constexpr std::size_t kTrailerMarkSize = 24;

/// Holds a pthread mutex for a scope. Never allocates, so hooks may use it.
class MutexLock {
public:
  explicit MutexLock(pthread_mutex_t* mutex) : m_mutex(mutex) { pthread_mutex_lock(m_mutex); }
  ~MutexLock() { pthread_mutex_unlock(m_mutex); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

private:
  pthread_mutex_t* m_mutex;
};

/// Where the trailer of a block of `allocatedSize` usable bytes starts.
/// Requires `allocatedSize >= KWLeakGuardHandler::kTrailerSize`.
unsigned char* trailerOf(void* block, std::size_t allocatedSize);

/// The trailer of `block` when it carries the magic, else null. `saved` is
/// the zone the guard saved (its size entry is the C library's). Requires a
/// non-null block allocated by the saved zone.
unsigned char* trackedTrailer(const KWMallocZoneFunctions& saved, KWMallocZone* zone, void* block);

/// The record pointer stored in a trailer (may be null).
LeakRecord* entryInTrailer(const unsigned char* trailer);

/// Whether a trailer found in `block` is the guard's own for that block: its
/// record, when it has one, names this block. (A trailer copied into another
/// block along with a tracked block's bytes names the original.) Requires
/// the handler's lock.
bool trailerBelongsTo(const unsigned char* trailer, const void* block);

} // namespace vtcore::detail

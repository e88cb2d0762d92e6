// The leak guard's records and trailers: the hooks that pad every block,
// mark the tracked ones and keep one record per tracked block.
#include <vtcore/core/memory/allocation/detail/call_chain.h>
#include <vtcore/core/memory/allocation/detail/hook_code.h>
#include <vtcore/core/memory/allocation/detail/leak_records.h>
#include <vtcore/core/memory/allocation/detail/scope_roots.h>
#include <vtcore/core/memory/allocation/leak_guard.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

using vtcore::detail::CallChain;
using vtcore::detail::entryInTrailer;
using vtcore::detail::kTrailerEntryOffset;
using vtcore::detail::kTrailerMagicOffset;
using vtcore::detail::kTrailerMagicSize;
using vtcore::detail::kTrailerMarkSize;
using vtcore::detail::leakGuardRoots;
using vtcore::detail::LeakRecord;
using vtcore::detail::MutexLock;
using vtcore::detail::trackedTrailer;
using vtcore::detail::trailerBelongsTo;
using vtcore::detail::trailerOf;
using vtcore::detail::walkCallChain;

static_assert(sizeof(LeakRecord) == 160, "a record is 160 bytes");

const unsigned char KWLeakGuardHandler::s_sHeaderPrototype[kTrailerSize] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 'V', 'T', 'L', 'e', 'a', 'k', 'D', 'e', 'b', 'u', 'g', 0, 0, 0, 0, 0};

namespace vtcore::detail {

VTCORE_HOOK_CODE unsigned char* trailerOf(void* block, std::size_t allocatedSize) {
  return static_cast<unsigned char*>(block) + allocatedSize - KWLeakGuardHandler::kTrailerSize;
}

VTCORE_HOOK_CODE unsigned char* trackedTrailer(const KWMallocZoneFunctions& saved,
                                               KWMallocZone* zone, void* block) {
  // A block of exactly the trailer's size is the guard's answer to a
  // zero-byte request (malloc(0), calloc(1, 0), new T[0]): its trailer
  // starts at the block itself.
  const std::size_t size = saved.size(zone, block);
  if (size < KWLeakGuardHandler::kTrailerSize)
    return nullptr;
  unsigned char* trailer = trailerOf(block, size);
  if (std::memcmp(trailer + kTrailerMagicOffset,
                  KWLeakGuardHandler::s_sHeaderPrototype + kTrailerMagicOffset,
                  kTrailerMagicSize) != 0)
    return nullptr;
  return trailer;
}

VTCORE_HOOK_CODE LeakRecord* entryInTrailer(const unsigned char* trailer) {
  LeakRecord* entry;
  std::memcpy(&entry, trailer + kTrailerEntryOffset, sizeof entry);
  return entry;
}

VTCORE_HOOK_CODE bool trailerBelongsTo(const unsigned char* trailer, const void* block) {
  const LeakRecord* entry = entryInTrailer(trailer);
  return !entry || entry->block == block;
}

} // namespace vtcore::detail

VTCORE_HOOK_CODE KWLeakGuardHandler::SMallocEntry* KWLeakGuardHandler::CreateEntry() {
  if (!m_tail)
    return nullptr; // torn down at process exit
  auto* entry =
      static_cast<LeakRecord*>(m_saved.malloc(vtcore::defaultMallocZone(), sizeof(LeakRecord)));
  if (!entry)
    return nullptr;
  std::memset(static_cast<void*>(entry), 0, sizeof(LeakRecord));
  entry->previous = m_tail->previous;
  entry->next = m_tail;
  m_tail->previous->next = entry;
  m_tail->previous = entry;
  return entry;
}

VTCORE_HOOK_CODE void KWLeakGuardHandler::ReleaseEntry(SMallocEntry* entry) {
  entry->block = nullptr;
  entry->size = 0;
  if (entry->previous)
    entry->previous->next = entry->next;
  if (entry->next)
    entry->next->previous = entry->previous;
  m_saved.free(vtcore::defaultMallocZone(), entry);
}

VTCORE_HOOK_CODE void* KWLeakGuardHandler::PaddMemory(void* block, unsigned long size,
                                                      SMallocEntry* entry) {
  CallChain chain;
  chain.addresses[0] = nullptr;
  {
    const vtcore::detail::ScopeRoots::Reader roots(leakGuardRoots());
    if (roots.frames())
      chain = walkCallChain(roots.frames());
  }
  // A block that continues a record (a realloc of a tracked block) stays
  // tracked with the call chain of its first allocation, wherever it is
  // resized; otherwise its record would point at a block that is gone.
  if (!chain.matched && !entry)
    return block;

  KWMallocZone* zone = vtcore::defaultMallocZone();
  unsigned char* trailer = trailerOf(block, m_saved.size(zone, block));
  MutexLock lock(&m_lock);
  std::memcpy(trailer, s_sHeaderPrototype, kTrailerSize);
  if (!entry)
    entry = CreateEntry();
  if (entry) {
    entry->block = block;
    entry->size = size;
    if (chain.matched)
      std::memcpy(entry->addresses, chain.addresses, sizeof entry->addresses);
  }
  std::memcpy(trailer + kTrailerEntryOffset, &entry, sizeof entry);
  return block;
}

VTCORE_HOOK_CODE void* KWLeakGuardHandler::MallocOverride(KWMallocZone* zone, std::size_t size) {
  auto& handler = s_cSingleton;
  if (vtcore::detail::HookReentrancyGuard::active())
    return handler.m_saved.malloc(zone, size);
  if (size > SIZE_MAX - kTrailerSize) {
    errno = ENOMEM;
    return nullptr;
  }
  void* block = handler.m_saved.malloc(zone, size + kTrailerSize);
  return block ? handler.PaddMemory(block, size, nullptr) : nullptr;
}

VTCORE_HOOK_CODE void* KWLeakGuardHandler::VallocOverride(KWMallocZone* zone, std::size_t size) {
  auto& handler = s_cSingleton;
  if (vtcore::detail::HookReentrancyGuard::active())
    return handler.m_saved.valloc(zone, size);
  if (size > SIZE_MAX - kTrailerSize) {
    errno = ENOMEM;
    return nullptr;
  }
  void* block = handler.m_saved.valloc(zone, size + kTrailerSize);
  return block ? handler.PaddMemory(block, size, nullptr) : nullptr;
}

VTCORE_HOOK_CODE void* KWLeakGuardHandler::CallocOverride(KWMallocZone* zone, std::size_t count,
                                                          std::size_t size) {
  auto& handler = s_cSingleton;
  if (vtcore::detail::HookReentrancyGuard::active())
    return handler.m_saved.calloc(zone, count, size);
  void* block;
  if (count == 1 || size == 0) {
    // An element size of 0 cannot be padded with whole elements: one
    // zeroed trailer's worth stands in for the empty block.
    const std::size_t bytes = count == 1 ? size : 0;
    if (bytes > SIZE_MAX - kTrailerSize) {
      errno = ENOMEM;
      return nullptr;
    }
    block = handler.m_saved.calloc(zone, 1, bytes + kTrailerSize);
  } else {
    // Whole extra elements cover the trailer.
    const std::size_t extra = kTrailerSize / size + 1;
    if (count > SIZE_MAX - extra) {
      errno = ENOMEM;
      return nullptr;
    }
    block = handler.m_saved.calloc(zone, count + extra, size);
  }
  return block ? handler.PaddMemory(block, size, nullptr) : nullptr;
}

VTCORE_HOOK_CODE void* KWLeakGuardHandler::ReallocOverride(KWMallocZone* zone, void* ptr,
                                                           std::size_t size) {
  auto& handler = s_cSingleton;
  if (vtcore::detail::HookReentrancyGuard::active())
    return handler.m_saved.realloc(zone, ptr, size);
  if (size > SIZE_MAX - kTrailerSize) {
    errno = ENOMEM;
    return nullptr;
  }
  LeakRecord* entry = nullptr;
  if (ptr) {
    MutexLock lock(&handler.m_lock);
    unsigned char* trailer = trackedTrailer(handler.m_saved, zone, ptr);
    if (trailer && trailerBelongsTo(trailer, ptr)) {
      entry = entryInTrailer(trailer);
      // The old trailer must not survive inside the moved contents.
      std::memset(trailer + kTrailerMagicOffset, 0, kTrailerMarkSize);
    }
  }
  void* block = handler.m_saved.realloc(zone, ptr, size + kTrailerSize);
  if (!block) {
    // The old block is still the caller's and still tracked: put its
    // trailer back. A failed realloc returns null, as the C library does.
    if (ptr && entry) {
      unsigned char* trailer = trailerOf(ptr, handler.m_saved.size(zone, ptr));
      MutexLock lock(&handler.m_lock);
      std::memcpy(trailer + kTrailerMagicOffset, s_sHeaderPrototype + kTrailerMagicOffset,
                  kTrailerMagicSize);
      std::memcpy(trailer + kTrailerEntryOffset, &entry, sizeof entry);
    }
    return nullptr;
  }
  return handler.PaddMemory(block, size, entry);
}

VTCORE_HOOK_CODE void KWLeakGuardHandler::FreeOverride(KWMallocZone* zone, void* ptr) {
  if (!ptr)
    return;
  auto& handler = s_cSingleton;
  // Only the thread freeing a block changes its trailer (a report clears
  // trailers too, under the lock), so the lock is taken only for blocks that
  // seem to carry one: to check the record really is theirs and unlink it.
  if (!vtcore::detail::HookReentrancyGuard::active())
    if (unsigned char* trailer = trackedTrailer(handler.m_saved, zone, ptr)) {
      MutexLock lock(&handler.m_lock);
      if (trailerBelongsTo(trailer, ptr)) {
        if (LeakRecord* entry = entryInTrailer(trailer))
          handler.ReleaseEntry(entry);
        std::memset(trailer + kTrailerMagicOffset, 0, kTrailerMarkSize);
      }
    }
  handler.m_saved.free(zone, ptr);
}

VTCORE_HOOK_CODE std::size_t KWLeakGuardHandler::SizeOverride(KWMallocZone* zone,
                                                              const void* block) {
  auto& handler = s_cSingleton;
  const std::size_t size = handler.m_saved.size(zone, block);
  if (!block || vtcore::detail::HookReentrancyGuard::active())
    return size;
  // The trailer's bytes are not the caller's to write: a tracked block's
  // usable size ends where its trailer starts.
  auto* writable = const_cast<void*>(block);
  if (unsigned char* trailer = trackedTrailer(handler.m_saved, zone, writable)) {
    MutexLock lock(&handler.m_lock);
    if (trackedTrailer(handler.m_saved, zone, writable) && trailerBelongsTo(trailer, block))
      return size - kTrailerSize;
  }
  return size;
}

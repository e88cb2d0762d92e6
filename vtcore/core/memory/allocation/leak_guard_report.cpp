// The leak guard's report: the records left, printed as "LLD: " lines with
// their call chains, and discarded.
#include <vtcore/core/memory/allocation/detail/leak_records.h>
#include <vtcore/core/memory/allocation/leak_guard.h>
#include <vtcore/core/platform/symbolicator.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

using vtcore::detail::kTrailerMagicOffset;
using vtcore::detail::kTrailerMarkSize;
using vtcore::detail::LeakRecord;
using vtcore::detail::MutexLock;
using vtcore::detail::trackedTrailer;

long KWLeakGuardHandler::ResetHistory(bool report) {
  if (!m_initialised || !m_head)
    return 0;
  // Detach the whole list under the lock, then report without it: printing
  // and symbolicating allocate, and those allocations are never tracked.
  LeakRecord* first;
  {
    MutexLock lock(&m_lock);
    first = m_head->next;
    if (first == m_tail) {
      first = nullptr;
    } else {
      m_tail->previous->next = nullptr;
      m_head->next = m_tail;
      m_tail->previous = m_head;
    }
    // The blocks outlive their records: their trailers must no longer point
    // at them, or a later free would release a record twice. That is only
    // possible while the guard's hooks are in force: once someone wrote other
    // entries over them (a memory reserve exited after the guard hooked in),
    // frees no longer reach the guard, a recorded block may already be freed
    // and unmapped, and its trailer must not be touched; no later free looks
    // at a trailer either.
    KWMallocZone* zone = vtcore::defaultMallocZone();
    if (vtcore::mallocZoneFunctions(zone).free == FreeOverride)
      for (LeakRecord* entry = first; entry; entry = entry->next)
        if (entry->block)
          if (unsigned char* trailer = trackedTrailer(m_saved, zone, entry->block))
            std::memset(trailer + kTrailerMagicOffset, 0, kTrailerMarkSize);
  }
  vtcore::detail::HookReentrancyGuard untracked;
  const unsigned long limit = m_reportLimit.load();
  long total = 0;
  unsigned long position = 0;
  for (LeakRecord* entry = first; entry;) {
    LeakRecord* next = entry->next;
    if (entry->block) {
      total += static_cast<long>(entry->size);
      if (report && (limit == 0 || position < limit)) {
        std::printf("LLD: %li bytes on address 0x%08lx:\n", static_cast<long>(entry->size),
                    static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(entry->block)));
        KWLeakGuardPrintStack(entry->addresses, 16, 1);
      }
      ++position;
    }
    m_saved.free(vtcore::defaultMallocZone(), entry);
    entry = next;
  }
  if (report) {
    if (total == 0)
      std::printf("LLD: no leaking bytes detected\n");
    else
      std::printf("LLD: a total of %li bytes leaking detected\n", total);
    std::fflush(stdout);
  }
  return total;
}

void KWLeakGuardPrintStack(void* const* addresses, unsigned long count, int) {
  if (!addresses)
    return;
  vtcore::detail::HookReentrancyGuard untracked;
  for (unsigned long i = 0; i < count && addresses[i]; ++i) {
    const auto address = reinterpret_cast<std::uintptr_t>(addresses[i]);
    const vtcore::detail::SymbolInfo info = vtcore::detail::symbolicate(address);
    if (info.name.empty()) {
      std::printf("LLD:         0x%08lx ???\n", static_cast<unsigned long>(address));
      continue;
    }
    std::string file = "???";
    if (!info.file.empty())
      file = info.file.size() > 32 ? info.file.substr(info.file.size() - 32) : info.file;
    std::printf("LLD:         0x%08lx %-32s + %-6li %s\n", static_cast<unsigned long>(address),
                file.c_str(), static_cast<long>(info.line), info.name.c_str());
  }
}

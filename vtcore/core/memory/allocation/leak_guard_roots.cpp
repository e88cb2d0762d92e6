// The leak guard's scope roots: the frames whose activity marks the
// allocations to track.
#include <vtcore/core/memory/allocation/detail/scope_roots.h>
#include <vtcore/core/memory/allocation/leak_guard.h>

namespace vtcore::detail {

namespace {
constinit ScopeRoots roots;
} // namespace

ScopeRoots& leakGuardRoots() {
  return roots;
}

} // namespace vtcore::detail

void* KWLeakGuardHandler::savedAllocate(std::size_t size) {
  return s_cSingleton.m_saved.malloc(vtcore::defaultMallocZone(), size);
}

void KWLeakGuardHandler::savedRelease(void* block) {
  s_cSingleton.m_saved.free(vtcore::defaultMallocZone(), block);
}

bool KWLeakGuardHandler::SetRoot(const std::optional<icu::UnicodeString>& group,
                                 const std::optional<icu::UnicodeString>& key, void* frame) {
  Initialize();
  if (!m_enabled.load() || !m_installed)
    return false;
  if (group || key) {
    if (!group || !key || CheckPreference(*group, *key) == 0)
      return false;
  }
  return vtcore::detail::leakGuardRoots().add(frame, savedAllocate, savedRelease);
}

void KWLeakGuardHandler::ClearRoot(void* frame) {
  // Not tied to the switch: a scope opened before the guard was switched off
  // must still take its root away when it closes. (Without an open scope
  // there is nothing to remove, and nothing is allocated.)
  vtcore::detail::leakGuardRoots().remove(frame, savedAllocate, savedRelease);
}

// The leak guard's scope roots: the frames whose activity marks the
// allocations to track.
#include <vtcore/core/memory/allocation/detail/hook_code.h>
#include <vtcore/core/memory/allocation/detail/scope_roots.h>
#include <vtcore/core/memory/allocation/leak_guard.h>

#include <cstring>

namespace vtcore::detail {

bool ScopeRoots::add(void* frame, Allocate allocate, Release release) {
  void** old = m_roots.load(std::memory_order_acquire);
  const std::uintptr_t count = old ? reinterpret_cast<std::uintptr_t>(old[0]) : 0;
  auto** roots = static_cast<void**>(allocate((count + 2) * sizeof(void*)));
  if (!roots)
    return false;
  if (count)
    std::memcpy(roots + 1, old + 1, count * sizeof(void*));
  roots[0] = reinterpret_cast<void*>(count + 1);
  roots[count + 1] = frame;
  m_roots.store(roots, std::memory_order_release);
  if (old)
    release(old);
  return true;
}

bool ScopeRoots::remove(void* frame, Allocate allocate, Release release) {
  void** old = m_roots.load(std::memory_order_acquire);
  if (!old)
    return false;
  const auto count = reinterpret_cast<std::uintptr_t>(old[0]);
  std::uintptr_t found = 0;
  for (std::uintptr_t i = 1; i <= count; ++i)
    if (old[i] == frame) {
      found = i;
      break;
    }
  if (!found)
    return false;
  void** roots = nullptr;
  if (count > 1) {
    roots = static_cast<void**>(allocate(count * sizeof(void*)));
    if (!roots)
      return false;
    std::memcpy(roots, old, count * sizeof(void*));
    roots[found] = old[count]; // the last root takes the closed one's place
    roots[0] = reinterpret_cast<void*>(count - 1);
  }
  m_roots.store(roots, std::memory_order_release);
  release(old);
  return true;
}

VTCORE_HOOK_CODE void* const* ScopeRoots::current() const {
  return m_roots.load(std::memory_order_acquire);
}

VTCORE_HOOK_CODE bool isRoot(void* const* roots, std::uintptr_t frame) {
  const auto count = reinterpret_cast<std::uintptr_t>(roots[0]);
  for (std::uintptr_t i = 1; i <= count; ++i)
    if (reinterpret_cast<std::uintptr_t>(roots[i]) == frame)
      return true;
  return false;
}

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

void KWLeakGuardHandler::SetRoot(const std::optional<icu::UnicodeString>& group,
                                 const std::optional<icu::UnicodeString>& key, void* frame) {
  Initialize();
  if (!m_enabled.load() || !m_installed)
    return;
  if (group || key) {
    if (!group || !key || CheckPreference(*group, *key) == 0)
      return;
  }
  vtcore::detail::leakGuardRoots().add(frame, savedAllocate, savedRelease);
}

void KWLeakGuardHandler::ClearRoot(void* frame) {
  if (!m_enabled.load())
    return;
  vtcore::detail::leakGuardRoots().remove(frame, savedAllocate, savedRelease);
}

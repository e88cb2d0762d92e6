// The leak guard's handler from library load to process exit (switches,
// set-up, installation, tear-down) and the scope objects.
#include <vtcore/core/memory/allocation/detail/call_chain.h>
#include <vtcore/core/memory/allocation/detail/leak_preferences.h>
#include <vtcore/core/memory/allocation/detail/leak_records.h>
#include <vtcore/core/memory/allocation/detail/scope_roots.h>
#include <vtcore/core/memory/allocation/leak_guard.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <utility>

using vtcore::detail::LeakRecord;
using vtcore::detail::MutexLock;

static_assert(sizeof(KWLeakGuard) == sizeof(void*), "a scope holds one word");

constinit KWLeakGuardHandler KWLeakGuardHandler::s_cSingleton;

namespace {

std::mutex& setupMutex() {
  static std::mutex mutex;
  return mutex;
}

long readEnvironmentNumber(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::strtol(value, nullptr, 10) : 0;
}

} // namespace

void KWLeakGuardHandler::readEnvironmentOnce() {
  static std::once_flag once;
  std::call_once(once, [this] {
    if (!m_enabledSet.load())
      m_enabled.store(readEnvironmentNumber("VTCORE_LEAK_GUARD") != 0 ? 1 : 0);
    if (!m_reportLimitSet.load()) {
      const long limit = readEnvironmentNumber("VTCORE_LEAK_GUARD_REPORT_LIMIT");
      m_reportLimit.store(limit > 0 ? static_cast<unsigned long>(limit) : 0);
    }
  });
}

void KWLeakGuardHandler::setEnabled(bool enabled) {
  m_enabledSet.store(true);
  m_enabled.store(enabled ? 1 : 0);
}

bool KWLeakGuardHandler::enabled() {
  readEnvironmentOnce();
  return m_enabled.load() != 0;
}

void KWLeakGuardHandler::setReportLimit(unsigned long limit) {
  m_reportLimitSet.store(true);
  m_reportLimit.store(limit);
}

void KWLeakGuardHandler::Initialize() {
  std::lock_guard setup(setupMutex());
  m_initialised = true;
  if (!enabled() || m_installed)
    return;
  m_installed = true;
  // Sentinels first: once the hooks are in, a hook may link records
  // between them.
  m_head = static_cast<LeakRecord*>(::operator new(sizeof(LeakRecord)));
  m_tail = static_cast<LeakRecord*>(::operator new(sizeof(LeakRecord)));
  std::memset(static_cast<void*>(m_head), 0, sizeof(LeakRecord));
  std::memset(static_cast<void*>(m_tail), 0, sizeof(LeakRecord));
  m_head->next = m_tail;
  m_tail->previous = m_head;
  {
    void* loaded = vtcore::detail::loadLeakGuardPreferences();
    {
      std::lock_guard dictionaries(vtcore::detail::leakGuardDictionaryMutex());
      if (!m_preferences)
        std::swap(m_preferences, loaded);
    }
    vtcore::detail::deleteLeakGuardDictionary(loaded);
  }
  OverrideMallocCalls();
}

namespace {
// A child forked while another thread held the guard's lock, or was changing
// the scope roots, would find them held for ever: both are taken across fork
// and released on both sides.
void lockBeforeFork() {
  vtcore::detail::leakGuardRoots().lockChangesBeforeFork();
  pthread_mutex_lock(&KWLeakGuardHandler::s_cSingleton.forkLock());
}
void unlockInParent() {
  pthread_mutex_unlock(&KWLeakGuardHandler::s_cSingleton.forkLock());
  vtcore::detail::leakGuardRoots().unlockChangesAfterFork(false);
}
void unlockInChild() {
  pthread_mutex_unlock(&KWLeakGuardHandler::s_cSingleton.forkLock());
  vtcore::detail::leakGuardRoots().unlockChangesAfterFork(true);
}
} // namespace

void KWLeakGuardHandler::OverrideMallocCalls() {
  static std::once_flag atFork;
  std::call_once(atFork, [] { pthread_atfork(lockBeforeFork, unlockInParent, unlockInChild); });
  m_saved = vtcore::mallocZoneFunctions(vtcore::defaultMallocZone());
  KWMallocZoneFunctions hooks{};
  hooks.malloc = MallocOverride;
  hooks.calloc = CallocOverride;
  hooks.valloc = VallocOverride;
  hooks.realloc = ReallocOverride;
  hooks.free = FreeOverride;
  hooks.size = SizeOverride;
  vtcore::setMallocZoneFunctions(vtcore::defaultMallocZone(), hooks);
}

void KWLeakGuardHandler::RestoreMallocCalls() {
  if (!m_saved.malloc)
    return; // nothing was ever saved: never write empty entries back
  vtcore::setMallocZoneFunctions(vtcore::defaultMallocZone(), m_saved);
}

KWLeakGuardHandler::~KWLeakGuardHandler() {
  if (!m_enabled.load() || !m_initialised || !m_installed) {
    vtcore::detail::deleteLeakGuardDictionary(
        m_overrides); // overrides may be set with the guard off
    m_overrides = nullptr;
    return;
  }
  RestoreMallocCalls();
  ResetHistory(true);
  std::fflush(stdout);
  // A thread still inside a hook at exit finds no list and records nothing.
  LeakRecord* head;
  LeakRecord* tail;
  {
    MutexLock lock(&m_lock);
    head = m_head;
    tail = m_tail;
    m_head = m_tail = nullptr;
  }
  ::operator delete(head);
  ::operator delete(tail);
  vtcore::detail::deleteLeakGuardDictionary(m_preferences);
  vtcore::detail::deleteLeakGuardDictionary(m_overrides);
  m_preferences = m_overrides = nullptr;
  // The lock stays usable: a hook still running on another thread at exit
  // may take it.
}

// The scope's root is a frame address: the frame of the function that
// declares the guard, or with `outer` the frame of that function's caller.
// The links are checked against the thread's stack before they are followed.
__attribute__((noinline))
KWLeakGuard::KWLeakGuard(const std::optional<icu::UnicodeString>& group,
                         const std::optional<icu::UnicodeString>& key, bool outer) {
  const vtcore::detail::StackBounds bounds = vtcore::detail::threadStackBounds();
  auto valid = [&](std::uintptr_t frame) {
    return frame >= bounds.low && frame <= bounds.high - 16 && (frame & 7) == 0;
  };
  auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  std::uintptr_t root = *reinterpret_cast<const std::uintptr_t*>(frame);
  if (outer && valid(root) && *reinterpret_cast<const std::uintptr_t*>(root) > root)
    root = *reinterpret_cast<const std::uintptr_t*>(root);
  if (!valid(root))
    return;
  // Only a scope that opened closes one: another scope of the same frame
  // must not lose its root to one that never opened.
  if (KWLeakGuardHandler::s_cSingleton.SetRoot(group, key, reinterpret_cast<void*>(root)))
    m_root = reinterpret_cast<void*>(root);
}

KWLeakGuard::~KWLeakGuard() {
  if (m_root)
    KWLeakGuardHandler::s_cSingleton.ClearRoot(m_root);
  m_root = nullptr;
}

long KWLeakGuard::ResetHistory(bool report) {
  return KWLeakGuardHandler::s_cSingleton.ResetHistory(report);
}

void KWLeakGuard::OverridePreference(const std::optional<icu::UnicodeString>& group,
                                     const std::optional<icu::UnicodeString>& key, unsigned value) {
  KWLeakGuardHandler::s_cSingleton.OverridePreference(group, key, value);
}

__attribute__((noinline)) KWLeakGuard* KWOpenLeakGuardScope() {
  return new KWLeakGuard(std::nullopt, std::nullopt, true);
}

__attribute__((noinline)) KWLeakGuard*
KWOpenLeakGuardScopeWithGroupAndKey(const std::optional<icu::UnicodeString>& group,
                                    const std::optional<icu::UnicodeString>& key) {
  return new KWLeakGuard(group, key, true);
}

void KWOverrideLeakGuardPreference(const std::optional<icu::UnicodeString>& group,
                                   const std::optional<icu::UnicodeString>& key, unsigned value) {
  KWLeakGuardHandler::s_cSingleton.OverridePreference(group, key, value);
}

long KWResetLeakGuardHistory(bool report) {
  return KWLeakGuardHandler::s_cSingleton.ResetHistory(report);
}

namespace vtcore {
void setLeakGuardEnabled(bool enabled) {
  KWLeakGuardHandler::s_cSingleton.setEnabled(enabled);
}
bool leakGuardEnabled() {
  return KWLeakGuardHandler::s_cSingleton.enabled();
}
void setLeakGuardReportLimit(unsigned long limit) {
  KWLeakGuardHandler::s_cSingleton.setReportLimit(limit);
}
} // namespace vtcore

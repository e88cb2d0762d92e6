#include <vtcore/core/memory/allocation/detail/hook_code.h>
#include <vtcore/core/memory/allocation/leak_guard.h>
#include <vtcore/core/platform/symbolicator.h>
#include <vtcore/core/platform/user_defaults.h>

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>
#include <pthread.h>
#include <unwind.h>

using Entry = KWLeakGuardHandler::SMallocEntry;
static_assert(sizeof(Entry) == 160, "a record is 160 bytes");
static_assert(sizeof(KWLeakGuard) == sizeof(void*), "a scope holds one word");

const unsigned char KWLeakGuardHandler::s_sHeaderPrototype[kTrailerSize] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 'V', 'T', 'L', 'e', 'a', 'k', 'D', 'e', 'b', 'u', 'g', 0, 0, 0, 0, 0};

constinit KWLeakGuardHandler KWLeakGuardHandler::s_cSingleton;

namespace {

constexpr std::size_t kMagicOffset = 32;
constexpr std::size_t kMagicSize = 16;
constexpr std::size_t kEntryOffset = 48;
constexpr int kMaxDepth = 1024;
// A return address of 0x1000 marks the outermost frame of some start-up code.
constexpr std::uintptr_t kRootReturnAddress = 0x1000;

using json = nlohmann::json;

json*& preferencesOf(void*& slot) {
  return reinterpret_cast<json*&>(slot);
}

std::mutex& dictionaryMutex() {
  static std::mutex mutex;
  return mutex;
}
std::mutex& setupMutex() {
  static std::mutex mutex;
  return mutex;
}

std::string utf8(const icu::UnicodeString& text) {
  std::string result;
  text.toUTF8String(result);
  return result;
}

// The stack of the calling thread, found once per thread. Initial-exec TLS
// so that reading it from a hook never allocates.
struct StackBounds {
  std::uintptr_t low;
  std::uintptr_t high;
};
__thread StackBounds cachedBounds __attribute__((tls_model("initial-exec"))) = {0, 0};

VTCORE_HOOK_CODE StackBounds threadStackBounds() {
  if (cachedBounds.high != 0)
    return cachedBounds;
  // pthread_getattr_np allocates (and reads /proc for the main thread): its
  // allocations must pass the hooks untouched.
  vtcore::detail::HookReentrancyGuard guard;
  StackBounds bounds{reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)), UINTPTR_MAX};
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
    void* address = nullptr;
    std::size_t size = 0;
    if (pthread_attr_getstack(&attributes, &address, &size) == 0 && size != 0)
      bounds = {reinterpret_cast<std::uintptr_t>(address),
                reinterpret_cast<std::uintptr_t>(address) + size};
    pthread_attr_destroy(&attributes);
  }
  cachedBounds = bounds;
  return bounds;
}

VTCORE_HOOK_CODE bool isRoot(void* const* roots, std::uintptr_t frame) {
  const auto count = reinterpret_cast<std::uintptr_t>(roots[0]);
  for (std::uintptr_t i = 1; i <= count; ++i)
    if (reinterpret_cast<std::uintptr_t>(roots[i]) == frame)
      return true;
  return false;
}

struct CallChain {
  void* addresses[16];
  int recorded = 0;
  bool matched = false;

  VTCORE_HOOK_CODE void record(std::uintptr_t address) {
    if (recorded < 16)
      addresses[recorded++] = reinterpret_cast<void*>(address);
    if (recorded < 16)
      addresses[recorded] = nullptr;
  }
};

struct UnwindWalk {
  void* const* roots;
  CallChain* chain;
  bool skipping;
};

VTCORE_HOOK_CODE _Unwind_Reason_Code unwindStep(struct _Unwind_Context* context, void* argument) {
  auto& walk = *static_cast<UnwindWalk*>(argument);
  const std::uintptr_t ip = _Unwind_GetIP(context);
  if (ip == 0)
    return _URC_END_OF_STACK;
  if (walk.skipping && vtcore::detail::isHookCode(ip))
    return _URC_NO_REASON;
  walk.skipping = false;
  walk.chain->record(ip);
  // A function that keeps a frame pointer has it 16 bytes below its
  // canonical frame address (return address and saved link).
  const std::uintptr_t cfa = _Unwind_GetCFA(context);
  if (!walk.chain->matched && cfa >= 16 && isRoot(walk.roots, cfa - 16))
    walk.chain->matched = true;
  if (walk.chain->matched && walk.chain->recorded >= 16)
    return _URC_END_OF_STACK;
  return _URC_NO_REASON;
}

// Reads the calling thread's call chain and whether it passes through one of
// the roots. The frame-pointer chain is fast; where it gives out before
// reaching the outermost frame (code built without frame pointers uses the
// register for other things), the unwinder, which reads the unwind tables,
// takes over so that allocations inside a scope are not missed.
VTCORE_HOOK_CODE CallChain walkCallChain(void* const* roots) {
  CallChain chain;
  chain.addresses[0] = nullptr;
  const StackBounds bounds = threadStackBounds();
  auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  bool complete = false;
  for (int depth = 0; depth < kMaxDepth; ++depth) {
    if (frame < bounds.low || frame > bounds.high - 16 || (frame & 7) != 0)
      break;
    const auto* words = reinterpret_cast<const std::uintptr_t*>(frame);
    const std::uintptr_t next = words[0];
    const std::uintptr_t returnAddress = words[1];
    if (returnAddress == kRootReturnAddress || returnAddress == 0) {
      complete = true;
      break;
    }
    if (isRoot(roots, next)) {
      chain.matched = true;
      break;
    }
    if (next == 0) {
      complete = true;
      break;
    }
    if (next <= frame)
      break;
    frame = next;
  }
  if (!chain.matched && complete)
    return chain;

  // The unwinder reads the unwind tables, so it also sees the callers of
  // functions without a frame record (operator new, strdup): it records the
  // call chain of every tracked block, and decides whether the block is
  // tracked where the frame-pointer chain could not. It may allocate on
  // first use; keep that out of the records.
  vtcore::detail::HookReentrancyGuard guard;
  CallChain unwound;
  unwound.addresses[0] = nullptr;
  unwound.matched = chain.matched;
  UnwindWalk walk{roots, &unwound, true};
  _Unwind_Backtrace(unwindStep, &walk);
  return unwound;
}

struct LockGuard {
  explicit LockGuard(pthread_mutex_t* mutex) : m_mutex(mutex) { pthread_mutex_lock(m_mutex); }
  ~LockGuard() { pthread_mutex_unlock(m_mutex); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;
  pthread_mutex_t* m_mutex;
};

VTCORE_HOOK_CODE unsigned char* trailerOf(void* block, std::size_t allocatedSize) {
  return static_cast<unsigned char*>(block) + allocatedSize - KWLeakGuardHandler::kTrailerSize;
}

// Whether a block carries a live trailer; gives the trailer when it does.
VTCORE_HOOK_CODE unsigned char* trackedTrailer(const KWMallocZoneFunctions& saved,
                                               KWMallocZone* zone, void* block) {
  const std::size_t size = saved.size(zone, block);
  if (size <= KWLeakGuardHandler::kTrailerSize)
    return nullptr;
  unsigned char* trailer = trailerOf(block, size);
  if (std::memcmp(trailer + kMagicOffset, KWLeakGuardHandler::s_sHeaderPrototype + kMagicOffset,
                  kMagicSize) != 0)
    return nullptr;
  return trailer;
}

VTCORE_HOOK_CODE Entry* entryInTrailer(const unsigned char* trailer) {
  Entry* entry;
  std::memcpy(&entry, trailer + kEntryOffset, sizeof entry);
  return entry;
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
  m_head = static_cast<Entry*>(::operator new(sizeof(Entry)));
  m_tail = static_cast<Entry*>(::operator new(sizeof(Entry)));
  std::memset(static_cast<void*>(m_head), 0, sizeof(Entry));
  std::memset(static_cast<void*>(m_tail), 0, sizeof(Entry));
  m_head->next = m_tail;
  m_tail->previous = m_head;
  {
    auto preferences = vtcore::UserDefaults::standard().dictionaryForKey("LeakGuard");
    std::lock_guard dictionaries(dictionaryMutex());
    if (preferences && !m_preferences)
      m_preferences = new json(std::move(*preferences));
  }
  OverrideMallocCalls();
}

namespace {
// A child forked while another thread held the guard's lock would find it
// held for ever: the lock is taken across fork and released on both sides.
void lockBeforeFork() {
  pthread_mutex_lock(&KWLeakGuardHandler::s_cSingleton.forkLock());
}
void unlockAfterFork() {
  pthread_mutex_unlock(&KWLeakGuardHandler::s_cSingleton.forkLock());
}
} // namespace

void KWLeakGuardHandler::OverrideMallocCalls() {
  static std::once_flag atFork;
  std::call_once(atFork, [] { pthread_atfork(lockBeforeFork, unlockAfterFork, unlockAfterFork); });
  m_saved = vtcore::mallocZoneFunctions(vtcore::defaultMallocZone());
  KWMallocZoneFunctions hooks{};
  hooks.malloc = MallocOverride;
  hooks.calloc = CallocOverride;
  hooks.valloc = VallocOverride;
  hooks.realloc = ReallocOverride;
  hooks.free = FreeOverride;
  vtcore::setMallocZoneFunctions(vtcore::defaultMallocZone(), hooks);
}

void KWLeakGuardHandler::RestoreMallocCalls() {
  if (!m_saved.malloc)
    return; // nothing was ever saved: never write empty entries back
  KWMallocZoneFunctions saved = m_saved;
  saved.size = nullptr;
  vtcore::setMallocZoneFunctions(vtcore::defaultMallocZone(), saved);
}

KWLeakGuardHandler::~KWLeakGuardHandler() {
  if (!m_enabled.load() || !m_initialised || !m_installed) {
    delete preferencesOf(m_overrides); // overrides may be set with the guard off
    m_overrides = nullptr;
    return;
  }
  RestoreMallocCalls();
  ResetHistory(true);
  std::fflush(stdout);
  // A thread still inside a hook at exit finds no list and records nothing.
  Entry* head;
  Entry* tail;
  {
    LockGuard lock(&m_lock);
    head = m_head;
    tail = m_tail;
    m_head = m_tail = nullptr;
  }
  ::operator delete(head);
  ::operator delete(tail);
  delete preferencesOf(m_preferences);
  delete preferencesOf(m_overrides);
  m_preferences = m_overrides = nullptr;
  // The lock stays usable: a hook still running on another thread at exit
  // may take it.
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
  void** old = m_roots.load(std::memory_order_acquire);
  const std::uintptr_t count = old ? reinterpret_cast<std::uintptr_t>(old[0]) : 0;
  auto** roots =
      static_cast<void**>(m_saved.malloc(vtcore::defaultMallocZone(), (count + 2) * sizeof(void*)));
  if (!roots)
    return;
  if (count)
    std::memcpy(roots + 1, old + 1, count * sizeof(void*));
  roots[0] = reinterpret_cast<void*>(count + 1);
  roots[count + 1] = frame;
  m_roots.store(roots, std::memory_order_release);
  if (old)
    m_saved.free(vtcore::defaultMallocZone(), old);
}

void KWLeakGuardHandler::ClearRoot(void* frame) {
  void** old = m_roots.load(std::memory_order_acquire);
  if (!m_enabled.load() || !old)
    return;
  const auto count = reinterpret_cast<std::uintptr_t>(old[0]);
  std::uintptr_t found = 0;
  for (std::uintptr_t i = 1; i <= count; ++i)
    if (old[i] == frame) {
      found = i;
      break;
    }
  if (!found)
    return;
  void** roots = nullptr;
  if (count > 1) {
    roots = static_cast<void**>(m_saved.malloc(vtcore::defaultMallocZone(), count * sizeof(void*)));
    if (!roots)
      return;
    std::memcpy(roots, old, count * sizeof(void*));
    roots[found] = old[count]; // the last root takes the closed one's place
    roots[0] = reinterpret_cast<void*>(count - 1);
  }
  m_roots.store(roots, std::memory_order_release);
  m_saved.free(vtcore::defaultMallocZone(), old);
}

int KWLeakGuardHandler::CheckPreference(const icu::UnicodeString& group,
                                        const icu::UnicodeString& key) {
  const std::string groupName = utf8(group);
  const std::string keyName = utf8(key);
  std::unique_lock dictionaries(dictionaryMutex());
  if (json* overrides = preferencesOf(m_overrides)) {
    auto groupEntry = overrides->find(groupName);
    if (groupEntry != overrides->end() && groupEntry->is_object()) {
      auto value = groupEntry->find(keyName);
      if (value != groupEntry->end())
        return static_cast<int>(vtcore::defaultsIntegerValue(*value));
    }
  }
  json* preferences = preferencesOf(m_preferences);
  if (!preferences)
    return 0;
  auto groupEntry = preferences->find(groupName);
  if (groupEntry == preferences->end() || !groupEntry->is_object())
    return 0;
  auto value = groupEntry->find(keyName);
  if (value == groupEntry->end())
    return 0;
  if (value->is_string()) {
    // A number written as text is accepted once and stored back as a number.
    const long long number = vtcore::defaultsIntegerValue(*value);
    *value = number;
    const json copy = *preferences;
    dictionaries.unlock();
    auto& defaults = vtcore::UserDefaults::standard();
    defaults.setObject(copy, "LeakGuard");
    defaults.synchronize();
    return static_cast<int>(number);
  }
  if (value->is_number())
    return static_cast<int>(vtcore::defaultsIntegerValue(*value));
  return 0;
}

void KWLeakGuardHandler::OverridePreference(const std::optional<icu::UnicodeString>& group,
                                            const std::optional<icu::UnicodeString>& key,
                                            unsigned value) {
  if (!group || !key)
    return;
  std::lock_guard dictionaries(dictionaryMutex());
  json*& overrides = preferencesOf(m_overrides);
  if (!overrides)
    overrides = new json(json::object());
  json& groupEntry = (*overrides)[utf8(*group)];
  if (!groupEntry.is_object())
    groupEntry = json::object();
  groupEntry[utf8(*key)] = value;
}

VTCORE_HOOK_CODE KWLeakGuardHandler::SMallocEntry* KWLeakGuardHandler::CreateEntry() {
  if (!m_tail)
    return nullptr; // torn down at process exit
  auto* entry = static_cast<Entry*>(m_saved.malloc(vtcore::defaultMallocZone(), sizeof(Entry)));
  if (!entry)
    return nullptr;
  std::memset(static_cast<void*>(entry), 0, sizeof(Entry));
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
  void** roots = m_roots.load(std::memory_order_acquire);
  CallChain chain;
  chain.addresses[0] = nullptr;
  if (roots)
    chain = walkCallChain(roots);
  // A block that continues a record (a realloc of a tracked block) stays
  // tracked with the call chain of its first allocation, wherever it is
  // resized; otherwise its record would point at a block that is gone.
  if (!chain.matched && !entry)
    return block;

  KWMallocZone* zone = vtcore::defaultMallocZone();
  unsigned char* trailer = trailerOf(block, m_saved.size(zone, block));
  LockGuard lock(&m_lock);
  std::memcpy(trailer, s_sHeaderPrototype, kTrailerSize);
  if (!entry)
    entry = CreateEntry();
  if (entry) {
    entry->block = block;
    entry->size = size;
    if (chain.matched)
      std::memcpy(entry->addresses, chain.addresses, sizeof entry->addresses);
  }
  std::memcpy(trailer + kEntryOffset, &entry, sizeof entry);
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
  Entry* entry = nullptr;
  if (ptr) {
    LockGuard lock(&handler.m_lock);
    if (unsigned char* trailer = trackedTrailer(handler.m_saved, zone, ptr)) {
      entry = entryInTrailer(trailer);
      // The old trailer must not survive inside the moved contents.
      std::memset(trailer + kMagicOffset, 0, 24);
    }
  }
  void* block = handler.m_saved.realloc(zone, ptr, size + kTrailerSize);
  if (!block) {
    // The old block is still the caller's and still tracked: put its
    // trailer back. A failed realloc returns null, as the C library does.
    if (ptr && entry) {
      unsigned char* trailer = trailerOf(ptr, handler.m_saved.size(zone, ptr));
      LockGuard lock(&handler.m_lock);
      std::memcpy(trailer + kMagicOffset, s_sHeaderPrototype + kMagicOffset, kMagicSize);
      std::memcpy(trailer + kEntryOffset, &entry, sizeof entry);
    }
    return nullptr;
  }
  return handler.PaddMemory(block, size, entry);
}

VTCORE_HOOK_CODE void KWLeakGuardHandler::FreeOverride(KWMallocZone* zone, void* ptr) {
  if (!ptr)
    return;
  auto& handler = s_cSingleton;
  // Only the thread freeing a block reads or changes its trailer, so the
  // lock is taken only for blocks that carry one (to unlink the record).
  if (!vtcore::detail::HookReentrancyGuard::active())
    if (unsigned char* trailer = trackedTrailer(handler.m_saved, zone, ptr)) {
      LockGuard lock(&handler.m_lock);
      if (Entry* entry = entryInTrailer(trailer))
        handler.ReleaseEntry(entry);
      std::memset(trailer + kMagicOffset, 0, 24);
    }
  handler.m_saved.free(zone, ptr);
}

long KWLeakGuardHandler::ResetHistory(bool report) {
  if (!m_initialised || !m_head)
    return 0;
  // Detach the whole list under the lock, then report without it: printing
  // and symbolicating allocate, and those allocations are never tracked.
  Entry* first;
  {
    LockGuard lock(&m_lock);
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
      for (Entry* entry = first; entry; entry = entry->next)
        if (entry->block)
          if (unsigned char* trailer = trackedTrailer(m_saved, zone, entry->block))
            std::memset(trailer + kMagicOffset, 0, 24);
  }
  vtcore::detail::HookReentrancyGuard untracked;
  const unsigned long limit = m_reportLimit.load();
  long total = 0;
  unsigned long position = 0;
  for (Entry* entry = first; entry;) {
    Entry* next = entry->next;
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

// The scope's root is a frame address: the frame of the function that
// declares the guard, or with `outer` the frame of that function's caller.
// The links are checked against the thread's stack before they are followed.
__attribute__((noinline))
KWLeakGuard::KWLeakGuard(const std::optional<icu::UnicodeString>& group,
                         const std::optional<icu::UnicodeString>& key, bool outer) {
  const StackBounds bounds = threadStackBounds();
  auto valid = [&](std::uintptr_t frame) {
    return frame >= bounds.low && frame <= bounds.high - 16 && (frame & 7) == 0;
  };
  auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  std::uintptr_t root = *reinterpret_cast<const std::uintptr_t*>(frame);
  if (outer && valid(root) && *reinterpret_cast<const std::uintptr_t*>(root) > root)
    root = *reinterpret_cast<const std::uintptr_t*>(root);
  if (!valid(root))
    return;
  m_root = reinterpret_cast<void*>(root);
  KWLeakGuardHandler::s_cSingleton.SetRoot(group, key, m_root);
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

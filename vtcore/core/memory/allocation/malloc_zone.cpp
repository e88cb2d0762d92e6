#include <vtcore/core/memory/allocation/detail/hook_code.h>
#include <vtcore/core/memory/allocation/malloc_zone.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

// Start and end of the hook-code section, provided by the linker.
extern "C" {
extern const char __start_vtcore_hooks[] __attribute__((visibility("hidden")));
extern const char __stop_vtcore_hooks[] __attribute__((visibility("hidden")));
}

extern "C" {
// Named entries of the default zone, also used by the hooks (hook_code.h).
VTCORE_HOOK_CODE void* vtcoreSystemMalloc(KWMallocZone*, size_t size) noexcept {
  return VTCORE_SYSTEM(malloc)(size);
}
VTCORE_HOOK_CODE void vtcoreSystemFree(KWMallocZone*, void* block) noexcept {
  VTCORE_SYSTEM(free)(block);
}
}

namespace {

#if !defined(VTCORE_NO_MALLOC_INTERPOSE)
// The library answers malloc_usable_size through the zone too (so that a
// hook can keep bytes of its own out of it), and glibc exports its own under
// no other name: it is found after this library in lookup order, once, at
// load time (dlsym may allocate; no hook is installed that early).
using UsableSize = size_t (*)(void*);
constinit std::atomic<UsableSize> libcUsableSize{nullptr};

UsableSize resolveLibcUsableSize() noexcept {
  auto found = reinterpret_cast<UsableSize>(dlsym(RTLD_NEXT, "malloc_usable_size"));
  if (found == static_cast<UsableSize>(malloc_usable_size))
    found = nullptr; // never call ourselves
  libcUsableSize.store(found, std::memory_order_relaxed);
  return found;
}
[[maybe_unused]] const UsableSize resolvedAtLoad = resolveLibcUsableSize();

VTCORE_HOOK_CODE size_t systemSize(KWMallocZone*, const void* block) {
  if (!block)
    return 0;
  UsableSize usableSize = libcUsableSize.load(std::memory_order_relaxed);
  if (!usableSize) [[unlikely]]
    usableSize = resolveLibcUsableSize(); // asked before this library's initialisers ran
  return usableSize ? usableSize(const_cast<void*>(block)) : 0;
}
#else
VTCORE_HOOK_CODE size_t systemSize(KWMallocZone*, const void* block) {
  return block ? malloc_usable_size(const_cast<void*>(block)) : 0;
}
#endif
constexpr auto systemMalloc = vtcoreSystemMalloc;
VTCORE_HOOK_CODE void* systemCalloc(KWMallocZone*, size_t count, size_t size) {
  return VTCORE_SYSTEM(calloc)(count, size);
}
VTCORE_HOOK_CODE void* systemValloc(KWMallocZone*, size_t size) {
  return VTCORE_SYSTEM(valloc)(size);
}
constexpr auto systemFree = vtcoreSystemFree;
VTCORE_HOOK_CODE void* systemRealloc(KWMallocZone*, void* block, size_t size) {
  return VTCORE_SYSTEM(realloc)(block, size);
}

} // namespace

// The table itself. Atomics, because hooks are switched while other threads
// allocate.
struct KWMallocZone {
  std::atomic<size_t (*)(KWMallocZone*, const void*)> size;
  std::atomic<void* (*)(KWMallocZone*, size_t)> malloc;
  std::atomic<void* (*)(KWMallocZone*, size_t, size_t)> calloc;
  std::atomic<void* (*)(KWMallocZone*, size_t)> valloc;
  std::atomic<void (*)(KWMallocZone*, void*)> free;
  std::atomic<void* (*)(KWMallocZone*, void*, size_t)> realloc;
};

namespace {

// Constant-initialised: the table is valid from the moment the library is
// mapped, before any constructor runs, because the dynamic loader itself and
// other libraries' constructors may already allocate through it.
constinit KWMallocZone defaultZone{systemSize,   systemMalloc, systemCalloc,
                                   systemValloc, systemFree,   systemRealloc};

// Initial-exec TLS: the variable lives in the static TLS block, so touching
// it never allocates (a dynamic TLS block would be allocated with malloc on
// first use, from inside a hook).
__thread int hookDepth __attribute__((tls_model("initial-exec"))) = 0;

// Serialises writers of the table, so that the dispatch below always ends up
// matching the table's last writer. A spin lock: it never allocates, and
// writers are rare and brief.
std::atomic_flag tableWriter = ATOMIC_FLAG_INIT;

void lockTable() noexcept {
  while (tableWriter.test_and_set(std::memory_order_acquire)) {
  }
}
void unlockTable() noexcept {
  tableWriter.clear(std::memory_order_release);
}

// The registered pass-through pairs. Written and read only with tableWriter
// held.
constexpr int kMaxPassThroughPairs = 4;
constinit vtcore::MallocZonePassThrough passThroughPairs[kMaxPassThroughPairs]{};

// The registered pair whose hooks are `malloc` and `free` and which passes
// through now, if any. Called with tableWriter held.
[[maybe_unused]] const vtcore::MallocZonePassThrough*
passThroughPair(void* (*malloc)(KWMallocZone*, size_t), void (*free)(KWMallocZone*, void*)) {
  for (const auto& pair : passThroughPairs)
    if (pair.malloc && pair.malloc == malloc && pair.free == free && pair.passesThrough())
      return &pair;
  return nullptr;
}

} // namespace

#if !defined(VTCORE_NO_MALLOC_INTERPOSE)
namespace {

// The malloc family does not test the table on every call: each function
// goes through one pointer with the C function's own signature, derived from
// the table (and the registered pass-through pairs) whenever either changes.
// With nothing installed the pointer is the C library's entry itself, so an
// allocation costs one extra jump. Anything installed goes through the table
// with the zone, except a pair of hooks whose client declares that, as
// things stand, it would only pass calls on to the C library (the memory
// reserve at level 0): then free goes straight to glibc and malloc calls
// glibc and hands only a failure to the client. That keeps such a pair close
// to the cost of no hooks at all.
VTCORE_HOOK_CODE void* zoneMalloc(size_t size) noexcept {
  return defaultZone.malloc.load(std::memory_order_relaxed)(&defaultZone, size);
}
VTCORE_HOOK_CODE void* zoneCalloc(size_t count, size_t size) noexcept {
  return defaultZone.calloc.load(std::memory_order_relaxed)(&defaultZone, count, size);
}
VTCORE_HOOK_CODE void* zoneValloc(size_t size) noexcept {
  return defaultZone.valloc.load(std::memory_order_relaxed)(&defaultZone, size);
}
VTCORE_HOOK_CODE void* zoneRealloc(void* block, size_t size) noexcept {
  return defaultZone.realloc.load(std::memory_order_relaxed)(&defaultZone, block, size);
}
VTCORE_HOOK_CODE void zoneFree(void* block) noexcept {
  defaultZone.free.load(std::memory_order_relaxed)(&defaultZone, block);
}

VTCORE_HOOK_CODE void* noFailureHandler(size_t) noexcept {
  return nullptr;
}
// The failure handler of the pair the malloc family bypasses. Set before the
// dispatch that uses it and never taken back, so a thread that still sees an
// older dispatch finds a handler that belongs to a registered pair.
constinit std::atomic<void* (*)(size_t) noexcept> passThroughFailed{noFailureHandler};

VTCORE_HOOK_CODE void* passThroughMalloc(size_t size) noexcept {
  if (void* block = __libc_malloc(size)) [[likely]]
    return block;
  return passThroughFailed.load(std::memory_order_relaxed)(size);
}

constinit std::atomic<void* (*)(size_t)> dispatchMalloc{__libc_malloc};
constinit std::atomic<void* (*)(size_t, size_t)> dispatchCalloc{__libc_calloc};
constinit std::atomic<void* (*)(size_t)> dispatchValloc{__libc_valloc};
constinit std::atomic<void* (*)(void*, size_t)> dispatchRealloc{__libc_realloc};
constinit std::atomic<void (*)(void*)> dispatchFree{__libc_free};

// Called with tableWriter held.
void updateDispatch() noexcept {
  constexpr auto relaxed = std::memory_order_relaxed;
  const auto malloc = defaultZone.malloc.load(relaxed);
  const auto calloc = defaultZone.calloc.load(relaxed);
  const auto valloc = defaultZone.valloc.load(relaxed);
  const auto realloc = defaultZone.realloc.load(relaxed);
  const auto free = defaultZone.free.load(relaxed);
  const vtcore::MallocZonePassThrough* direct = passThroughPair(malloc, free);
  if (direct)
    passThroughFailed.store(direct->mallocFailed, std::memory_order_release);
  // Free first, for the same reason the table's free goes in first.
  dispatchFree.store(free == systemFree || direct ? __libc_free : zoneFree,
                     std::memory_order_release);
  dispatchRealloc.store(realloc == systemRealloc ? __libc_realloc : zoneRealloc,
                        std::memory_order_release);
  dispatchMalloc.store(malloc == systemMalloc ? __libc_malloc
                       : direct               ? passThroughMalloc
                                              : zoneMalloc,
                       std::memory_order_release);
  dispatchCalloc.store(calloc == systemCalloc ? __libc_calloc : zoneCalloc,
                       std::memory_order_release);
  dispatchValloc.store(valloc == systemValloc ? __libc_valloc : zoneValloc,
                       std::memory_order_release);
}

} // namespace

// The process's malloc family. These must never allocate or recurse
// themselves.
extern "C" {

// The pass-through path is inlined and laid out straight, and malloc keeps no
// frame pointer: each jump and each frame instruction is measurable against
// glibc's own few dozen. Every other path leaves by a tail jump with the
// stack as it found it, so call chains recorded by hooks stay whole.
VTCORE_EXPORT VTCORE_HOOK_CODE VTCORE_NO_FRAME_POINTER void* malloc(size_t size) noexcept {
  const auto entry = dispatchMalloc.load(std::memory_order_relaxed);
  if (entry == passThroughMalloc) [[likely]]
    return passThroughMalloc(size);
  return entry(size);
}
VTCORE_EXPORT VTCORE_HOOK_CODE void* calloc(size_t count, size_t size) noexcept {
  return dispatchCalloc.load(std::memory_order_relaxed)(count, size);
}
VTCORE_EXPORT VTCORE_HOOK_CODE void* valloc(size_t size) noexcept {
  return dispatchValloc.load(std::memory_order_relaxed)(size);
}
VTCORE_EXPORT VTCORE_HOOK_CODE void* realloc(void* block, size_t size) noexcept {
  return dispatchRealloc.load(std::memory_order_relaxed)(block, size);
}
VTCORE_EXPORT VTCORE_HOOK_CODE void free(void* block) noexcept {
  dispatchFree.load(std::memory_order_relaxed)(block);
}
// Through the table's block-size query: a hook may keep bytes of its own out
// of what the caller may use.
VTCORE_EXPORT VTCORE_HOOK_CODE size_t malloc_usable_size(void* block) noexcept {
  return defaultZone.size.load(std::memory_order_relaxed)(&defaultZone, block);
}

} // extern "C"
#else
namespace {
void updateDispatch() noexcept {}
} // namespace
#endif

namespace vtcore {

KWMallocZone* defaultMallocZone() {
  return &defaultZone;
}

KWMallocZoneFunctions mallocZoneFunctions(KWMallocZone* zone) {
  if (!zone)
    zone = &defaultZone;
  return {
      zone->size.load(std::memory_order_acquire),   zone->malloc.load(std::memory_order_acquire),
      zone->calloc.load(std::memory_order_acquire), zone->valloc.load(std::memory_order_acquire),
      zone->free.load(std::memory_order_acquire),   zone->realloc.load(std::memory_order_acquire)};
}

void setMallocZoneFunctions(KWMallocZone* zone, const KWMallocZoneFunctions& functions) {
  if (!zone)
    zone = &defaultZone;
  lockTable();
  // Free and realloc go in before the allocating entries: a hook's free must
  // already be in place when its malloc hands out the first block it tracks.
  if (functions.size)
    zone->size.store(functions.size, std::memory_order_release);
  if (functions.free)
    zone->free.store(functions.free, std::memory_order_release);
  if (functions.realloc)
    zone->realloc.store(functions.realloc, std::memory_order_release);
  if (functions.malloc)
    zone->malloc.store(functions.malloc, std::memory_order_release);
  if (functions.calloc)
    zone->calloc.store(functions.calloc, std::memory_order_release);
  if (functions.valloc)
    zone->valloc.store(functions.valloc, std::memory_order_release);
  updateDispatch();
  unlockTable();
}

KWMallocZoneFunctions systemMallocZoneFunctions() {
  return {systemSize, systemMalloc, systemCalloc, systemValloc, systemFree, systemRealloc};
}

bool mallocZoneInterposed() {
#if defined(VTCORE_NO_MALLOC_INTERPOSE)
  return false;
#else
  return true;
#endif
}

bool addMallocZonePassThrough(const MallocZonePassThrough& pair) {
  if (!pair.malloc || !pair.free || !pair.passesThrough || !pair.mallocFailed)
    return false;
  lockTable();
  MallocZonePassThrough* slot = nullptr;
  for (auto& registered : passThroughPairs)
    if (registered.malloc == pair.malloc && registered.free == pair.free) {
      slot = &registered;
      break;
    }
  if (!slot)
    for (auto& registered : passThroughPairs)
      if (!registered.malloc) {
        slot = &registered;
        break;
      }
  if (slot) {
    *slot = pair;
    updateDispatch();
  }
  unlockTable();
  return slot != nullptr;
}

void mallocZonePassThroughChanged() noexcept {
  lockTable();
  updateDispatch();
  unlockTable();
}

namespace detail {

HookReentrancyGuard::HookReentrancyGuard() {
  ++hookDepth;
}
HookReentrancyGuard::~HookReentrancyGuard() {
  --hookDepth;
}
bool HookReentrancyGuard::active() {
  return hookDepth != 0;
}

void writeToStandardError(const char* text) {
  std::size_t length = std::strlen(text);
  while (length > 0) {
    ssize_t written = ::write(2, text, length);
    if (written <= 0)
      return; // a closed or broken standard error only loses the message
    text += written;
    length -= static_cast<std::size_t>(written);
  }
}

bool isHookCode(std::uintptr_t address) {
  return address >= reinterpret_cast<std::uintptr_t>(__start_vtcore_hooks) &&
         address < reinterpret_cast<std::uintptr_t>(__stop_vtcore_hooks);
}

} // namespace detail
} // namespace vtcore

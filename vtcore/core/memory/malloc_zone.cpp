#include <vtcore/core/memory/hook_code.h>
#include <vtcore/core/memory/malloc_zone.h>

#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <unistd.h>

// Start and end of the hook-code section, provided by the linker.
extern "C" {
extern const char __start_vtcore_hooks[] __attribute__((visibility("hidden")));
extern const char __stop_vtcore_hooks[] __attribute__((visibility("hidden")));
}

namespace {} // namespace

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

VTCORE_HOOK_CODE size_t systemSize(KWMallocZone*, const void* block) {
  return block ? malloc_usable_size(const_cast<void*>(block)) : 0;
}
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

// Constant-initialised: the table is valid from the moment the library is
// mapped, before any constructor runs, because the dynamic loader itself and
// other libraries' constructors may already allocate through it.
constinit KWMallocZone defaultZone{systemSize,   systemMalloc, systemCalloc,
                                   systemValloc, systemFree,   systemRealloc};

// Initial-exec TLS: the variable lives in the static TLS block, so touching
// it never allocates (a dynamic TLS block would be allocated with malloc on
// first use, from inside a hook).
__thread int hookDepth __attribute__((tls_model("initial-exec"))) = 0;

} // namespace

#if !defined(VTCORE_NO_MALLOC_INTERPOSE)
// The process's malloc family. With nothing installed each is a compare and a
// direct call into the C library; otherwise one indirect call through the
// table. These must never allocate or recurse themselves.
extern "C" {

VTCORE_EXPORT VTCORE_HOOK_CODE void* malloc(size_t size) noexcept {
  auto entry = defaultZone.malloc.load(std::memory_order_relaxed);
  if (entry == systemMalloc) [[likely]]
    return __libc_malloc(size);
  if (entry == vtcoreReserveMallocHook)
    return vtcoreReserveMallocHook(&defaultZone, size);
  return entry(&defaultZone, size);
}

VTCORE_EXPORT VTCORE_HOOK_CODE void* calloc(size_t count, size_t size) noexcept {
  auto entry = defaultZone.calloc.load(std::memory_order_relaxed);
  if (entry == systemCalloc) [[likely]]
    return __libc_calloc(count, size);
  if (entry == vtcoreReserveCallocHook)
    return vtcoreReserveCallocHook(&defaultZone, count, size);
  return entry(&defaultZone, count, size);
}

VTCORE_EXPORT VTCORE_HOOK_CODE void* valloc(size_t size) noexcept {
  auto entry = defaultZone.valloc.load(std::memory_order_relaxed);
  if (entry == systemValloc) [[likely]]
    return __libc_valloc(size);
  if (entry == vtcoreReserveVallocHook)
    return vtcoreReserveVallocHook(&defaultZone, size);
  return entry(&defaultZone, size);
}

VTCORE_EXPORT VTCORE_HOOK_CODE void* realloc(void* block, size_t size) noexcept {
  auto entry = defaultZone.realloc.load(std::memory_order_relaxed);
  if (entry == systemRealloc) [[likely]]
    return __libc_realloc(block, size);
  return entry(&defaultZone, block, size);
}

VTCORE_EXPORT VTCORE_HOOK_CODE void free(void* block) noexcept {
  auto entry = defaultZone.free.load(std::memory_order_relaxed);
  if (entry == systemFree) [[likely]] {
    __libc_free(block);
    return;
  }
  if (entry == vtcoreReserveFreeHook) {
    vtcoreReserveFreeHook(&defaultZone, block);
    return;
  }
  entry(&defaultZone, block);
}

} // extern "C"
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

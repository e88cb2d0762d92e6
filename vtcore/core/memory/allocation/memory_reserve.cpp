#include <vtcore/core/memory/allocation/detail/hook_code.h>
#include <vtcore/core/memory/allocation/memory_reserve.h>
#include <vtcore/core/platform/available_memory.h>
#include <vtcore/core/platform/user_defaults.h>

#include <climits>
#include <cstdlib>
#include <unistd.h>

#if defined(VTCORE_MEMORY_RESERVE_ON_64BIT) || UINTPTR_MAX == 0xffffffffu
#define VTCORE_RESERVE_ACTIVE 1
#else
#define VTCORE_RESERVE_ACTIVE 0
#endif

std::atomic<std::int32_t> g_iKWMemReserveMaxSensibleSize{100};
std::atomic<std::int32_t> g_iKWMemReserveBlockSize{500};
std::atomic<std::int32_t> g_iKWMemReserveFinalBlockSize{100};
std::atomic<std::int32_t> g_iKWMemReserveMemAvailSize{200};
std::atomic<std::int32_t> g_iKWMemReserveDFLTMemAvailFragment{10};
std::atomic<std::int32_t> g_iKWMemReserveVerbose{0};
std::atomic<std::uint8_t> g_bKWMemReservePrefsRead{0};
std::atomic<std::uint32_t> g_u32KWMemReserveInitCount{0};
std::atomic<std::int32_t> g_iKWMemReserveCurDivide{1};
std::atomic<void*> g_aptrKWMemReservePtr[16]{};
std::atomic<void*> g_ptrKWMemReserveFinalPtr{nullptr};
std::atomic<std::int32_t> g_iKWMemReserveLowMemoryLevel{0};
std::atomic<std::int32_t> g_iKWMemReserveMemoryLevelDidChange{0};
std::atomic<std::int32_t> g_iKWMemReserveProbingFailed{0};
std::atomic<std::uint8_t> g_bKWMemReserveUsageMonitoring{0};
std::atomic<std::int32_t> g_iKWMemReserveUsageMonitor{0};
std::atomic<std::int32_t> g_iKWMemReserveLastReallocCheck{0};
std::atomic<std::uint8_t> g_bKWMemoryReserveForceTryReallocation{0};
std::atomic<std::uint8_t> g_bKWMemReserveProscenMode{1};
std::atomic<KWMemoryReserveCallback> g_funcKWMemReserveCallback{nullptr};
std::atomic<void*> g_ptrKWMemReserveUserValue{nullptr};
KWMallocZoneFunctions g_tKWMemReserveSystemZone{};

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

// Whether Enter saved the zone's entry points: a disabled Enter saves none,
// and its Exit must not write an empty copy back into the zone.
std::atomic<bool> hooksInstalled{false};

std::atomic<std::int32_t>* optionGlobal(unsigned option) {
  switch (option) {
  case kKWMemReserveOptionMaxSensibleSize:
    return &g_iKWMemReserveMaxSensibleSize;
  case kKWMemReserveOptionBlockSize:
    return &g_iKWMemReserveBlockSize;
  case kKWMemReserveOptionFinalBlockSize:
    return &g_iKWMemReserveFinalBlockSize;
  case kKWMemReserveOptionMemAvailSize:
    return &g_iKWMemReserveMemAvailSize;
  case kKWMemReserveOptionMemAvailFragment:
    return &g_iKWMemReserveDFLTMemAvailFragment;
  case kKWMemReserveOptionVerbose:
    return &g_iKWMemReserveVerbose;
  default:
    return nullptr;
  }
}

// Megabytes to bytes the way the reserve always did it: a shift in 32-bit
// signed arithmetic (2048 MB and more wrap), widened with its sign.
VTCORE_HOOK_CODE std::int32_t megabytes(std::int32_t value) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(value) << 20);
}
VTCORE_HOOK_CODE size_t widen(std::int32_t bytes) {
  return static_cast<size_t>(static_cast<std::intptr_t>(bytes));
}
VTCORE_HOOK_CODE std::int32_t wrappingAdd(std::int32_t a, std::int64_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

void* closingAllocation() {
  return std::calloc(5, 10);
}

void readPreferencesOnce() {
  if (g_bKWMemReservePrefsRead.load(relaxed))
    return;
  g_bKWMemReservePrefsRead.store(1, relaxed);
  auto& defaults = vtcore::UserDefaults::standard();
  defaults.synchronize();
  auto preferences = defaults.dictionaryForKey("MemoryReserve");
  if (!preferences)
    return;
  static constexpr const char* keys[] = {"MaxSensibleSize", "BlockSize",        "FinalBlockSize",
                                         "MemAvailSize",    "MemAvailFragment", "Verbose"};
  for (unsigned option = 0; option < 6; ++option) {
    auto entry = preferences->find(keys[option]);
    if (entry != preferences->end())
      optionGlobal(option)->store(static_cast<std::int32_t>(vtcore::defaultsIntegerValue(*entry)),
                                  relaxed);
  }
}

using Allocate = void* (*)(size_t);
using Release = void (*)(void*);

// When the saved entry is just the C library (nothing else was installed
// before the reserve), the hooks call it directly: that keeps a hooked malloc
// and free within a few instructions of glibc's own. (A copy of this file
// built into a program rather than the library always goes through the
// saved entry.)
VTCORE_HOOK_CODE inline void* savedMalloc(KWMallocZone* zone, size_t size) {
  const auto entry = g_tKWMemReserveSystemZone.malloc;
#if defined(VTCORE_BUILDING_CORE)
  if (entry == vtcoreSystemMalloc) [[likely]]
    return VTCORE_SYSTEM(malloc)(size);
#endif
  return entry(zone, size);
}
VTCORE_HOOK_CODE inline void savedFree(KWMallocZone* zone, void* block) {
  const auto entry = g_tKWMemReserveSystemZone.free;
#if defined(VTCORE_BUILDING_CORE)
  if (entry == vtcoreSystemFree) [[likely]]
    return VTCORE_SYSTEM(free)(block);
#endif
  entry(zone, block);
}
VTCORE_HOOK_CODE void* savedMalloc(size_t size) {
  return savedMalloc(vtcore::defaultMallocZone(), size);
}
VTCORE_HOOK_CODE void savedFree(void* block) {
  savedFree(vtcore::defaultMallocZone(), block);
}
void standardFree(void* block) {
  std::free(block);
}
void* standardMalloc(size_t size) {
  return std::malloc(size);
}

// Reserve blocks are committed memory: every page is written once, so that
// giving a block back returns memory Linux really backed, not address space
// it merely lent. A block that does not fit what the system can give is not
// taken (touching it could bring the out-of-memory killer instead of a
// failed allocation), which counts as a failed allocation.
VTCORE_HOOK_CODE void* allocateCommitted(Allocate allocate, size_t size) {
  if (!vtcore::availableMemoryFits(size))
    return nullptr;
  void* block = allocate(size);
  if (!block)
    return nullptr;
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto* bytes = static_cast<volatile unsigned char*>(block);
  for (size_t offset = 0; offset < size; offset += page)
    bytes[offset] = 0;
  return block;
}

// Tries the reserve as 1 block, then 2, 4, 8 and 16 equal blocks; a failed
// attempt gives its blocks back before the next. After a total failure the
// divide stands at 32 with entry 0 null.
VTCORE_HOOK_CODE void splitAllocate(Allocate allocate, Release release) {
  std::int32_t divide = 1;
  g_iKWMemReserveCurDivide.store(divide, relaxed);
  const std::int32_t total = megabytes(g_iKWMemReserveBlockSize.load(relaxed));
  while (!g_aptrKWMemReservePtr[0].load(relaxed)) {
    if (divide > 16)
      break;
    for (std::int32_t i = 0; i < divide; ++i) {
      void* block = allocateCommitted(allocate, widen(total / divide));
      g_aptrKWMemReservePtr[i].store(block, relaxed);
      if (!block) {
        for (std::int32_t j = i - 1; j >= 0; --j)
          release(g_aptrKWMemReservePtr[j].exchange(nullptr, relaxed));
        break;
      }
    }
    if (!g_aptrKWMemReservePtr[0].load(relaxed)) {
      divide *= 2;
      g_iKWMemReserveCurDivide.store(divide, relaxed);
    }
  }
}

// The blocks in use: entries 0 .. CurDivide-1, never beyond the array even
// after a total failure left the divide at 32.
VTCORE_HOOK_CODE std::int32_t blocksInUse() {
  std::int32_t divide = g_iKWMemReserveCurDivide.load(relaxed);
  return divide < 0 ? 0 : (divide > 16 ? 16 : divide);
}

VTCORE_HOOK_CODE void notify() {
  if (auto callback = g_funcKWMemReserveCallback.load(relaxed))
    callback(g_ptrKWMemReserveUserValue.load(relaxed));
}

// Monitoring decides whether the malloc family may bypass the hooks (see
// passesThrough below), so every change of it is passed on to the zone.
VTCORE_HOOK_CODE void setUsageMonitoring(std::uint8_t on) {
  g_bKWMemReserveUsageMonitoring.store(on, relaxed);
#if defined(VTCORE_BUILDING_CORE)
  vtcore::mallocZonePassThroughChanged();
#endif
}

VTCORE_HOOK_CODE void countAllocation(size_t size) {
  if (g_bKWMemReserveUsageMonitoring.load(relaxed))
    g_iKWMemReserveUsageMonitor.store(
        wrappingAdd(g_iKWMemReserveUsageMonitor.load(relaxed), static_cast<std::int64_t>(size)),
        relaxed);
}

} // namespace

namespace vtcore {
bool memoryReserveAvailable() {
  return VTCORE_RESERVE_ACTIVE != 0;
}
} // namespace vtcore

void KWMemoryReserveSetOption(int option, int value) {
  if (option < 0)
    return;
  if (auto* global = optionGlobal(static_cast<unsigned>(option)))
    global->store(value, relaxed);
}

int KWMemoryReserveGetOption(unsigned option) {
  auto* global = optionGlobal(option);
  return global ? global->load(relaxed) : 0;
}

void* KWMemoryReserveEnter(KWMemoryReserveCallback callback, void* userValue) {
  readPreferencesOnce();
  if (!VTCORE_RESERVE_ACTIVE) {
    g_iKWMemReserveBlockSize.store(0, relaxed);
    return closingAllocation();
  }
  const std::uint32_t count = g_u32KWMemReserveInitCount.load(relaxed) + 1;
  g_u32KWMemReserveInitCount.store(count, relaxed);
  if (count != 1 || g_iKWMemReserveBlockSize.load(relaxed) < 1)
    return closingAllocation();

  if (g_bKWMemReserveProscenMode.load(relaxed)) {
    setUsageMonitoring(0);
    g_iKWMemReserveUsageMonitor.store(0, relaxed);
    splitAllocate(standardMalloc, standardFree);
    vtcore::detail::writeToStandardError("KWMemReserve: allocating in Proscen mode\n");
  } else {
    g_iKWMemReserveCurDivide.store(1, relaxed);
    g_aptrKWMemReservePtr[0].store(
        allocateCommitted(standardMalloc, widen(megabytes(g_iKWMemReserveBlockSize.load(relaxed)))),
        relaxed);
    vtcore::detail::writeToStandardError("KWMemReserve: allocating in Arbor mode\n");
  }
  if (g_aptrKWMemReservePtr[0].load(relaxed))
    g_ptrKWMemReserveFinalPtr.store(
        allocateCommitted(standardMalloc,
                          widen(megabytes(g_iKWMemReserveFinalBlockSize.load(relaxed)))),
        relaxed);

  // The hooks go in even without a reserve: failed allocations then simply
  // retry once.
  g_tKWMemReserveSystemZone = vtcore::mallocZoneFunctions(vtcore::defaultMallocZone());
  KWMallocZoneFunctions hooks{};
  hooks.malloc = KWMemoryReserveMallocOverride;
  hooks.calloc = KWMemoryReserveCallocOverride;
  hooks.valloc = KWMemoryReserveVallocOverride;
  hooks.free = KWMemoryReserveFreeOverride;
  vtcore::setMallocZoneFunctions(vtcore::defaultMallocZone(), hooks);
  hooksInstalled.store(true, relaxed);

  g_funcKWMemReserveCallback.store(callback, relaxed);
  g_ptrKWMemReserveUserValue.store(userValue, relaxed);
  return closingAllocation();
}

void KWMemoryReserveExit(void) {
  if (!VTCORE_RESERVE_ACTIVE)
    return;
  const std::uint32_t count = g_u32KWMemReserveInitCount.load(relaxed);
  if (count == 0)
    return; // an Exit without its Enter: the count must not wrap
  g_u32KWMemReserveInitCount.store(count - 1, relaxed);
  if (count - 1 != 0)
    return;
  if (hooksInstalled.exchange(false, relaxed)) {
    KWMallocZoneFunctions saved{};
    saved.malloc = g_tKWMemReserveSystemZone.malloc;
    saved.calloc = g_tKWMemReserveSystemZone.calloc;
    saved.valloc = g_tKWMemReserveSystemZone.valloc;
    saved.free = g_tKWMemReserveSystemZone.free;
    vtcore::setMallocZoneFunctions(vtcore::defaultMallocZone(), saved);
  }
  g_funcKWMemReserveCallback.store(nullptr, relaxed);
  g_ptrKWMemReserveUserValue.store(nullptr, relaxed);
  const std::int32_t blocks = blocksInUse();
  for (std::int32_t i = 0; i < blocks; ++i)
    if (void* block = g_aptrKWMemReservePtr[i].exchange(nullptr, relaxed))
      std::free(block);
  if (void* block = g_ptrKWMemReserveFinalPtr.exchange(nullptr, relaxed))
    std::free(block);
}

int KWMemoryReserveGetLowMemoryLevel(void) {
  return g_iKWMemReserveLowMemoryLevel.load(relaxed);
}

int KWMemoryReserveDidLowMemoryLevelChange(int reset) {
  const int marker = g_iKWMemReserveMemoryLevelDidChange.load(relaxed);
  if (reset)
    g_iKWMemReserveMemoryLevelDidChange.store(0, relaxed);
  return marker;
}

int KWMemoryReserveDidProbingFail(int reset) {
  const int failures = g_iKWMemReserveProbingFailed.load(relaxed);
  if (reset)
    g_iKWMemReserveProbingFailed.store(0, relaxed);
  return failures;
}

void KWMemoryReserveTryReserveReallocation(void) {
  g_bKWMemoryReserveForceTryReallocation.store(1, relaxed);
}

namespace {
void probeFailed() {
  g_iKWMemReserveProbingFailed.store(g_iKWMemReserveProbingFailed.load(relaxed) + 1, relaxed);
}
} // namespace

int KWMemoryReserveTestAvailableMemory(size_t size, size_t minFragment) {
  if (!g_ptrKWMemReserveFinalPtr.load(relaxed))
    return 1;
  // Linux lends address space it may never back: the size must also fit
  // what the system can really give, in whatever fragments.
  if (size < minFragment || !vtcore::availableMemoryFits(size)) {
    probeFailed();
    return 0;
  }
  size_t fragment = size;
  size_t count = 1;
  for (unsigned pass = 0; pass < sizeof(size_t) * CHAR_BIT; ++pass) {
    if (fragment < minFragment) {
      probeFailed();
      return 0;
    }
    // Zero-byte fragments are always there to be had; only a minimum
    // fragment of 0 gets this far, and it could otherwise run for ever.
    if (fragment == 0)
      return 1;
    // The blocks of a pass are chained through their own first word, so
    // the bookkeeping takes neither heap nor a stack array whose size grows
    // with the number of fragments. The C library never hands out less than
    // a pointer's worth, so asking for at least that much probes the same.
    const size_t request = fragment < sizeof(void*) ? sizeof(void*) : fragment;
    void* chain = nullptr;
    size_t obtained = 0;
    while (obtained < count) {
      void* block = savedMalloc(request);
      if (!block)
        break;
      *static_cast<void**>(block) = chain;
      chain = block;
      ++obtained;
    }
    while (chain) { // most recent first: reverse order of allocation
      void* next = *static_cast<void**>(chain);
      savedFree(chain);
      chain = next;
    }
    if (obtained == count)
      return 1;
    fragment >>= 1;
    count <<= 1;
  }
  return 1;
}

VTCORE_HOOK_CODE void KWMemoryReserveHandleLowMemorySituation(KWMallocZone*, size_t size) {
  // Whole megabytes against a signed option: a negative MaxSensibleSize makes
  // every request too large at level 1.
  if (static_cast<long long>(size >> 20) > g_iKWMemReserveMaxSensibleSize.load(relaxed) &&
      g_iKWMemReserveLowMemoryLevel.load(relaxed) == 1)
    return; // too large to be worth the final block
  if (g_aptrKWMemReservePtr[0].load(relaxed)) {
    const std::int32_t blocks = blocksInUse();
    for (std::int32_t i = 0; i < blocks; ++i)
      std::free(g_aptrKWMemReservePtr[i].exchange(nullptr, relaxed));
    g_iKWMemReserveLowMemoryLevel.store(1, relaxed);
    g_iKWMemReserveMemoryLevelDidChange.store(1, relaxed);
    setUsageMonitoring(1);
    g_iKWMemReserveUsageMonitor.store(0, relaxed);
    g_iKWMemReserveLastReallocCheck.store(0, relaxed);
    notify();
  } else if (void* final = g_ptrKWMemReserveFinalPtr.exchange(nullptr, relaxed)) {
    std::free(final);
    g_iKWMemReserveLowMemoryLevel.store(2, relaxed);
    g_iKWMemReserveMemoryLevelDidChange.store(2, relaxed);
    notify();
  }
}

VTCORE_HOOK_CODE void* KWMemoryReserveMallocOverride(KWMallocZone* zone, size_t size) {
  countAllocation(size);
  if (void* block = savedMalloc(zone, size)) [[likely]]
    return block;
  KWMemoryReserveHandleLowMemorySituation(zone, size);
  return savedMalloc(zone, size);
}

VTCORE_HOOK_CODE void* KWMemoryReserveCallocOverride(KWMallocZone* zone, size_t count,
                                                     size_t size) {
  const size_t total = count * size;
  countAllocation(total);
  if (void* block = g_tKWMemReserveSystemZone.calloc(zone, count, size))
    return block;
  KWMemoryReserveHandleLowMemorySituation(zone, total);
  return g_tKWMemReserveSystemZone.calloc(zone, count, size);
}

VTCORE_HOOK_CODE void* KWMemoryReserveVallocOverride(KWMallocZone* zone, size_t size) {
  countAllocation(size);
  if (void* block = g_tKWMemReserveSystemZone.valloc(zone, size))
    return block;
  KWMemoryReserveHandleLowMemorySituation(zone, size);
  return g_tKWMemReserveSystemZone.valloc(zone, size);
}

VTCORE_HOOK_CODE void KWMemoryReserveFreeOverride(KWMallocZone* zone, void* ptr) {
  if (!g_bKWMemReserveUsageMonitoring.load(relaxed)) [[likely]] {
    savedFree(zone, ptr);
    return;
  }
  const size_t size = g_tKWMemReserveSystemZone.size(zone, ptr);
  savedFree(zone, ptr);
  const std::int32_t monitor =
      wrappingAdd(g_iKWMemReserveUsageMonitor.load(relaxed), -static_cast<std::int64_t>(size));
  g_iKWMemReserveUsageMonitor.store(monitor, relaxed);

  const std::int32_t freed = wrappingAdd(g_iKWMemReserveLastReallocCheck.load(relaxed),
                                         -static_cast<std::int64_t>(monitor));
  if (freed <= megabytes(g_iKWMemReserveMaxSensibleSize.load(relaxed)) &&
      !g_bKWMemoryReserveForceTryReallocation.load(relaxed))
    return;
  g_bKWMemoryReserveForceTryReallocation.store(0, relaxed);
  g_iKWMemReserveLastReallocCheck.store(monitor, relaxed);

  if (g_bKWMemReserveProscenMode.load(relaxed)) {
    splitAllocate(savedMalloc, savedFree);
    vtcore::detail::writeToStandardError("KWMemReserve: reallocating in Proscen mode\n");
  } else {
    g_iKWMemReserveCurDivide.store(1, relaxed);
    g_aptrKWMemReservePtr[0].store(
        allocateCommitted(savedMalloc, widen(megabytes(g_iKWMemReserveBlockSize.load(relaxed)))),
        relaxed);
    vtcore::detail::writeToStandardError("KWMemReserve: allocating in Arbor mode\n");
  }
  // The way back leaves the change marker alone (only releases set it) and
  // does not take the final block again: once given up it stays gone until
  // the next outermost Enter.
  if (g_aptrKWMemReservePtr[0].load(relaxed)) {
    setUsageMonitoring(0);
    g_iKWMemReserveLowMemoryLevel.store(0, relaxed);
    notify();
  }
}

#if defined(VTCORE_BUILDING_CORE)
// The library's own malloc and free hooks under hidden names: a program that
// builds its own copy of the reserve (as the reserve's tests do) interposes
// the exported names, and its hooks must not be taken for these.
extern "C" {
void* vtcoreReserveMallocHook(KWMallocZone*, size_t) noexcept
    __attribute__((visibility("hidden"), alias("KWMemoryReserveMallocOverride")));
void vtcoreReserveFreeHook(KWMallocZone*, void*) noexcept
    __attribute__((visibility("hidden"), alias("KWMemoryReserveFreeOverride")));
}

namespace {

// The hooks do no more than call the C library while nothing is monitored
// and the entries they saved are the zone's own.
VTCORE_HOOK_CODE bool passesThrough() noexcept {
  return !g_bKWMemReserveUsageMonitoring.load(relaxed) &&
         g_tKWMemReserveSystemZone.malloc == vtcoreSystemMalloc &&
         g_tKWMemReserveSystemZone.free == vtcoreSystemFree;
}

// A failed allocation while bypassed: the release step, then the one retry.
VTCORE_HOOK_CODE void* mallocFailed(size_t size) noexcept {
  KWMallocZone* zone = vtcore::defaultMallocZone();
  KWMemoryReserveHandleLowMemorySituation(zone, size);
  return savedMalloc(zone, size);
}

// Registered at library load, before anything can install the hooks.
[[maybe_unused]] const bool passThroughRegistered = vtcore::addMallocZonePassThrough(
    {vtcoreReserveMallocHook, vtcoreReserveFreeHook, passesThrough, mallocFailed});

} // namespace
#endif

// The allocator zone: a transparent pass-through with nothing installed, and
// a table that really sees every allocation of the process once hooked.
#include <vtcore/core/memory/malloc_zone.h>
#include <vtcore/core/memory/memory_reserve.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

TEST(MallocZone, PassesEveryEntryPointThroughToTheCLibrary) {
  const KWMallocZoneFunctions current = vtcore::mallocZoneFunctions(nullptr);
  const KWMallocZoneFunctions system = vtcore::systemMallocZoneFunctions();
  EXPECT_EQ(current.malloc, system.malloc);
  EXPECT_EQ(current.free, system.free);
  EXPECT_EQ(current.realloc, system.realloc);

  auto* bytes = static_cast<unsigned char*>(std::calloc(1000, 3));
  ASSERT_NE(bytes, nullptr);
  for (int i = 0; i < 3000; ++i)
    ASSERT_EQ(bytes[i], 0);
  std::memset(bytes, 0x5a, 3000);
  bytes = static_cast<unsigned char*>(std::realloc(bytes, 100000));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(bytes[2999], 0x5a);
  std::free(bytes);

  void* page = valloc(100);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(page) % static_cast<std::uintptr_t>(getpagesize()),
            0u);
  std::free(page);

  std::free(nullptr);
  // Sizes no allocator can satisfy come back as null (volatile: the
  // compiler would otherwise reject them at build time). A sanitizer's
  // allocator reports them as errors instead.
  if (vtcore::mallocZoneInterposed()) {
    volatile std::size_t impossible = SIZE_MAX - 4096;
    EXPECT_EQ(std::malloc(impossible), nullptr);
    volatile std::size_t half = SIZE_MAX / 2;
    EXPECT_EQ(std::calloc(half, 4), nullptr) << "count × size overflow";
  }
}

TEST(MallocZone, BlocksFromTheAlignedEntryPointsFreeAndResizeThroughTheZone) {
  void* a = nullptr;
  ASSERT_EQ(posix_memalign(&a, 256, 1000), 0);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a) % 256, 0u);
  std::memset(a, 7, 1000);
  a = std::realloc(a, 5000);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(static_cast<unsigned char*>(a)[999], 7);
  std::free(a);
  std::free(std::aligned_alloc(4096, 8192));
  std::free(memalign(64, 10));
  // Over-aligned operator new goes through the aligned entry points too.
  struct alignas(128) Wide {
    char bytes[300];
  };
  auto wide = std::make_unique<Wide>();
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide.get()) % 128, 0u);
}

// Counting hooks that forward to the entry points they replaced.
KWMallocZoneFunctions saved;
std::atomic<long> mallocs{0}, callocs{0}, reallocs{0}, frees{0};

void* countMalloc(KWMallocZone* zone, std::size_t size) {
  mallocs.fetch_add(1, std::memory_order_relaxed);
  return saved.malloc(zone, size);
}
void* countCalloc(KWMallocZone* zone, std::size_t count, std::size_t size) {
  callocs.fetch_add(1, std::memory_order_relaxed);
  return saved.calloc(zone, count, size);
}
void* countRealloc(KWMallocZone* zone, void* block, std::size_t size) {
  reallocs.fetch_add(1, std::memory_order_relaxed);
  return saved.realloc(zone, block, size);
}
void countFree(KWMallocZone* zone, void* block) {
  frees.fetch_add(1, std::memory_order_relaxed);
  saved.free(zone, block);
}

void installCounters() {
  saved = vtcore::mallocZoneFunctions(nullptr);
  KWMallocZoneFunctions hooks{};
  hooks.malloc = countMalloc;
  hooks.calloc = countCalloc;
  hooks.realloc = countRealloc;
  hooks.free = countFree;
  vtcore::setMallocZoneFunctions(nullptr, hooks);
}
void restore() {
  vtcore::setMallocZoneFunctions(nullptr, saved);
}

TEST(MallocZone, HooksSeeAllocationsFromCCxxAndTheCLibraryItself) {
  if (!vtcore::mallocZoneInterposed())
    GTEST_SKIP() << "the sanitizer's allocator is in charge of this process";
  installCounters();
  const long m0 = mallocs, c0 = callocs, r0 = reallocs, f0 = frees;
  void* a = std::malloc(10);
  void* b = std::calloc(2, 10);
  a = std::realloc(a, 100);
  char* copy = strdup("through the C library's own call to malloc");
  auto* object = new std::string(100, 'x');
  std::vector<int> vector(1000);
  vector.clear();
  vector.shrink_to_fit();
  delete object;
  std::free(copy);
  std::free(a);
  std::free(b);
  restore();
  EXPECT_GE(mallocs - m0, 4); // malloc, strdup, new, std::string's buffer, vector
  EXPECT_EQ(callocs - c0, 1);
  EXPECT_EQ(reallocs - r0, 1);
  EXPECT_GE(frees - f0, 6);
  const long after = mallocs;
  std::free(std::malloc(10));
  EXPECT_EQ(mallocs, after) << "restored: the hooks see nothing more";
}

// The library's own reserve hooks (held off in 64-bit builds, but always
// built) installed by hand as Enter would: they must pass every call through
// and count exactly while monitoring.
TEST(MallocZone, TheReserveHooksPassThroughAndCountWhileMonitoring) {
  if (!vtcore::mallocZoneInterposed())
    GTEST_SKIP() << "the sanitizer's allocator is in charge of this process";
  g_tKWMemReserveSystemZone = vtcore::mallocZoneFunctions(nullptr);
  KWMallocZoneFunctions hooks{};
  hooks.malloc = KWMemoryReserveMallocOverride;
  hooks.calloc = KWMemoryReserveCallocOverride;
  hooks.valloc = KWMemoryReserveVallocOverride;
  hooks.free = KWMemoryReserveFreeOverride;
  vtcore::setMallocZoneFunctions(nullptr, hooks);

  std::free(std::malloc(32)); // level 0: straight through
  g_iKWMemReserveMaxSensibleSize.store(1000);
  g_iKWMemReserveUsageMonitor.store(0);
  g_iKWMemReserveLastReallocCheck.store(0);
  g_bKWMemReserveUsageMonitoring.store(1);
  void* a = std::malloc(1000);
  void* b = std::calloc(10, 30);
  const int counted = g_iKWMemReserveUsageMonitor.load();
  const auto usable = static_cast<int>(malloc_usable_size(a));
  std::free(a);
  const int afterFree = g_iKWMemReserveUsageMonitor.load();
  g_bKWMemReserveUsageMonitoring.store(0);
  std::free(b);
  const int unmonitored = g_iKWMemReserveUsageMonitor.load();
  vtcore::setMallocZoneFunctions(nullptr, g_tKWMemReserveSystemZone);
  g_iKWMemReserveMaxSensibleSize.store(100);

  EXPECT_EQ(counted, 1000 + 300);
  EXPECT_EQ(afterFree, 1300 - usable);
  EXPECT_EQ(unmonitored, afterFree) << "frees are counted only while monitoring";
  EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 0);
}

TEST(MallocZone, NullEntriesLeaveTheTableAsItIs) {
  const KWMallocZoneFunctions before = vtcore::mallocZoneFunctions(vtcore::defaultMallocZone());
  vtcore::setMallocZoneFunctions(nullptr, KWMallocZoneFunctions{});
  const KWMallocZoneFunctions after = vtcore::mallocZoneFunctions(nullptr);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
}

TEST(MallocZone, InstallingAndRemovingHooksWhileOtherThreadsAllocate) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> workers;
  for (int t = 0; t < 3; ++t)
    workers.emplace_back([&stop] {
      std::vector<std::unique_ptr<char[]>> held(64);
      for (unsigned i = 0; !stop.load(std::memory_order_relaxed); ++i) {
        held[i % 64] = std::make_unique<char[]>(16 + i % 2000);
        held[i % 64][0] = 1;
      }
    });
  for (int round = 0; round < 2000; ++round) {
    installCounters();
    restore();
  }
  stop = true;
  for (auto& worker : workers)
    worker.join();
  SUCCEED();
}

TEST(MallocZone, ReentrancyGuardNestsPerThread) {
  using vtcore::detail::HookReentrancyGuard;
  EXPECT_FALSE(HookReentrancyGuard::active());
  {
    HookReentrancyGuard outer;
    {
      HookReentrancyGuard inner;
      EXPECT_TRUE(HookReentrancyGuard::active());
    }
    EXPECT_TRUE(HookReentrancyGuard::active());
    bool otherThread = true;
    std::thread([&otherThread] { otherThread = HookReentrancyGuard::active(); }).join();
    EXPECT_FALSE(otherThread);
  }
  EXPECT_FALSE(HookReentrancyGuard::active());
}

} // namespace

// The allocator zone: a transparent pass-through with nothing installed, and
// a table that really sees every allocation of the process once hooked.
#include <vtcore/core/memory/allocation/malloc_zone.h>
#include <vtcore/core/memory/allocation/memory_reserve.h>

#include <tests/core/memory/reserve_hooks.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <thread>
#include <unistd.h>

namespace {

TEST(MallocZone, PassesEveryEntryPointThroughToTheCLibrary) {
  void* page = valloc(100);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(page) % getpagesize(), 0u);
  std::free(page);
  // Blocks of glibc's own aligned entry points free and resize through the zone.
  void* a = nullptr;
  ASSERT_EQ(posix_memalign(&a, 256, 1000), 0);
  std::memset(a, 7, 1000);
  a = std::realloc(a, 5000);
  EXPECT_EQ(static_cast<unsigned char*>(a)[999], 7);
  std::free(a);
  // Impossible sizes come back as null (a sanitizer's allocator reports them
  // as errors instead; volatile keeps the compiler from rejecting them).
  if (vtcore::mallocZoneInterposed()) {
    volatile std::size_t impossible = SIZE_MAX - 4096, half = SIZE_MAX / 2;
    EXPECT_EQ(std::malloc(impossible), nullptr);
    EXPECT_EQ(std::calloc(half, 4), nullptr) << "count × size overflow";
  }
}

// A counting hook that forwards to the entry point it replaced, installed
// and removed while another thread allocates (null entries leave the others
// in place). That every allocation path of the process reaches the table
// shows in the leak guard's report.
KWMallocZoneFunctions saved;
std::atomic<long> calls{0};

TEST(MallocZone, InstallingAndRemovingHooksWhileAnotherThreadAllocates) {
  std::atomic<bool> stop{false};
  std::thread worker([&stop] {
    for (unsigned i = 0; !stop.load(std::memory_order_relaxed); ++i)
      delete[] new char[16 + i % 2000];
  });
  KWMallocZoneFunctions hooks{};
  hooks.malloc = [](KWMallocZone* zone, std::size_t size) {
    calls.fetch_add(1, std::memory_order_relaxed);
    return saved.malloc(zone, size);
  };
  saved = vtcore::mallocZoneFunctions(nullptr);
  for (int round = 0; round < 2000; ++round) {
    vtcore::setMallocZoneFunctions(nullptr, hooks);
    void* volatile block = std::malloc(16); // seen by the hook
    std::free(block);
    vtcore::setMallocZoneFunctions(nullptr, saved);
  }
  stop = true;
  worker.join();
  EXPECT_GE(calls.load(), vtcore::mallocZoneInterposed() ? 2000 : 0);
  const KWMallocZoneFunctions restored = vtcore::mallocZoneFunctions(nullptr);
  EXPECT_EQ(std::memcmp(&saved, &restored, sizeof saved), 0);
}

// A client's pair declared as passing through is bypassed while it says so:
// its hooks see nothing, only failures reach its handler; once it says
// otherwise, the pair is called again. Incomplete declarations are refused.
std::atomic<bool> pairPassesThrough{true};
std::atomic<long> pairMallocs{0}, pairFrees{0}, pairFailures{0};

TEST(MallocZone, APairDeclaredAsPassingThroughIsBypassedWhileItSaysSo) {
  if (!vtcore::mallocZoneInterposed())
    GTEST_SKIP() << "the sanitizer's allocator bypasses the zone";
  saved = vtcore::mallocZoneFunctions(nullptr);
  vtcore::MallocZonePassThrough pair{};
  pair.malloc = [](KWMallocZone* zone, std::size_t size) {
    pairMallocs.fetch_add(1, std::memory_order_relaxed);
    return saved.malloc(zone, size);
  };
  pair.free = [](KWMallocZone* zone, void* block) {
    pairFrees.fetch_add(1, std::memory_order_relaxed);
    saved.free(zone, block);
  };
  pair.passesThrough = []() noexcept { return pairPassesThrough.load(); };
  EXPECT_FALSE(vtcore::addMallocZonePassThrough(pair)) << "no failure handler";
  pair.mallocFailed = [](std::size_t) noexcept -> void* {
    pairFailures.fetch_add(1, std::memory_order_relaxed);
    return nullptr;
  };
  ASSERT_TRUE(vtcore::addMallocZonePassThrough(pair));

  KWMallocZoneFunctions hooks{};
  hooks.malloc = pair.malloc;
  hooks.free = pair.free;
  vtcore::setMallocZoneFunctions(nullptr, hooks);
  std::free(std::malloc(100));
  volatile std::size_t impossible = SIZE_MAX - 4096;
  EXPECT_EQ(std::malloc(impossible), nullptr);
  EXPECT_EQ(pairMallocs.load() + pairFrees.load(), 0) << "bypassed";
  EXPECT_EQ(pairFailures.load(), 1);

  pairPassesThrough = false;
  vtcore::mallocZonePassThroughChanged();
  std::free(std::malloc(100));
  EXPECT_EQ(pairMallocs.load(), 1);
  EXPECT_EQ(pairFrees.load(), 1);
  vtcore::setMallocZoneFunctions(nullptr, saved);
}

// The reserve's hooks installed over the C library, as an outermost Enter
// installs them (64-bit builds hold no reserve, so they go in by hand). While
// nothing is monitored the malloc family bypasses the hooks; a failed
// allocation must still reach the release step, and the hooks must count
// again from the moment it starts monitoring until the reserve is back.
TEST(MallocZone, ReserveHooksOnTheCLibraryActOnFailuresAndCountWhileMonitoring) {
  if (!vtcore::mallocZoneInterposed())
    GTEST_SKIP() << "the sanitizer's allocator bypasses the zone";
  vtcore::testing::installReserveHooks();
  KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, 1);
  g_iKWMemReserveCurDivide.store(1);
  g_aptrKWMemReservePtr[0].store(std::malloc(1 << 20));

  std::free(std::malloc(1000));
  EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), 0) << "level 0 counts nothing";

  volatile std::size_t impossible = SIZE_MAX - 4096;
  EXPECT_EQ(std::malloc(impossible), nullptr) << "released, retried once, failed again";
  EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 1);
  EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
  void* counted = std::malloc(1000);
  EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), 1000);

  KWMemoryReserveTryReserveReallocation();
  std::free(counted); // takes the reserve back
  EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 0);
  EXPECT_NE(g_aptrKWMemReservePtr[0].load(), nullptr);
  const std::int32_t monitor = g_iKWMemReserveUsageMonitor.load();
  std::free(std::malloc(1000));
  EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), monitor) << "level 0 again counts nothing";

  vtcore::testing::removeReserveHooks();
  std::free(g_aptrKWMemReservePtr[0].exchange(nullptr));
  KWMemoryReserveDidLowMemoryLevelChange(1);
}

} // namespace

// The allocator zone: a transparent pass-through with nothing installed, and
// a table that really sees every allocation of the process once hooked.
#include <vtcore/core/memory/malloc_zone.h>

#include <gtest/gtest.h>

#include <algorithm>
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

bool alignedTo(const void* block, std::size_t alignment) {
  return reinterpret_cast<std::uintptr_t>(block) % alignment == 0;
}

TEST(MallocZone, PassesEveryEntryPointThroughToTheCLibrary) {
  const KWMallocZoneFunctions system = vtcore::systemMallocZoneFunctions();
  vtcore::setMallocZoneFunctions(nullptr, KWMallocZoneFunctions{}); // null entries: ignored
  const KWMallocZoneFunctions current = vtcore::mallocZoneFunctions(vtcore::defaultMallocZone());
  EXPECT_EQ(std::memcmp(&current, &system, sizeof current), 0);
  auto* bytes = static_cast<unsigned char*>(std::calloc(1000, 3));
  ASSERT_NE(bytes, nullptr);
  EXPECT_TRUE(std::all_of(bytes, bytes + 3000, [](unsigned char b) { return b == 0; }));
  std::memset(bytes, 0x5a, 3000);
  bytes = static_cast<unsigned char*>(std::realloc(bytes, 100000));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(bytes[2999], 0x5a);
  std::free(bytes);
  void* page = valloc(100);
  EXPECT_TRUE(page && alignedTo(page, static_cast<std::size_t>(getpagesize())));
  std::free(page);
  std::free(nullptr);
  // Blocks of glibc's own aligned entry points free and resize through the zone.
  void* a = nullptr;
  ASSERT_EQ(posix_memalign(&a, 256, 1000), 0);
  EXPECT_TRUE(alignedTo(a, 256));
  std::memset(a, 7, 1000);
  a = std::realloc(a, 5000);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(static_cast<unsigned char*>(a)[999], 7);
  std::free(a);
  std::free(memalign(64, 10));
  // Impossible sizes come back as null (a sanitizer's allocator reports them
  // as errors instead; volatile keeps the compiler from rejecting them).
  if (vtcore::mallocZoneInterposed()) {
    volatile std::size_t impossible = SIZE_MAX - 4096, half = SIZE_MAX / 2;
    EXPECT_EQ(std::malloc(impossible), nullptr);
    EXPECT_EQ(std::calloc(half, 4), nullptr) << "count × size overflow";
  }
}

// Counting hooks that forward to the entry points they replaced. That every
// allocation path of the process reaches the table shows in the leak guard's
// report of a real program.
KWMallocZoneFunctions saved;
std::atomic<long> calls{0};

void installCounters() {
  saved = vtcore::mallocZoneFunctions(nullptr);
  KWMallocZoneFunctions hooks{};
  hooks.malloc = [](KWMallocZone* zone, std::size_t size) {
    calls.fetch_add(1, std::memory_order_relaxed);
    return saved.malloc(zone, size);
  };
  hooks.free = [](KWMallocZone* zone, void* block) {
    calls.fetch_add(1, std::memory_order_relaxed);
    saved.free(zone, block);
  };
  vtcore::setMallocZoneFunctions(nullptr, hooks);
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
  const long before = calls;
  for (int round = 0; round < 2000; ++round) {
    installCounters();
    void* volatile block = std::malloc(16); // seen by the hooks
    std::free(block);
    vtcore::setMallocZoneFunctions(nullptr, saved);
  }
  stop = true;
  for (auto& worker : workers)
    worker.join();
  if (vtcore::mallocZoneInterposed()) {
    EXPECT_GE(calls - before, 2 * 2000);
  }
  const long after = calls;
  std::free(std::malloc(16));
  EXPECT_EQ(calls, after) << "restored: the hooks see nothing more";
}

} // namespace

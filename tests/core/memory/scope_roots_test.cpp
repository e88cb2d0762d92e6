// The leak guard's scope roots on their own, so that the sanitizers can
// check them: the guard itself cannot run under a sanitizer's allocator.
// Hooks read the roots on any thread while scopes open and close on others;
// no array may be freed while a reader may still hold it, and none may be
// kept for ever.
#include <vtcore/core/memory/allocation/detail/scope_roots.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

using vtcore::detail::isRoot;
using vtcore::detail::ScopeRoots;

std::atomic<long> live{0}; // arrays allocated and not yet released
void* countedAllocate(std::size_t size) {
  live.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size);
}
void countedRelease(void* block) {
  live.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}
void* failingAllocate(std::size_t) {
  return nullptr;
}

void* frame(std::uintptr_t value) {
  return reinterpret_cast<void*>(value * 16);
}

TEST(ScopeRoots, AddsAndRemovesOneOccurrenceAndRefusesWhatItCannotDo) {
  ScopeRoots roots;
  EXPECT_FALSE(roots.remove(frame(1), countedAllocate, countedRelease)) << "nothing open";
  ASSERT_TRUE(roots.add(frame(1), countedAllocate, countedRelease));
  ASSERT_TRUE(roots.add(frame(2), countedAllocate, countedRelease));
  ASSERT_TRUE(roots.add(frame(1), countedAllocate, countedRelease)); // the same frame twice
  EXPECT_FALSE(roots.add(frame(3), failingAllocate, countedRelease));
  EXPECT_FALSE(roots.remove(frame(7), countedAllocate, countedRelease)) << "unknown frame";
  EXPECT_TRUE(roots.remove(frame(1), countedAllocate, countedRelease));
  {
    const ScopeRoots::Reader reader(roots);
    ASSERT_NE(reader.frames(), nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(reader.frames()[0]), 2u);
    EXPECT_TRUE(isRoot(reader.frames(), 16));
    EXPECT_TRUE(isRoot(reader.frames(), 32)) << "one occurrence of frame 1 is still open";
    EXPECT_FALSE(isRoot(reader.frames(), 48)) << "its array could not be had";
    // A change while a reader holds the array retires the old one.
    EXPECT_TRUE(roots.remove(frame(1), countedAllocate, countedRelease));
    EXPECT_GE(roots.retiredCount(), 1u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(reader.frames()[0]), 2u) << "still readable";
  }
  EXPECT_TRUE(roots.remove(frame(2), countedAllocate, countedRelease));
  EXPECT_EQ(ScopeRoots::Reader(roots).frames(), nullptr);
  EXPECT_EQ(roots.retiredCount(), 0u) << "no reader left: everything retired is freed";
  EXPECT_EQ(live.load(), 0);
}

// Readers on four threads walk the current array while two threads open and
// close scopes (nested two deep) as fast as they can. A reader finds only
// frames that some scope really opened; the sanitizers see any array freed
// under a reader. When all is done, every array has been given back.
TEST(ScopeRoots, ReadersNeverHoldAFreedArrayWhileScopesOpenAndClose) {
  constexpr int kRounds = 20000; // per writer
  constexpr int kReaders = 4, kWriters = 2;
  constexpr long kReads = 10000;
  ScopeRoots roots;
  std::atomic<bool> stop{false};
  std::atomic<long> reads{0}, strangers{0};
  std::vector<std::thread> threads;
  for (int r = 0; r < kReaders; ++r)
    threads.emplace_back([&] {
      while (!stop.load(std::memory_order_relaxed)) {
        const ScopeRoots::Reader reader(roots);
        void* const* frames = reader.frames();
        if (!frames)
          continue;
        const auto count = reinterpret_cast<std::uintptr_t>(frames[0]);
        for (std::uintptr_t i = 1; i <= count; ++i) {
          const auto value = reinterpret_cast<std::uintptr_t>(frames[i]);
          if (value == 0 || value % 16 != 0 || value > 16 * 4 * kWriters)
            strangers.fetch_add(1, std::memory_order_relaxed);
        }
        reads.fetch_add(1, std::memory_order_relaxed);
      }
    });
  std::vector<std::thread> writers;
  for (int w = 0; w < kWriters; ++w)
    writers.emplace_back([&roots, &reads, w] {
      void* outer = frame(static_cast<std::uintptr_t>(4 * w + 1));
      void* inner = frame(static_cast<std::uintptr_t>(4 * w + 2));
      // At least kRounds, and on until the readers have really read while
      // scopes changed (however the threads are scheduled).
      for (int round = 0; round < kRounds || reads.load(std::memory_order_relaxed) < kReads;
           ++round) {
        EXPECT_TRUE(roots.add(outer, countedAllocate, countedRelease));
        EXPECT_TRUE(roots.add(inner, countedAllocate, countedRelease));
        EXPECT_TRUE(roots.remove(outer, countedAllocate, countedRelease)); // not in order
        EXPECT_TRUE(roots.remove(inner, countedAllocate, countedRelease));
      }
    });
  for (auto& writer : writers)
    writer.join();
  stop = true;
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(strangers.load(), 0);
  EXPECT_GE(reads.load(), kReads);
  // One more change with no reader about frees whatever was still retired.
  ASSERT_TRUE(roots.add(frame(1), countedAllocate, countedRelease));
  ASSERT_TRUE(roots.remove(frame(1), countedAllocate, countedRelease));
  EXPECT_EQ(roots.retiredCount(), 0u);
  EXPECT_EQ(live.load(), 0);
}

} // namespace

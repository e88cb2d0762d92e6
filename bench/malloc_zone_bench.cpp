// malloc(32) + free through VTCore's zone table, with nothing installed and
// with the memory reserve's hooks installed (level 0), against glibc's own
// allocator called directly in the same run.
#include <vtcore/core/memory/allocation/malloc_zone.h>
#include <vtcore/core/memory/allocation/memory_reserve.h>

#include <tests/core/memory/reserve_hooks.h>

#include <benchmark/benchmark.h>

#include <cstdlib>

extern "C" {
void* __libc_malloc(size_t size);
void __libc_free(void* block);
}

namespace {

void GlibcDirect(benchmark::State& state) {
  for (auto _ : state) {
    void* block = __libc_malloc(32);
    benchmark::DoNotOptimize(block);
    __libc_free(block);
  }
}

void ZoneNoHooks(benchmark::State& state) {
  for (auto _ : state) {
    void* block = std::malloc(32);
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
}

// Installs the reserve's hooks as the outermost Enter does. 64-bit builds
// hold no reserve, so there the same hooks go in by hand, over glibc and in
// the same order: the path measured is the one an entered reserve takes.
struct ReserveHooks {
  ReserveHooks() {
    if (vtcore::memoryReserveAvailable()) {
      KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, 16);
      KWMemoryReserveSetOption(kKWMemReserveOptionFinalBlockSize, 4);
      KWMemoryReserveEnter(nullptr, nullptr);
      return;
    }
    vtcore::testing::installReserveHooks();
  }
  ~ReserveHooks() {
    if (vtcore::memoryReserveAvailable()) {
      KWMemoryReserveExit();
      return;
    }
    vtcore::testing::removeReserveHooks();
  }
};

void ZoneReserveEntered(benchmark::State& state) {
  ReserveHooks hooks;
  for (auto _ : state) {
    void* block = std::malloc(32);
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
  state.counters["level"] = KWMemoryReserveGetLowMemoryLevel();
}

// Each allocator is measured next to the direct glibc call, interleaved, so
// that the ratio is taken under the same machine load.
BENCHMARK(GlibcDirect);
BENCHMARK(ZoneNoHooks);
BENCHMARK(GlibcDirect);
BENCHMARK(ZoneReserveEntered);

} // namespace

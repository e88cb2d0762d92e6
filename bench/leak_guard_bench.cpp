// The cost of an allocation tracked by the leak guard inside a scope, made at
// call depths 5 and 20 below the scope's function, next to glibc's own
// malloc(32) + free and an untracked allocation through the guard's hooks.
#include <vtcore/core/memory/allocation/leak_guard.h>

#include <benchmark/benchmark.h>

#include <cstdlib>

extern "C" {
void* __libc_malloc(size_t size);
void __libc_free(void* block);
}

namespace {

__attribute__((noinline)) void* allocateAtDepth(int depth) {
  if (depth > 1) {
    void* block = allocateAtDepth(depth - 1);
    benchmark::DoNotOptimize(block);
    return block;
  }
  return std::malloc(32);
}

void GlibcDirect(benchmark::State& state) {
  for (auto _ : state) {
    void* block = __libc_malloc(32);
    benchmark::DoNotOptimize(block);
    __libc_free(block);
  }
}

void HooksOutsideAnyScope(benchmark::State& state) {
  vtcore::setLeakGuardEnabled(true);
  delete KWOpenLeakGuardScope(); // installs the hooks for the rest of the run
  for (auto _ : state) {
    void* block = std::malloc(32);
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
}

__attribute__((noinline)) void trackedLoop(benchmark::State& state, int depth) {
  KWLeakGuard guard; // rooted at this function
  for (auto _ : state) {
    void* block = allocateAtDepth(depth);
    std::free(block);
  }
}

void TrackedInScope(benchmark::State& state) {
  vtcore::setLeakGuardEnabled(true);
  trackedLoop(state, static_cast<int>(state.range(0)));
  KWResetLeakGuardHistory(false);
}

BENCHMARK(GlibcDirect);
BENCHMARK(HooksOutsideAnyScope);
BENCHMARK(TrackedInScope)->Arg(5)->Arg(20);

} // namespace

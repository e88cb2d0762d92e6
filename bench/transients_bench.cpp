// The energy sort's NaN guard against the plain public predicate, and the
// byte-order callback against a naive byte-by-byte reversal.
#include <vtcore/music/transients/transients.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

CTransients randomTransients(std::size_t count) {
  std::mt19937 random(3);
  std::uniform_int_distribution<std::int64_t> pos(0, 1'000'000);
  std::uniform_real_distribution<float> energy(0.0f, 1.0f);
  CTransients transients(count);
  for (auto& transient : transients) {
    transient.pos = pos(random);
    transient.Energy = energy(random);
  }
  return transients;
}

void BM_SortByEnergyAndPos(benchmark::State& state) {
  const CTransients input = randomTransients(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    CTransients work = input;
    work.SortByEnergyAndPos();
    benchmark::DoNotOptimize(work.data());
  }
}

void BM_StdSortPublicFunctor(benchmark::State& state) {
  const CTransients input = randomTransients(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    CTransients work = input;
    std::sort(work.begin(), work.end(), SortFunctor_CTransient_EnergyAndPos());
    benchmark::DoNotOptimize(work.data());
  }
}

void BM_SwapTransientCallback(benchmark::State& state) {
  std::vector<unsigned char> block(1024 + 36 * static_cast<std::size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    SwapTransientCallback(block.data(), block.size(), true);
    benchmark::DoNotOptimize(block.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * block.size()));
}

// The peer: reversing each field byte by byte.
void BM_NaiveFieldReverse(benchmark::State& state) {
  std::vector<unsigned char> block(1024 + 36 * static_cast<std::size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    for (std::size_t word = 0; word < 4; ++word)
      std::reverse(block.begin() + 4 * word, block.begin() + 4 * word + 4);
    for (std::size_t record = 1024; record + 36 <= block.size(); record += 36) {
      std::reverse(block.begin() + record, block.begin() + record + 8);
      for (std::size_t field = 8; field < 36; field += 4)
        std::reverse(block.begin() + record + field, block.begin() + record + field + 4);
    }
    benchmark::DoNotOptimize(block.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * block.size()));
}

} // namespace

BENCHMARK(BM_SortByEnergyAndPos)->Arg(1000)->Arg(100000);
BENCHMARK(BM_StdSortPublicFunctor)->Arg(1000)->Arg(100000);
BENCHMARK(BM_SwapTransientCallback)->Arg(10000);
BENCHMARK(BM_NaiveFieldReverse)->Arg(10000);

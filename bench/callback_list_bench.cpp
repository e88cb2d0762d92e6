// Walking the lock-free callback list against the obvious alternative, a
// std::mutex-guarded std::vector of the same callbacks, with nothing pending.

#include <vtcore/core/memory/callbacks/add_remove_iterate_list.h>

#include <benchmark/benchmark.h>

#include <mutex>
#include <vector>

namespace {

void bump(void* object, unsigned message, void*) {
  *static_cast<long*>(object) += message;
}

struct GuardedVector {
  struct Callback {
    void* object;
    CAddRemoveIterateList::Function function;
  };
  std::mutex mutex;
  std::vector<Callback> callbacks;

  void Iterate(unsigned message, void* argument) {
    std::lock_guard lock(mutex);
    for (const Callback& callback : callbacks)
      callback.function(callback.object, message, argument);
  }
};

void CallbackList_Iterate(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<long> counters(count);
  CAddRemoveIterateList list;
  for (long& counter : counters)
    list.Add(&counter, bump);
  list.Iterate(0, nullptr); // applies the additions: nothing is pending below
  for (auto _ : state) {
    list.Iterate(1, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
}

void MutexVector_Iterate(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<long> counters(count);
  GuardedVector vector;
  for (long& counter : counters)
    vector.callbacks.push_back({&counter, bump});
  for (auto _ : state) {
    vector.Iterate(1, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
}

BENCHMARK(CallbackList_Iterate)->Arg(16)->Arg(1000);
BENCHMARK(MutexVector_Iterate)->Arg(16)->Arg(1000);

} // namespace

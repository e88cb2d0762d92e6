#include <vtcore/core/memory/add_remove_iterate_list.h>

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

// Records the order of calls: each object is a char naming it.
struct Recorder {
  std::string calls;
  static void call(void* object, unsigned, void* argument) {
    static_cast<Recorder*>(argument)->calls += *static_cast<char*>(object);
  }
};

std::string iterate(CAddRemoveIterateList& list) {
  Recorder recorder;
  list.Iterate(0, &recorder);
  return recorder.calls;
}

char p = 'p', q = 'q', r = 'r';

TEST(CallbackList, RequestsApplyAtTheNextIterateInTheOrderTheyWereMade) {
  CAddRemoveIterateList list;
  EXPECT_EQ(iterate(list), "");
  list.Add(&p, Recorder::call);
  list.Add(&q, Recorder::call);
  list.Add(&p, Recorder::call); // duplicates are allowed and called once per entry
  EXPECT_EQ(iterate(list), "pqp");

  list.Add(&r, Recorder::call);
  list.Remove(&r); // add then remove before an iteration: nothing stays
  list.Remove(&q);
  list.Add(&q, Recorder::call); // remove then add: the addition stays
  EXPECT_EQ(iterate(list), "ppq");

  list.Add(nullptr, Recorder::call);
  list.Add(&r, nullptr);
  list.Remove(nullptr);
  list.Remove(&r); // nothing to remove
  EXPECT_EQ(iterate(list), "ppq");
}

struct RemovalCase {
  const char* before;
  char removed;
  const char* after;
};

class CallbackListRemoval : public testing::TestWithParam<RemovalCase> {};

TEST_P(CallbackListRemoval, KeepsTheSecondOfTwoAdjacentMatchesBehindTheHead) {
  static char objects[128];
  CAddRemoveIterateList list;
  for (const char* c = GetParam().before; *c; ++c) {
    objects[static_cast<int>(*c)] = *c;
    list.Add(&objects[static_cast<int>(*c)], Recorder::call);
  }
  objects[static_cast<int>(GetParam().removed)] = GetParam().removed;
  list.Remove(&objects[static_cast<int>(GetParam().removed)]);
  EXPECT_EQ(iterate(list), GetParam().after);
  // The tail is kept right: an addition lands at the end.
  objects[static_cast<int>('z')] = 'z';
  list.Add(&objects[static_cast<int>('z')], Recorder::call);
  EXPECT_EQ(iterate(list), std::string(GetParam().after) + "z");
}

INSTANTIATE_TEST_SUITE_P(
    Table, CallbackListRemoval,
    testing::Values(RemovalCase{"pqqr", 'q', "pqr"}, RemovalCase{"qqqr", 'q', "r"},
                    RemovalCase{"pqqq", 'q', "pq"}, RemovalCase{"pqqqr", 'q', "pqr"},
                    RemovalCase{"pqrq", 'q', "pr"}, RemovalCase{"q", 'q', ""},
                    RemovalCase{"pq", 'q', "p"}, RemovalCase{"qpq", 'q', "p"}));

struct SelfRemover {
  CAddRemoveIterateList* list;
  int calls = 0;
  static void call(void* object, unsigned, void*) {
    auto* self = static_cast<SelfRemover*>(object);
    ++self->calls;
    self->list->Remove(self);
  }
};

struct Spawner {
  CAddRemoveIterateList* list;
  SelfRemover* child;
  int calls = 0;
  static void call(void* object, unsigned, void*) {
    auto* self = static_cast<Spawner*>(object);
    if (self->calls++ == 0)
      self->list->Add(self->child, SelfRemover::call);
  }
};

TEST(CallbackList, ChangesMadeDuringAnIterationTakeEffectOnTheNextOne) {
  CAddRemoveIterateList list;
  SelfRemover remover{&list};
  SelfRemover child{&list};
  Spawner spawner{&list, &child};
  list.Add(&remover, SelfRemover::call);
  list.Add(&spawner, Spawner::call);

  list.Iterate(0, nullptr);
  EXPECT_EQ(remover.calls, 1) << "removed itself, still called in this pass";
  EXPECT_EQ(child.calls, 0) << "added during the pass, not called in it";
  list.Iterate(0, nullptr);
  EXPECT_EQ(remover.calls, 1);
  EXPECT_EQ(child.calls, 1);
  list.Iterate(0, nullptr);
  EXPECT_EQ(child.calls, 1);
  EXPECT_EQ(spawner.calls, 3);
}

struct Nester {
  CAddRemoveIterateList* list;
  void* removeFirst;
  std::string log;
  bool inside = false;
  static void call(void* object, unsigned, void*) {
    auto* self = static_cast<Nester*>(object);
    self->log += 'n';
    if (self->inside)
      return;
    self->inside = true;
    self->list->Remove(self->removeFirst);
    self->list->Iterate(0, &self->log); // applies the removal under the outer pass
    self->inside = false;
  }
  static void logX(void*, unsigned, void* argument) { *static_cast<std::string*>(argument) += 'x'; }
};

TEST(CallbackList, AnIterationInsideACallbackAppliesRequestsSafely) {
  CAddRemoveIterateList list;
  char x = 'x';
  Nester nester{&list, &x, ""};
  list.Add(&nester, Nester::call);
  list.Add(&x, Nester::logX);
  list.Iterate(0, &nester.log);
  // The inner pass no longer has x; the outer one, already under way, still
  // calls it, as a removal made during a pass allows.
  EXPECT_EQ(nester.log, "nnx");
  nester.log.clear();
  list.Iterate(0, &nester.log);
  EXPECT_EQ(nester.log, "nn");
}

TEST(CallbackList, AfterDestructionEveryOperationReturnsAtOnce) {
  alignas(CAddRemoveIterateList) unsigned char storage[sizeof(CAddRemoveIterateList)];
  auto* list = new (storage) CAddRemoveIterateList;
  list->Add(&p, Recorder::call);
  EXPECT_EQ(iterate(*list), "p");
  list->Add(&q, Recorder::call); // still pending at destruction: freed too
  list->~CAddRemoveIterateList();
  // The storage outlives the object, so the lock-out can be observed. Under
  // AddressSanitizer an Add that still allocated would show up as a leak.
  list->Add(&p, Recorder::call);
  list->Remove(&p);
  Recorder recorder;
  list->Iterate(0, &recorder);
  EXPECT_EQ(recorder.calls, "");
}

TEST(CallbackList, TheDestructorWaitsForAnIterationInProgress) {
  auto* list = new CAddRemoveIterateList;
  struct Gate {
    std::atomic<bool> inside{false};
    std::atomic<bool> open{false};
    std::atomic<int> calls{0};
    static void call(void* object, unsigned, void*) {
      auto* gate = static_cast<Gate*>(object);
      gate->inside.store(true);
      while (!gate->open.load()) {
        std::this_thread::yield();
      }
      ++gate->calls;
    }
  } gate;
  list->Add(&gate, Gate::call);
  list->Add(&gate, Gate::call);
  std::thread iterating([&] { list->Iterate(0, nullptr); });
  while (!gate.inside.load())
    std::this_thread::yield();
  std::thread destroying([&] { delete list; });
  gate.open.store(true);
  iterating.join();
  destroying.join();
  // Had the destructor not waited, the iteration would have walked freed
  // entries (a use-after-free under the sanitizers).
  EXPECT_EQ(gate.calls.load(), 2);
}

// Four threads add and remove their own objects at random while one thread
// iterates. Each object is in the list at most once at a time, so the final
// contents follow from each thread's own requests.
TEST(CallbackList, ConcurrentAddAndRemoveDuringIterationStayConsistent) {
  constexpr int kWorkers = 4;
  constexpr int kObjectsPerWorker = 16;
  constexpr int kIterations = 100000;
  constexpr unsigned kCount = 1; // message of the final counting pass

  struct Token {
    std::atomic<bool> forbidden{false}; // its removal is known to be applied
    std::atomic<int> counted{0};
    static void call(void* object, unsigned message, void* argument) {
      auto* token = static_cast<Token*>(object);
      if (token->forbidden.load(std::memory_order_acquire))
        static_cast<std::atomic<int>*>(argument)->fetch_add(1);
      if (message == kCount)
        token->counted.fetch_add(1);
    }
  };
  static Token tokens[kWorkers][kObjectsPerWorker];

  CAddRemoveIterateList list;
  std::atomic<int> completedPasses{0};
  std::atomic<bool> done{false};
  std::atomic<int> callsAfterRemoval{0};
  bool present[kWorkers][kObjectsPerWorker] = {};

  std::vector<std::thread> workers;
  for (int w = 0; w < kWorkers; ++w)
    workers.emplace_back([&, w] {
      std::mt19937 random(1234 + w);
      // For a removed object: the pass count at its removal; -1 otherwise.
      std::vector<int> removedAt(kObjectsPerWorker, -1);
      while (!done.load(std::memory_order_relaxed)) {
        const int i = static_cast<int>(random() % kObjectsPerWorker);
        Token& token = tokens[w][i];
        const int passes = completedPasses.load(std::memory_order_acquire);
        // Two passes completed after the removal was queued: the second one
        // started after the request and applied it.
        for (int j = 0; j < kObjectsPerWorker; ++j)
          if (removedAt[j] >= 0 && passes >= removedAt[j] + 2) {
            tokens[w][j].forbidden.store(true, std::memory_order_release);
            removedAt[j] = -1;
          }
        if (present[w][i]) {
          list.Remove(&token);
          present[w][i] = false;
          removedAt[i] = completedPasses.load(std::memory_order_acquire);
        } else if (removedAt[i] < 0) {
          token.forbidden.store(false, std::memory_order_release);
          list.Add(&token, Token::call);
          present[w][i] = true;
        }
      }
    });

  for (int pass = 0; pass < kIterations; ++pass) {
    list.Iterate(0, &callsAfterRemoval);
    completedPasses.fetch_add(1, std::memory_order_release);
  }
  done.store(true);
  for (auto& worker : workers)
    worker.join();

  list.Iterate(kCount, &callsAfterRemoval);
  EXPECT_EQ(callsAfterRemoval.load(), 0);
  for (int w = 0; w < kWorkers; ++w)
    for (int i = 0; i < kObjectsPerWorker; ++i)
      EXPECT_EQ(tokens[w][i].counted.load(), present[w][i] ? 1 : 0) << w << "/" << i;
}

} // namespace

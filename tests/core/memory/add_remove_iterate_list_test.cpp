#include <vtcore/core/memory/add_remove_iterate_list.h>

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

// Each object is a char naming it; a pass records the calls in order.
char objects[128];
char* object(char c) {
  objects[static_cast<int>(c)] = c;
  return &objects[static_cast<int>(c)];
}
void record(void* object, unsigned, void* calls) {
  *static_cast<std::string*>(calls) += *static_cast<char*>(object);
}
std::string iterate(CAddRemoveIterateList& list) {
  std::string calls;
  list.Iterate(0, &calls);
  return calls;
}

TEST(CallbackList, RequestsApplyAtTheNextIterateInTheOrderTheyWereMade) {
  CAddRemoveIterateList list;
  EXPECT_EQ(iterate(list), "");
  for (char c : std::string("pqp")) // duplicates are called once per entry
    list.Add(object(c), record);
  EXPECT_EQ(iterate(list), "pqp");

  list.Add(object('r'), record);
  list.Remove(object('r')); // add then remove before an iteration: nothing stays
  list.Remove(object('q'));
  list.Add(object('q'), record); // remove then add: the addition stays
  EXPECT_EQ(iterate(list), "ppq");

  list.Add(nullptr, record);
  list.Add(object('r'), nullptr);
  list.Remove(nullptr);
  list.Remove(object('r')); // nothing to remove
  EXPECT_EQ(iterate(list), "ppq");
}

// A removal keeps the second of two adjacent matches behind the head.
TEST(CallbackList, RemovalSkipsTheEntryAfterAMatch) {
  const struct {
    const char *before, *after;
  } cases[] = {{"pqqr", "pqr"}, {"qqqr", "r"}, {"pqqq", "pq"}, {"pqqqr", "pqr"},
               {"pqrq", "pr"},  {"q", ""},     {"pq", "p"},    {"qpq", "p"}};
  for (const auto& c : cases) {
    CAddRemoveIterateList list;
    for (const char* e = c.before; *e; ++e)
      list.Add(object(*e), record);
    list.Remove(object('q'));
    EXPECT_EQ(iterate(list), c.after) << c.before;
    list.Add(object('z'), record); // the tail was kept right
    EXPECT_EQ(iterate(list), std::string(c.after) + "z") << c.before;
  }
}

// Removes `target` (itself if null) on its first call; adds `child` on it.
struct Changer {
  CAddRemoveIterateList* list;
  void* target = nullptr;
  void* child = nullptr;
  int calls = 0;
  bool nest = false;
  static void call(void* object, unsigned, void* log) {
    auto* self = static_cast<Changer*>(object);
    if (log)
      *static_cast<std::string*>(log) += 'n';
    if (self->calls++ != 0)
      return;
    self->list->Remove(self->target ? self->target : self);
    if (self->child)
      self->list->Add(self->child, Changer::call);
    if (self->nest)
      self->list->Iterate(0, log); // applies the removal under the outer pass
  }
};

TEST(CallbackList, ChangesMadeDuringAnIterationTakeEffectOnTheNextOne) {
  CAddRemoveIterateList list;
  Changer remover{&list}, child{&list}, spawner{&list, object('x')};
  spawner.child = &child;
  list.Add(&remover, Changer::call);
  list.Add(&spawner, Changer::call);
  for (int pass = 1; pass <= 3; ++pass) {
    list.Iterate(0, nullptr);
    EXPECT_EQ(remover.calls, 1) << "removed itself, still called in the first pass";
    EXPECT_EQ(child.calls, pass == 1 ? 0 : 1) << "added during a pass, not called in it";
  }

  // An iteration inside a callback: the inner pass no longer has x; the outer
  // one, already under way, still calls it.
  CAddRemoveIterateList nested;
  Changer nester{&nested, object('x')};
  nester.nest = true;
  nested.Add(&nester, Changer::call);
  nested.Add(object('x'), record);
  std::string log;
  nested.Iterate(0, &log);
  EXPECT_EQ(log, "nnx");
  EXPECT_EQ(iterate(nested), "n");
}

TEST(CallbackList, TheDestructorWaitsForAPassInProgressThenLocksEverythingOut) {
  struct Gate {
    std::atomic<bool> inside{false}, open{false};
    std::atomic<int> calls{0};
    static void call(void* object, unsigned, void*) {
      auto* gate = static_cast<Gate*>(object);
      gate->inside.store(true);
      while (!gate->open.load())
        std::this_thread::yield();
      ++gate->calls;
    }
  } gate;
  // The storage outlives the object, so the lock-out can be observed.
  alignas(CAddRemoveIterateList) unsigned char storage[sizeof(CAddRemoveIterateList)];
  auto* list = new (storage) CAddRemoveIterateList;
  list->Add(&gate, Gate::call);
  list->Add(&gate, Gate::call);
  std::thread iterating([&] { list->Iterate(0, nullptr); });
  while (!gate.inside.load())
    std::this_thread::yield();
  list->Add(object('q'), record); // still pending at destruction: freed too
  std::thread destroying([&] { list->~CAddRemoveIterateList(); });
  gate.open.store(true);
  iterating.join();
  destroying.join();
  // Had the destructor not waited, the pass would have walked freed entries.
  EXPECT_EQ(gate.calls.load(), 2);
  // Under AddressSanitizer an Add that still allocated would show up as a leak.
  list->Add(object('p'), record);
  list->Remove(object('p'));
  EXPECT_EQ(iterate(*list), "");
}

// Four threads add and remove their own objects at random while one thread
// iterates. Each object is in the list at most once at a time, so the final
// contents follow from each thread's own requests.
TEST(CallbackList, ConcurrentAddAndRemoveDuringIterationStayConsistent) {
  constexpr int kWorkers = 4, kObjects = 16, kIterations = 100000;
  constexpr unsigned kCount = 1; // message of the final counting pass
  struct Token {
    std::atomic<bool> forbidden{false}; // its removal is known to be applied
    std::atomic<int> counted{0};
    static void call(void* object, unsigned message, void* lateCalls) {
      auto* token = static_cast<Token*>(object);
      if (token->forbidden.load(std::memory_order_acquire))
        static_cast<std::atomic<int>*>(lateCalls)->fetch_add(1);
      if (message == kCount)
        token->counted.fetch_add(1);
    }
  };
  Token tokens[kWorkers][kObjects];
  CAddRemoveIterateList list;
  std::atomic<int> passes{0}, lateCalls{0};
  std::atomic<bool> done{false};
  bool present[kWorkers][kObjects] = {};

  std::vector<std::thread> workers;
  for (int w = 0; w < kWorkers; ++w)
    workers.emplace_back([&, w] {
      std::mt19937 random(1234 + w);
      std::vector<int> removedAt(kObjects, -1); // pass count at a pending removal
      while (!done.load(std::memory_order_relaxed)) {
        const int i = static_cast<int>(random() % kObjects);
        const int now = passes.load(std::memory_order_acquire);
        // Two passes completed after the removal was queued: the second one
        // started after the request and applied it.
        for (int j = 0; j < kObjects; ++j)
          if (removedAt[j] >= 0 && now >= removedAt[j] + 2) {
            tokens[w][j].forbidden.store(true, std::memory_order_release);
            removedAt[j] = -1;
          }
        if (present[w][i]) {
          list.Remove(&tokens[w][i]);
          present[w][i] = false;
          removedAt[i] = passes.load(std::memory_order_acquire);
        } else if (removedAt[i] < 0) {
          tokens[w][i].forbidden.store(false, std::memory_order_release);
          list.Add(&tokens[w][i], Token::call);
          present[w][i] = true;
        }
      }
    });
  for (int pass = 0; pass < kIterations; ++pass) {
    list.Iterate(0, &lateCalls);
    passes.fetch_add(1, std::memory_order_release);
  }
  done.store(true);
  for (auto& worker : workers)
    worker.join();

  list.Iterate(kCount, &lateCalls);
  EXPECT_EQ(lateCalls.load(), 0);
  for (int w = 0; w < kWorkers; ++w)
    for (int i = 0; i < kObjects; ++i)
      EXPECT_EQ(tokens[w][i].counted.load(), present[w][i] ? 1 : 0) << w << "/" << i;
}

} // namespace

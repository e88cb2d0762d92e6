#include <vtcore/core/memory/callbacks/add_remove_iterate_list.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
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

TEST(CallbackList, RequestsApplyOldestFirstAndARemovalSkipsTheEntryAfterAMatch) {
  CAddRemoveIterateList list;
  list.Add(object('r'), record);
  list.Remove(object('r')); // add then remove before an iteration: nothing stays
  list.Remove(object('q'));
  list.Add(object('q'), record); // remove then add: the addition stays
  list.Add(nullptr, record);     // ignored
  EXPECT_EQ(iterate(list), "q");

  // The second of two adjacent matches behind the head survives a removal.
  const struct {
    const char *before, *after;
  } cases[] = {{"pqqr", "pqr"}, {"qqqr", "r"}, {"pqqq", "pq"}, {"pqrq", "pr"}};
  for (const auto& c : cases) {
    CAddRemoveIterateList skipping;
    for (const char* e = c.before; *e; ++e)
      skipping.Add(object(*e), record);
    skipping.Remove(object('q'));
    EXPECT_EQ(iterate(skipping), c.after) << c.before;
    skipping.Add(object('z'), record); // the tail was kept right
    EXPECT_EQ(iterate(skipping), std::string(c.after) + "z") << c.before;
  }
}

// On its call, removes itself and adds 'c'.
CAddRemoveIterateList* changing = nullptr;
void change(void* object, unsigned, void* calls) {
  *static_cast<std::string*>(calls) += *static_cast<char*>(object);
  changing->Remove(object);
  changing->Add(::object('c'), record);
}

TEST(CallbackList, AChainAppliedThroughModifyReachesTheNextPass) {
  CAddRemoveIterateList list;
  list.Add(object('a'), record);
  list.Add(object('b'), record);
  EXPECT_EQ(iterate(list), "ab"); // the pass keeps a copy of the active list
  // A chain is newest first: remove 'a', then add 'c'.
  auto* removal =
      new CAddRemoveIterateList::SEntry{nullptr, object('a'), &CAddRemoveIterateList::RemoveMark};
  auto* addition = new CAddRemoveIterateList::SEntry{removal, object('c'), record};
  EXPECT_TRUE(list.Modify(addition));
  EXPECT_EQ(iterate(list), "bc") << "no removed callback called, no added one missed";
  EXPECT_FALSE(list.Modify(nullptr));
}

// The scheduler state of a thread of this process: 'R' running, 'S' asleep.
char taskState(pid_t tid) {
  std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  const auto end = text.rfind(')'); // the name may hold spaces and parentheses
  return end == std::string::npos || end + 2 >= text.size() ? '?' : text[end + 2];
}

TEST(CallbackList, TheDestructorSleepsUntilAPassInProgressEnds) {
  auto* list = new CAddRemoveIterateList;
  std::atomic<bool> inPass{false}, release{false};
  std::atomic<pid_t> destroyer{0};
  list->Add(&inPass, [](void* flag, unsigned, void* hold) {
    static_cast<std::atomic<bool>*>(flag)->store(true);
    while (!static_cast<std::atomic<bool>*>(hold)->load()) {
    }
  });
  std::thread iterating([&] { list->Iterate(0, &release); });
  while (!inPass) {
  }
  std::atomic<bool> destroyed{false};
  std::thread destroying([&] {
    destroyer = static_cast<pid_t>(syscall(SYS_gettid));
    delete list;
    destroyed = true;
  });
  // A destructor that spins stays runnable ('R') for as long as the pass
  // runs; one that waits properly goes to sleep ('S') and stays there.
  while (destroyer == 0) {
  }
  int sleepingSeen = 0;
  for (int look = 0; look < 200000 && sleepingSeen < 100; ++look)
    sleepingSeen = taskState(destroyer) == 'S' ? sleepingSeen + 1 : 0;
  EXPECT_EQ(sleepingSeen, 100) << "the destructor burns a core while it waits";
  EXPECT_FALSE(destroyed) << "the destructor did not wait for the pass";
  release = true;
  iterating.join();
  destroying.join();
  EXPECT_TRUE(destroyed);
}

TEST(CallbackList, ChangesMadeDuringAnIterationTakeEffectOnTheNextOne) {
  CAddRemoveIterateList list;
  changing = &list;
  list.Add(object('s'), change);
  list.Add(object('p'), record);
  EXPECT_EQ(iterate(list), "sp") << "c added during the pass is not called in it";
  EXPECT_EQ(iterate(list), "pc") << "s removed itself for the next pass";
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

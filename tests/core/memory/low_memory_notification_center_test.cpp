#include <vtcore/core/memory/lowmemory/low_memory_notification_center.h>
#include <vtcore/core/platform/notification_center.h>
#include <vtcore/core/platform/user_defaults.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using Center = LowMemoryNotificationCenter;
constexpr unsigned long MiB = 1024 * 1024;

// Calls as "<name><level> " in order, and the size of the last call.
std::string calls;
unsigned long lastSize = 0;
void* cache = nullptr; // a real block an observer can give back
int kLowMemoryPosts = 0;

// Records its call, then acts by its context's name: 'f' frees the cache at
// level 1, 't' answers non-zero, 'r' calls back into the centre (which
// refuses: its lock is not recursive).
char A[] = "a", B[] = "b", F[] = "f", R[] = "r", T[] = "t";
unsigned long observer(void* context, unsigned char level, unsigned long size) {
  const char name = *static_cast<const char*>(context);
  calls += name + std::to_string(level) + " ";
  lastSize = size;
  if (name == 'f' && level == 1 && cache) {
    std::free(cache);
    cache = nullptr;
    return 64 * MiB;
  }
  if (name == 'r') {
    calls += Center::AddLMObserver(observer, context) ? "added " : "refused ";
    calls += Center::CheckPoint(size) ? "inner-true " : "inner-false ";
  }
  return name == 't' ? 1 : 0;
}

// Sets the two preferences and starts the centre; a reserve of 0 removes it.
bool turnOn(long long reserve = 4096, long long threshold = 1 * MiB) {
  auto& defaults = vtcore::UserDefaults::standard();
  reserve ? defaults.setObject(reserve, "LowMemoryReserve")
          : defaults.removeObjectForKey("LowMemoryReserve");
  defaults.setObject(threshold, "MinAvailMemoryThreshold");
  return Center::InitializeLMNotificationCenter();
}

// Ends a forked child, printing `text`: its marks and limits stay out of this process.
[[noreturn]] void print(const std::string& text) {
  std::fputs(text.c_str(), stderr);
  std::_Exit(0);
}

class LowMemoryCenter : public testing::Test {
protected:
  static void SetUpTestSuite() {
    // A defaults file of this process's own: test processes run in parallel.
    char directory[] = "/tmp/vtcore-lowmem-XXXXXX";
    const std::string made = mkdtemp(directory) ? directory : "/tmp";
    setenv("VTCORE_DEFAULTS_FILE", (made + "/defaults.json").c_str(), 1);
    [[maybe_unused]] static const auto counting =
        vtcore::NotificationCenter::defaultCenter().addObserver(
            Center::kLowMemoryNotification, [](const vtcore::Notification&) { ++kLowMemoryPosts; });
  }
  void SetUp() override {
    calls.clear();
    kLowMemoryPosts = 0;
  }
  void TearDown() override {
    for (char* name : {A, B, F, R, T})
      Center::RemoveLMObserver(observer, name);
    Center::ShutdownLMNotificationCenter();
  }
};

TEST_F(LowMemoryCenter, StaysOffWithoutAReserveOrThresholdAndAnswersAsOff) {
  EXPECT_FALSE(turnOn(0, 1 * MiB));
  EXPECT_FALSE(turnOn(4096, 0)) << "a threshold of 0 keeps it off too";
  EXPECT_TRUE(Center::CheckPoint(1ul << 62));
  EXPECT_TRUE(Center::PostLMNotification(0, 2, 0, true));
  EXPECT_FALSE(Center::AddLMObserver(observer, A));
  EXPECT_EQ(kLowMemoryPosts, 0);
}

TEST_F(LowMemoryCenter, ObserversAreKeyedOrderedAndSurviveShutdown) {
  ASSERT_TRUE(turnOn());
  EXPECT_TRUE(Center::AddLMObserver(observer, A));
  EXPECT_FALSE(Center::AddLMObserver(observer, A));
  EXPECT_TRUE(Center::AddLMObserver(observer, B));
  EXPECT_FALSE(Center::AddLMObserver(nullptr, A));

  EXPECT_FALSE(Center::PostLMNotification(0, 2, 10, true)) << "notifyAll answers false";
  EXPECT_EQ(calls, "a0 b0 a1 b1 a2 b2 ");
  EXPECT_EQ(lastSize, 1 * MiB) << "a size below the threshold asks for the threshold";
  EXPECT_TRUE(Center::PostLMNotification(3, 1, 0, false)) << "inverted levels post nothing";
  EXPECT_EQ(kLowMemoryPosts, 3);

  EXPECT_TRUE(Center::RemoveLMObserver(observer, A));
  EXPECT_FALSE(Center::RemoveLMObserver(observer, A));
  Center::ShutdownLMNotificationCenter();
  ASSERT_TRUE(turnOn());
  Center::AddLMObserver(observer, A);
  calls.clear();
  // Without notifyAll, memory is there: the probe after the first observer
  // ends the escalation, and a check point does not start one.
  EXPECT_TRUE(Center::PostLMNotification(1, 2, 5 * MiB, false));
  EXPECT_TRUE(Center::CheckPoint(4096));
  EXPECT_EQ(calls, "b1 ") << "b survived the shutdown, a came after it";
  EXPECT_EQ(lastSize, 5 * MiB);
}

const auto enter = [] { return std::string(Center::EnterCriticalOperation() ? "held " : "gone "); };
const auto leave = [] { return std::string(Center::LeaveCriticalOperation() ? "ok " : "failed "); };
const auto operation = [] { return Center::EnterCriticalOperation() ? leave() : "gone "; };

TEST_F(LowMemoryCenter, ANonZeroAnswerAtLevel10MarksEveryLaterCriticalOperationFailed) {
  ASSERT_TRUE(turnOn());
  EXPECT_EXIT(print([] {
                Center::AddLMObserver(observer, T);
                Center::PostLMNotification(2, 2, 0, false); // answers below 10 do not count
                calls += operation();
                Center::PostLMNotification(10, 10, 0, false);
                calls += operation();
                return calls + operation();
              }()),
              testing::ExitedWithCode(0), "t2 ok t10 failed failed ");
}

// The escalation for real: a child whose address space cannot hold the probe.
class LowMemoryCenterUnderALimit : public LowMemoryCenter {
protected:
  void SetUp() override {
    LowMemoryCenter::SetUp();
#ifdef VTCORE_TEST_SANITIZED
    GTEST_SKIP() << "the sanitizers' allocators do not fail under an address-space limit";
#endif
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);   // big blocks go back to the system when freed
    ASSERT_TRUE(turnOn(16 * MiB, 32 * MiB)); // reserve 16 MiB, probes of at least 32 MiB
  }

  // Takes a 64 MiB cache, then leaves 24 MiB of address space: too little
  // for a 32 MiB probe, enough once the cache or the reserve is given back.
  static void squeeze() {
    cache = std::malloc(64 * MiB);
    std::ifstream statm("/proc/self/statm");
    unsigned long pages = 0;
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    statm >> pages;
    limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + 24 * MiB;
    if (!cache || !pages || setrlimit(RLIMIT_AS, &limit) != 0)
      _exit(3);
  }
  static std::string checkPoint() {
    const bool checked = Center::CheckPoint(1 * MiB);
    return std::string(checked ? "true " : "false ") + std::to_string(kLowMemoryPosts) + " " +
           calls + std::to_string(lastSize / MiB) + "; ";
  }
};

TEST_F(LowMemoryCenterUnderALimit, EscalatesThroughLevels0To2UntilAnObserverFreesMemory) {
  EXPECT_EXIT(print([] {
                Center::AddLMObserver(observer, A);
                Center::AddLMObserver(observer, B);
                squeeze();
                std::string result = checkPoint();
                Center::RemoveLMObserver(observer, B);
                Center::AddLMObserver(observer, F);
                calls.clear();
                kLowMemoryPosts = 0;
                return result + checkPoint();
              }()),
              testing::ExitedWithCode(0), "true 3 a0 b0 a1 b1 a2 b2 32; true 2 a0 f0 a1 f1 32; ");
}

// A CheckPoint from inside the escalation cannot take the lock, so it falls
// back on the reserve, which only a critical operation in progress gives up.
TEST_F(LowMemoryCenterUnderALimit, OnlyACriticalOperationGetsTheReserveAndLeavingTakesItBack) {
  EXPECT_EXIT(print([] {
                Center::AddLMObserver(observer, R);
                calls += enter();
                squeeze();
                calls += Center::CheckPoint(0) ? "true " : "false ";
                calls += enter();
                calls += leave(); // takes a new reserve: there is room once the old one is gone
                calls += leave();
                Center::CheckPoint(0); // outside a critical operation the reserve is kept
                calls += enter();
                return calls + leave();
              }()),
              testing::ExitedWithCode(0),
              "held r0 refused inner-true true gone ok ok r0 refused inner-false r1 refused "
              "inner-false r2 refused inner-false held ok ");
}

} // namespace

#include <vtcore/core/memory/low_memory_notification_center.h>
#include <vtcore/core/memory/notification_center.h>
#include <vtcore/core/memory/user_defaults.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(VTCORE_TEST_SANITIZED)
#define SANITIZED 1
// The probes ask for impossible sizes on purpose: the sanitizers' allocators
// must answer null, as the system's does, instead of stopping the test.
extern "C" const char* __asan_default_options();
extern "C" const char* __tsan_default_options();
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options() {
  return "allocator_may_return_null=1";
}
#else
#define SANITIZED 0
#endif

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
    calls += Center::PostLMNotification(0, 0, 0, true) ? "posted " : "refused ";
    calls += Center::CheckPoint(size) ? "inner-true " : "inner-false ";
  }
  return name == 't' ? 1 : 0;
}
const char names[] = "abfrt";
void* named(char name) {
  return const_cast<char*>(std::strchr(names, name));
}
void* const A = named('a');
void* const B = named('b');

void setPreferences(long long reserve, long long threshold) {
  auto& defaults = vtcore::UserDefaults::standard();
  ASSERT_TRUE(reserve ? defaults.setObject(reserve, "LowMemoryReserve")
                      : defaults.removeObjectForKey("LowMemoryReserve"));
  ASSERT_TRUE(defaults.setObject(threshold, "MinAvailMemoryThreshold"));
}

// Runs `body` in a forked child and returns what it printed, so that
// process-wide marks and address-space limits never touch the test process.
std::string inChild(const std::function<std::string()>& body) {
  int fds[2];
  if (pipe(fds) != 0)
    return "pipe failed";
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    const std::string result = body();
    _exit(write(fds[1], result.data(), result.size()) < 0 ? 2 : 0);
  }
  close(fds[1]);
  std::string result;
  char buffer[256];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;)
    result.append(buffer, static_cast<std::size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return result + (WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "" : " [child failed]");
}

class LowMemoryCenter : public testing::Test {
protected:
  static void SetUpTestSuite() {
    // A defaults file of this process's own: test processes run in parallel.
    char directory[] = "/tmp/vtcore-lowmem-XXXXXX";
    const std::string made = mkdtemp(directory) ? directory : "/tmp";
    setenv("VTCORE_DEFAULTS_FILE", (made + "/defaults.json").c_str(), 1);
    static const auto counting = vtcore::NotificationCenter::defaultCenter().addObserver(
        Center::kLowMemoryNotification, [](const vtcore::Notification&) { ++kLowMemoryPosts; });
    (void)counting;
  }
  void SetUp() override {
    calls.clear();
    kLowMemoryPosts = 0;
  }
  void TearDown() override {
    for (const char* name = names; *name; ++name)
      Center::RemoveLMObserver(observer, named(*name));
    Center::ShutdownLMNotificationCenter();
  }
  void turnOn(unsigned long reserve = 4096, unsigned long threshold = 1 * MiB) {
    setPreferences(static_cast<long long>(reserve), static_cast<long long>(threshold));
    ASSERT_TRUE(Center::InitializeLMNotificationCenter());
  }
};

TEST_F(LowMemoryCenter, StaysOffWithoutAReserveOrThresholdAndAnswersAsOff) {
  setPreferences(0, 1 * MiB);
  EXPECT_FALSE(Center::InitializeLMNotificationCenter());
  setPreferences(4096, 0);
  EXPECT_FALSE(Center::InitializeLMNotificationCenter()) << "a threshold of 0 keeps it off too";
  EXPECT_FALSE(Center::IsLMNotificationCenterInitialized());

  EXPECT_TRUE(Center::CheckPoint(1ul << 62));
  EXPECT_TRUE(Center::PostLMNotification(0, 2, 0, true));
  EXPECT_FALSE(Center::AddLMObserver(observer, A));
  EXPECT_FALSE(Center::RemoveLMObserver(observer, A));
  EXPECT_TRUE(Center::EnterCriticalOperation());
  EXPECT_TRUE(Center::LeaveCriticalOperation());
  EXPECT_EQ(kLowMemoryPosts, 0);
  EXPECT_FALSE(Center::CheckMemory(1ul << 62)) << "CheckMemory works while off";
  EXPECT_TRUE(Center::CheckMemory(4096));
}

TEST_F(LowMemoryCenter, ObserversAreKeyedOrderedNotReentrantAndSurviveShutdown) {
  turnOn();
  EXPECT_TRUE(Center::InitializeLMNotificationCenter()) << "already on";
  EXPECT_TRUE(Center::AddLMObserver(observer, A));
  EXPECT_FALSE(Center::AddLMObserver(observer, A));
  EXPECT_TRUE(Center::AddLMObserver(observer, B));
  EXPECT_FALSE(Center::AddLMObserver(nullptr, A));

  EXPECT_FALSE(Center::PostLMNotification(0, 2, 10, true)) << "notifyAll answers false";
  EXPECT_EQ(calls, "a0 b0 a1 b1 a2 b2 ");
  EXPECT_EQ(lastSize, 1 * MiB) << "a size below the threshold asks for the threshold";
  EXPECT_EQ(kLowMemoryPosts, 3);
  EXPECT_TRUE(Center::PostLMNotification(3, 1, 0, false)) << "inverted levels post nothing";
  EXPECT_FALSE(Center::PostLMNotification(3, 1, 0, true));
  EXPECT_EQ(kLowMemoryPosts, 3);

  EXPECT_TRUE(Center::RemoveLMObserver(observer, A));
  EXPECT_FALSE(Center::RemoveLMObserver(observer, A));
  Center::ShutdownLMNotificationCenter();
  Center::ShutdownLMNotificationCenter(); // twice is harmless
  EXPECT_FALSE(Center::IsLMNotificationCenterInitialized());
  turnOn();
  calls.clear();
  Center::PostLMNotification(1, 1, 5 * MiB, true);
  EXPECT_EQ(calls, "b1 ");
  EXPECT_EQ(lastSize, 5 * MiB);

  // Without notifyAll, memory is there: the probe after the first observer
  // ends the escalation, and a check point does not start one.
  Center::AddLMObserver(observer, A);
  calls.clear();
  EXPECT_TRUE(Center::PostLMNotification(0, 2, 0, false));
  EXPECT_TRUE(Center::CheckPoint(4096));
  EXPECT_EQ(calls, "b0 ");

  // An observer calling back into the centre is refused, not deadlocked.
  Center::AddLMObserver(observer, named('r'));
  calls.clear();
  Center::PostLMNotification(0, 0, 0, true);
  EXPECT_EQ(calls, "b0 a0 r0 refused refused inner-true ")
      << "plenty of memory: CheckPoint is true";
  EXPECT_TRUE(Center::RemoveLMObserver(observer, named('r')));
}

TEST_F(LowMemoryCenter, ANonZeroAnswerAtLevel10MarksEveryLaterCriticalOperationFailed) {
  turnOn();
  const std::string result = inChild([] {
    const auto operation = [] {
      calls +=
          Center::EnterCriticalOperation() && Center::LeaveCriticalOperation() ? "ok " : "failed ";
    };
    Center::AddLMObserver(observer, named('t'));
    Center::PostLMNotification(2, 2, 0, false); // answers below 10 do not count
    operation();
    Center::PostLMNotification(10, 10, 0, false);
    operation();
    operation();
    return calls;
  });
  EXPECT_EQ(result, "t2 ok t10 failed failed ");
}

// The escalation for real: a child whose address space cannot hold the probe.
class LowMemoryCenterUnderALimit : public LowMemoryCenter {
protected:
  void SetUp() override {
    LowMemoryCenter::SetUp();
    if (SANITIZED)
      GTEST_SKIP() << "the sanitizers' allocators do not fail under an address-space limit";
    mallopt(M_MMAP_THRESHOLD, 256 * 1024); // big blocks go back to the system when freed
    turnOn(16 * MiB, 32 * MiB);            // reserve 16 MiB, probes of at least 32 MiB
  }

  // Takes a 64 MiB cache, then leaves 24 MiB of address space: too little
  // for a 32 MiB probe, enough once the cache or the reserve is given back.
  static void squeeze() {
    cache = std::malloc(64 * MiB);
    std::ifstream statm("/proc/self/statm");
    unsigned long pages = 0;
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    if (!cache || !(statm >> pages))
      _exit(3);
    limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + 24 * MiB;
    if (setrlimit(RLIMIT_AS, &limit) != 0)
      _exit(3);
  }
  static std::string checkPoint() {
    const bool checked = Center::CheckPoint(1 * MiB);
    return std::string(checked ? "true " : "false ") + std::to_string(kLowMemoryPosts) + " " +
           calls + std::to_string(lastSize / MiB) + " | ";
  }
};

TEST_F(LowMemoryCenterUnderALimit, EscalatesThroughLevels0To2UntilAnObserverFreesMemory) {
  EXPECT_EQ(inChild([] {
              Center::AddLMObserver(observer, A);
              Center::AddLMObserver(observer, B);
              squeeze();
              std::string result = checkPoint();
              Center::RemoveLMObserver(observer, B);
              Center::AddLMObserver(observer, named('f'));
              calls.clear();
              kLowMemoryPosts = 0;
              return result + checkPoint();
            }),
            "true 3 a0 b0 a1 b1 a2 b2 32 | true 2 a0 f0 a1 f1 32 | ");
}

// A CheckPoint from inside the escalation cannot take the lock, so it falls
// back on the reserve, which only a critical operation in progress gives up.
TEST_F(LowMemoryCenterUnderALimit, OnlyACriticalOperationGetsTheReserveAndLeavingTakesItBack) {
  const std::string result = inChild([] {
    const auto enter = [] { calls += Center::EnterCriticalOperation() ? "held " : "given-up "; };
    const auto leave = [] { calls += Center::LeaveCriticalOperation() ? "ok " : "failed "; };
    Center::AddLMObserver(observer, named('r'));
    enter();
    squeeze();
    calls += Center::CheckPoint(0) ? "true " : "false ";
    enter();
    leave(); // takes a new reserve: there is room once the old one is gone
    leave();
    Center::CheckPoint(0); // outside a critical operation the reserve is kept
    enter();
    leave();
    return calls;
  });
  EXPECT_EQ(result, "held r0 refused refused inner-true true given-up ok ok r0 refused refused "
                    "inner-false r1 refused refused inner-false r2 refused refused inner-false "
                    "held ok ");
}

} // namespace

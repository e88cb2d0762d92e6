#include <vtcore/core/memory/low_memory_notification_center.h>
#include <vtcore/core/memory/notification_center.h>
#include <vtcore/core/memory/user_defaults.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(VTCORE_TEST_SANITIZED)
#define SANITIZED 1
#else
#define SANITIZED 0
#endif

#if SANITIZED
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
#endif

namespace {

using Center = LowMemoryNotificationCenter;
constexpr unsigned long MiB = 1024 * 1024;

// Calls as "<name><level>" in order, and the size of the last call.
std::string calls;
unsigned long lastSize = 0;
void* cache = nullptr; // a real block an observer can give back
int kLowMemoryPosts = 0;

unsigned long record(void* context, unsigned char level, unsigned long size) {
  calls += *static_cast<const char*>(context) + std::to_string(level) + " ";
  lastSize = size;
  return 0;
}

// Records its call, and frees the cache at level 1.
unsigned long freeCacheAtLevel1(void* context, unsigned char level, unsigned long size) {
  record(context, level, size);
  if (level != 1 || !cache)
    return 0;
  std::free(cache);
  cache = nullptr;
  return 64 * MiB;
}

unsigned long answerAtLevel10(void* context, unsigned char level, unsigned long size) {
  record(context, level, size);
  return 1;
}

const char a = 'a', b = 'b';
void* const A = const_cast<char*>(&a);
void* const B = const_cast<char*>(&b);

// Each test process gets a defaults file of its own (tests run in parallel).
void useOwnDefaultsFile() {
  static const std::string path = [] {
    char directory[] = "/tmp/vtcore-lowmem-XXXXXX";
    std::string made = mkdtemp(directory) ? directory : "/tmp";
    return made + "/defaults.json";
  }();
  setenv("VTCORE_DEFAULTS_FILE", path.c_str(), 1);
}

void setPreferences(long long reserve, long long threshold) {
  auto& defaults = vtcore::UserDefaults::standard();
  ASSERT_TRUE(reserve ? defaults.setObject(reserve, "LowMemoryReserve")
                      : defaults.removeObjectForKey("LowMemoryReserve"));
  ASSERT_TRUE(threshold ? defaults.setObject(threshold, "MinAvailMemoryThreshold")
                        : defaults.removeObjectForKey("MinAvailMemoryThreshold"));
}

// Runs `body` in a forked child and returns what it printed, so that
// process-wide marks (the critical failure) and address-space limits never
// touch the test process.
std::string inChild(const std::function<std::string()>& body) {
  int fds[2];
  if (pipe(fds) != 0)
    return "pipe failed";
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    const std::string result = body();
    if (write(fds[1], result.data(), result.size()) < 0)
      _exit(2);
    _exit(0);
  }
  close(fds[1]);
  std::string result;
  char buffer[256];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;)
    result.append(buffer, static_cast<std::size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    result += " [child failed]";
  return result;
}

// Leaves `headroom` bytes of address space to the calling process.
bool limitAddressSpace(unsigned long headroom) {
  std::ifstream statm("/proc/self/statm");
  unsigned long pages = 0;
  if (!(statm >> pages))
    return false;
  rlimit limit{};
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + headroom;
  return setrlimit(RLIMIT_AS, &limit) == 0;
}

class LowMemoryCenter : public testing::Test {
protected:
  static void SetUpTestSuite() {
    useOwnDefaultsFile();
    static const auto counting = vtcore::NotificationCenter::defaultCenter().addObserver(
        Center::kLowMemoryNotification, [](const vtcore::Notification&) { ++kLowMemoryPosts; });
    (void)counting;
  }
  void SetUp() override {
    calls.clear();
    kLowMemoryPosts = 0;
  }
  void TearDown() override {
    for (auto function : {record, freeCacheAtLevel1, answerAtLevel10})
      for (void* context : {A, B})
        Center::RemoveLMObserver(function, context);
    Center::ShutdownLMNotificationCenter();
  }
  void turnOn(unsigned long reserve = 4096, unsigned long threshold = 1 * MiB) {
    setPreferences(static_cast<long long>(reserve), static_cast<long long>(threshold));
    ASSERT_TRUE(Center::InitializeLMNotificationCenter());
  }
};

TEST_F(LowMemoryCenter, StaysOffWithoutAReservePreferenceAndAnswersAsOff) {
  setPreferences(0, 0);
  EXPECT_FALSE(Center::InitializeLMNotificationCenter());
  setPreferences(4096, 0);
  ASSERT_TRUE(vtcore::UserDefaults::standard().setObject(0, "MinAvailMemoryThreshold"));
  EXPECT_FALSE(Center::InitializeLMNotificationCenter()) << "a threshold of 0 keeps it off too";
  EXPECT_FALSE(Center::IsLMNotificationCenterInitialized());

  EXPECT_TRUE(Center::CheckPoint(1ul << 62));
  EXPECT_TRUE(Center::PostLMNotification(0, 2, 0, true));
  EXPECT_FALSE(Center::AddLMObserver(record, A));
  EXPECT_FALSE(Center::RemoveLMObserver(record, A));
  EXPECT_TRUE(Center::EnterCriticalOperation());
  EXPECT_TRUE(Center::LeaveCriticalOperation());
  EXPECT_EQ(kLowMemoryPosts, 0);
  EXPECT_FALSE(Center::CheckMemory(1ul << 62)) << "CheckMemory works while off";
  EXPECT_TRUE(Center::CheckMemory(4096));
}

TEST_F(LowMemoryCenter, ObserversAreKeyedByFunctionAndContext) {
  turnOn();
  EXPECT_TRUE(Center::InitializeLMNotificationCenter()) << "already on";
  EXPECT_TRUE(Center::AddLMObserver(record, A));
  EXPECT_FALSE(Center::AddLMObserver(record, A));
  EXPECT_TRUE(Center::AddLMObserver(record, B));
  EXPECT_FALSE(Center::AddLMObserver(nullptr, A));

  EXPECT_FALSE(Center::PostLMNotification(0, 2, 10, true)) << "notifyAll answers false";
  EXPECT_EQ(calls, "a0 b0 a1 b1 a2 b2 ");
  EXPECT_EQ(lastSize, 1 * MiB) << "a size below the threshold asks for the threshold";
  EXPECT_EQ(kLowMemoryPosts, 3);

  EXPECT_TRUE(Center::RemoveLMObserver(record, A));
  EXPECT_FALSE(Center::RemoveLMObserver(record, A));
  calls.clear();
  Center::PostLMNotification(1, 1, 5 * MiB, true);
  EXPECT_EQ(calls, "b1 ");
  EXPECT_EQ(lastSize, 5 * MiB);
}

TEST_F(LowMemoryCenter, WithoutNotifyAllTheFirstSuccessfulProbeEndsTheEscalation) {
  turnOn();
  Center::AddLMObserver(record, A);
  Center::AddLMObserver(record, B);
  EXPECT_TRUE(Center::PostLMNotification(0, 2, 0, false));
  EXPECT_EQ(calls, "a0 ") << "memory is there: the probe after the first observer succeeds";
  EXPECT_EQ(kLowMemoryPosts, 1);

  calls.clear();
  EXPECT_TRUE(Center::CheckPoint(4096));
  EXPECT_EQ(calls, "") << "no escalation when the probe succeeds";
}

TEST_F(LowMemoryCenter, InvertedLevelsPostNothing) {
  turnOn();
  Center::AddLMObserver(record, A);
  EXPECT_TRUE(Center::PostLMNotification(3, 1, 0, false));
  EXPECT_FALSE(Center::PostLMNotification(3, 1, 0, true));
  EXPECT_EQ(calls, "");
  EXPECT_EQ(kLowMemoryPosts, 0);
}

unsigned long reenter(void* context, unsigned char level, unsigned long size) {
  record(context, level, size);
  calls += Center::AddLMObserver(record, B) ? "added " : "refused ";
  calls += Center::RemoveLMObserver(reenter, A) ? "removed " : "refused ";
  calls += Center::PostLMNotification(0, 0, 0, true) ? "posted " : "refused ";
  return 0;
}

TEST_F(LowMemoryCenter, AnObserverCallingBackIntoTheCentreIsRefusedNotDeadlocked) {
  turnOn();
  Center::AddLMObserver(reenter, A);
  Center::PostLMNotification(0, 0, 0, true);
  EXPECT_EQ(calls, "a0 refused refused refused ");
  EXPECT_TRUE(Center::RemoveLMObserver(reenter, A));
}

TEST_F(LowMemoryCenter, ShutdownKeepsTheObserversForTheNextInitialisation) {
  turnOn();
  Center::AddLMObserver(record, A);
  EXPECT_TRUE(Center::EnterCriticalOperation()) << "the reserve is held";
  EXPECT_TRUE(Center::LeaveCriticalOperation());
  Center::ShutdownLMNotificationCenter();
  Center::ShutdownLMNotificationCenter(); // twice is harmless
  EXPECT_FALSE(Center::IsLMNotificationCenterInitialized());
  turnOn();
  Center::PostLMNotification(2, 2, 0, true);
  EXPECT_EQ(calls, "a2 ");
}

TEST_F(LowMemoryCenter, ANonZeroAnswerAtLevel10MarksEveryLaterCriticalOperationFailed) {
  turnOn();
  const std::string result = inChild([] {
    std::string seen;
    Center::AddLMObserver(answerAtLevel10, A);
    Center::PostLMNotification(2, 2, 0, false); // answers below 10 do not count
    seen += Center::EnterCriticalOperation() && Center::LeaveCriticalOperation() ? "ok " : "bad ";
    Center::PostLMNotification(10, 10, 0, false);
    for (int i = 0; i < 2; ++i)
      seen +=
          Center::EnterCriticalOperation() && Center::LeaveCriticalOperation() ? "ok " : "failed ";
    return seen + calls;
  });
  EXPECT_EQ(result, "ok failed failed a2 a10 ");
}

// The escalation for real: a child whose address space cannot hold the
// probe.
class LowMemoryCenterUnderALimit : public LowMemoryCenter {
protected:
  void SetUp() override {
    LowMemoryCenter::SetUp();
    if (SANITIZED)
      GTEST_SKIP() << "the sanitizers' allocators do not fail under an address-space limit";
    // Reserve 16 MiB, probes of at least 32 MiB.
    turnOn(16 * MiB, 32 * MiB);
  }

  // Takes a 64 MiB cache, then leaves 24 MiB of address space: too little
  // for a 32 MiB probe, enough once the cache or the reserve is given back.
  static void squeeze() {
    mallopt(M_MMAP_THRESHOLD, 256 * 1024); // big blocks go back to the system when freed
    cache = std::malloc(64 * MiB);
    if (!cache || !limitAddressSpace(24 * MiB))
      _exit(3);
  }
};

TEST_F(LowMemoryCenterUnderALimit, EscalatesThroughLevels0To2AndStillAnswersTrue) {
  const std::string result = inChild([] {
    Center::AddLMObserver(record, A);
    Center::AddLMObserver(record, B);
    squeeze();
    const bool checked = Center::CheckPoint(1 * MiB);
    return std::string(checked ? "true " : "false ") + std::to_string(kLowMemoryPosts) + " " +
           calls + std::to_string(lastSize / MiB);
  });
  EXPECT_EQ(result, "true 3 a0 b0 a1 b1 a2 b2 32");
}

TEST_F(LowMemoryCenterUnderALimit, AnObserverThatFreesMemoryEndsTheEscalation) {
  const std::string result = inChild([] {
    Center::AddLMObserver(freeCacheAtLevel1, A);
    Center::AddLMObserver(record, B);
    squeeze();
    const bool checked = Center::CheckPoint(1 * MiB);
    return std::string(checked ? "true " : "false ") + std::to_string(kLowMemoryPosts) + " " +
           calls;
  });
  EXPECT_EQ(result, "true 2 a0 b0 a1 ");
}

// Calls CheckPoint from inside the escalation: the lock refuses it, so it
// falls back on the reserve of the critical operation in progress.
unsigned long checkPointFromInside(void* context, unsigned char level, unsigned long size) {
  record(context, level, size);
  calls += Center::CheckPoint(size) ? "inner-true " : "inner-false ";
  return 0;
}

TEST_F(LowMemoryCenterUnderALimit, ACriticalOperationGetsTheReserveAndLeavingTakesItBack) {
  const std::string result = inChild([] {
    std::string seen;
    Center::AddLMObserver(checkPointFromInside, A);
    seen += Center::EnterCriticalOperation() ? "held " : "not-held ";
    squeeze();
    seen += Center::CheckPoint(0) ? "true " : "false ";
    seen += Center::EnterCriticalOperation() ? "held " : "given-up ";
    seen += Center::LeaveCriticalOperation() ? "ok " : "failed ";
    seen += Center::LeaveCriticalOperation() ? "ok " : "failed ";
    seen += Center::EnterCriticalOperation() ? "held " : "given-up ";
    Center::LeaveCriticalOperation();
    return seen + calls;
  });
  // Leaving the inner operation already takes a new reserve (there is room
  // for it once the old one is gone), so both leaves report success.
  EXPECT_EQ(result, "held true given-up ok ok held a0 inner-true ");
}

TEST_F(LowMemoryCenterUnderALimit, OutsideACriticalOperationTheReserveIsKept) {
  const std::string result = inChild([] {
    Center::AddLMObserver(checkPointFromInside, A);
    squeeze();
    Center::CheckPoint(0);
    return calls + (Center::EnterCriticalOperation() ? "held" : "given-up");
  });
  EXPECT_EQ(result, "a0 inner-false a1 inner-false a2 inner-false held");
}

} // namespace

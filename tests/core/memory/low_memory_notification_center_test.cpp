#include <vtcore/core/memory/lowmemory/low_memory_notification_center.h>
#include <vtcore/core/platform/available_memory.h>
#include <vtcore/core/platform/notification_center.h>
#include <vtcore/core/platform/user_defaults.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
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

// --- What Linux really has ---------------------------------------------------

// Files standing in for /proc/meminfo and a memory cgroup, so that a test can
// make the machine as short of memory as it likes.
class SimulatedMemory : public LowMemoryCenter {
protected:
  void SetUp() override {
    LowMemoryCenter::SetUp();
    char directory[] = "/tmp/vtcore-memory-XXXXXX";
    ASSERT_NE(mkdtemp(directory), nullptr);
    m_directory = directory;
    m_meminfo = m_directory + "/meminfo";
    m_cgroup = m_directory + "/cgroup";
    mkdir(m_cgroup.c_str(), 0700);
    s_meminfo = m_meminfo;
  }
  void TearDown() override {
    vtcore::setAvailableMemorySources(nullptr, nullptr);
    LowMemoryCenter::TearDown();
    std::filesystem::remove_all(m_directory);
  }
  static void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::trunc) << text;
  }
  static void setMemAvailable(const std::string& kilobytes) {
    writeFile(s_meminfo, "MemTotal:       16384000 kB\nMemFree:          100000 kB\n"
                         "MemAvailable:   " +
                             kilobytes + " kB\nBuffers:           1000 kB\n");
  }
  void useFiles(bool withCgroup) {
    vtcore::setAvailableMemorySources(m_meminfo.c_str(), withCgroup ? m_cgroup.c_str() : nullptr);
  }

  std::string m_directory, m_meminfo, m_cgroup;
  static inline std::string s_meminfo;
};

TEST_F(SimulatedMemory, EachSourceLimitsWhatCountsAsAvailable) {
  setMemAvailable("51200"); // 50 MiB
  useFiles(false);
  EXPECT_EQ(vtcore::readAvailableMemory().memAvailable, 50 * MiB);
  EXPECT_TRUE(Center::CheckMemory(40 * MiB));
  void* untouched = std::malloc(60 * MiB);
  EXPECT_NE(untouched, nullptr) << "Linux lends the address space anyway";
  std::free(untouched);
  EXPECT_FALSE(Center::CheckMemory(60 * MiB)) << "but it cannot back it";

  // cgroup v1: limit less usage; "no limit" is the largest page-aligned value.
  writeFile(m_cgroup + "/memory.limit_in_bytes", std::to_string(100 * MiB) + "\n");
  writeFile(m_cgroup + "/memory.usage_in_bytes", std::to_string(90 * MiB) + "\n");
  useFiles(true);
  vtcore::AvailableMemory memory = vtcore::readAvailableMemory();
  EXPECT_EQ(memory.cgroupVersion, 1);
  EXPECT_EQ(memory.cgroupRoom, 10 * MiB);
  EXPECT_EQ(memory.room(), 10 * MiB);
  EXPECT_FALSE(Center::CheckMemory(20 * MiB));
  writeFile(m_cgroup + "/memory.limit_in_bytes", "9223372036854771712\n");
  EXPECT_EQ(vtcore::readAvailableMemory().cgroupRoom, vtcore::AvailableMemory::kNoLimit);

  // cgroup v2: "max" is no limit; usage above the limit leaves no room.
  writeFile(m_cgroup + "/memory.max", "max\n");
  writeFile(m_cgroup + "/memory.current", "4096\n");
  memory = vtcore::readAvailableMemory();
  EXPECT_EQ(memory.cgroupVersion, 2);
  EXPECT_EQ(memory.cgroupRoom, vtcore::AvailableMemory::kNoLimit);
  writeFile(m_cgroup + "/memory.max", std::to_string(8 * MiB));
  writeFile(m_cgroup + "/memory.current", std::to_string(9 * MiB));
  EXPECT_EQ(vtcore::readAvailableMemory().cgroupRoom, 0u);
  EXPECT_FALSE(Center::CheckMemory(1));

  // What cannot be read or understood limits nothing.
  writeFile(m_cgroup + "/memory.max", "lots");
  writeFile(m_meminfo, "MemAvailable: many kB\n");
  EXPECT_EQ(vtcore::readAvailableMemory().cgroupRoom, vtcore::AvailableMemory::kNoLimit);
  EXPECT_EQ(vtcore::readAvailableMemory().memAvailable, vtcore::AvailableMemory::kNoLimit);
  vtcore::setAvailableMemorySources("/nonexistent/meminfo", "/nonexistent");
  EXPECT_TRUE(Center::CheckMemory(1 * MiB));
}

TEST_F(SimulatedMemory, ACheckPointEscalatesUntilTheSystemReportsEnoughAndTheReserveMustFit) {
  setMemAvailable("512"); // half a megabyte
  useFiles(false);
  EXPECT_FALSE(turnOn(4 * MiB, 1 * MiB)) << "a reserve that does not fit is not taken";
  setMemAvailable("2000000");
  ASSERT_TRUE(turnOn(4096, 1 * MiB));
  setMemAvailable("512");
  ASSERT_TRUE(Center::AddLMObserver(
      [](void*, unsigned char level, unsigned long size) -> unsigned long {
        calls += "m" + std::to_string(level) + " ";
        if (level == 1)
          setMemAvailable("2000000"); // the observer freed plenty
        return size;
      },
      nullptr));
  EXPECT_TRUE(Center::CheckPoint(0));
  EXPECT_EQ(calls, "m0 m1 ") << "stopped as soon as the size fitted";
  EXPECT_EQ(kLowMemoryPosts, 2);
}

// The reserve block is committed memory: taking it costs its size in
// resident memory, and giving it back returns that.
long residentBytes() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

TEST_F(LowMemoryCenter, TheReserveBlockIsResidentWhileHeld) {
  const long before = residentBytes();
  ASSERT_TRUE(turnOn(32 * MiB, 1 * MiB));
  const long held = residentBytes();
  EXPECT_GE(held - before, static_cast<long>(31 * MiB));
  Center::ShutdownLMNotificationCenter();
#ifndef VTCORE_TEST_SANITIZED // the sanitizers' allocators keep freed memory a while
  EXPECT_GE(held - residentBytes(), static_cast<long>(31 * MiB)) << "given back for real";
#endif
}

// A real address-space limit in a child: the room it leaves is what counts.
TEST_F(LowMemoryCenter, AnAddressSpaceLimitIsWhatCountsUnderIt) {
#ifdef VTCORE_TEST_SANITIZED
  GTEST_SKIP() << "the sanitizers reserve address space of their own";
#endif
  EXPECT_EXIT(print([] {
                std::ifstream statm("/proc/self/statm");
                unsigned long pages = 0;
                statm >> pages;
                rlimit limit{};
                getrlimit(RLIMIT_AS, &limit);
                limit.rlim_cur =
                    pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + 64 * MiB;
                if (setrlimit(RLIMIT_AS, &limit) != 0)
                  return std::string("no limit");
                const auto room = vtcore::readAvailableMemory().addressSpaceRoom;
                return std::string(room > 0 && room <= 64 * MiB ? "room " : "wrong room ") +
                       (Center::CheckMemory(128 * MiB) ? "yes" : "no");
              }()),
              testing::ExitedWithCode(0), "^room no$");
}

// A child in a memory cgroup of its own with a 64 MiB limit: an untouched
// allocation of twice that still succeeds, but the centre answers no and a
// check point escalates.
TEST_F(LowMemoryCenter, AMemoryCgroupLimitIsWhatCountsInsideIt) {
#ifdef VTCORE_TEST_SANITIZED
  GTEST_SKIP() << "the sanitizers' shadow memory does not fit a small cgroup";
#endif
  char own[1024];
  const int version = vtcore::memoryCgroupDirectory(own, sizeof own);
  if (version == 0)
    GTEST_SKIP() << "no memory cgroup is mounted here";
  const std::string cgroup = std::string(own) + "/vtcore-test-" + std::to_string(getpid());
  if (mkdir(cgroup.c_str(), 0755) != 0)
    GTEST_SKIP() << "cannot make a cgroup in " << own << " (cgroup v" << version
                 << "): " << std::strerror(errno);
  const std::string limitFile = cgroup + (version == 2 ? "/memory.max" : "/memory.limit_in_bytes");
  const bool limited = bool(std::ofstream(limitFile) << 64 * MiB);
  if (!limited) {
    rmdir(cgroup.c_str());
    GTEST_SKIP() << "cannot limit " << limitFile;
  }
  ASSERT_TRUE(turnOn(4096, 1 * MiB));
  EXPECT_EXIT(print([&cgroup] {
                if (!(std::ofstream(cgroup + "/cgroup.procs") << getpid()))
                  return std::string("not moved");
                const auto memory = vtcore::readAvailableMemory();
                std::string result = memory.cgroupRoom <= 64 * MiB ? "limited " : "unlimited ";
                void* untouched = std::malloc(128 * MiB);
                result += untouched ? "lent " : "refused ";
                std::free(untouched);
                result += Center::CheckMemory(128 * MiB) ? "yes " : "no ";
                Center::AddLMObserver(observer, A);
                result += Center::CheckPoint(128 * MiB) ? "true " : "false ";
                return result + calls + std::to_string(kLowMemoryPosts);
              }()),
              testing::ExitedWithCode(0), "^limited lent no true a0 a1 a2 3$");
  EXPECT_EQ(rmdir(cgroup.c_str()), 0) << std::strerror(errno);
}

} // namespace

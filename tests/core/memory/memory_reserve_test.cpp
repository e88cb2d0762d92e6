// The memory reserve, built with the reserve on in 64-bit builds. Each test
// runs in a forked child: the reserve's state is process-wide and its
// preferences are read once per process.
#include <vtcore/core/memory/leak_guard.h>
#include <vtcore/core/memory/memory_reserve.h>
#include <vtcore/core/memory/user_defaults.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
// This program defines the reserve's globals a second time on purpose (see
// allocation.cmake): AddressSanitizer must not take that for an ODR mistake.
extern "C" const char* __asan_default_options();
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "detect_odr_violation=0";
}
#endif

namespace {

constexpr std::size_t MB = std::size_t(1) << 20;

// Runs `body` in a child process; GoogleTest failures in the child make it
// exit non-zero (their messages appear in the child's output).
void inChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    body();
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "child crashed with signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "failures in the child (see its output)";
}

void smallReserve(int blockMB, int finalMB, int maxSensibleMB) {
  KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, blockMB);
  KWMemoryReserveSetOption(kKWMemReserveOptionFinalBlockSize, finalMB);
  KWMemoryReserveSetOption(kKWMemReserveOptionMaxSensibleSize, maxSensibleMB);
}

int callbackCalls = 0;
void countingCallback(void* user) {
  ++callbackCalls;
  *static_cast<int*>(user) = KWMemoryReserveGetLowMemoryLevel();
}

bool isFiftyZeroedBytes(void* block) {
  if (!block || malloc_usable_size(block) < 50)
    return false;
  const auto* bytes = static_cast<const unsigned char*>(block);
  for (int i = 0; i < 50; ++i)
    if (bytes[i] != 0)
      return false;
  return true;
}

TEST(MemoryReserveOptions, DefaultsSetAndOutOfRangeIdentifiers) {
  inChild([] {
    const int defaults[] = {100, 500, 100, 200, 10, 0};
    for (unsigned option = 0; option < 6; ++option)
      EXPECT_EQ(KWMemoryReserveGetOption(option), defaults[option]) << option;
    KWMemoryReserveSetOption(kKWMemReserveOptionVerbose, 3);
    EXPECT_EQ(g_iKWMemReserveVerbose.load(), 3);
    KWMemoryReserveSetOption(6, 77);
    KWMemoryReserveSetOption(-1, 77);
    EXPECT_EQ(KWMemoryReserveGetOption(6), 0);
    EXPECT_EQ(KWMemoryReserveGetOption(~0u), 0);
    for (unsigned option = 0; option < 5; ++option)
      EXPECT_EQ(KWMemoryReserveGetOption(option), defaults[option]);
    EXPECT_EQ(g_bKWMemReserveProscenMode.load(), 1);
    EXPECT_EQ(g_iKWMemReserveCurDivide.load(), 1);
  });
}

TEST(MemoryReserveEnter, PreferencesOverrideEarlierOptionsButNotLaterOnes) {
  inChild([] {
    char path[] = "/tmp/vtcore-reserve-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    const std::string text = R"({"MemoryReserve": {"BlockSize": 6, "Verbose": "4"}})";
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
    setenv("VTCORE_DEFAULTS_FILE", path, 1);
    vtcore::UserDefaults::setApplicationIdentifier("reserve-test");

    KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, 2);
    KWMemoryReserveSetOption(kKWMemReserveOptionFinalBlockSize, 1);
    KWMemoryReserveEnter(nullptr, nullptr);
    EXPECT_EQ(KWMemoryReserveGetOption(kKWMemReserveOptionBlockSize), 6);
    EXPECT_EQ(KWMemoryReserveGetOption(kKWMemReserveOptionVerbose), 4);
    EXPECT_EQ(KWMemoryReserveGetOption(kKWMemReserveOptionFinalBlockSize), 1);
    KWMemoryReserveExit();
    KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, 3);
    KWMemoryReserveEnter(nullptr, nullptr);
    EXPECT_EQ(KWMemoryReserveGetOption(kKWMemReserveOptionBlockSize), 3);
    KWMemoryReserveExit();
    unlink(path);
  });
}

TEST(MemoryReserveEnter, DisabledEnterCountsAndLeavesTheZoneAlone) {
  inChild([] {
    KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, 0);
    const KWMallocZoneFunctions before = vtcore::mallocZoneFunctions(nullptr);
    void* closing = KWMemoryReserveEnter(nullptr, nullptr);
    EXPECT_TRUE(isFiftyZeroedBytes(closing));
    EXPECT_EQ(g_u32KWMemReserveInitCount.load(), 1u);
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
    EXPECT_EQ(vtcore::mallocZoneFunctions(nullptr).malloc, before.malloc);
    KWMemoryReserveExit();
    // The Exit of a disabled Enter must not write unsaved entries back.
    const KWMallocZoneFunctions after = vtcore::mallocZoneFunctions(nullptr);
    EXPECT_EQ(after.malloc, before.malloc);
    EXPECT_EQ(after.free, before.free);
    EXPECT_EQ(g_u32KWMemReserveInitCount.load(), 0u);
    void* block = std::malloc(100);
    EXPECT_NE(block, nullptr);
    std::free(block);
    KWMemoryReserveExit(); // unmatched: ignored, the count does not wrap
    EXPECT_EQ(g_u32KWMemReserveInitCount.load(), 0u);
  });
}

TEST(MemoryReserveEnter, NestingInstallsOnceAndEveryCallReturnsAFreshBlock) {
  inChild([] {
    smallReserve(8, 2, 4);
    int level = -1;
    void* first = KWMemoryReserveEnter(countingCallback, &level);
    EXPECT_TRUE(isFiftyZeroedBytes(first));
    void* reserve = g_aptrKWMemReservePtr[0].load();
    EXPECT_NE(reserve, nullptr);
    EXPECT_NE(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    EXPECT_EQ(g_iKWMemReserveCurDivide.load(), 1);
    if (vtcore::mallocZoneInterposed()) {
      EXPECT_EQ(vtcore::mallocZoneFunctions(nullptr).malloc, KWMemoryReserveMallocOverride);
    }
    void* second = KWMemoryReserveEnter(nullptr, nullptr);
    EXPECT_TRUE(isFiftyZeroedBytes(second));
    EXPECT_NE(first, second);
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), reserve);
    EXPECT_EQ(g_funcKWMemReserveCallback.load(), countingCallback);
    KWMemoryReserveExit();
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), reserve);
    KWMemoryReserveExit();
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
    EXPECT_EQ(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    EXPECT_EQ(g_funcKWMemReserveCallback.load(), nullptr);
    EXPECT_EQ(vtcore::mallocZoneFunctions(nullptr).malloc,
              vtcore::systemMallocZoneFunctions().malloc);
    std::free(first);
    std::free(second);
  });
}

TEST(MemoryReserveRelease, LevelsMarkerMonitoringAndTheWayBack) {
  inChild([] {
    smallReserve(8, 2, 4);
    int level = -1;
    callbackCalls = 0;
    KWMemoryReserveEnter(countingCallback, &level);
    KWMallocZone* zone = vtcore::defaultMallocZone();

    KWMemoryReserveHandleLowMemorySituation(zone, 1000);
    EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 1);
    EXPECT_EQ(level, 1);
    EXPECT_EQ(callbackCalls, 1);
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
    EXPECT_EQ(g_bKWMemReserveUsageMonitoring.load(), 1);
    EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), 0);

    // At level 1 a request above MaxSensibleSize gives nothing up.
    KWMemoryReserveHandleLowMemorySituation(zone, 5 * MB);
    EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 1);
    EXPECT_NE(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    EXPECT_EQ(callbackCalls, 1);

    KWMemoryReserveHandleLowMemorySituation(zone, 4 * MB);
    EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 2);
    EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(0), 2);
    EXPECT_EQ(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    EXPECT_EQ(callbackCalls, 2);
    // Nothing left to give: no change, no callback.
    KWMemoryReserveHandleLowMemorySituation(zone, 10);
    EXPECT_EQ(callbackCalls, 2);

    if (vtcore::mallocZoneInterposed()) {
      // Monitored frees: only more than MaxSensibleSize net bytes freed
      // since the last attempt try to take the reserve back.
      const int before = g_iKWMemReserveUsageMonitor.load();
      void* small = std::malloc(MB);
      EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), before + static_cast<int>(MB));
      const auto usable = static_cast<int>(malloc_usable_size(small));
      std::free(small);
      EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), before + static_cast<int>(MB) - usable);
      EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 2);
      KWMemoryReserveTryReserveReallocation();
      void* trigger = std::malloc(16);
      std::free(trigger);
      EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 0);
      EXPECT_EQ(g_bKWMemReserveUsageMonitoring.load(), 0);
      EXPECT_EQ(g_bKWMemoryReserveForceTryReallocation.load(), 0);
      EXPECT_NE(g_aptrKWMemReservePtr[0].load(), nullptr);
      EXPECT_EQ(g_ptrKWMemReserveFinalPtr.load(), nullptr) << "the final block stays gone";
      EXPECT_EQ(callbackCalls, 3);
      EXPECT_EQ(level, 0);
      // The way back never touches the marker; reading without reset keeps it.
      EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(0), 2);
      EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(1), 2);
      EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(0), 0);
    }
    KWMemoryReserveExit();
  });
}

TEST(MemoryReserveProbe, AnswersWithoutProbingWhenNoFinalBlockIsHeld) {
  inChild([] {
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(SIZE_MAX, 1), 1);
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(1, 100), 1);
    EXPECT_EQ(KWMemoryReserveDidProbingFail(0), 0);
  });
}

TEST(MemoryReserveProbe, FragmentsFailuresAndTheirCount) {
  inChild([] {
    smallReserve(4, 1, 4);
    KWMemoryReserveEnter(nullptr, nullptr);
    ASSERT_NE(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(MB, 2 * MB), 0) << "size below the fragment";
    EXPECT_EQ(KWMemoryReserveDidProbingFail(0), 1);
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(8 * MB, MB), 1);
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(0, 0), 1);
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(1000, 0), 1);
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(3, 1), 1);
    // Far more than any address space, in fragments that are still too
    // large (a sanitizer's allocator reports such sizes as errors).
    if (vtcore::mallocZoneInterposed()) {
      EXPECT_EQ(KWMemoryReserveTestAvailableMemory(SIZE_MAX / 2, SIZE_MAX / 16), 0);
      EXPECT_EQ(KWMemoryReserveDidProbingFail(0), 2);
    }
    KWMemoryReserveDidProbingFail(1);
    EXPECT_EQ(KWMemoryReserveDidProbingFail(0), 0);
    KWMemoryReserveExit();
  });
}

TEST(MemoryReserveWithLeakGuard, BothHookedInEitherOrderKeepTheHeapSound) {
  if (!vtcore::mallocZoneInterposed())
    GTEST_SKIP() << "the leak guard needs the library's own allocator functions";
  for (bool guardFirst : {true, false}) {
    inChild([guardFirst] {
      smallReserve(8, 2, 4);
      vtcore::setLeakGuardEnabled(true);
      if (guardFirst)
        delete KWOpenLeakGuardScope(); // installs the guard's hooks
      KWMemoryReserveEnter(nullptr, nullptr);
      std::vector<void*> blocks;
      blocks.reserve(64);
      {
        KWLeakGuard guard;
        for (std::size_t i = 0; i < 64; ++i)
          blocks.push_back(std::malloc(16 + i * 100));
        for (std::size_t i = 0; i < 64; i += 2)
          blocks[i] = std::realloc(blocks[i], 5000);
        KWMemoryReserveHandleLowMemorySituation(vtcore::defaultMallocZone(), 100);
        EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 1);
        for (std::size_t i = 0; i < 32; ++i)
          std::free(blocks[i]);
      }
      KWMemoryReserveExit(); // may drop the guard's hooks: no corruption either way
      for (std::size_t i = 32; i < 64; ++i)
        std::free(blocks[i]);
      KWResetLeakGuardHistory(false);
      std::string afterwards(10000, 'x'); // the heap still works
      EXPECT_EQ(afterwards.size(), 10000u);
    });
  }
}

// --- Real allocation failures under an address-space limit -------------

std::size_t addressSpaceInUse() {
  std::ifstream statm("/proc/self/statm");
  std::size_t pages = 0;
  statm >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// What the child saw, sent back through a pipe: the child writes with
// write(2) only, since stdio may itself fail to allocate there.
struct Observations {
  int levelAfterFirstRelease = -1;
  int markerAfterFirstRelease = -1;
  int retryAtFirstReleaseSucceeded = 0;
  int levelAfterSecondRelease = -1;
  int retryAtSecondReleaseSucceeded = 0;
  int finalBlockGone = 0;
  int callbackCalls = 0;
  int levelAfterFrees = -1;
  int markerAfterFrees = -1;
  int reserveBack = 0;
  int unexpectedNull = 0;
};

int observedCallbacks = 0;
void observeCallback(void*) {
  ++observedCallbacks;
}

void limitAddressSpace(std::size_t headroom) {
  mallopt(M_ARENA_MAX, 1);
  // A fixed threshold also turns off glibc's dynamic one: large blocks are
  // mapped and unmapped, so frees really give address space back.
  mallopt(M_MMAP_THRESHOLD, 256 * 1024);
  rlimit limit{};
  limit.rlim_cur = limit.rlim_max = addressSpaceInUse() + headroom;
  setrlimit(RLIMIT_AS, &limit);
}

bool underSanitizer() {
  return !vtcore::mallocZoneInterposed();
}

TEST(MemoryReserveRealFailure, ReleasesRetriesAndTakesTheReserveBack) {
  if (underSanitizer())
    GTEST_SKIP() << "the sanitizers' allocators cannot run under an address-space limit";
  int channel[2];
  ASSERT_EQ(pipe(channel), 0);
  std::fflush(nullptr);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Observations seen;
    smallReserve(64, 16, 8);
    limitAddressSpace(160 * MB);
    KWMemoryReserveEnter(observeCallback, nullptr);
    void* blocks[256] = {};
    int count = 0;
    while (count < 256) {
      const int levelBefore = KWMemoryReserveGetLowMemoryLevel();
      void* block = std::malloc(4 * MB);
      const int level = KWMemoryReserveGetLowMemoryLevel();
      if (level == 1 && levelBefore == 0) {
        seen.levelAfterFirstRelease = level;
        seen.markerAfterFirstRelease = KWMemoryReserveDidLowMemoryLevelChange(0);
        seen.retryAtFirstReleaseSucceeded = block != nullptr;
      } else if (level == 2 && levelBefore == 1) {
        seen.levelAfterSecondRelease = level;
        seen.retryAtSecondReleaseSucceeded = block != nullptr;
        seen.finalBlockGone = g_ptrKWMemReserveFinalPtr.load() == nullptr;
      }
      if (!block)
        break;
      blocks[count++] = block;
      if (level == 2)
        break;
    }
    seen.unexpectedNull = count == 256;
    for (int i = count - 1; i >= 0; --i)
      std::free(blocks[i]);
    seen.callbackCalls = observedCallbacks;
    seen.levelAfterFrees = KWMemoryReserveGetLowMemoryLevel();
    seen.markerAfterFrees = KWMemoryReserveDidLowMemoryLevelChange(0);
    seen.reserveBack = g_aptrKWMemReservePtr[0].load() != nullptr;
    (void)!write(channel[1], &seen, sizeof seen);
    _exit(0);
  }
  close(channel[1]);
  Observations seen;
  ASSERT_EQ(read(channel[0], &seen, sizeof seen), static_cast<ssize_t>(sizeof seen));
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(seen.unexpectedNull, 0) << "the limit never made an allocation fail";
  EXPECT_EQ(seen.levelAfterFirstRelease, 1);
  EXPECT_EQ(seen.markerAfterFirstRelease, 1);
  EXPECT_EQ(seen.retryAtFirstReleaseSucceeded, 1);
  EXPECT_EQ(seen.levelAfterSecondRelease, 2);
  EXPECT_EQ(seen.retryAtSecondReleaseSucceeded, 1);
  EXPECT_EQ(seen.finalBlockGone, 1);
  EXPECT_EQ(seen.levelAfterFrees, 0);
  EXPECT_EQ(seen.markerAfterFrees, 2) << "taking the reserve back leaves the marker";
  EXPECT_EQ(seen.reserveBack, 1);
  EXPECT_EQ(seen.callbackCalls, 3);
}

TEST(MemoryReserveRealFailure, AReserveThatCannotBeHadStillHooksAndExitsCleanly) {
  if (underSanitizer())
    GTEST_SKIP() << "the sanitizers' allocators cannot run under an address-space limit";
  int channel[2];
  ASSERT_EQ(pipe(channel), 0);
  std::fflush(nullptr);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int seen[5];
    smallReserve(1000, 16, 8);
    limitAddressSpace(100 * MB);
    KWMemoryReserveEnter(nullptr, nullptr);
    seen[0] = g_iKWMemReserveCurDivide.load();
    seen[1] = g_aptrKWMemReservePtr[0].load() == nullptr;
    seen[2] = g_ptrKWMemReserveFinalPtr.load() == nullptr;
    seen[3] = vtcore::mallocZoneFunctions(nullptr).malloc == KWMemoryReserveMallocOverride;
    void* block = std::malloc(1000);
    seen[4] = block != nullptr;
    std::free(block);
    KWMemoryReserveExit(); // must not walk past the 16 reserve entries
    (void)!write(channel[1], seen, sizeof seen);
    _exit(0);
  }
  close(channel[1]);
  int seen[5] = {};
  ASSERT_EQ(read(channel[0], seen, sizeof seen), static_cast<ssize_t>(sizeof seen));
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(seen[0], 32);
  EXPECT_EQ(seen[1], 1);
  EXPECT_EQ(seen[2], 1);
  EXPECT_EQ(seen[3], 1);
  EXPECT_EQ(seen[4], 1);
}

} // namespace

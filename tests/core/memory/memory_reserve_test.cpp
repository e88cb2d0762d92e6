// The memory reserve, built with the reserve on in 64-bit builds. Each test
// runs in a forked child: the reserve's state is process-wide and its
// preferences are read once per process.
#include <vtcore/core/memory/leak_guard.h>
#include <vtcore/core/memory/memory_reserve.h>
#include <vtcore/core/memory/user_defaults.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
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

// Runs `body` in a child process; GoogleTest failures there make it exit 1.
void inChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
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
  if (user)
    *static_cast<int*>(user) = KWMemoryReserveGetLowMemoryLevel();
}

// Every Enter hands back a fresh 50-byte zeroed block.
bool isFiftyZeroedBytes(void* block) {
  if (!block || malloc_usable_size(block) < 50)
    return false;
  const auto* bytes = static_cast<const unsigned char*>(block);
  return std::all_of(bytes, bytes + 50, [](unsigned char b) { return b == 0; });
}

TEST(MemoryReserveEnter, PreferencesOverrideEarlierOptionsButNotLaterOnes) {
  inChild([] {
    const std::string path = "/tmp/vtcore-reserve-" + std::to_string(getpid()) + ".json";
    std::ofstream(path) << R"({"MemoryReserve": {"BlockSize": 6, "Verbose": "4"}})";
    setenv("VTCORE_DEFAULTS_FILE", path.c_str(), 1);
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
    std::remove(path.c_str());
  });
}

TEST(MemoryReserveEnter, DefaultsOutOfRangeOptionsAndADisabledEnter) {
  inChild([] {
    const int defaults[] = {100, 500, 100, 200, 10, 0};
    KWMemoryReserveSetOption(6, 77);
    KWMemoryReserveSetOption(-1, 77);
    for (unsigned option = 0; option < 6; ++option)
      EXPECT_EQ(KWMemoryReserveGetOption(option), defaults[option]) << option;
    EXPECT_EQ(KWMemoryReserveGetOption(6), 0);
    EXPECT_EQ(KWMemoryReserveGetOption(~0u), 0);
    EXPECT_EQ(g_bKWMemReserveProscenMode.load(), 1);
    EXPECT_EQ(g_iKWMemReserveCurDivide.load(), 1);

    KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, 0);
    const KWMallocZoneFunctions before = vtcore::mallocZoneFunctions(nullptr);
    EXPECT_TRUE(isFiftyZeroedBytes(KWMemoryReserveEnter(nullptr, nullptr)));
    EXPECT_EQ(g_u32KWMemReserveInitCount.load(), 1u);
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
    KWMemoryReserveExit();
    // The Exit of a disabled Enter must not write unsaved entries back.
    const KWMallocZoneFunctions after = vtcore::mallocZoneFunctions(nullptr);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    std::free(std::malloc(100));
    KWMemoryReserveExit(); // unmatched: ignored, the count does not wrap
    EXPECT_EQ(g_u32KWMemReserveInitCount.load(), 0u);
  });
}

TEST(MemoryReserve, NestedEnterReleaseLevelsMarkerMonitoringAndTheWayBack) {
  inChild([] {
    smallReserve(8, 2, 4);
    int level = -1;
    void* first = KWMemoryReserveEnter(countingCallback, &level);
    void* second = KWMemoryReserveEnter(nullptr, nullptr); // nested: installs nothing more
    EXPECT_TRUE(isFiftyZeroedBytes(first) && isFiftyZeroedBytes(second) && first != second);
    EXPECT_EQ(g_funcKWMemReserveCallback.load(), countingCallback);
    if (vtcore::mallocZoneInterposed()) {
      EXPECT_EQ(vtcore::mallocZoneFunctions(nullptr).malloc, KWMemoryReserveMallocOverride);
    }
    KWMemoryReserveExit();
    EXPECT_NE(g_aptrKWMemReservePtr[0].load(), nullptr);
    EXPECT_NE(g_ptrKWMemReserveFinalPtr.load(), nullptr);

    KWMallocZone* zone = vtcore::defaultMallocZone();
    KWMemoryReserveHandleLowMemorySituation(zone, 1000);
    EXPECT_EQ(level, 1);
    EXPECT_EQ(callbackCalls, 1);
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
    EXPECT_EQ(g_bKWMemReserveUsageMonitoring.load(), 1);
    EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), 0);
    // At level 1 a request above MaxSensibleSize gives nothing up.
    KWMemoryReserveHandleLowMemorySituation(zone, 5 * MB);
    EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 1);
    EXPECT_NE(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    KWMemoryReserveHandleLowMemorySituation(zone, 4 * MB);
    EXPECT_EQ(level, 2);
    EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(0), 2);
    EXPECT_EQ(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    KWMemoryReserveHandleLowMemorySituation(zone, 10); // nothing left to give
    EXPECT_EQ(callbackCalls, 2);
    if (vtcore::mallocZoneInterposed()) {
      // Monitored allocations count requested bytes, frees usable ones; only
      // more than MaxSensibleSize net freed tries to take the reserve back.
      const int before = g_iKWMemReserveUsageMonitor.load();
      void* a = std::malloc(MB);
      void* b = std::calloc(10, 30);
      EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), before + static_cast<int>(MB) + 300);
      const auto usable = static_cast<int>(malloc_usable_size(a));
      std::free(a);
      EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), before + static_cast<int>(MB) + 300 - usable);
      std::free(b);
      EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 2);
      KWMemoryReserveTryReserveReallocation();
      std::free(std::malloc(16));
      EXPECT_EQ(level, 0);
      EXPECT_EQ(callbackCalls, 3);
      EXPECT_EQ(g_bKWMemReserveUsageMonitoring.load(), 0);
      EXPECT_EQ(g_bKWMemoryReserveForceTryReallocation.load(), 0);
      EXPECT_NE(g_aptrKWMemReservePtr[0].load(), nullptr);
      EXPECT_EQ(g_ptrKWMemReserveFinalPtr.load(), nullptr) << "the final block stays gone";
      // The way back never touches the marker; reading without reset keeps it.
      EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(0), 2);
      EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(1), 2);
      EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(0), 0);
    }
    KWMemoryReserveExit();
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
    EXPECT_EQ(g_funcKWMemReserveCallback.load(), nullptr);
    EXPECT_EQ(vtcore::mallocZoneFunctions(nullptr).malloc,
              vtcore::systemMallocZoneFunctions().malloc);
    std::free(first);
    std::free(second);
  });
}

TEST(MemoryReserveProbe, FragmentsFailuresAndTheirCount) {
  inChild([] {
    // No final block held: the answer is yes without probing.
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(SIZE_MAX, 1), 1);
    smallReserve(4, 1, 4);
    KWMemoryReserveEnter(nullptr, nullptr);
    ASSERT_NE(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    EXPECT_EQ(KWMemoryReserveDidProbingFail(0), 0);
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(MB, 2 * MB), 0) << "size below the fragment";
    EXPECT_EQ(KWMemoryReserveDidProbingFail(0), 1);
    for (auto [size, fragment] : {std::pair{8 * MB, MB}, {0, 0}, {1000, 0}, {3, 1}})
      EXPECT_EQ(KWMemoryReserveTestAvailableMemory(size, fragment), 1) << size << "/" << fragment;
    // Far more than any address space, in fragments still too large (a
    // sanitizer's allocator reports such sizes as errors).
    if (vtcore::mallocZoneInterposed()) {
      EXPECT_EQ(KWMemoryReserveTestAvailableMemory(SIZE_MAX / 2, SIZE_MAX / 16), 0);
      EXPECT_EQ(KWMemoryReserveDidProbingFail(1), 2);
      EXPECT_EQ(KWMemoryReserveDidProbingFail(0), 0);
    }
    KWMemoryReserveExit();
    EXPECT_EQ(g_ptrKWMemReserveFinalPtr.load(), nullptr);
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
      std::vector<void*> blocks(64);
      {
        KWLeakGuard guard;
        for (std::size_t i = 0; i < 64; ++i)
          blocks[i] = std::malloc(16 + i * 100);
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
      EXPECT_EQ(std::string(10000, 'x').size(), 10000u); // the heap still works
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

// Runs `body` in a child limited to `headroom` bytes of address space above
// its current use, with one glibc arena and a fixed mmap threshold (which
// also turns off the dynamic one, so frees of large blocks really give
// address space back). The child reports N ints through a pipe with
// write(2): stdio may itself fail to allocate there.
template <std::size_t N>
std::array<int, N> underAddressSpaceLimit(std::size_t headroom, void (*body)(int* seen)) {
  std::array<int, N> seen;
  seen.fill(-1);
  int channel[2];
  EXPECT_EQ(pipe(channel), 0);
  inChild([&] {
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
    rlimit limit{};
    limit.rlim_cur = limit.rlim_max = addressSpaceInUse() + headroom;
    setrlimit(RLIMIT_AS, &limit);
    body(seen.data());
    (void)!write(channel[1], seen.data(), sizeof seen);
  });
  close(channel[1]);
  EXPECT_EQ(read(channel[0], seen.data(), sizeof seen), static_cast<ssize_t>(sizeof seen));
  close(channel[0]);
  return seen;
}

TEST(MemoryReserveRealFailure, ReleasesRetriesAndTakesTheReserveBack) {
  if (!vtcore::mallocZoneInterposed())
    GTEST_SKIP() << "the sanitizers' allocators cannot run under an address-space limit";
  const auto seen = underAddressSpaceLimit<11>(160 * MB, [](int* out) {
    smallReserve(64, 16, 8);
    KWMemoryReserveEnter(countingCallback, nullptr);
    void* blocks[256] = {};
    int count = 0;
    while (count < 256) {
      const int levelBefore = KWMemoryReserveGetLowMemoryLevel();
      void* block = std::malloc(4 * MB);
      const int level = KWMemoryReserveGetLowMemoryLevel();
      if (level == 1 && levelBefore == 0) {
        out[0] = level;
        out[1] = KWMemoryReserveDidLowMemoryLevelChange(0);
        out[2] = block != nullptr;
      } else if (level == 2 && levelBefore == 1) {
        out[3] = level;
        out[4] = block != nullptr;
        out[5] = g_ptrKWMemReserveFinalPtr.load() == nullptr;
      }
      if (!block)
        break;
      blocks[count++] = block;
      if (level == 2)
        break;
    }
    out[6] = count == 256; // the limit never made an allocation fail
    for (int i = count - 1; i >= 0; --i)
      std::free(blocks[i]);
    out[7] = callbackCalls;
    out[8] = KWMemoryReserveGetLowMemoryLevel();
    out[9] = KWMemoryReserveDidLowMemoryLevelChange(0);
    out[10] = g_aptrKWMemReservePtr[0].load() != nullptr;
  });
  // First release: level 1, marker 1, retry succeeds. Second: level 2, retry
  // succeeds, final block gone. After the frees: 3 callbacks, level 0, the
  // marker left at 2, the reserve back.
  EXPECT_EQ(seen, (std::array<int, 11>{1, 1, 1, 2, 1, 1, 0, 3, 0, 2, 1}));
}

TEST(MemoryReserveRealFailure, AReserveThatCannotBeHadStillHooksAndExitsCleanly) {
  if (!vtcore::mallocZoneInterposed())
    GTEST_SKIP() << "the sanitizers' allocators cannot run under an address-space limit";
  const auto seen = underAddressSpaceLimit<5>(100 * MB, [](int* out) {
    smallReserve(1000, 16, 8);
    KWMemoryReserveEnter(nullptr, nullptr);
    out[0] = g_iKWMemReserveCurDivide.load();
    out[1] = g_aptrKWMemReservePtr[0].load() == nullptr;
    out[2] = g_ptrKWMemReserveFinalPtr.load() == nullptr;
    out[3] = vtcore::mallocZoneFunctions(nullptr).malloc == KWMemoryReserveMallocOverride;
    void* block = std::malloc(1000);
    out[4] = block != nullptr;
    std::free(block);
    KWMemoryReserveExit(); // must not walk past the 16 reserve entries
  });
  EXPECT_EQ(seen, (std::array<int, 5>{32, 1, 1, 1, 1}));
}

} // namespace

// The memory reserve, built with the reserve on in 64-bit builds. Each test
// runs in a forked child: the reserve's state is process-wide and its
// preferences are read once per process.
#include <vtcore/core/memory/allocation/leak_guard.h>
#include <vtcore/core/memory/allocation/memory_reserve.h>
#include <vtcore/core/platform/available_memory.h>
#include <vtcore/core/platform/user_defaults.h>

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
void countingCallback(void*) {
  ++callbackCalls;
}

// Every Enter hands back a fresh 50-byte zeroed block.
bool isFiftyZeroedBytes(void* block) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  return block && malloc_usable_size(block) >= 50 &&
         std::all_of(bytes, bytes + 50, [](unsigned char b) { return b == 0; });
}

TEST(MemoryReserveEnter, PreferencesOverrideEarlierOptionsAndTheProbe) {
  inChild([] {
    const std::string path = "/tmp/vtcore-reserve-" + std::to_string(getpid()) + ".json";
    std::ofstream(path) << R"({"MemoryReserve": {"BlockSize": 6, "Verbose": "4"}})";
    setenv("VTCORE_DEFAULTS_FILE", path.c_str(), 1);
    vtcore::UserDefaults::setApplicationIdentifier("reserve-test");
    smallReserve(2, 1, 4);
    KWMemoryReserveEnter(nullptr, nullptr);
    std::remove(path.c_str());
    EXPECT_EQ(KWMemoryReserveGetOption(kKWMemReserveOptionBlockSize), 6);
    EXPECT_EQ(KWMemoryReserveGetOption(kKWMemReserveOptionVerbose), 4);
    EXPECT_EQ(KWMemoryReserveGetOption(kKWMemReserveOptionFinalBlockSize), 1);
    KWMemoryReserveExit();
    // No final block held: the answer is yes without probing.
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(SIZE_MAX, 1), 1);
    KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, 3); // later options win
    KWMemoryReserveEnter(nullptr, nullptr);
    EXPECT_EQ(KWMemoryReserveGetOption(kKWMemReserveOptionBlockSize), 3);
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
  });
}

TEST(MemoryReserveEnter, DefaultsOutOfRangeOptionsAndADisabledEnter) {
  inChild([] {
    const int defaults[] = {100, 500, 100, 200, 10, 0};
    KWMemoryReserveSetOption(6, 77);
    for (unsigned option = 0; option < 6; ++option)
      EXPECT_EQ(KWMemoryReserveGetOption(option), defaults[option]) << option;
    EXPECT_EQ(KWMemoryReserveGetOption(~0u), 0);
    EXPECT_EQ(g_bKWMemReserveProscenMode.load() + g_iKWMemReserveCurDivide.load(), 2);
    KWMemoryReserveSetOption(kKWMemReserveOptionBlockSize, 0);
    const KWMallocZoneFunctions before = vtcore::mallocZoneFunctions(nullptr);
    EXPECT_TRUE(isFiftyZeroedBytes(KWMemoryReserveEnter(nullptr, nullptr)));
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
    KWMemoryReserveExit();
    // The Exit of a disabled Enter must not write unsaved entries back.
    const KWMallocZoneFunctions after = vtcore::mallocZoneFunctions(nullptr);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    KWMemoryReserveExit(); // unmatched: ignored, the count does not wrap
    EXPECT_EQ(g_u32KWMemReserveInitCount.load(), 0u);
  });
}

long residentBytes() {
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

// On a machine that reports 3000 kB available the reserve takes the
// smallest split whose blocks fit (4 of 2 MB), commits them (resident while
// held, returned at Exit), and the probe says no to what cannot be backed.
TEST(MemoryReserve, BlocksAreCommittedAndOnlyWhatTheSystemCanGiveCounts) {
  inChild([] {
    const std::string meminfo = "/tmp/vtcore-reserve-meminfo-" + std::to_string(getpid());
    std::ofstream(meminfo) << "MemTotal: 16000000 kB\nMemAvailable:    3000 kB\n";
    vtcore::setAvailableMemorySources(meminfo.c_str(), nullptr);
    smallReserve(8, 2, 4);
    const long before = residentBytes();
    KWMemoryReserveEnter(nullptr, nullptr);
    const long held = residentBytes();
    EXPECT_EQ(g_iKWMemReserveCurDivide.load(), 4);
    EXPECT_NE(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    EXPECT_GE(held - before, static_cast<long>(9 * MB)) << "8 + 2 MB written";
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(4 * MB, MB), 0);
    EXPECT_EQ(KWMemoryReserveDidProbingFail(0), 1);
    EXPECT_EQ(KWMemoryReserveTestAvailableMemory(2 * MB, MB), 1);
    KWMemoryReserveExit();
    if (vtcore::mallocZoneInterposed()) { // a sanitizer's allocator keeps freed memory a while
      EXPECT_GE(held - residentBytes(), static_cast<long>(9 * MB)) << "given back for real";
    }
    vtcore::setAvailableMemorySources(nullptr, nullptr);
    std::remove(meminfo.c_str());
  });
}

TEST(MemoryReserve, NestedEnterReleaseStepsMarkerAndMonitoring) {
  inChild([] {
    smallReserve(8, 2, 4);
    void* first = KWMemoryReserveEnter(countingCallback, nullptr);
    void* second = KWMemoryReserveEnter(nullptr, nullptr); // nested: installs nothing more
    EXPECT_TRUE(isFiftyZeroedBytes(first) && isFiftyZeroedBytes(second) && first != second);
    KWMemoryReserveExit();
    EXPECT_NE(g_aptrKWMemReservePtr[0].load(), nullptr);

    KWMallocZone* zone = vtcore::defaultMallocZone();
    KWMemoryReserveHandleLowMemorySituation(zone, 1000);
    EXPECT_EQ(g_bKWMemReserveUsageMonitoring.load(), 1);
    // At level 1 a request above MaxSensibleSize gives nothing up.
    KWMemoryReserveHandleLowMemorySituation(zone, 5 * MB);
    EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 1);
    EXPECT_NE(g_ptrKWMemReserveFinalPtr.load(), nullptr);
    KWMemoryReserveHandleLowMemorySituation(zone, 4 * MB);
    EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 2);
    EXPECT_EQ(callbackCalls, 2);
    EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(1), 2); // read and reset
    EXPECT_EQ(KWMemoryReserveDidLowMemoryLevelChange(0), 0);
    if (vtcore::mallocZoneInterposed()) {
      // Monitored allocations count requested bytes, frees usable ones; only
      // more than MaxSensibleSize net freed tries to take the reserve back.
      const int before = g_iKWMemReserveUsageMonitor.load() + static_cast<int>(MB) + 300;
      void* a = std::malloc(MB);
      void* b = std::calloc(10, 30);
      EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), before);
      const auto usable = static_cast<int>(malloc_usable_size(a));
      std::free(a);
      EXPECT_EQ(g_iKWMemReserveUsageMonitor.load(), before - usable);
      std::free(b);
      EXPECT_EQ(KWMemoryReserveGetLowMemoryLevel(), 2);
    }
    KWMemoryReserveExit();
    EXPECT_EQ(g_aptrKWMemReservePtr[0].load(), nullptr);
    EXPECT_EQ(vtcore::mallocZoneFunctions(nullptr).malloc,
              vtcore::systemMallocZoneFunctions().malloc);
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
        // Every eighth block is large enough to be mapped on its own: once
        // freed, its memory is gone, and touching it would fault.
        for (std::size_t i = 0; i < 64; ++i)
          blocks[i] = std::malloc(i % 8 == 7 ? 300000 : 16 + i * 100);
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

// A child limited to 160 MB of address space above its current use, with
// one glibc arena and a fixed mmap threshold (which also turns off the
// dynamic one, so frees of large blocks really give address space back),
// allocates until the system allocator fails. It reports through a pipe with
// write(2): stdio may itself fail to allocate there.
TEST(MemoryReserveRealFailure, ReleasesRetriesAndTakesTheReserveBack) {
  if (!vtcore::mallocZoneInterposed())
    GTEST_SKIP() << "the sanitizers' allocators cannot run under an address-space limit";
  std::array<int, 11> out;
  out.fill(-1);
  int channel[2];
  ASSERT_EQ(pipe(channel), 0);
  inChild([&] {
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit limit{};
    limit.rlim_cur = limit.rlim_max = pages * sysconf(_SC_PAGESIZE) + 160 * MB;
    setrlimit(RLIMIT_AS, &limit);
    smallReserve(64, 16, 8);
    KWMemoryReserveEnter(countingCallback, nullptr);
    void* blocks[256] = {};
    int count = 0;
    for (int level = 0; count < 256 && level < 2;) {
      void* block = std::malloc(4 * MB);
      const int now = KWMemoryReserveGetLowMemoryLevel();
      if (now != level) { // a release: out[0..2] for level 1, out[3..5] for level 2
        out[3 * now - 3] = now;
        out[3 * now - 2] = now == 1 ? KWMemoryReserveDidLowMemoryLevelChange(0)
                                    : g_ptrKWMemReserveFinalPtr.load() == nullptr;
        out[3 * now - 1] = block != nullptr;
      }
      level = now;
      if (!block)
        break;
      blocks[count++] = block;
    }
    out[6] = count == 256; // the limit never made an allocation fail
    for (int i = count - 1; i >= 0; --i)
      std::free(blocks[i]);
    out[7] = callbackCalls;
    out[8] = KWMemoryReserveGetLowMemoryLevel();
    out[9] = KWMemoryReserveDidLowMemoryLevelChange(0);
    out[10] = g_aptrKWMemReservePtr[0].load() != nullptr;
    (void)!write(channel[1], out.data(), sizeof out);
  });
  close(channel[1]);
  EXPECT_EQ(read(channel[0], out.data(), sizeof out), static_cast<ssize_t>(sizeof out));
  close(channel[0]);
  // First release: level 1, marker 1, retry succeeds. Second: level 2, final
  // block gone, retry succeeds. After the frees: 3 callbacks, level 0, the
  // marker left at 2 (the way back never touches it), the reserve back.
  EXPECT_EQ(out, (std::array<int, 11>{1, 1, 1, 2, 1, 1, 0, 3, 0, 2, 1}));
}

} // namespace

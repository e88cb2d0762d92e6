// The leak guard on a real program: blocks leaked inside a scope through
// every allocation path are reported with this file's functions and lines;
// blocks freed, or allocated outside every scope, are not.
#include <vtcore/core/memory/allocation/leak_guard.h>
#include <vtcore/core/memory/allocation/malloc_zone.h>
#include <vtcore/core/platform/user_defaults.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

void* const earlyBlock = std::malloc(300); // allocated before the guard's hooks exist

// The "LeakGuard" preferences are loaded at the first scope opening, so the
// file is in place before any test runs.
struct DefaultsFile : ::testing::Environment {
  const std::string m_path = "/tmp/vtcore-leak-guard-" + std::to_string(getpid()) + ".json";
  void SetUp() override {
    std::ofstream(m_path) << R"({"LeakGuard": {"Tests": {"AsText": "1", "Off": 0, "On": 2}}})";
    setenv("VTCORE_DEFAULTS_FILE", m_path.c_str(), 1);
    vtcore::UserDefaults::setApplicationIdentifier("leak-guard-test");
    vtcore::setLeakGuardEnabled(true);
    vtcore::setLeakGuardReportLimit(0);
    delete KWOpenLeakGuardScope(); // the first opening installs the hooks
  }
  void TearDown() override { std::remove(m_path.c_str()); }
};
[[maybe_unused]] auto* const defaultsFile = ::testing::AddGlobalTestEnvironment(new DefaultsFile);

icu::UnicodeString text(const char* utf8) {
  return icu::UnicodeString::fromUTF8(utf8);
}

// The C library's own usable size: malloc_usable_size leaves a tracked
// block's trailer out.
std::size_t allocatedSize(void* block) {
  return vtcore::systemMallocZoneFunctions().size(nullptr, block);
}

bool hasTrailer(void* block) {
  const std::size_t size = allocatedSize(block);
  return size >= 88 &&
         std::memcmp(static_cast<char*>(block) + size - 88 + 32, "VTLeakDebug", 12) == 0;
}

std::pair<long, std::string> takeReport() {
  ::testing::internal::CaptureStdout();
  const long total = KWResetLeakGuardHistory(true);
  return {total, ::testing::internal::GetCapturedStdout()};
}

// Each leaking function notes its name and the line of its allocating call.
std::vector<std::tuple<void*, int, const char*>> leaks; // block, line, function
const char* const kStrdupText = "leaked by the C library's strdup";

__attribute__((noinline)) void leakThroughMalloc() {
  leaks.push_back({std::malloc(111), __LINE__, __func__});
}
__attribute__((noinline)) void leakThroughCalloc() {
  leaks.push_back({std::calloc(3, 16), __LINE__, __func__});
}
__attribute__((noinline)) void leakThroughRealloc() {
  void* block = std::realloc(nullptr, 40);
  leaks.push_back({std::realloc(block, 222), __LINE__, __func__}); // same record, new size
}
__attribute__((noinline)) void leakThroughStrdup() {
  leaks.push_back({strdup(kStrdupText), __LINE__, __func__});
}
__attribute__((noinline)) void leakThroughNew() {
  leaks.push_back({new char[77], __LINE__, __func__});
}
__attribute__((noinline)) void leakThroughVector() {
  leaks.push_back({new std::vector<int>(25), __LINE__, __func__});
}
__attribute__((noinline)) void allocateAndFree() {
  std::free(std::malloc(1000));
  delete[] new char[500];
  std::free(strdup("freed"));
  std::vector<int> temporary(1000);
  std::free(std::realloc(std::malloc(10), 5000));
}

TEST(LeakGuard, ReportsExactlyTheBlocksLeakedInsideAScopeWithTheirCallChains) {
  leaks.reserve(16); // grows outside the scope only
  {
    KWLeakGuard guard;
    leakThroughMalloc();
    leakThroughCalloc();
    leakThroughRealloc();
    leakThroughStrdup();
    leakThroughNew();
    leakThroughVector();
    allocateAndFree();
    std::free(earlyBlock); // allocated before the hooks: no record, no harm
  }
  const auto [total, report] = takeReport();
  // calloc records the element size; the vector is its object and buffer.
  const long expected = 111 + 16 + 222 + static_cast<long>(std::strlen(kStrdupText) + 1) + 77 +
                        static_cast<long>(sizeof(std::vector<int>)) + 25 * 4;
  EXPECT_EQ(total, expected) << report;
  EXPECT_NE(
      report.find("LLD: a total of " + std::to_string(expected) + " bytes leaking detected\n"),
      std::string::npos)
      << report;
  const std::regex header("LLD: \\d+ bytes on address 0x[0-9a-f]+:\n");
  EXPECT_EQ(std::distance(std::sregex_iterator(report.begin(), report.end(), header), {}), 7)
      << report;
  for (const auto& [block, line, function] : leaks) {
    const std::regex frame("LLD:         0x[0-9a-f]+ [^ ]*leak_guard_test\\.cpp +\\+ " +
                           std::to_string(line) + " +\\(anonymous namespace\\)::" + function +
                           "\\(\\)\n");
    EXPECT_TRUE(std::regex_search(report, frame)) << function << ":" << line << " in\n" << report;
    EXPECT_FALSE(hasTrailer(block)) << "a reported block keeps no live trailer";
  }
  for (int i = 0; i < 4; ++i)
    std::free(std::get<0>(leaks[i]));
  delete[] static_cast<char*>(std::get<0>(leaks[4]));
  delete static_cast<std::vector<int>*>(std::get<0>(leaks[5]));
}

TEST(LeakGuard, TrailersCallocPaddingAndScopesClosedInAnyOrder) {
  void* outside = std::malloc(40);
  EXPECT_GE(allocatedSize(outside), 40u + 88u) << "88 spare bytes, always";
  KWLeakGuard* first = KWOpenLeakGuardScope(); // both rooted at this test's frame
  KWLeakGuard* second = KWOpenLeakGuardScope();
  int notAFrame = 0;
  KWLeakGuardHandler::s_cSingleton.ClearRoot(&notAFrame); // unknown: ignored
  delete first;
  void* inside = std::malloc(20); // the second scope is still open
  void* elements = std::calloc(3, 16);
  std::free(outside); // untracked block freed inside: the list is untouched
  delete second;
  void* after = std::malloc(30);
  EXPECT_TRUE(hasTrailer(inside));
  EXPECT_GE(allocatedSize(elements), 9u * 16u); // 3 + 88/16 + 1 elements
  std::free(inside);                            // freed outside the scope: the record goes
  EXPECT_EQ(takeReport().first, 16) << "closed: the last block is not recorded";
  std::free(after);
  std::free(elements);
  EXPECT_EQ(takeReport().second, "LLD: no leaking bytes detected\n");
}

TEST(LeakGuard, ConditionalScopesFollowOverridesAndPreferences) {
  auto leakIn = [](const char* group, const char* key) {
    auto optional = [](const char* s) { return s ? std::optional(text(s)) : std::nullopt; };
    KWLeakGuard* scope = KWOpenLeakGuardScopeWithGroupAndKey(optional(group), optional(key));
    void* block = std::malloc(10);
    delete scope;
    const long total = KWResetLeakGuardHistory(false);
    std::free(block);
    return total;
  };
  EXPECT_EQ(leakIn("Tests", "On"), 10);
  EXPECT_EQ(leakIn("Tests", "Off"), 0);
  EXPECT_EQ(leakIn("Tests", nullptr), 0) << "a group without a key opens nothing";
  KWOverrideLeakGuardPreference(text("Tests"), text("Off"), 1);
  EXPECT_EQ(leakIn("Tests", "Off"), 10) << "the override wins";
  KWOverrideLeakGuardPreference(text("Tests"), text("Off"), 0);
  // A number stored as text counts, and is written back as a number.
  EXPECT_EQ(leakIn("Tests", "AsText"), 10);
  auto& defaults = vtcore::UserDefaults::standard();
  defaults.synchronize();
  EXPECT_EQ(defaults.dictionaryForKey("LeakGuard").value_or(nullptr)["Tests"],
            nlohmann::json({{"AsText", 1}, {"Off", 0}, {"On", 2}}));
}

TEST(LeakGuard, ReportLimitAndBadInput) {
  std::vector<void*> blocks(5);
  {
    KWLeakGuard guard;
    for (std::size_t i = 0; i < 5; ++i)
      blocks[i] = std::malloc(100 + i);
    volatile std::size_t huge = SIZE_MAX - 10;
    EXPECT_EQ(std::realloc(nullptr, huge), nullptr);
  }
  vtcore::setLeakGuardReportLimit(2);
  const auto [total, report] = takeReport();
  vtcore::setLeakGuardReportLimit(0);
  EXPECT_EQ(total, 510);
  EXPECT_NE(report.find("LLD: 101 bytes on address"), std::string::npos) << report;
  EXPECT_EQ(report.find("LLD: 102 bytes on address"), std::string::npos) << report;
  for (void* block : blocks)
    std::free(block);
  ::testing::internal::CaptureStdout();
  void* unknown[] = {reinterpret_cast<void*>(0x10), nullptr};
  KWLeakGuardPrintStack(unknown, 2, 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "LLD:         0x00000010 ???\n");
}

// Zero-byte requests get a block of exactly the trailer's size, its trailer
// at the block itself: freeing one inside the scope must find its record.
TEST(LeakGuard, ZeroByteBlocksAreTrackedAndTheirFreesRecognised) {
  void* blocks[4];
  {
    KWLeakGuard guard;
    blocks[0] = std::malloc(0);
    blocks[1] = std::calloc(1, 0);
    blocks[2] = std::realloc(nullptr, 0);
    blocks[3] = std::calloc(0, 8);
    char* empty = new char[0];
    for (void* block : blocks)
      EXPECT_TRUE(hasTrailer(block)) << allocatedSize(block) << " bytes";
    for (void* block : blocks)
      std::free(block);
    delete[] empty;
    void* kept = std::malloc(0);
    void* grown = std::realloc(kept, 0); // stays tracked, with its record
    EXPECT_TRUE(hasTrailer(grown));
    std::free(grown);
  }
  EXPECT_EQ(takeReport().second, "LLD: no leaking bytes detected\n");
}

// glibc lets a caller write its block's whole usable size: a tracked block's
// trailer must not be part of it, or the free that follows cannot find the
// record.
TEST(LeakGuard, UsableSizeOfATrackedBlockLeavesTheTrailerOut) {
  void* outside = std::malloc(100);
  EXPECT_EQ(malloc_usable_size(outside), allocatedSize(outside)) << "untracked: all of it";
  {
    KWLeakGuard guard;
    for (std::size_t size : {0, 1, 100, 5000}) {
      void* block = std::malloc(size);
      const std::size_t usable = malloc_usable_size(block);
      EXPECT_GE(usable, size);
      EXPECT_EQ(usable + 88, allocatedSize(block));
      std::memset(block, 0xA5, usable);
      std::free(block);
    }
  }
  std::free(outside);
  EXPECT_EQ(malloc_usable_size(nullptr), 0u);
  EXPECT_EQ(takeReport().second, "LLD: no leaking bytes detected\n");
}

// The guard switched off while a scope is open: the scope's root must still
// go when it closes, or any later function called at the same stack depth
// (here: from the same caller) would be tracked.
__attribute__((noinline)) void openAScopeAndSwitchTheGuardOff() {
  KWLeakGuard guard;
  vtcore::setLeakGuardEnabled(false);
}
__attribute__((noinline)) void* allocateOutsideEveryScope() {
  return std::malloc(33);
}

TEST(LeakGuard, SwitchingOffWithAScopeOpenLeavesNoStaleRoot) {
  openAScopeAndSwitchTheGuardOff();
  vtcore::setLeakGuardEnabled(true);
  void* block = allocateOutsideEveryScope();
  EXPECT_FALSE(hasTrailer(block));
  EXPECT_EQ(KWResetLeakGuardHistory(false), 0);
  std::free(block);
}

// Scopes opening and closing on some threads while others allocate and
// create threads (the allocation hooks read the roots on every thread). No
// crash, and every block allocated inside a scope and freed there leaves no
// record.
__attribute__((noinline)) void allocateInAScope(unsigned round) {
  KWLeakGuard guard;
  std::free(std::malloc(16 + round % 300));
  delete new std::string(40, 'x');
}

TEST(LeakGuard, ScopesOpenAndCloseWhileOtherThreadsAllocate) {
  constexpr unsigned kRounds = 3000; // per scope thread
  std::atomic<bool> stop{false};
  std::vector<std::thread> allocators;
  for (int i = 0; i < 3; ++i)
    allocators.emplace_back([&stop, i] {
      for (unsigned n = 0; !stop.load(std::memory_order_relaxed); ++n) {
        std::free(std::malloc(8 + n % 2000));
        delete[] new char[32];
        if (i == 0 && n % 64 == 0)
          std::thread([] { std::free(std::malloc(100)); }).join();
      }
    });
  std::vector<std::thread> scopes;
  for (int i = 0; i < 2; ++i)
    scopes.emplace_back([] {
      for (unsigned round = 0; round < kRounds; ++round)
        allocateInAScope(round);
    });
  for (auto& thread : scopes)
    thread.join();
  stop = true;
  for (auto& thread : allocators)
    thread.join();
  EXPECT_EQ(KWResetLeakGuardHistory(false), 0);
}

} // namespace

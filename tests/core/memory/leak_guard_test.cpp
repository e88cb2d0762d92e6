// The leak guard on a real program: blocks leaked inside a scope through
// every allocation path are reported with this file's functions and lines;
// blocks freed, or allocated outside every scope, are not.
#include <vtcore/core/memory/leak_guard.h>
#include <vtcore/core/memory/user_defaults.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <malloc.h>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

void* const earlyBlock = std::malloc(300); // allocated before the guard's hooks exist

// The "LeakGuard" preferences are loaded at the first scope opening, so the
// file is in place before any test runs.
class DefaultsFile : public ::testing::Environment {
public:
  void SetUp() override {
    path_ = "/tmp/vtcore-leak-guard-" + std::to_string(getpid()) + ".json";
    std::ofstream(path_) << R"({"LeakGuard": {"Tests": {"AsText": "1", "Off": 0, "On": 2}}})";
    setenv("VTCORE_DEFAULTS_FILE", path_.c_str(), 1);
    vtcore::UserDefaults::setApplicationIdentifier("leak-guard-test");
    vtcore::setLeakGuardEnabled(true);
    vtcore::setLeakGuardReportLimit(0);
    delete KWOpenLeakGuardScope(); // the first opening installs the hooks
  }
  void TearDown() override { std::remove(path_.c_str()); }
  std::string path_;
};
[[maybe_unused]] auto* const defaultsFile = ::testing::AddGlobalTestEnvironment(new DefaultsFile);

class LeakGuard : public ::testing::Test {
protected:
  void SetUp() override { KWResetLeakGuardHistory(false); }
};

icu::UnicodeString text(const char* utf8) {
  return icu::UnicodeString::fromUTF8(utf8);
}

bool hasTrailer(void* block) {
  const std::size_t size = malloc_usable_size(block);
  return size > 88 &&
         std::memcmp(static_cast<char*>(block) + size - 88 + 32, "VTLeakDebug", 12) == 0;
}

std::pair<long, std::string> takeReport() {
  ::testing::internal::CaptureStdout();
  const long total = KWResetLeakGuardHistory(true);
  return {total, ::testing::internal::GetCapturedStdout()};
}

// Each leaking function notes its name and the line of its allocating call.
struct Leak {
  void* block;
  int line;
  const char* function;
};
std::vector<Leak> leaks;
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

TEST_F(LeakGuard, ReportsExactlyTheBlocksLeakedInsideAScopeWithTheirCallChains) {
  leaks.clear();
  leaks.reserve(16);
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
  const std::regex header("LLD: (\\d+) bytes on address 0x[0-9a-f]+:\n");
  long listed = 0, count = 0;
  for (std::sregex_iterator it(report.begin(), report.end(), header), end; it != end; ++it, ++count)
    listed += std::stol((*it)[1]);
  EXPECT_EQ(count, 7) << report;
  EXPECT_EQ(listed, expected);
  for (const Leak& leak : leaks) {
    const std::regex frame("LLD:         0x[0-9a-f]+ [^ ]*leak_guard_test\\.cpp +\\+ " +
                           std::to_string(leak.line) +
                           " +\\(anonymous namespace\\)::" + leak.function + "\\(\\)\n");
    EXPECT_TRUE(std::regex_search(report, frame))
        << leak.function << " line " << leak.line << " missing from\n"
        << report;
    EXPECT_FALSE(hasTrailer(leak.block)) << "a reported block keeps no live trailer";
  }
  for (int i = 0; i < 4; ++i)
    std::free(leaks[i].block);
  delete[] static_cast<char*>(leaks[4].block);
  delete static_cast<std::vector<int>*>(leaks[5].block);
  EXPECT_EQ(KWResetLeakGuardHistory(false), 0);
}

TEST_F(LeakGuard, TrailersOnlyInsideAScopeAndCallocPadsWithWholeElements) {
  void* outside = std::malloc(40);
  EXPECT_GE(malloc_usable_size(outside), 40u + 88u) << "88 spare bytes, always";
  EXPECT_FALSE(hasTrailer(outside));
  void* inside;
  void* elements;
  {
    KWLeakGuard guard;
    inside = std::malloc(40);
    elements = std::calloc(3, 16);
    std::free(outside); // untracked block freed inside: the list is untouched
  }
  EXPECT_TRUE(hasTrailer(inside));
  EXPECT_GE(malloc_usable_size(elements), 9u * 16u); // 3 + 88/16 + 1 elements
  std::free(inside);                                 // freed outside the scope: the record goes
  EXPECT_EQ(takeReport().first, 16);
  std::free(elements);
  EXPECT_EQ(takeReport().second, "LLD: no leaking bytes detected\n");
}

TEST_F(LeakGuard, ConditionalScopesFollowOverridesAndPreferences) {
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
  EXPECT_EQ(leakIn("Tests", "Missing"), 0);
  EXPECT_EQ(leakIn("Tests", nullptr), 0) << "a group without a key opens nothing";
  EXPECT_EQ(leakIn(nullptr, "On"), 0) << "a key without a group opens nothing";
  KWOverrideLeakGuardPreference(text("Tests"), text("Off"), 1);
  EXPECT_EQ(leakIn("Tests", "Off"), 10) << "the override wins";
  KWOverrideLeakGuardPreference(text("Tests"), text("Off"), 0);
  KWOverrideLeakGuardPreference(std::nullopt, text("Off"), 1); // ignored
  EXPECT_EQ(leakIn("Tests", "Off"), 0);
  // A number stored as text counts, and is written back as a number.
  EXPECT_EQ(leakIn("Tests", "AsText"), 10);
  auto& defaults = vtcore::UserDefaults::standard();
  defaults.synchronize();
  auto stored = defaults.dictionaryForKey("LeakGuard");
  ASSERT_TRUE(stored);
  EXPECT_EQ((*stored)["Tests"], nlohmann::json({{"AsText", 1}, {"Off", 0}, {"On", 2}}));
}

TEST_F(LeakGuard, ScopesOpenAndCloseInAnyOrder) {
  KWLeakGuard* first = KWOpenLeakGuardScope(); // both rooted at this test's frame
  KWLeakGuard* second = KWOpenLeakGuardScope();
  int notAFrame = 0;
  KWLeakGuardHandler::s_cSingleton.ClearRoot(&notAFrame); // unknown: ignored
  delete first;
  void* a = std::malloc(20); // the second scope is still open
  delete second;
  void* b = std::malloc(30);
  EXPECT_TRUE(hasTrailer(a));
  EXPECT_FALSE(hasTrailer(b));
  EXPECT_EQ(KWResetLeakGuardHistory(false), 20);
  std::free(a);
  std::free(b);
}

TEST_F(LeakGuard, OtherThreadsAllocatingMeanwhileAreNeitherRecordedNorDisturbed) {
  // Threads start outside the scope: starting one allocates thread-local
  // storage that glibc keeps for reuse.
  std::atomic<bool> go{false};
  std::vector<std::thread> workers;
  for (int t = 0; t < 3; ++t)
    workers.emplace_back([&go] {
      while (!go.load()) {
      }
      std::vector<std::unique_ptr<char[]>> held(32);
      for (unsigned i = 0; i < 20000; ++i)
        held[i % 32] = std::make_unique<char[]>(8 + i % 700);
    });
  void* mine;
  {
    KWLeakGuard guard;
    go = true;
    mine = std::malloc(33);
    for (int i = 0; i < 20000; ++i)
      delete[] new char[1 + i % 300];
    for (auto& worker : workers)
      worker.join();
  }
  EXPECT_EQ(KWResetLeakGuardHistory(false), 33) << "only this thread's leak";
  std::free(mine);
}

TEST_F(LeakGuard, ReportLimitPrintsSomeButCountsAll) {
  std::vector<void*> blocks(5);
  {
    KWLeakGuard guard;
    for (std::size_t i = 0; i < 5; ++i)
      blocks[i] = std::malloc(100 + i);
  }
  vtcore::setLeakGuardReportLimit(2);
  const auto [total, report] = takeReport();
  vtcore::setLeakGuardReportLimit(0);
  EXPECT_EQ(total, 510);
  EXPECT_NE(report.find("LLD: 101 bytes on address"), std::string::npos) << report;
  EXPECT_EQ(report.find("LLD: 102 bytes on address"), std::string::npos) << report;
  EXPECT_NE(report.find("LLD: a total of 510 bytes leaking detected"), std::string::npos);
  for (void* block : blocks)
    std::free(block);
}

TEST_F(LeakGuard, BadInputToTheHooksAndThePrinter) {
  {
    KWLeakGuard guard;
    std::free(nullptr);
    std::free(std::calloc(4, 0));
    volatile std::size_t huge = SIZE_MAX - 10;
    EXPECT_EQ(std::malloc(huge), nullptr);
    EXPECT_EQ(std::realloc(nullptr, huge), nullptr);
    std::free(std::malloc(8)); // the hooks still work after failures
  }
  EXPECT_EQ(KWResetLeakGuardHistory(false), 0);
  ::testing::internal::CaptureStdout();
  void* unknown[] = {reinterpret_cast<void*>(0x10), nullptr};
  KWLeakGuardPrintStack(unknown, 2, 1);
  KWLeakGuardPrintStack(nullptr, 5, 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "LLD:         0x00000010 ???\n");
}

} // namespace

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

// Allocated before the guard's hooks exist.
void* const earlyBlock = std::malloc(300);

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

icu::UnicodeString text(const char* utf8) {
  return icu::UnicodeString::fromUTF8(utf8);
}

bool hasTrailer(void* block) {
  const std::size_t size = malloc_usable_size(block);
  return size > 88 &&
         std::memcmp(static_cast<char*>(block) + size - 88 + 32, "VTLeakDebug", 12) == 0;
}

struct Report {
  long total;
  std::string text;
};
Report takeReport() {
  ::testing::internal::CaptureStdout();
  const long total = KWResetLeakGuardHistory(true);
  return {total, ::testing::internal::GetCapturedStdout()};
}

// Each leaking function notes the line of its allocating call.
int mallocLine, callocLine, reallocLine, strdupLine, newLine, vectorLine;
std::vector<void*> leaked;

__attribute__((noinline)) void leakThroughMalloc() {
  mallocLine = __LINE__ + 1;
  leaked.push_back(std::malloc(111));
}
__attribute__((noinline)) void leakThroughCalloc() {
  callocLine = __LINE__ + 1;
  leaked.push_back(std::calloc(3, 16));
}
__attribute__((noinline)) void leakThroughRealloc() {
  reallocLine = __LINE__ + 1;
  void* block = std::realloc(nullptr, 40);
  leaked.push_back(std::realloc(block, 222)); // same record, new size
}
__attribute__((noinline)) void leakThroughStrdup() {
  strdupLine = __LINE__ + 1;
  leaked.push_back(strdup("leaked by the C library's strdup"));
}
__attribute__((noinline)) void leakThroughNew() {
  newLine = __LINE__ + 1;
  leaked.push_back(new char[77]);
}
__attribute__((noinline)) void leakThroughVector() {
  vectorLine = __LINE__ + 1;
  auto* vector = new std::vector<int>(25);
  leaked.push_back(vector);
}
__attribute__((noinline)) void allocateAndFree() {
  std::free(std::malloc(1000));
  delete[] new char[500];
  std::free(strdup("freed"));
  std::vector<int> temporary(1000);
  void* grown = std::realloc(std::malloc(10), 5000);
  std::free(grown);
}

TEST(LeakGuard, ReportsExactlyTheBlocksLeakedInsideAScopeWithTheirCallChains) {
  KWResetLeakGuardHistory(false);
  leaked.clear();
  leaked.reserve(16);
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
  const Report report = takeReport();
  const long strdupSize = static_cast<long>(std::strlen("leaked by the C library's strdup") + 1);
  // calloc records the element size; the vector is its object and buffer.
  const long expected =
      111 + 16 + 222 + strdupSize + 77 + static_cast<long>(sizeof(std::vector<int>)) + 25 * 4;
  EXPECT_EQ(report.total, expected) << report.text;
  EXPECT_NE(
      report.text.find("LLD: a total of " + std::to_string(expected) + " bytes leaking detected\n"),
      std::string::npos)
      << report.text;
  const std::regex header("LLD: (\\d+) bytes on address 0x[0-9a-f]+:\n");
  long listed = 0, count = 0;
  for (std::sregex_iterator it(report.text.begin(), report.text.end(), header), end; it != end;
       ++it, ++count)
    listed += std::stol((*it)[1]);
  EXPECT_EQ(count, 7) << report.text;
  EXPECT_EQ(listed, expected);

  struct Site {
    const char* function;
    int line;
  };
  for (const Site& site :
       {Site{"leakThroughMalloc", mallocLine}, Site{"leakThroughCalloc", callocLine},
        Site{"leakThroughRealloc", reallocLine + 1}, Site{"leakThroughStrdup", strdupLine},
        Site{"leakThroughNew", newLine}, Site{"leakThroughVector", vectorLine}}) {
    const std::regex frame("LLD:         0x[0-9a-f]+ [^ ]*leak_guard_test\\.cpp +\\+ " +
                           std::to_string(site.line) +
                           " +\\(anonymous namespace\\)::" + site.function + "\\(\\)\n");
    EXPECT_TRUE(std::regex_search(report.text, frame))
        << site.function << " line " << site.line << " missing from\n"
        << report.text;
  }
  for (void* block : leaked)
    EXPECT_FALSE(hasTrailer(block)) << "a reported block keeps no live trailer";
  std::free(leaked[0]);
  std::free(leaked[1]);
  std::free(leaked[2]);
  std::free(leaked[3]);
  delete[] static_cast<char*>(leaked[4]);
  delete static_cast<std::vector<int>*>(leaked[5]);
  EXPECT_EQ(KWResetLeakGuardHistory(false), 0);
}

TEST(LeakGuard, TrailersOnlyInsideAScopeAndCallocPadsWithWholeElements) {
  KWResetLeakGuardHistory(false);
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
  const Report report = takeReport();
  EXPECT_EQ(report.total, 16);
  std::free(elements);
  EXPECT_EQ(takeReport().text, "LLD: no leaking bytes detected\n");
}

TEST(LeakGuard, ConditionalScopesFollowOverridesAndPreferences) {
  KWResetLeakGuardHistory(false);
  auto leakIn = [](const std::optional<icu::UnicodeString>& group,
                   const std::optional<icu::UnicodeString>& key) {
    KWLeakGuard* scope = KWOpenLeakGuardScopeWithGroupAndKey(group, key);
    void* block = std::malloc(10);
    delete scope;
    const long total = KWResetLeakGuardHistory(false);
    std::free(block);
    return total;
  };
  EXPECT_EQ(leakIn(text("Tests"), text("On")), 10);
  EXPECT_EQ(leakIn(text("Tests"), text("Off")), 0);
  EXPECT_EQ(leakIn(text("Tests"), text("Missing")), 0);
  EXPECT_EQ(leakIn(text("Tests"), std::nullopt), 0) << "a group without a key opens nothing";
  EXPECT_EQ(leakIn(std::nullopt, text("On")), 0) << "a key without a group opens nothing";
  KWOverrideLeakGuardPreference(text("Tests"), text("Off"), 1);
  EXPECT_EQ(leakIn(text("Tests"), text("Off")), 10) << "the override wins";
  KWOverrideLeakGuardPreference(text("Tests"), text("Off"), 0);
  EXPECT_EQ(leakIn(text("Tests"), text("Off")), 0);
  KWOverrideLeakGuardPreference(std::nullopt, text("Off"), 1); // ignored
  EXPECT_EQ(leakIn(text("Tests"), text("Off")), 0);

  // A number stored as text counts, and is written back as a number.
  EXPECT_EQ(leakIn(text("Tests"), text("AsText")), 10);
  auto& defaults = vtcore::UserDefaults::standard();
  defaults.synchronize();
  auto stored = defaults.dictionaryForKey("LeakGuard");
  ASSERT_TRUE(stored);
  EXPECT_TRUE((*stored)["Tests"]["AsText"].is_number()) << stored->dump();
  EXPECT_EQ((*stored)["Tests"]["AsText"], 1);
  EXPECT_EQ((*stored)["Tests"]["On"], 2) << "the other entries are kept";
}

TEST(LeakGuard, ScopesOpenAndCloseInAnyOrder) {
  KWResetLeakGuardHistory(false);
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

TEST(LeakGuard, OtherThreadsAllocatingMeanwhileAreNeitherRecordedNorDisturbed) {
  KWResetLeakGuardHistory(false);
  // Threads are started outside the scope: starting one allocates its
  // thread-local storage, which glibc keeps for reuse.
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

TEST(LeakGuard, ReportLimitPrintsSomeButCountsAll) {
  KWResetLeakGuardHistory(false);
  std::vector<void*> blocks;
  blocks.reserve(5);
  {
    KWLeakGuard guard;
    for (int i = 0; i < 5; ++i)
      blocks.push_back(std::malloc(100 + static_cast<std::size_t>(i)));
  }
  vtcore::setLeakGuardReportLimit(2);
  const Report report = takeReport();
  vtcore::setLeakGuardReportLimit(0);
  EXPECT_EQ(report.total, 100 + 101 + 102 + 103 + 104);
  EXPECT_NE(report.text.find("LLD: 100 bytes on address"), std::string::npos);
  EXPECT_NE(report.text.find("LLD: 101 bytes on address"), std::string::npos);
  EXPECT_EQ(report.text.find("LLD: 102 bytes on address"), std::string::npos);
  EXPECT_NE(report.text.find("LLD: a total of 510 bytes leaking detected"), std::string::npos);
  for (void* block : blocks)
    std::free(block);
}

TEST(LeakGuard, BadInputToTheHooksAndThePrinter) {
  KWResetLeakGuardHistory(false);
  {
    KWLeakGuard guard;
    std::free(nullptr);
    void* zero = std::calloc(4, 0);
    std::free(zero);
    volatile std::size_t huge = SIZE_MAX - 10;
    EXPECT_EQ(std::malloc(huge), nullptr);
    EXPECT_EQ(std::realloc(nullptr, huge), nullptr);
    void* again = std::malloc(8); // the hooks still work after failures
    std::free(again);
  }
  EXPECT_EQ(KWResetLeakGuardHistory(false), 0);
  ::testing::internal::CaptureStdout();
  void* unknown[] = {reinterpret_cast<void*>(0x10), nullptr};
  KWLeakGuardPrintStack(unknown, 2, 1);
  KWLeakGuardPrintStack(nullptr, 5, 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "LLD:         0x00000010 ???\n");
}

} // namespace

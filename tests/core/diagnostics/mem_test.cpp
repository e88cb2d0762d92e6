#include <vtcore/core/diagnostics/mem/mem.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

// No allocator can give this many bytes; glibc and ASan both answer null.
constexpr size_t kImpossible = SIZE_MAX / 2;

// The sanitizers add their own warning about the failed allocation.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr const char* kStartOfOutput = "";
constexpr const char* kNoOutput = "";
#else
constexpr const char* kStartOfOutput = "^";
constexpr const char* kNoOutput = "^$";
#endif

class Mem : public ::testing::Test {
protected:
  void SetUp() override {
    Mem_TermModule();
    Mem_InitModule();
    Mem_SetException(MemFailReturnNull, nullptr);
    m_base = Mem_LiveBlockCount();
  }
  void TearDown() override { Mem_SetException(MemFailReturnNull, nullptr); }
  int live() const { return Mem_LiveBlockCount() - m_base; }
  int m_base = 0;
};

TEST_F(Mem, CountsBlocksObtainedAndFreedButNotZeroSizes) {
  void* a = Mem_malloc(16);
  void* b = Mem_calloc(4, 8);
  char* c = Mem_strdup("copy");
  ASSERT_TRUE(a && b && c);
  EXPECT_EQ(static_cast<unsigned char*>(b)[31], 0);
  a = Mem_realloc(a, 4096);                         // a resize is not a new block
  EXPECT_EQ(Mem_realloc(b, 0), nullptr);            // frees
  void* d = Mem_realloc(nullptr, 16);               // a new block
  EXPECT_EQ(Mem_realloc(d, SIZE_MAX / 2), nullptr); // d stays valid and counted
  EXPECT_EQ(live(), 3);
  EXPECT_EQ(Mem_InitModule(), 1); // a second init keeps the count
  EXPECT_EQ(live(), 3);
  for (void* block : {a, static_cast<void*>(c), d, static_cast<void*>(nullptr)})
    Mem_free(block);
  EXPECT_EQ(live(), 0);

  EXPECT_EQ(Mem_malloc(0), nullptr);
  EXPECT_EQ(Mem_calloc(8, 0), nullptr);
  EXPECT_EQ(Mem_calloc(size_t{1} << 63, 2), nullptr); // count × size wraps to 0
  EXPECT_EQ(Mem_realloc(nullptr, 0), nullptr);
  EXPECT_EQ(Mem_strdup(nullptr), nullptr);
  EXPECT_EQ(Mem_malloc(kImpossible), nullptr); // the default mode answers null
  EXPECT_EQ(live(), 0);
}

int gHandlerCalls = 0;
int retryTwiceThenGiveUp() {
  return ++gHandlerCalls <= 2 ? MemFailRetry : MemFailReturnNull;
}

TEST_F(Mem, HandlerDecidesEachFailureAndIsOnlyKeptForTheAskMode) {
  gHandlerCalls = 0;
  Mem_SetException(MemFailReturnNull, retryTwiceThenGiveUp);
  EXPECT_EQ(Mem_malloc(kImpossible), nullptr);
  EXPECT_EQ(gHandlerCalls, 0);
  EXPECT_EQ(Mem_SetException(MemFailAskHandler, retryTwiceThenGiveUp), 0);
  EXPECT_EQ(Mem_malloc(kImpossible), nullptr);
  EXPECT_EQ(gHandlerCalls, 3);                  // tried three times in all
  Mem_SetException(MemFailAskHandler, nullptr); // no handler: null, not a crash
  EXPECT_EQ(Mem_malloc(kImpossible), nullptr);
}

TEST(MemDeath, ExitModesEndTheProcess) {
  EXPECT_EXIT(
      {
        Mem_SetException(MemFailReportAndExit, nullptr);
        Mem_malloc(kImpossible);
      },
      ::testing::ExitedWithCode(1), std::string(kStartOfOutput) + "Fatal error: out of memory\n$");
  EXPECT_EXIT(
      {
        Mem_SetException(MemFailExit, nullptr);
        Mem_calloc(kImpossible, 1);
      },
      ::testing::ExitedWithCode(1), kNoOutput);
}

} // namespace

#include <vtcore/core/diagnostics/mem.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
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
    base_ = Mem_LiveBlockCount();
  }
  void TearDown() override { Mem_SetException(MemFailReturnNull, nullptr); }
  int live() const { return Mem_LiveBlockCount() - base_; }
  int base_ = 0;
};

TEST_F(Mem, CountsBlocksObtainedAndFreed) {
  void* a = Mem_malloc(16);
  void* b = Mem_calloc(4, 8);
  char* c = Mem_strdup("copy");
  ASSERT_TRUE(a && b && c);
  EXPECT_EQ(std::strcmp(c, "copy"), 0);
  EXPECT_EQ(static_cast<unsigned char*>(b)[31], 0);
  EXPECT_EQ(live(), 3);
  a = Mem_realloc(a, 4096); // resizing an existing block is not a new block
  EXPECT_EQ(live(), 3);
  EXPECT_EQ(Mem_realloc(b, 0), nullptr); // frees
  Mem_free(c);
  EXPECT_EQ(live(), 1);
  void* d = Mem_realloc(nullptr, 16);
  EXPECT_EQ(live(), 2);
  Mem_free(a);
  Mem_free(d);
  Mem_free(nullptr);
  EXPECT_EQ(live(), 0);
}

TEST_F(Mem, ZeroSizesReturnNullWithoutCounting) {
  EXPECT_EQ(Mem_malloc(0), nullptr);
  EXPECT_EQ(Mem_calloc(0, 8), nullptr);
  EXPECT_EQ(Mem_calloc(8, 0), nullptr);
  // count × size wraps to 0 in the machine word.
  EXPECT_EQ(Mem_calloc(size_t{1} << 63, 2), nullptr);
  EXPECT_EQ(Mem_realloc(nullptr, 0), nullptr);
  EXPECT_EQ(Mem_strdup(nullptr), nullptr);
  EXPECT_EQ(live(), 0);
}

TEST_F(Mem, SecondInitKeepsTheCount) {
  void* a = Mem_malloc(8);
  void* b = Mem_malloc(8);
  Mem_free(a);
  const int count = Mem_LiveBlockCount();
  EXPECT_EQ(Mem_InitModule(), 1);
  EXPECT_EQ(Mem_LiveBlockCount(), count);
  Mem_free(b);
}

TEST_F(Mem, FailedAllocationReturnsNullByDefault) {
  EXPECT_EQ(Mem_malloc(kImpossible), nullptr);
  EXPECT_EQ(live(), 0);
  void* block = Mem_malloc(32);
  EXPECT_EQ(Mem_realloc(block, kImpossible), nullptr);
  EXPECT_EQ(live(), 1); // the old block stays valid and counted
  Mem_free(block);
}

int gHandlerCalls = 0;
int retryTwiceThenGiveUp() {
  return ++gHandlerCalls <= 2 ? MemFailRetry : MemFailReturnNull;
}

TEST_F(Mem, HandlerDecidesEachFailure) {
  gHandlerCalls = 0;
  EXPECT_EQ(Mem_SetException(MemFailAskHandler, retryTwiceThenGiveUp), 0);
  EXPECT_EQ(Mem_malloc(kImpossible), nullptr);
  EXPECT_EQ(gHandlerCalls, 3); // tried three times in all
}

TEST_F(Mem, HandlerIsOnlyKeptForTheAskMode) {
  gHandlerCalls = 0;
  Mem_SetException(MemFailReturnNull, retryTwiceThenGiveUp);
  EXPECT_EQ(Mem_malloc(kImpossible), nullptr);
  EXPECT_EQ(gHandlerCalls, 0);
  // Asking with no handler is answered with null rather than a crash.
  Mem_SetException(MemFailAskHandler, nullptr);
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

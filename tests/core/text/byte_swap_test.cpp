#include <vtcore/core/text/byte_swap.h>
#include <vtcore/core/text/data_dispatch.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

unsigned char* at(Bytes& b, std::size_t offset = 0) {
  return b.data() + offset;
}

TEST(IntelSwap, EachCodeSwapsItsFieldAndAdvancesByItsSize) {
  struct Case {
    int code;
    int advance;
    Bytes expected; // the result on bytes 0, 1, 2, ...
  };
  const std::vector<Case> cases = {
      {0, 1, {}},
      {3, 1, {}},
      {4, 2, {}},
      {5, 3, {}},
      {6, 4, {}},
      {7, 4, {3, 2, 1, 0}},
      {8, 8, {3, 2, 1, 0, 7, 6, 5, 4}},
      {10, 16, {3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12}},
      {11, 8, {7, 6, 5, 4, 3, 2, 1, 0}},
      {13, 24, {7,  6,  5, 4, 3,  2,  1,  0,  15, 14, 13, 12,
                11, 10, 9, 8, 23, 22, 21, 20, 19, 18, 17, 16}},
      {15, 2, {1, 0}},
      {18, 8, {1, 0, 3, 2, 5, 4, 7, 6}},
      {19, 6, {3, 2, 1, 0, 5, 4}},
      {20, 16, {7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8}},
      {22, 1, {}},
      {255, 1, {}},
  };
  for (const auto& c : cases) {
    Bytes data(40);
    for (std::size_t i = 0; i < data.size(); ++i)
      data[i] = static_cast<unsigned char>(i);
    Bytes expected = data;
    std::copy(c.expected.begin(), c.expected.end(), expected.begin());
    void* end = IntelSwap(at(data), c.code);
    EXPECT_EQ(end, at(data, c.advance)) << "code " << c.code;
    EXPECT_EQ(data, expected) << "code " << c.code;
  }
}

TEST(TabIntelSwap, RunsFieldsCountsAndLongCounts) {
  Bytes data = {0, 0, 0, 1, 0, 2, 0xAA, 0xBB};
  const unsigned char table[] = {7, 15, 0};
  EXPECT_EQ(TabIntelSwap(at(data), table), at(data, 6));
  EXPECT_EQ(data, (Bytes{1, 0, 0, 0, 2, 0, 0xAA, 0xBB}));

  Bytes three(12);
  for (std::size_t i = 0; i < three.size(); ++i)
    three[i] = static_cast<unsigned char>(i);
  const unsigned char counted[] = {1, 7, 3, 0};
  EXPECT_EQ(TabIntelSwap(at(three), counted), at(three, 12));
  EXPECT_EQ(three, (Bytes{3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8}));

  // A 16-bit count is high byte first: 1, 0 is 256.
  Bytes words(512 + 2, 0);
  for (std::size_t i = 0; i < 512; i += 2)
    words[i] = 1;
  const unsigned char longCount[] = {2, 15, 1, 0, 0};
  EXPECT_EQ(TabIntelSwap(at(words), longCount), at(words, 512));
  for (std::size_t i = 0; i < 512; i += 2)
    ASSERT_EQ(words[i] * 256 + words[i + 1], 1) << i;
  EXPECT_EQ(GetPIntelLimit(), reinterpret_cast<void*>(UINTPTR_MAX));
}

TEST(LimitTabIntelSwap, FieldCrossingTheLimitStaysUnswappedAndCursorAdvances) {
  Bytes data = {1, 2, 3, 4, 5, 6};
  const unsigned char table[] = {15, 7, 0};
  // Limit 4 bytes on: the 16-bit field fits, the 32-bit one crosses it.
  EXPECT_EQ(LimitTabIntelSwap(at(data), table, at(data, 4)), at(data, 6));
  EXPECT_EQ(data, (Bytes{2, 1, 3, 4, 5, 6}));
  // The previous limit is back afterwards.
  EXPECT_EQ(GetPIntelLimit(), reinterpret_cast<void*>(UINTPTR_MAX));
}

TEST(LimitTabIntelSwap, CrossingRepeatGroupTogglesItsFirstElement) {
  // Code 9 is three 32-bit values; the limit falls inside the third. The
  // first two are swapped one by one, then the first is swapped once more.
  Bytes data(12);
  for (std::size_t i = 0; i < data.size(); ++i)
    data[i] = static_cast<unsigned char>(i);
  const unsigned char table[] = {9, 0};
  EXPECT_EQ(LimitTabIntelSwap(at(data), table, at(data, 10)), at(data, 12));
  EXPECT_EQ(data, (Bytes{0, 1, 2, 3, 7, 6, 5, 4, 8, 9, 10, 11}));
}

TEST(LimitTabIntelSwap, NeverWritesAtOrPastTheLimit) {
  // A group whose first element already crosses the limit: the toggle would
  // have to write past it, so everything stays as it was.
  Bytes data = {0, 1, 2, 3, 4, 5, 6, 7};
  const unsigned char table[] = {8, 0};
  LimitTabIntelSwap(at(data), table, at(data, 2));
  EXPECT_EQ(data, (Bytes{0, 1, 2, 3, 4, 5, 6, 7}));

  // A record length pointing past the caller's limit cannot move it further.
  Bytes record = {0, 20, 0, 0, 0, 1, 9, 9};
  const unsigned char lengthThenValue[] = {21, 7, 0};
  LimitTabIntelSwap(at(record), lengthThenValue, at(record, 5));
  EXPECT_EQ(record, (Bytes{20, 0, 0, 0, 0, 1, 9, 9}));
}

TEST(IntelSwap, RecordLengthNarrowsTheLimitForTheFieldsThatFollow) {
  if (std::endian::native != std::endian::little)
    GTEST_SKIP() << "the record length is read in host order";
  // Length 10 at offset 0: fields up to offset 10 are inside the record.
  Bytes data(24);
  data[0] = 0x00;
  data[1] = 0x0A;
  for (std::size_t i = 2; i < data.size(); ++i)
    data[i] = static_cast<unsigned char>(i);
  const Bytes before = data;
  const unsigned char table[] = {21, 4, 7, 7, 0};
  EXPECT_EQ(TabIntelSwap(at(data), table), at(data, 12));
  EXPECT_EQ(data[0], 0x0A);
  EXPECT_EQ(data[1], 0x00);
  EXPECT_EQ(data[4], before[7]); // offsets 4-7 fit below 10
  EXPECT_EQ(data[7], before[4]);
  for (std::size_t i = 8; i < 12; ++i) // 8-11 cross 10: unswapped
    EXPECT_EQ(data[i], before[i]);
  EXPECT_EQ(GetPIntelLimit(), reinterpret_cast<void*>(UINTPTR_MAX));

  // Records one after another: each length opens the next record again.
  Bytes records = {0, 6, 1, 2, 3, 4, 0, 6, 5, 6, 7, 8};
  const unsigned char twoRecords[] = {21, 7, 21, 7, 0};
  TabIntelSwap(at(records), twoRecords);
  EXPECT_EQ(records, (Bytes{6, 0, 4, 3, 2, 1, 6, 0, 8, 7, 6, 5}));

  // A length of 2 or less leaves the limit alone.
  Bytes small = {0, 2, 1, 2, 3, 4};
  const unsigned char smallTable[] = {21, 7, 0};
  TabIntelSwap(at(small), smallTable);
  EXPECT_EQ(small, (Bytes{2, 0, 4, 3, 2, 1}));
}

TEST(IntelSwap, ExplicitLimitAppliesToSingleCalls) {
  Bytes data = {1, 2, 3, 4, 5, 6, 7, 8};
  void* saved = GetPIntelLimit();
  SetPIntelLimit(at(data, 2));
  EXPECT_EQ(IntelSwap(at(data), 7), at(data, 4));
  EXPECT_EQ(MultiIntelSwap(at(data), 15, 2), at(data, 4));
  EXPECT_EQ(MultiIntelSwap(at(data), 15, 0), at(data));
  SetPIntelLimit(saved);
  EXPECT_EQ(data, (Bytes{2, 1, 3, 4, 5, 6, 7, 8}));
}

TEST(SwapData, CopiesSwapsAndReportsTheItemThatDidNotFit) {
  const Bytes src = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  Bytes dst(9, 0xEE);
  const signed char table[] = {4, -3, 2, 0};
  EXPECT_EQ(SwapData(at(dst), src.data(), table, 8), 2);
  EXPECT_EQ(dst, (Bytes{4, 3, 2, 1, 5, 6, 7, 0xEE, 0xEE}));

  const signed char all[] = {2, 8, 3, -1, 0};
  Bytes inPlace = {1, 2, 1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 9};
  EXPECT_EQ(SwapData(at(inPlace), inPlace.data(), all, 14), 0);
  EXPECT_EQ(inPlace, (Bytes{2, 1, 8, 7, 6, 5, 4, 3, 2, 1, 1, 2, 3, 9}));

  const signed char big[] = {-128, 0};
  EXPECT_EQ(SwapData(at(dst), src.data(), big, 9), 128);
  EXPECT_EQ(SwapData(at(dst), src.data(), table, -1), 4);
}

class SwapPaths : public ::testing::TestWithParam<vtcore::DataCodePath> {
protected:
  void SetUp() override {
    previous_ = vtcore::dataCodePath();
    if (!vtcore::setDataCodePath(GetParam()))
      GTEST_SKIP() << "processor lacks " << vtcore::dataCodePathName(GetParam());
  }
  void TearDown() override { vtcore::setDataCodePath(previous_); }
  vtcore::DataCodePath previous_{};
};

Bytes randomBytes(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  Bytes b(n);
  for (auto& x : b)
    x = static_cast<unsigned char>(rng());
  return b;
}

TEST_P(SwapPaths, RunsOfValuesMatchSingleSwapsAtEveryLengthAndOffset) {
  for (int width : {2, 4, 8}) {
    for (std::size_t count : {0u, 1u, 3u, 15u, 16u, 17u, 63u, 200u}) {
      for (std::size_t offset : {0u, 1u, 3u}) {
        Bytes data = randomBytes(offset + count * width + 8, static_cast<unsigned>(count + width));
        Bytes expected = data;
        for (std::size_t i = 0; i < count; ++i)
          std::reverse(expected.begin() + offset + i * width,
                       expected.begin() + offset + (i + 1) * width);
        void* end = width == 2   ? PSwapInt16(at(data, offset), count)
                    : width == 4 ? PSwapInt32(at(data, offset), count)
                                 : PSwapInt64(at(data, offset), count);
        ASSERT_EQ(end, at(data, offset + count * width));
        ASSERT_EQ(data, expected) << "width " << width << " count " << count;
      }
    }
  }
  Bytes src = randomBytes(4 * 37, 7);
  Bytes dst(src.size());
  const Bytes original = src;
  PSwapCopyInt32(at(dst), src.data(), 37);
  EXPECT_EQ(src, original);
  PSwapInt32(at(src), 37);
  EXPECT_EQ(dst, src);
}

TEST_P(SwapPaths, ProcessSwapIntelHandlesEachSampleWidth) {
  const std::size_t count = 101;
  Bytes data = randomBytes(count * 4, 3);
  Bytes expected = data;
  for (std::size_t i = 0; i < count; ++i)
    std::reverse(expected.begin() + i * 4, expected.begin() + i * 4 + 4);
  EXPECT_EQ(ProcessSwapIntel(at(data), count, 0, 32), 1);
  EXPECT_EQ(data, expected);

  expected = data;
  for (std::size_t i = 0; i < count; ++i)
    std::swap(expected[i * 3], expected[i * 3 + 2]);
  ProcessSwapIntel(at(data), count, 0, 24);
  EXPECT_EQ(data, expected);

  expected = data;
  for (std::size_t i = 0; i < count; ++i)
    std::swap(expected[i * 2], expected[i * 2 + 1]);
  ProcessSwapIntel(at(data), count, 0, 16);
  EXPECT_EQ(data, expected);
  ProcessSwapIntel(at(data), count, 0, 12); // any other width: 16-bit
  ProcessSwapIntel(at(data), count, 0, 16);
  EXPECT_EQ(data, expected);

  Bytes eight = {0x00, 0xFF, 0x80, 0x7F, 0x01};
  eight.resize(70, 0x10);
  ProcessSwapIntel(at(eight), eight.size(), 0, 8);
  EXPECT_EQ(eight[0], 0x80);
  EXPECT_EQ(eight[1], 0x7F);
  EXPECT_EQ(eight[2], 0x00);
  EXPECT_EQ(eight[3], 0xFF);
  EXPECT_EQ(eight[4], 0x81);
  EXPECT_EQ(eight[69], 0x90);
  const Bytes kept = data;
  ProcessSwapIntel(at(data), 0, 0, 32);
  EXPECT_EQ(data, kept);
}

INSTANTIATE_TEST_SUITE_P(AllPaths, SwapPaths,
                         ::testing::Values(vtcore::DataCodePath::Portable,
                                           vtcore::DataCodePath::SSSE3, vtcore::DataCodePath::AVX2),
                         [](const auto& p) { return vtcore::dataCodePathName(p.param); });

} // namespace

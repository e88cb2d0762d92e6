#include <vtcore/core/text/byte_swap.h>
#include <vtcore/core/text/data_dispatch.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

unsigned char* at(Bytes& b, std::size_t offset = 0) {
  return b.data() + offset;
}

Bytes counting(std::size_t n) {
  Bytes b(n);
  std::iota(b.begin(), b.end(), 0);
  return b;
}

// `data` with consecutive fields of the given widths (digits) reversed.
Bytes reversedFields(Bytes data, const char* widths, std::size_t offset = 0) {
  for (; *widths; offset += *widths++ - '0')
    std::reverse(data.begin() + offset, data.begin() + offset + (*widths - '0'));
  return data;
}

void* const kNoLimit = reinterpret_cast<void*>(UINTPTR_MAX);

TEST(IntelSwap, EachCodeSwapsItsFieldsAndAdvancesByItsSize) {
  struct Case {
    int code, advance;
    const char* fields;
  };
  const Case cases[] = {{0, 1, ""},    {3, 1, ""},      {4, 2, ""},   {5, 3, ""},
                        {6, 4, ""},    {7, 4, "4"},     {8, 8, "44"}, {10, 16, "4444"},
                        {11, 8, "8"},  {13, 24, "888"}, {15, 2, "2"}, {18, 8, "2222"},
                        {19, 6, "42"}, {20, 16, "88"},  {22, 1, ""},  {255, 1, ""}};
  for (const auto& c : cases) {
    Bytes data = counting(40);
    EXPECT_EQ(IntelSwap(at(data), c.code), at(data, c.advance)) << "code " << c.code;
    EXPECT_EQ(data, reversedFields(counting(40), c.fields)) << "code " << c.code;
  }
}

TEST(TabIntelSwap, RunsCountsAndLongCounts) {
  Bytes three = counting(12);
  const unsigned char counted[] = {1, 7, 3, 0};
  EXPECT_EQ(TabIntelSwap(at(three), counted), at(three, 12));
  EXPECT_EQ(three, reversedFields(counting(12), "444"));

  // A 16-bit count is high byte first: 1, 0 is 256.
  Bytes words = counting(514);
  const unsigned char longCount[] = {2, 15, 1, 0, 0};
  EXPECT_EQ(TabIntelSwap(at(words), longCount), at(words, 512));
  EXPECT_EQ(words, reversedFields(counting(514), std::string(256, '2').c_str()));
  EXPECT_EQ(GetPIntelLimit(), kNoLimit);
}

TEST(LimitTabIntelSwap, CrossingFieldsAndGroupsAndNothingWrittenPastTheLimit) {
  // Limit 4 bytes on: the 16-bit field fits, the 32-bit one crosses it.
  Bytes data = {1, 2, 3, 4, 5, 6};
  const unsigned char fields[] = {15, 7, 0};
  EXPECT_EQ(LimitTabIntelSwap(at(data), fields, at(data, 4)), at(data, 6));
  EXPECT_EQ(data, (Bytes{2, 1, 3, 4, 5, 6}));
  EXPECT_EQ(GetPIntelLimit(), kNoLimit);

  // Code 9 is three 32-bit values and the limit falls inside the third: the
  // first two are swapped one by one, then the first once more.
  Bytes group = counting(12);
  const unsigned char three[] = {9, 0};
  EXPECT_EQ(LimitTabIntelSwap(at(group), three, at(group, 10)), at(group, 12));
  EXPECT_EQ(group, reversedFields(counting(12), "4", 4));

  // The first element already crosses: the toggle would write past the limit.
  Bytes crossing = counting(8);
  const unsigned char two[] = {8, 0};
  LimitTabIntelSwap(at(crossing), two, at(crossing, 2));
  EXPECT_EQ(crossing, counting(8));

  // An explicit limit applies to single calls too.
  Bytes single = {1, 2, 3, 4, 5, 6, 7, 8};
  void* saved = GetPIntelLimit();
  SetPIntelLimit(at(single, 2));
  EXPECT_EQ(IntelSwap(at(single), 7), at(single, 4));
  EXPECT_EQ(MultiIntelSwap(at(single), 15, 2), at(single, 4));
  EXPECT_EQ(MultiIntelSwap(at(single), 15, 0), at(single));
  SetPIntelLimit(saved);
  EXPECT_EQ(single, (Bytes{2, 1, 3, 4, 5, 6, 7, 8}));

  // A record length pointing past the caller's limit cannot move it further.
  Bytes record = {0, 20, 0, 0, 0, 1, 9, 9};
  const unsigned char lengthThenValue[] = {21, 7, 0};
  LimitTabIntelSwap(at(record), lengthThenValue, at(record, 5));
  EXPECT_EQ(record, (Bytes{20, 0, 0, 0, 0, 1, 9, 9}));
}

TEST(IntelSwap, RecordLengthNarrowsTheLimitForTheFieldsThatFollow) {
  if (std::endian::native != std::endian::little)
    GTEST_SKIP() << "the record length is read in host order";
  // Length 10 at offset 0: offsets 4-7 fit below 10, 8-11 cross it.
  Bytes data = counting(24);
  data[0] = 0x00;
  data[1] = 0x0A;
  const Bytes expected = reversedFields(reversedFields(data, "2"), "4", 4);
  const unsigned char table[] = {21, 4, 7, 7, 0};
  EXPECT_EQ(TabIntelSwap(at(data), table), at(data, 12));
  EXPECT_EQ(data, expected);
  EXPECT_EQ(GetPIntelLimit(), kNoLimit);

  // Each length opens the next record again; a length of 2 or less leaves the
  // limit alone.
  Bytes records = {0, 6, 1, 2, 3, 4, 0, 6, 5, 6, 7, 8};
  const unsigned char twoRecords[] = {21, 7, 21, 7, 0};
  TabIntelSwap(at(records), twoRecords);
  EXPECT_EQ(records, (Bytes{6, 0, 4, 3, 2, 1, 6, 0, 8, 7, 6, 5}));
  Bytes small = {0, 2, 1, 2, 3, 4};
  TabIntelSwap(at(small), twoRecords + 2); // one record
  EXPECT_EQ(small, (Bytes{2, 0, 4, 3, 2, 1}));
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
    if (!vtcore::setDataCodePath(GetParam()))
      GTEST_SKIP() << "processor lacks " << vtcore::dataCodePathName(GetParam());
  }
  void TearDown() override { vtcore::setDataCodePath(previous_); }
  vtcore::DataCodePath previous_ = vtcore::dataCodePath();
};

Bytes randomBytes(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  Bytes b(n);
  for (auto& x : b)
    x = static_cast<unsigned char>(rng());
  return b;
}

// ProcessSwapIntel with `bits`, or PSwapInt<8 * width> when `bits` is 0; the
// end of the run, or null when ProcessSwapIntel does not return 1.
void* swapRun(unsigned char* p, std::size_t count, std::size_t width, int bits) {
  if (bits)
    return ProcessSwapIntel(p, count, 0, bits) == 1 ? p + count * width : nullptr;
  return width == 2   ? PSwapInt16(p, count)
         : width == 4 ? PSwapInt32(p, count)
                      : PSwapInt64(p, count);
}

TEST_P(SwapPaths, RunsOfSamplesMatchSingleSwapsAtEveryLengthAndOffset) {
  // ProcessSwapIntel: 32 and 24 reverse each sample, 8 toggles the sign bit,
  // any other width is taken as 16.
  const std::pair<std::size_t, int> kinds[] = {{2, 0},  {4, 0},  {8, 0},  {4, 32},
                                               {3, 24}, {2, 16}, {2, 12}, {1, 8}};
  for (auto [width, bits] : kinds) {
    for (std::size_t count : {0u, 1u, 3u, 15u, 16u, 17u, 63u, 200u}) {
      for (std::size_t offset : {0u, 1u, 3u}) {
        Bytes data = randomBytes(offset + count * width + 8, static_cast<unsigned>(count + width));
        Bytes expected = data;
        for (std::size_t i = offset; i < offset + count * width; i += width)
          if (width == 1)
            expected[i] ^= 0x80;
          else
            std::reverse(expected.begin() + i, expected.begin() + i + width);
        ASSERT_EQ(swapRun(at(data, offset), count, width, bits), at(data, offset + count * width));
        ASSERT_EQ(data, expected) << "width " << width << " bits " << bits << " count " << count;
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

INSTANTIATE_TEST_SUITE_P(AllPaths, SwapPaths,
                         ::testing::Values(vtcore::DataCodePath::Portable,
                                           vtcore::DataCodePath::SSSE3, vtcore::DataCodePath::AVX2),
                         [](const auto& p) { return vtcore::dataCodePathName(p.param); });

} // namespace

#include <vtcore/core/text/byte_swap.h>
#include <vtcore/core/text/data_dispatch.h>

#include "code_path_fixture.h"

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
    EXPECT_EQ(IntelSwap(data.data(), c.code), data.data() + c.advance) << "code " << c.code;
    EXPECT_EQ(data, reversedFields(counting(40), c.fields)) << "code " << c.code;
  }
}

TEST(TabIntelSwap, CountsLongCountsAndLimits) {
  // A 16-bit count is high byte first: 1, 0 is 256.
  Bytes words = counting(526);
  const unsigned char counts[] = {1, 7, 3, 2, 15, 1, 0, 0};
  EXPECT_EQ(TabIntelSwap(words.data(), counts), words.data() + 524);
  EXPECT_EQ(words, reversedFields(counting(526), ("444" + std::string(256, '2')).c_str()));
  EXPECT_EQ(GetPIntelLimit(), kNoLimit);

  // Limit 4 bytes on: the 16-bit field fits, the 32-bit one crosses it.
  Bytes data = {1, 2, 3, 4, 5, 6};
  const unsigned char fields[] = {15, 7, 0};
  EXPECT_EQ(LimitTabIntelSwap(data.data(), fields, data.data() + 4), data.data() + 6);
  EXPECT_EQ(data, (Bytes{2, 1, 3, 4, 5, 6}));
  EXPECT_EQ(GetPIntelLimit(), kNoLimit);

  // Code 9 is three 32-bit values and the limit falls inside the third: the
  // first two are swapped one by one, then the first once more.
  Bytes group = counting(12);
  const unsigned char three[] = {9, 0};
  EXPECT_EQ(LimitTabIntelSwap(group.data(), three, group.data() + 10), group.data() + 12);
  EXPECT_EQ(group, reversedFields(counting(12), "4", 4));
}

TEST(TabIntelSwap, RecordLengthNarrowsTheLimitForTheFieldsThatFollow) {
  if (std::endian::native != std::endian::little)
    GTEST_SKIP() << "the record length is read in host order";
  // Length 10 at offset 0: offsets 4-7 fit below 10, 8-11 cross it.
  Bytes data = counting(24);
  data[0] = 0x00;
  data[1] = 0x0A;
  const Bytes expected = reversedFields(reversedFields(data, "2"), "4", 4);
  const unsigned char table[] = {21, 4, 7, 7, 0};
  EXPECT_EQ(TabIntelSwap(data.data(), table), data.data() + 12);
  EXPECT_EQ(data, expected);
  EXPECT_EQ(GetPIntelLimit(), kNoLimit);

  // Each length opens the next record again; a length of 2 or less leaves the
  // limit alone.
  Bytes records = {0, 6, 1, 2, 3, 4, 0, 6, 5, 6, 7, 8};
  const unsigned char twoRecords[] = {21, 7, 21, 7, 0};
  TabIntelSwap(records.data(), twoRecords);
  EXPECT_EQ(records, (Bytes{6, 0, 4, 3, 2, 1, 6, 0, 8, 7, 6, 5}));
  Bytes small = {0, 2, 1, 2, 3, 4};
  TabIntelSwap(small.data(), twoRecords + 2); // one record
  EXPECT_EQ(small, (Bytes{2, 0, 4, 3, 2, 1}));
}

TEST(SwapData, CopiesSwapsAndReportsTheItemThatDidNotFit) {
  const Bytes src = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  Bytes dst(9, 0xEE);
  const signed char table[] = {4, -3, 2, 0};
  EXPECT_EQ(SwapData(dst.data(), src.data(), table, 8), 2);
  EXPECT_EQ(dst, (Bytes{4, 3, 2, 1, 5, 6, 7, 0xEE, 0xEE}));
  const signed char all[] = {2, 8, 3, -1, 0};
  Bytes inPlace = {1, 2, 1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 9};
  EXPECT_EQ(SwapData(inPlace.data(), inPlace.data(), all, 14), 0);
  EXPECT_EQ(inPlace, (Bytes{2, 1, 8, 7, 6, 5, 4, 3, 2, 1, 1, 2, 3, 9}));
  EXPECT_EQ(SwapData(dst.data(), src.data(), table, -1), 4);
}

class SwapPaths : public DataCodePathTest {};

TEST_P(SwapPaths, RunsOfSamplesMatchSingleSwapsAtEveryLengthAndOffset) {
  // PSwapInt<8 * width> when bits is 0, else ProcessSwapIntel: 32 and 24
  // reverse each sample, 8 toggles the sign bit, any other width is taken as 16.
  const std::pair<std::size_t, int> kinds[] = {{2, 0},  {4, 0},  {8, 0},  {4, 32},
                                               {3, 24}, {2, 16}, {2, 12}, {1, 8}};
  std::mt19937 rng(7);
  for (auto [width, bits] : kinds) {
    for (std::size_t count : {0u, 1u, 3u, 15u, 16u, 17u, 63u, 200u}) {
      for (std::size_t offset : {0u, 1u, 3u}) {
        Bytes data(offset + count * width + 8);
        std::generate(data.begin(), data.end(), rng);
        const Bytes original = data;
        Bytes expected = data;
        for (std::size_t i = offset; i < offset + count * width; i += width)
          if (width == 1)
            expected[i] ^= 0x80;
          else
            std::reverse(expected.begin() + i, expected.begin() + i + width);
        unsigned char* p = data.data() + offset;
        if (bits)
          ASSERT_EQ(ProcessSwapIntel(p, count, 0, bits), 1);
        else
          ASSERT_EQ(width == 2   ? PSwapInt16(p, count)
                    : width == 4 ? PSwapInt32(p, count)
                                 : PSwapInt64(p, count),
                    p + count * width);
        ASSERT_EQ(data, expected) << "width " << width << " bits " << bits << " count " << count;
        if (width == 4 && !bits) {
          Bytes copy(count * 4);
          PSwapCopyInt32(copy.data(), original.data() + offset, count);
          ASSERT_TRUE(std::equal(copy.begin(), copy.end(), p)) << "copying swap, count " << count;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllPaths, SwapPaths,
                         ::testing::Values(vtcore::DataCodePath::Portable,
                                           vtcore::DataCodePath::SSSE3, vtcore::DataCodePath::AVX2),
                         [](const auto& p) { return vtcore::dataCodePathName(p.param); });

} // namespace

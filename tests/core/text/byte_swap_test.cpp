#include <vtcore/core/text/swap/byte_swap.h>

#include "code_path_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <tuple>
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

TEST(IntelSwap, EachCodeSwapsItsFieldsAndAdvancesByItsSize) {
  const std::tuple<int, int, const char*> cases[] = {
      {0, 1, ""},    {3, 1, ""},       {4, 2, ""},   {5, 3, ""},      {6, 4, ""},   {7, 4, "4"},
      {8, 8, "44"},  {10, 16, "4444"}, {11, 8, "8"}, {13, 24, "888"}, {15, 2, "2"}, {18, 8, "2222"},
      {19, 6, "42"}, {20, 16, "88"},   {22, 1, ""},  {255, 1, ""}};
  for (auto [code, advance, fields] : cases) { // fields: the widths of the swapped fields
    Bytes data = counting(40);
    EXPECT_EQ(IntelSwap(data.data(), code), data.data() + advance) << "code " << code;
    EXPECT_EQ(data, reversedFields(counting(40), fields)) << "code " << code;
  }
}

TEST(TabIntelSwap, CountsLimitsAndRecordLengths) {
  const Bytes words = reversedFields(counting(526), ("444" + std::string(256, '2')).c_str());
  // Record, table, limit offset (0: none), bytes advanced, the record afterwards.
  const std::tuple<Bytes, std::vector<unsigned char>, std::size_t, std::size_t, Bytes> cases[] = {
      // A 16-bit count is high byte first: 1, 0 is 256.
      {counting(526), {1, 7, 3, 2, 15, 1, 0, 0}, 0, 524, words},
      // Limit 4 bytes on: the 16-bit field fits, the 32-bit one crosses it.
      {{1, 2, 3, 4, 5, 6}, {15, 7, 0}, 4, 6, {2, 1, 3, 4, 5, 6}},
      // Code 9 is three 32-bit values and the limit falls inside the third:
      // the first two are swapped one by one, then the first once more.
      {counting(12), {9, 0}, 10, 12, reversedFields(counting(12), "4", 4)},
      // Record length 6 (host order, little-endian here): offsets 2-5 fit below 6, 6-9 cross it.
      {{0, 6, 1, 2, 3, 4, 5, 6, 7, 8}, {21, 7, 7, 0}, 0, 10, {6, 0, 4, 3, 2, 1, 5, 6, 7, 8}},
      // Each length opens the next record again; 2 or less leaves the limit alone.
      {{0, 4, 1, 2, 0, 4, 3, 4}, {21, 15, 21, 15, 0}, 0, 8, {4, 0, 2, 1, 4, 0, 4, 3}},
      {{0, 2, 1, 2, 3, 4}, {21, 7, 0}, 0, 6, {2, 0, 4, 3, 2, 1}},
  };
  for (auto [data, table, limit, advance, expected] : cases) {
    unsigned char* p = data.data();
    EXPECT_EQ(limit ? LimitTabIntelSwap(p, table.data(), p + limit) : TabIntelSwap(p, table.data()),
              p + advance);
    EXPECT_EQ(data, expected) << "table starting " << int{table[0]};
    EXPECT_EQ(GetPIntelLimit(), reinterpret_cast<void*>(UINTPTR_MAX)); // none again
  }
}

TEST(SwapData, SwapsTwoFourAndEightBytesAndReportsTheItemThatDidNotFit) {
  Bytes data = counting(16);
  const signed char table[] = {2, 8, 3, -1, 4, 0}; // +3 and -1 are copied unchanged
  EXPECT_EQ(SwapData(data.data(), data.data(), table, 15), 4);
  EXPECT_EQ(data, reversedFields(counting(16), "28"));
  EXPECT_EQ(SwapData(data.data(), data.data(), table, -1), 2);
}

using SwapPaths = DataCodePathTest;

TEST_P(SwapPaths, RunsOfSamplesMatchSingleSwapsAtEveryLengthAndOffset) {
  // PSwapInt<8 * width> when bits is 0, else ProcessSwapIntel: 32 and 24
  // reverse each sample, 8 toggles the sign bit, any other width is taken as 16.
  const std::pair<std::size_t, int> kinds[] = {{2, 0},  {4, 0},  {8, 0},  {4, 32},
                                               {3, 24}, {2, 16}, {2, 12}, {1, 8}};
  std::mt19937 rng(7);
  for (auto [width, bits] : kinds)
    for (std::size_t count :
         {0u, 1u, 3u, 15u, 16u, 17u, 63u, 64u, 65u, 127u, 128u, 129u, 200u, 257u})
      for (std::size_t offset : {0u, 1u, 3u}) {
        Bytes data(offset + count * width + 8);
        std::generate(data.begin(), data.end(), rng);
        Bytes expected = data;
        for (std::size_t i = offset; i < offset + count * width; i += width)
          if (width == 1)
            expected[i] ^= 0x80;
          else
            std::reverse(expected.begin() + i, expected.begin() + i + width);
        unsigned char* p = data.data() + offset;
        if (width == 4 && !bits) {
          Bytes copy(count * 4);
          PSwapCopyInt32(copy.data(), p, count);
          ASSERT_TRUE(std::equal(copy.begin(), copy.end(), expected.begin() + offset)) << count;
        }
        if (bits)
          ASSERT_EQ(ProcessSwapIntel(p, count, 0, bits), 1);
        else
          ASSERT_EQ(width == 2   ? PSwapInt16(p, count)
                    : width == 4 ? PSwapInt32(p, count)
                                 : PSwapInt64(p, count),
                    p + count * width);
        ASSERT_EQ(data, expected) << "width " << width << " bits " << bits << " count " << count;
      }
}

INSTANTIATE_TEST_SUITE_P(AllPaths, SwapPaths, ::testing::ValuesIn(kAllDataCodePaths),
                         [](const auto& p) { return vtcore::dataCodePathName(p.param); });

} // namespace

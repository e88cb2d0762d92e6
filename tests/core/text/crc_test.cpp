#include <vtcore/core/text/checksum/crc.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <zlib.h>

namespace {

using vtcore::Crc32Method;

TEST(KWCRC16, CheckValuesHighBytesAndPositionWrap) {
  EXPECT_EQ(KWCRC16(""), 0x1D0Fu);
  EXPECT_EQ(KWCRC16(nullptr), 0x1D0Fu);
  EXPECT_EQ(KWCRC16("123456789"), 0xE5CCu);
  EXPECT_EQ(KWCRC16("\xE9t\xFF\x80"), 0xEF32u); // bytes taken unsigned
  // The position counter is 16 bits wide: it stops where it wraps, after
  // 65536 bytes.
  EXPECT_EQ(KWCRC16(std::string(70000, 'x').c_str()), 0xFAAFu);
}

// The CRC-16 a byte at a time, as its definition reads.
unsigned crc16Bitwise(const std::string& text) {
  unsigned c = 0x1D0F;
  for (std::size_t i = 0; i < text.size() && i < 0x10000; ++i) {
    c ^= static_cast<unsigned char>(text[i]) << 8;
    for (int bit = 0; bit < 8; ++bit)
      c = (c & 0x8000) ? ((c << 1) ^ 0x1021) : (c << 1);
    c &= 0xFFFF;
  }
  return c;
}

// Lengths around the sixteen-byte steps and the 65,536-byte stop, at every
// alignment: the stop must fall inside a step as exactly as between two.
TEST(KWCRC16, SixteenByteStepsEqualTheBitwiseDefinition) {
  std::mt19937 rng(16);
  std::string text;
  for (std::size_t length = 0; length < 70; ++length) {
    text.assign(length + 8, '\0');
    for (auto& c : text)
      c = static_cast<char>(1 + rng() % 255);
    for (std::size_t offset = 0; offset < 8; ++offset) {
      const std::string piece = text.substr(offset, length);
      ASSERT_EQ(KWCRC16(piece.c_str()), crc16Bitwise(piece)) << length << " at " << offset;
    }
  }
  for (std::size_t length : {65535u, 65536u, 65537u, 65551u, 65552u, 70001u}) {
    text.assign(length, '\0');
    for (auto& c : text)
      c = static_cast<char>(1 + rng() % 255);
    ASSERT_EQ(KWCRC16(text.c_str()), crc16Bitwise(text)) << length;
  }
}

class Crc32Methods : public ::testing::TestWithParam<Crc32Method> {
protected:
  void SetUp() override {
    if (!vtcore::setCrc32Method(GetParam()))
      GTEST_SKIP() << "processor lacks " << vtcore::crc32MethodName(GetParam());
  }
  void TearDown() override { vtcore::setCrc32Method(m_previous); }
  Crc32Method m_previous = vtcore::crc32Method();
};

// Each method against zlib: check value, chaining, the null rule, every
// length up to past the widest method's first step (256 bytes plus every
// remainder), then random offsets, lengths, split points and start values.
TEST_P(Crc32Methods, MatchZlib) {
  std::mt19937 rng(2);
  std::vector<unsigned char> data(1 << 16);
  for (auto& x : data)
    x = static_cast<unsigned char>(rng());
  const auto* digits = reinterpret_cast<const unsigned char*>("123456789");
  {
    EXPECT_EQ(KWCRC32(0, digits, 9), 0xCBF43926u);
    EXPECT_EQ(KWCRC32(KWCRC32(0, digits, 4), digits + 4, 5), 0xCBF43926u);
    EXPECT_EQ(KWCRC32(0x1234, nullptr, 10), 0u);
    EXPECT_EQ(KWCRC32(0x1234, digits, 0), 0x1234u);
    for (std::uint32_t length = 0; length <= 600; ++length)
      ASSERT_EQ(KWCRC32(0, data.data() + 1, length), crc32(0, data.data() + 1, length)) << length;
    for (int round = 0; round < 200; ++round) {
      const std::uint32_t offset = rng() % 64, length = rng() % (data.size() - offset);
      const std::uint32_t split = length ? rng() % length : 0, start = rng();
      const auto* p = data.data() + offset;
      ASSERT_EQ(KWCRC32(KWCRC32(start, p, split), p + split, length - split),
                crc32(crc32(start, p, split), p + split, length - split))
          << "offset " << offset << " length " << length << " split " << split;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllMethods, Crc32Methods,
                         ::testing::Values(Crc32Method::Reference, Crc32Method::Slicing16,
                                           Crc32Method::CarrylessFold,
                                           Crc32Method::CarrylessFold256,
                                           Crc32Method::CarrylessFold512),
                         [](const auto& p) {
                           std::string name = vtcore::crc32MethodName(p.param);
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

} // namespace

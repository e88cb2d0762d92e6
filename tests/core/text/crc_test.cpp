#include <vtcore/core/text/crc.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <zlib.h>

namespace {

using vtcore::Crc32Method;

// CRC-16 in its augmented form, bit by bit: data bits shifted in from the
// right, then sixteen zero bits.
unsigned augmentedCrc16(const std::string& text) {
  unsigned c = 0xFFFF;
  for (unsigned char byte : text + std::string(2, '\0')) {
    for (int i = 7; i >= 0; --i) {
      const unsigned top = c & 0x8000;
      c = ((c << 1) | ((byte >> i) & 1)) & 0xFFFF;
      if (top)
        c ^= 0x1021;
    }
  }
  return c;
}

constexpr Crc32Method kMethods[] = {Crc32Method::Reference, Crc32Method::Slicing16,
                                    Crc32Method::CarrylessFold};

std::vector<unsigned char> randomBytes(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<unsigned char> b(n);
  for (auto& x : b)
    x = static_cast<unsigned char>(rng());
  return b;
}

TEST(KWCRC16, CheckValuesAugmentedDefinitionAndPositionWrap) {
  EXPECT_EQ(KWCRC16(""), 0x1D0Fu);
  EXPECT_EQ(KWCRC16(nullptr), 0x1D0Fu);
  EXPECT_EQ(KWCRC16("123456789"), 0xE5CCu);
  std::mt19937 rng(1);
  for (int n = 0; n < 300; ++n) {
    std::string text(rng() % 64, ' ');
    for (auto& ch : text)
      ch = static_cast<char>(1 + rng() % 255);
    ASSERT_EQ(KWCRC16(text.c_str()), augmentedCrc16(text)) << text;
  }
  // The position counter is 16 bits wide: it stops where it wraps.
  const std::string longText(70000, 'x');
  EXPECT_EQ(KWCRC16(longText.c_str()), augmentedCrc16(longText.substr(0, 65536)));
}

TEST(KWCRC32, CheckValueChainingAndNullRuleWithEveryChosenMethod) {
  const auto* digits = reinterpret_cast<const unsigned char*>("123456789");
  const auto data = randomBytes(100000, 3);
  const uLong want = crc32(0, data.data(), static_cast<uInt>(data.size()));
  const auto chosen = vtcore::crc32Method();
  for (auto method : kMethods) {
    if (!vtcore::setCrc32Method(method))
      continue;
    SCOPED_TRACE(vtcore::crc32MethodName(method));
    EXPECT_EQ(KWCRC32(0, digits, 9), 0xCBF43926u);
    EXPECT_EQ(KWCRC32(KWCRC32(0, digits, 4), digits + 4, 5), 0xCBF43926u);
    EXPECT_EQ(KWCRC32(0x1234, nullptr, 10), 0u);
    EXPECT_EQ(KWCRC32(0x1234, digits, 0), 0x1234u);
    EXPECT_EQ(KWCRC32(0, data.data(), static_cast<std::uint32_t>(data.size())), want);
  }
  vtcore::setCrc32Method(chosen);
}

// Every method the processor has, against zlib: every length up to a few
// folding blocks, then random offsets, lengths, split points and start values.
TEST(Crc32Methods, MatchZlibOnRandomBuffersAndSplits) {
  const auto data = randomBytes(1 << 16, 2);
  for (auto method : kMethods) {
    if (!vtcore::crc32MethodAvailable(method))
      continue;
    SCOPED_TRACE(vtcore::crc32MethodName(method));
    for (std::size_t length = 0; length <= 300; ++length)
      ASSERT_EQ(vtcore::crc32Using(method, 0, data.data() + 1, length),
                crc32(0, data.data() + 1, static_cast<uInt>(length)))
          << length;
    std::mt19937 rng(static_cast<unsigned>(method));
    for (int round = 0; round < 200; ++round) {
      const std::size_t offset = rng() % 64;
      const std::size_t length = rng() % (data.size() - offset);
      const std::size_t split = length ? rng() % length : 0;
      const auto* p = data.data() + offset;
      const uLong start = rng();
      const uLong want = crc32(crc32(start, p, static_cast<uInt>(split)), p + split,
                               static_cast<uInt>(length - split));
      std::uint32_t got = vtcore::crc32Using(method, static_cast<std::uint32_t>(start), p, split);
      got = vtcore::crc32Using(method, got, p + split, length - split);
      ASSERT_EQ(got, want) << "offset " << offset << " length " << length << " split " << split;
    }
  }
}

} // namespace

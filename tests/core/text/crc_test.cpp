#include <vtcore/core/text/crc.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <zlib.h>

namespace {

// CRC-16 in its augmented form, bit by bit: data bits shifted in from the
// right, then sixteen zero bits.
unsigned augmentedCrc16(const std::string& text) {
  unsigned c = 0xFFFF;
  auto shiftIn = [&c](unsigned bit) {
    const unsigned top = c & 0x8000;
    c = ((c << 1) | bit) & 0xFFFF;
    if (top)
      c ^= 0x1021;
  };
  for (unsigned char byte : text)
    for (int i = 7; i >= 0; --i)
      shiftIn((byte >> i) & 1);
  for (int i = 0; i < 16; ++i)
    shiftIn(0);
  return c;
}

TEST(KWCRC16, CheckValuesAndAugmentedDefinition) {
  EXPECT_EQ(KWCRC16(""), 0x1D0Fu);
  EXPECT_EQ(KWCRC16("123456789"), 0xE5CCu);
  EXPECT_EQ(KWCRC16("A"), 0x9479u);
  EXPECT_EQ(KWCRC16(nullptr), 0x1D0Fu);
  std::mt19937 rng(1);
  for (int n = 0; n < 300; ++n) {
    std::string text(rng() % 64, ' ');
    for (auto& ch : text)
      ch = static_cast<char>(1 + rng() % 255);
    ASSERT_EQ(KWCRC16(text.c_str()), augmentedCrc16(text)) << text;
  }
}

TEST(KWCRC16, StopsWhereThe16BitPositionWraps) {
  std::string longText(70000, 'x');
  EXPECT_EQ(KWCRC16(longText.c_str()), augmentedCrc16(longText.substr(0, 65536)));
}

TEST(KWCRC32, CheckValueChainingAndNullRule) {
  const auto* digits = reinterpret_cast<const unsigned char*>("123456789");
  EXPECT_EQ(KWCRC32(0, digits, 9), 0xCBF43926u);
  EXPECT_EQ(KWCRC32(KWCRC32(0, digits, 4), digits + 4, 5), 0xCBF43926u);
  EXPECT_EQ(KWCRC32(0x1234, nullptr, 10), 0u);
  EXPECT_EQ(KWCRC32(0x1234, digits, 0), 0x1234u);
}

class Crc32Methods : public ::testing::TestWithParam<vtcore::Crc32Method> {};

TEST_P(Crc32Methods, MatchesZlibOnRandomBuffersAndSplits) {
  if (!vtcore::crc32MethodAvailable(GetParam()))
    GTEST_SKIP() << "processor lacks " << vtcore::crc32MethodName(GetParam());
  std::mt19937 rng(static_cast<unsigned>(GetParam()) + 1);
  std::vector<unsigned char> data(1 << 16);
  for (auto& b : data)
    b = static_cast<unsigned char>(rng());
  // Every length up to a few folding blocks, then random lengths and offsets.
  for (std::size_t length = 0; length <= 300; ++length)
    ASSERT_EQ(vtcore::crc32Using(GetParam(), 0, data.data() + 1, length),
              crc32(0, data.data() + 1, static_cast<uInt>(length)))
        << length;
  for (int round = 0; round < 200; ++round) {
    const std::size_t offset = rng() % 64;
    const std::size_t length = rng() % (data.size() - offset);
    const std::size_t split = length ? rng() % length : 0;
    const uLong start = rng();
    const uLong want = crc32(crc32(start, data.data() + offset, static_cast<uInt>(split)),
                             data.data() + offset + split, static_cast<uInt>(length - split));
    std::uint32_t got = vtcore::crc32Using(GetParam(), static_cast<std::uint32_t>(start),
                                           data.data() + offset, split);
    got = vtcore::crc32Using(GetParam(), got, data.data() + offset + split, length - split);
    ASSERT_EQ(got, want) << "offset " << offset << " length " << length << " split " << split;
  }
}

INSTANTIATE_TEST_SUITE_P(All, Crc32Methods,
                         ::testing::Values(vtcore::Crc32Method::Reference,
                                           vtcore::Crc32Method::Slicing16,
                                           vtcore::Crc32Method::CarrylessFold),
                         [](const auto& p) {
                           std::string name = vtcore::crc32MethodName(p.param);
                           std::erase(name, '-');
                           return name;
                         });

TEST(KWCRC32, ExportedFunctionUsesTheChosenMethodWithTheSameResults) {
  std::vector<unsigned char> data(100000);
  std::mt19937 rng(3);
  for (auto& b : data)
    b = static_cast<unsigned char>(rng());
  const uLong want = crc32(0, data.data(), static_cast<uInt>(data.size()));
  const auto chosen = vtcore::crc32Method();
  for (auto method : {vtcore::Crc32Method::Reference, vtcore::Crc32Method::Slicing16,
                      vtcore::Crc32Method::CarrylessFold}) {
    if (!vtcore::setCrc32Method(method))
      continue;
    EXPECT_EQ(KWCRC32(0, data.data(), static_cast<std::uint32_t>(data.size())), want);
  }
  vtcore::setCrc32Method(chosen);
}

} // namespace

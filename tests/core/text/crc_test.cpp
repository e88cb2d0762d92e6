#include <vtcore/core/text/checksum/crc.h>

#include <gtest/gtest.h>

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

// Every method the processor has, against zlib: check value, chaining, the
// null rule, every length up to a few folding blocks, then random offsets,
// lengths, split points and start values.
TEST(KWCRC32, MatchesZlibWithEveryMethod) {
  std::mt19937 rng(2);
  std::vector<unsigned char> data(1 << 16);
  for (auto& x : data)
    x = static_cast<unsigned char>(rng());
  const auto* digits = reinterpret_cast<const unsigned char*>("123456789");
  const auto chosen = vtcore::crc32Method();
  for (auto method : {Crc32Method::Reference, Crc32Method::Slicing16, Crc32Method::CarrylessFold}) {
    if (!vtcore::setCrc32Method(method))
      continue;
    SCOPED_TRACE(vtcore::crc32MethodName(method));
    EXPECT_EQ(KWCRC32(0, digits, 9), 0xCBF43926u);
    EXPECT_EQ(KWCRC32(KWCRC32(0, digits, 4), digits + 4, 5), 0xCBF43926u);
    EXPECT_EQ(KWCRC32(0x1234, nullptr, 10), 0u);
    EXPECT_EQ(KWCRC32(0x1234, digits, 0), 0x1234u);
    for (std::uint32_t length = 0; length <= 300; ++length)
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
  vtcore::setCrc32Method(chosen);
}

} // namespace

#include <vtcore/core/diagnostics/exception.h>
#include <vtcore/core/text/data_compression.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include <zlib.h>

namespace {

using vtcore::byte_buffer::compressedData;
using vtcore::byte_buffer::compressedDataCapacity;
using vtcore::byte_buffer::decompressedData;
using Bytes = std::vector<std::uint8_t>;

// Bytes from the first `alphabet` values: compressible unless the alphabet is 256.
Bytes randomBytes(std::size_t n, unsigned seed, unsigned alphabet = 256) {
  std::mt19937 rng(seed);
  Bytes b(n);
  for (auto& x : b)
    x = static_cast<std::uint8_t>(rng() % alphabet);
  return b;
}

Bytes zlibCompress(const Bytes& in, int level) {
  uLongf size = compressBound(static_cast<uLong>(in.size()));
  Bytes out(size);
  EXPECT_EQ(compress2(out.data(), &size, in.data(), static_cast<uLong>(in.size()), level), Z_OK);
  out.resize(size);
  return out;
}

TEST(CompressedData, IsABareZlibStreamThatUncompressReads) {
  for (const Bytes& input : {randomBytes(100000, 1, 6), randomBytes(5000, 2), Bytes{42}}) {
    auto packed = compressedData(input);
    ASSERT_TRUE(packed);
    EXPECT_LE(packed->size(), compressedDataCapacity(input.size()));
    Bytes back(input.size());
    uLongf size = static_cast<uLongf>(back.size());
    ASSERT_EQ(uncompress(back.data(), &size, packed->data(), static_cast<uLong>(packed->size())),
              Z_OK);
    EXPECT_EQ(size, input.size());
    EXPECT_EQ(back, input);
  }
}

TEST(CompressedData, EmptyAndOneByteInputsAndCapacity) {
  EXPECT_FALSE(compressedData({}));
  const auto empty = decompressedData({});
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->empty());
  // A one-byte input gets a one-byte receiver, which cannot grow.
  EXPECT_FALSE(decompressedData(Bytes{0x78}));
  EXPECT_FALSE(decompressedData(Bytes{0x00}));
  EXPECT_EQ(compressedDataCapacity(1000000), 1001012u);
  EXPECT_EQ(compressedDataCapacity(1), 13u);
  EXPECT_EQ(compressedDataCapacity(0), 12u);
}

TEST(CompressedData, FailureGoesToTheAssertionHandler) {
  // A length no buffer can hold makes the compressor fail before any byte of
  // the input is read.
  const std::uint8_t byte = 0;
  const std::span<const std::uint8_t> impossible(&byte, SIZE_MAX / 2);
  try {
    (void)compressedData(impossible);
    FAIL() << "the default handler throws";
  } catch (const KWException& e) {
    EXPECT_EQ(e.name(), "KWInternalInconsistencyException");
    EXPECT_EQ(e.reason(), "-compressedData error");
  }
  vtcore::AssertionFailure seen;
  auto previous = vtcore::setAssertionHandler([&](const vtcore::AssertionFailure& f) { seen = f; });
  EXPECT_FALSE(compressedData(impossible));
  vtcore::setAssertionHandler(previous);
  EXPECT_EQ(seen.operation, "compressedData");
  EXPECT_GT(seen.line, 0);
  EXPECT_EQ(seen.description, "-compressedData error");
}

TEST(DecompressedData, ReadsZlibStreamsOfEveryLevel) {
  const Bytes input = randomBytes(300000, 4, 6);
  for (int level : {0, 1, 6, 9})
    EXPECT_EQ(decompressedData(zlibCompress(input, level)), input) << "level " << level;
}

TEST(DecompressedData, DamagedTruncatedOrRandomStreamsGiveNull) {
  const Bytes packed = zlibCompress(randomBytes(20000, 5, 6), 6);
  for (std::size_t cut = 1; cut < packed.size(); ++cut)
    ASSERT_FALSE(decompressedData(std::span(packed.data(), cut))) << "cut at " << cut;
  Bytes wrongTrailer = packed;
  wrongTrailer.back() ^= 1;
  EXPECT_FALSE(decompressedData(wrongTrailer));
  Bytes wrongHeader = packed;
  wrongHeader[0] = 0x1F; // gzip magic: not a zlib stream
  EXPECT_FALSE(decompressedData(wrongHeader));
  for (unsigned seed = 0; seed < 50; ++seed)
    EXPECT_FALSE(decompressedData(randomBytes(1 + seed * 37, seed))) << seed;
  // Raw deflate data without the zlib wrapper is refused too, and so is a
  // stream asking for a preset dictionary (header 78 BB and a dictionary id).
  const std::span raw(packed.data() + 2, packed.size() - 6);
  EXPECT_FALSE(decompressedData(raw));
  Bytes needsDictionary = {0x78, 0xBB, 1, 2, 3, 4};
  needsDictionary.insert(needsDictionary.end(), packed.begin() + 2, packed.end());
  EXPECT_FALSE(decompressedData(needsDictionary));
}

TEST(DecompressedData, LargeOutputsFromTinyAndStoredStreams) {
  // A few kilobytes of stream expanding to 8 MiB: thousands of growth steps
  // of half the input length each. Then 12 MiB of stored blocks.
  const Bytes zeros(8 << 20, 0);
  const Bytes packed = zlibCompress(zeros, 9);
  ASSERT_LT(packed.size(), 20000u);
  EXPECT_EQ(decompressedData(packed), zeros);
  const Bytes input = randomBytes(12 << 20, 8);
  EXPECT_EQ(decompressedData(zlibCompress(input, 0)), input);
}

} // namespace

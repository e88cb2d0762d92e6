#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/text/checksum/data_compression.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include <zlib.h>

namespace {

using namespace vtcore::byte_buffer;
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
  uLongf size = compressBound(in.size());
  Bytes out(size);
  EXPECT_EQ(compress2(out.data(), &size, in.data(), in.size(), level), Z_OK);
  out.resize(size);
  return out;
}

TEST(Zlib, StreamsGoBothWaysAtEveryLevel) {
  for (const Bytes& input : {randomBytes(100000, 1, 6), randomBytes(5000, 2), Bytes{42}}) {
    auto packed = compressedData(input);
    ASSERT_TRUE(packed);
    EXPECT_LE(packed->size(), compressedDataCapacity(input.size()));
    Bytes back(input.size() + 1);
    uLongf size = back.size();
    ASSERT_EQ(uncompress(back.data(), &size, packed->data(), packed->size()), Z_OK);
    back.resize(size);
    EXPECT_EQ(back, input);
  }
  const Bytes input = randomBytes(300000, 4, 6);
  for (int level : {0, 1, 6, 9})
    EXPECT_EQ(decompressedData(zlibCompress(input, level)), input) << "level " << level;
}

TEST(CompressedData, EmptyInputCapacityAndFailure) {
  EXPECT_FALSE(compressedData({}));
  EXPECT_EQ(compressedDataCapacity(1000000), 1001012u);
  // A length no buffer can hold fails before a byte is read, through the assertion handler.
  const std::uint8_t byte = 0;
  vtcore::AssertionFailure seen;
  auto previous = vtcore::setAssertionHandler([&](const vtcore::AssertionFailure& f) { seen = f; });
  EXPECT_FALSE(compressedData(std::span(&byte, SIZE_MAX / 2)));
  vtcore::setAssertionHandler(previous);
  EXPECT_EQ(seen.operation, "compressedData");
  EXPECT_EQ(seen.description, "-compressedData error");
}

TEST(DecompressedData, LargeEmptyDamagedOrTruncatedStreams) {
  // A few KiB expanding to 8 MiB: thousands of growth steps of half the input length.
  const Bytes zeros(8 << 20, 0);
  EXPECT_EQ(decompressedData(zlibCompress(zeros, 9)), zeros);
  EXPECT_EQ(decompressedData({}), Bytes{});
  // A one-byte input gets a one-byte receiver, which cannot grow.
  EXPECT_FALSE(decompressedData(Bytes{0x78}));
  const Bytes packed = zlibCompress(randomBytes(20000, 5, 6), 6);
  for (std::size_t cut = 1; cut < packed.size(); ++cut)
    ASSERT_FALSE(decompressedData(std::span(packed.data(), cut))) << "cut at " << cut;
  Bytes wrongTrailer = packed;
  wrongTrailer.back() ^= 1;
  EXPECT_FALSE(decompressedData(wrongTrailer));
  // A stream asking for a preset dictionary (header 78 BB and a dictionary id).
  Bytes needsDictionary = {0x78, 0xBB, 1, 2, 3, 4};
  needsDictionary.insert(needsDictionary.end(), packed.begin() + 2, packed.end());
  EXPECT_FALSE(decompressedData(needsDictionary));
}

} // namespace

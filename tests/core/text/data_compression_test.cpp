#include <vtcore/core/diagnostics/exception.h>
#include <vtcore/core/text/data_compression.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <zlib.h>

namespace {

using vtcore::byte_buffer::compressedData;
using vtcore::byte_buffer::compressedDataCapacity;
using vtcore::byte_buffer::decompressedData;
using Bytes = std::vector<std::uint8_t>;

Bytes sampleText(std::size_t n, unsigned seed) {
  // Compressible but not trivial: words from a small vocabulary.
  static const char* words[] = {"tempo ", "swing ", "octave ", "velocity ", "chord ", "\n"};
  std::mt19937 rng(seed);
  Bytes out;
  while (out.size() < n) {
    const char* w = words[rng() % 6];
    out.insert(out.end(), w, w + std::strlen(w));
  }
  out.resize(n);
  return out;
}

Bytes randomBytes(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  Bytes b(n);
  for (auto& x : b)
    x = static_cast<std::uint8_t>(rng());
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
  for (const Bytes& input : {sampleText(100000, 1), randomBytes(5000, 2), Bytes{42}}) {
    auto packed = compressedData(input);
    ASSERT_TRUE(packed);
    ASSERT_GE(packed->size(), 6u);
    EXPECT_EQ((*packed)[0] & 0x0F, 8) << "deflate method in the zlib header";
    EXPECT_LE(packed->size(), compressedDataCapacity(input.size()));
    Bytes back(input.size());
    uLongf size = static_cast<uLongf>(back.size());
    ASSERT_EQ(uncompress(back.data(), &size, packed->data(), static_cast<uLong>(packed->size())),
              Z_OK);
    EXPECT_EQ(size, input.size());
    EXPECT_EQ(back, input);
    EXPECT_EQ(decompressedData(*packed), input);
  }
}

TEST(CompressedData, EmptyInputGivesNullAndCapacityFollowsTheOldBound) {
  EXPECT_FALSE(compressedData({}));
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
  EXPECT_EQ(seen.line, 36);
  EXPECT_EQ(seen.description, "-compressedData error");
}

TEST(DecompressedData, ReadsZlibStreamsOfEveryLevel) {
  const Bytes input = sampleText(300000, 4);
  for (int level : {0, 1, 6, 9}) {
    const auto out = decompressedData(zlibCompress(input, level));
    ASSERT_TRUE(out) << "level " << level;
    EXPECT_EQ(*out, input) << "level " << level;
  }
}

TEST(DecompressedData, EmptyInputGivesEmptyBuffer) {
  const auto out = decompressedData({});
  ASSERT_TRUE(out);
  EXPECT_TRUE(out->empty());
}

TEST(DecompressedData, DamagedTruncatedOrRandomStreamsGiveNull) {
  const Bytes input = sampleText(20000, 5);
  const Bytes packed = zlibCompress(input, 6);
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
  // Raw deflate data without the zlib wrapper is refused too.
  EXPECT_FALSE(decompressedData(std::span(packed.data() + 2, packed.size() - 6)));
}

TEST(DecompressedData, StreamWithPresetDictionaryGivesNull) {
  const Bytes input = sampleText(1000, 6);
  z_stream s{};
  ASSERT_EQ(deflateInit(&s, 6), Z_OK);
  const Bytes dictionary = sampleText(100, 7);
  ASSERT_EQ(deflateSetDictionary(&s, dictionary.data(), static_cast<uInt>(dictionary.size())),
            Z_OK);
  Bytes out(2000);
  s.next_in = const_cast<Bytef*>(input.data());
  s.avail_in = static_cast<uInt>(input.size());
  s.next_out = out.data();
  s.avail_out = static_cast<uInt>(out.size());
  ASSERT_EQ(deflate(&s, Z_FINISH), Z_STREAM_END);
  out.resize(s.total_out);
  deflateEnd(&s);
  EXPECT_FALSE(decompressedData(out));
}

TEST(DecompressedData, GrowsInHalfInputStepsFromHighlyCompressibleInput) {
  // A few hundred bytes of stream expanding to 8 MiB: thousands of growth
  // steps of half the input length each.
  const Bytes zeros(8 << 20, 0);
  const Bytes packed = zlibCompress(zeros, 9);
  ASSERT_LT(packed.size(), 20000u);
  const auto out = decompressedData(packed);
  ASSERT_TRUE(out);
  EXPECT_EQ(*out, zeros);
}

TEST(DecompressedData, LargeStoredStreamExpands) {
  const Bytes input = randomBytes(12 << 20, 8);
  const auto out = decompressedData(zlibCompress(input, 0));
  ASSERT_TRUE(out);
  EXPECT_EQ(*out, input);
}

TEST(DecompressedData, OneByteInputCannotGrowAndGivesNull) {
  EXPECT_FALSE(decompressedData(Bytes{0x78}));
  EXPECT_FALSE(decompressedData(Bytes{0x00}));
}

} // namespace

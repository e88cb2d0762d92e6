#include <vtcore/core/text/swap/sample_convert.h>

#include "code_path_fixture.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// Integer to float is defined as mantissa bits (32-bit samples shifted right by 8) added
// to the bit pattern of +/-1.0, then 1.0 taken away again: exactly this scale.
float referenceToFloat(std::int32_t v, int width) {
  return std::ldexp(static_cast<float>(width == 4 ? v >> 8 : v), width == 4 ? -23 : 1 - 8 * width);
}

// Float to integer: the mantissa shifted by the exponent, clipped at +/-1.0.
std::int32_t referenceToInteger32(float x) {
  const auto f = std::bit_cast<std::uint32_t>(x);
  if (f == 0)
    return 0;
  const int s = 127 - static_cast<int>((f >> 23) & 0xFF);
  std::uint32_t magnitude = s <= 0 ? 0x7FFFFF00u : s >= 32 ? 0u : ((f << 8) | 0x80000000u) >> s;
  return (f & 0x80000000u) ? -static_cast<std::int32_t>(magnitude)
                           : static_cast<std::int32_t>(magnitude);
}

struct Format {
  int code;
  int little;
  int width; // bytes of a file sample
  bool isUnsigned() const { return code == 1 && little; }
};

const Format kFormats[] = {{1, 0, 1}, {2, 0, 2}, {3, 0, 3},  {4, 0, 4},  {1, 1, 1}, {2, 1, 2},
                           {3, 1, 3}, {4, 1, 4}, {-4, 0, 4}, {-4, 1, 4}, {-8, 0, 8}};

// The sample at `p` as a signed integer (unsigned 8-bit samples less 128).
std::int32_t loadSample(const unsigned char* p, const Format& f) {
  const auto byte = [&](int i) { return p[f.little ? i : f.width - 1 - i]; }; // i-th lowest
  std::int32_t v = static_cast<signed char>(byte(f.width - 1) ^ (f.isUnsigned() ? 0x80 : 0));
  for (int i = f.width - 2; i >= 0; --i)
    v = v * 256 + byte(i);
  return v;
}

using ConverterPaths = DataCodePathTest;

// Every format both ways, in both layouts and in place. Integer samples match the definitions
// above bit for bit; floats in [-1, 1) come back within one step of the sample width.
TEST_P(ConverterPaths, MatchTheDefinitionsAndRoundTripInBothLayoutsAndInPlace) {
  // +/-1.0 clip to 0x7F/-0x80, 0x7FFF/-0x8000, 0x7FFFFF/-0x7FFFFF, 0x7FFFFF00/-0x7FFFFF00.
  ASSERT_EQ(referenceToInteger32(1.0f), 0x7FFFFF00);
  ASSERT_EQ(referenceToInteger32(-1.0f), -0x7FFFFF00);
  const std::size_t count = 20000; // many staging blocks
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> pick(-1.0f, 1.0f);
  std::vector<float> left(count), right(count);
  for (std::size_t i = 0; i < count; ++i)
    left[i] = 1.25f * pick(rng), right[i] = pick(rng);
  std::size_t at = 0;
  for (float x : {0.0f, 1.0f, 0.5f, 2.0f, std::nextafter(1.0f, 0.0f), 1e-10f, 0x1p-31f, 0x1p-24f,
                  std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(),
                  std::numeric_limits<float>::denorm_min()})
    left[at++] = x, left[at++] = -x;
  for (const Format& f : kFormats) {
    SCOPED_TRACE(testing::Message() << "format " << f.code << "/" << f.little);
    const auto toFile = GetConvertFloatToN(f.code, f.little);
    const auto toFloat = GetConvertNToFloat(f.code, f.little);
    const float step =
        f.code < 0 ? 0.0f : std::ldexp(f.width == 4 ? 256.0f : 1.0f, 1 - 8 * f.width);
    Bytes mono(count * f.width + 1, 0xEE), pairs(2 * count * f.width);
    toFile(mono.data(), left.data(), count, nullptr);
    EXPECT_EQ(mono.back(), 0xEE) << "wrote past the end";
    toFile(pairs.data(), left.data(), count, right.data());
    std::vector<float> back(count), backLeft(count), backRight(count);
    toFloat(back.data(), mono.data(), count, nullptr);
    toFloat(backLeft.data(), pairs.data(), count, backRight.data());
    EXPECT_EQ(std::memcmp(backLeft.data(), back.data(), count * 4), 0);
    for (std::size_t i = 0; i < count; ++i) {
      const unsigned char* sample = mono.data() + i * f.width;
      if (f.code > 0) {
        const std::int32_t v = loadSample(sample, f);
        ASSERT_EQ(v, referenceToInteger32(left[i]) >> (32 - 8 * f.width)) << left[i];
        ASSERT_EQ(std::bit_cast<std::uint32_t>(back[i]),
                  std::bit_cast<std::uint32_t>(referenceToFloat(v, f.width)));
      } else { // the float, or the double for -8, in file order
        std::uint64_t bits = 0;
        for (int b = 0; b < f.width; ++b)
          bits = bits << 8 | sample[f.little ? f.width - 1 - b : b];
        ASSERT_EQ(bits, f.width == 4 ? std::bit_cast<std::uint32_t>(left[i])
                                     : std::bit_cast<std::uint64_t>(double{left[i]}));
      }
      ASSERT_LE(std::fabs(left[i]) < 1.0f ? std::fabs(back[i] - left[i]) : 0.0f, step);
      ASSERT_LE(std::fabs(backRight[i] - right[i]), step);
      // Interleaved pairs hold the first channel first.
      ASSERT_EQ(std::memcmp(pairs.data() + 2 * i * f.width, sample, f.width), 0);
    }
    // The same conversions in place, one buffer holding floats and samples.
    for (const Bytes* file : {&mono, &pairs}) {
      const bool two = file == &pairs;
      const std::size_t size = count * f.width * (two ? 2 : 1);
      Bytes shared(std::max(size, count * 4) + 16);
      std::memcpy(shared.data(), left.data(), count * 4);
      toFile(shared.data(), shared.data(), count, two ? right.data() : nullptr);
      ASSERT_EQ(std::memcmp(shared.data(), file->data(), size), 0) << two;
      std::vector<float> gotRight(count);
      toFloat(shared.data(), shared.data(), count, two ? gotRight.data() : nullptr);
      ASSERT_EQ(std::memcmp(shared.data(), back.data(), count * 4), 0) << two;
      EXPECT_TRUE(!two || gotRight == backRight);
    }
    if (f.code < 0)
      continue;
    // The lowest integer, which no float gives for the wider formats, is -1.0.
    std::fill_n(mono.begin(), f.width, 0);
    mono[f.little ? f.width - 1 : 0] = f.isUnsigned() ? 0 : 0x80;
    toFloat(back.data(), mono.data(), 1, nullptr);
    EXPECT_EQ(back[0], -1.0f);
  }
}

// Short runs at odd offsets, where the vector loops hand over to the scalar
// tail: each path gives the portable path's bytes and floats exactly.
TEST_P(ConverterPaths, ShortRunsEqualThePortablePath) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> pick(-1.1f, 1.1f);
  std::vector<float> floats(80);
  Bytes file(80 * 8 + 1);
  for (auto& x : floats)
    x = pick(rng);
  std::generate(file.begin(), file.end(), rng);
  const auto path = GetParam();
  for (const Format& f : kFormats)
    for (std::size_t count = 0; count <= 70; ++count) {
      SCOPED_TRACE(testing::Message()
                   << "format " << f.code << "/" << f.little << " count " << count);
      Bytes outFile[2];
      std::vector<float> outFloats[2];
      for (int run = 0; run < 2; ++run) {
        vtcore::setDataCodePath(run == 0 ? vtcore::DataCodePath::Portable : path);
        outFile[run].assign(count * f.width + 5, 0xEE);
        outFloats[run].assign(count + 3, -7.0f);
        GetConvertFloatToN(f.code, f.little)(outFile[run].data() + 1, floats.data() + 1, count,
                                             nullptr);
        GetConvertNToFloat(f.code, f.little)(outFloats[run].data() + 1, file.data() + 1, count,
                                             nullptr);
      }
      ASSERT_EQ(outFile[0], outFile[1]);
      ASSERT_EQ(std::memcmp(outFloats[0].data(), outFloats[1].data(), outFloats[0].size() * 4), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(AllPaths, ConverterPaths, ::testing::ValuesIn(kAllDataCodePaths),
                         [](const auto& p) { return vtcore::dataCodePathName(p.param); });

TEST(SampleConverters, UnlistedCombinationsDoNothing) {
  Bytes data(64, 0x5A);
  for (auto [format, flag] : {std::pair{-8, 1}, {0, 0}, {5, 1}, {-2, 0}, {8, 0}}) {
    GetConvertNToFloat(format, flag)(data.data(), data.data() + 32, 4, data.data() + 16);
    GetConvertFloatToN(format, flag)(data.data(), data.data() + 32, 4, nullptr);
    EXPECT_EQ(data, Bytes(64, 0x5A)) << format << "/" << flag;
  }
}

} // namespace

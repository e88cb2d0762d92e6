#include <vtcore/core/text/data_dispatch.h>
#include <vtcore/core/text/sample_convert.h>

#include "code_path_fixture.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// The stored formats' own definition of integer to float: mantissa bits
// added to the bit pattern of +/-1.0, then 1.0 taken away again.
float referenceToFloat(std::int32_t v, int width) {
  const auto magnitude = width == 4 ? static_cast<std::uint32_t>(v >= 0 ? v >> 8 : -(v >> 8))
                                    : static_cast<std::uint32_t>(std::abs(v)) << (24 - 8 * width);
  const float f = std::bit_cast<float>((v >= 0 ? 0x3F800000u : 0xBF800000u) + magnitude);
  return v >= 0 ? f - 1.0f : f + 1.0f;
}

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

const Format kIntegerFormats[] = {{1, 0, 1}, {2, 0, 2}, {3, 0, 3}, {4, 0, 4},
                                  {1, 1, 1}, {2, 1, 2}, {3, 1, 3}, {4, 1, 4}};

void storeSample(unsigned char* p, const Format& f, std::int32_t v) {
  const auto bits = static_cast<std::uint32_t>(f.isUnsigned() ? v + 128 : v);
  for (int i = 0; i < f.width; ++i)
    p[f.little ? i : f.width - 1 - i] = static_cast<unsigned char>(bits >> (8 * i));
}

std::int32_t loadSample(const unsigned char* p, const Format& f) {
  std::uint32_t bits = 0;
  for (int i = 0; i < f.width; ++i)
    bits |= static_cast<std::uint32_t>(p[f.little ? i : f.width - 1 - i]) << (8 * i);
  if (f.isUnsigned())
    return static_cast<std::int32_t>(bits) - 128;
  const int unused = 32 - 8 * f.width;
  return static_cast<std::int32_t>(bits << unused) >> unused;
}

std::vector<float> randomFloats(std::size_t count, unsigned seed, float range = 1.0f) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> pick(-range, range);
  std::vector<float> values(count);
  for (auto& v : values)
    v = pick(rng);
  return values;
}

class ConverterPaths : public DataCodePathTest {};

// Both ways bit for bit against the definitions above: integers of every
// width to floats by the exponent trick, floats to integers by mantissa shift
// and clip, special values included.
TEST_P(ConverterPaths, ConversionsMatchTheStoredFormatsDefinitionExactly) {
  auto floats = randomFloats(20000, 42, 1.25f);
  for (float x : {0.0f, 1.0f, 0.5f, 2.0f, std::nextafter(1.0f, 0.0f), 1e-10f, 0x1p-31f, 0x1p-24f,
                  std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(),
                  std::numeric_limits<float>::denorm_min()})
    floats.insert(floats.end(), {x, -x});
  for (const Format& f : kIntegerFormats) {
    SCOPED_TRACE(testing::Message() << "format " << f.code << "/" << f.little);
    Bytes file(floats.size() * f.width + 1, 0xEE);
    GetConvertFloatToN(f.code, f.little)(file.data(), floats.data(), floats.size(), nullptr);
    EXPECT_EQ(file.back(), 0xEE) << "wrote past the end";
    for (std::size_t i = 0; i < floats.size(); ++i)
      ASSERT_EQ(loadSample(file.data() + i * f.width, f),
                referenceToInteger32(floats[i]) >> (32 - 8 * f.width))
          << floats[i];
    // Add the lowest integer, which no float gives for the wider formats.
    storeSample(file.data(), f, static_cast<std::int32_t>(-(std::int64_t{1} << (8 * f.width - 1))));
    std::vector<float> back(floats.size());
    GetConvertNToFloat(f.code, f.little)(back.data(), file.data(), floats.size(), nullptr);
    for (std::size_t i = 0; i < floats.size(); ++i) {
      const std::int32_t sample = loadSample(file.data() + i * f.width, f);
      ASSERT_EQ(std::bit_cast<std::uint32_t>(back[i]),
                std::bit_cast<std::uint32_t>(referenceToFloat(sample, f.width)))
          << sample;
    }
  }
}

TEST_P(ConverterPaths, ClipValuesAtPlusAndMinusOne) {
  const float in[] = {1.0f, -1.0f};
  for (auto [f, plus, minus] : {std::tuple{Format{4, 0, 4}, 0x7FFFFF00, -0x7FFFFF00},
                                {Format{3, 1, 3}, 0x7FFFFF, -0x7FFFFF},
                                {Format{2, 0, 2}, 0x7FFF, -0x8000},
                                {Format{1, 0, 1}, 0x7F, -0x80},
                                {Format{1, 1, 1}, 0x7F, -0x80}}) {
    Bytes out(2 * f.width);
    GetConvertFloatToN(f.code, f.little)(out.data(), in, 2, nullptr);
    EXPECT_EQ(loadSample(out.data(), f), plus) << f.code << "/" << f.little;
    EXPECT_EQ(loadSample(out.data() + f.width, f), minus) << f.code << "/" << f.little;
  }
}

TEST_P(ConverterPaths, RoundTripsWithinOneStepInBothChannelLayoutsAndInPlace) {
  std::vector<Format> formats(std::begin(kIntegerFormats), std::end(kIntegerFormats));
  formats.insert(formats.end(), {{-4, 0, 4}, {-4, 1, 4}, {-8, 0, 8}});
  const std::size_t count = 1000; // more than one staging block
  auto left = randomFloats(count, 5), right = randomFloats(count, 6);
  for (const Format& f : formats) {
    SCOPED_TRACE(testing::Message() << "format " << f.code << "/" << f.little);
    const auto toFile = GetConvertFloatToN(f.code, f.little);
    const auto toFloat = GetConvertNToFloat(f.code, f.little);
    const float step =
        f.code < 0 ? 0.0f : std::ldexp(f.width == 4 ? 256.0f : 1.0f, 1 - 8 * f.width);
    Bytes mono(count * f.width), pairs(2 * count * f.width);
    toFile(mono.data(), left.data(), count, nullptr);
    toFile(pairs.data(), left.data(), count, right.data());
    std::vector<float> back(count), backLeft(count), backRight(count);
    toFloat(back.data(), mono.data(), count, nullptr);
    toFloat(backLeft.data(), pairs.data(), count, backRight.data());
    for (std::size_t i = 0; i < count; ++i) {
      ASSERT_LE(std::fabs(back[i] - left[i]), step);
      ASSERT_LE(std::fabs(backRight[i] - right[i]), step);
      // Interleaved pairs hold the first channel first.
      ASSERT_EQ(std::memcmp(pairs.data() + 2 * i * f.width, mono.data() + i * f.width, f.width), 0);
      // Float formats store the float, or the double for -8, in file order.
      std::uint64_t bits = 0;
      for (int b = 0; f.code < 0 && b < f.width; ++b)
        bits = bits << 8 | mono[i * f.width + (f.little ? f.width - 1 - b : b)];
      ASSERT_TRUE(f.code > 0 ||
                  bits == (f.width == 4 ? std::bit_cast<std::uint32_t>(left[i])
                                        : std::bit_cast<std::uint64_t>(double{left[i]})));
    }
    EXPECT_EQ(backLeft, back);

    // The same conversions in place, one buffer holding floats and samples.
    for (const Bytes* file : {&mono, &pairs}) {
      const bool two = file == &pairs;
      Bytes shared(std::max(file->size(), count * 4) + 16);
      std::memcpy(shared.data(), left.data(), count * 4);
      toFile(shared.data(), shared.data(), count, two ? right.data() : nullptr);
      ASSERT_EQ(std::memcmp(shared.data(), file->data(), file->size()), 0) << two;
      std::vector<float> gotRight(count);
      toFloat(shared.data(), shared.data(), count, two ? gotRight.data() : nullptr);
      ASSERT_EQ(std::memcmp(shared.data(), back.data(), count * 4), 0) << two;
      EXPECT_TRUE(!two || gotRight == backRight);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllPaths, ConverterPaths,
                         ::testing::Values(vtcore::DataCodePath::Portable,
                                           vtcore::DataCodePath::SSSE3, vtcore::DataCodePath::AVX2),
                         [](const auto& p) { return vtcore::dataCodePathName(p.param); });

TEST(SampleConverters, UnlistedCombinationsDoNothing) {
  Bytes data(64, 0x5A);
  const Bytes before = data;
  for (auto [format, flag] : {std::pair{-8, 1}, {0, 0}, {5, 1}, {-2, 0}, {8, 0}}) {
    GetConvertNToFloat(format, flag)(data.data(), data.data() + 32, 4, data.data() + 16);
    GetConvertFloatToN(format, flag)(data.data(), data.data() + 32, 4, nullptr);
    EXPECT_EQ(data, before) << format << "/" << flag;
  }
  GetConvertNToFloat(2, 0)(nullptr, data.data(), 4, nullptr); // null buffers: nothing
  EXPECT_EQ(data, before);
}

} // namespace

#include <vtcore/core/text/data_dispatch.h>
#include <vtcore/core/text/sample_convert.h>

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
  if (f.isUnsigned())
    v += 128;
  for (int i = 0; i < f.width; ++i)
    p[f.little ? i : f.width - 1 - i] =
        static_cast<unsigned char>(static_cast<std::uint32_t>(v) >> (8 * i));
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

// Every value of 8- and 16-bit formats; the extremes and random values of wider ones.
std::vector<std::int32_t> integerSamples(const Format& f) {
  const std::int32_t lowest = static_cast<std::int32_t>(-(std::int64_t{1} << (8 * f.width - 1)));
  const std::int32_t highest = -(lowest + 1);
  std::vector<std::int32_t> values;
  if (f.width <= 2) {
    for (std::int32_t v = lowest; v <= highest; ++v)
      values.push_back(v);
    return values;
  }
  values = {0, 1, -1, 255, -255, 256, -256, lowest, highest};
  std::mt19937 rng(f.width * 10 + f.little);
  std::uniform_int_distribution<std::int32_t> pick(lowest, highest);
  for (int i = 0; i < 100000; ++i)
    values.push_back(pick(rng));
  return values;
}

std::vector<float> floatSamples() {
  std::vector<float> values;
  for (float x :
       {0.0f, 1.0f, 0.5f, 2.0f, 3.5f, std::nextafter(1.0f, 0.0f), 1e-10f, 0x1p-31f, 0x1p-24f,
        std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(),
        std::numeric_limits<float>::denorm_min()}) {
    values.push_back(x);
    values.push_back(-x);
  }
  std::mt19937 rng(42);
  std::uniform_real_distribution<float> pick(-1.25f, 1.25f);
  for (int i = 0; i < 20000; ++i)
    values.push_back(pick(rng));
  return values;
}

class ConverterPaths : public ::testing::TestWithParam<vtcore::DataCodePath> {
protected:
  void SetUp() override {
    previous_ = vtcore::dataCodePath();
    if (!vtcore::setDataCodePath(GetParam()))
      GTEST_SKIP() << "processor lacks " << vtcore::dataCodePathName(GetParam());
  }
  void TearDown() override { vtcore::setDataCodePath(previous_); }
  vtcore::DataCodePath previous_{};
};

std::vector<float> randomFloats(std::size_t count, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> pick(-1.0f, 1.0f);
  std::vector<float> values(count);
  for (auto& v : values)
    v = pick(rng);
  return values;
}

TEST_P(ConverterPaths, IntegersToFloatsMatchTheExponentTrickExactly) {
  for (const Format& f : kIntegerFormats) {
    const auto values = integerSamples(f);
    Bytes file(values.size() * f.width);
    for (std::size_t i = 0; i < values.size(); ++i)
      storeSample(file.data() + i * f.width, f, values[i]);
    std::vector<float> out(values.size(), 99.0f);
    GetConvertNToFloat(f.code, f.little)(out.data(), file.data(), values.size(), nullptr);
    for (std::size_t i = 0; i < values.size(); ++i)
      ASSERT_EQ(std::bit_cast<std::uint32_t>(out[i]),
                std::bit_cast<std::uint32_t>(referenceToFloat(values[i], f.width)))
          << "format " << f.code << "/" << f.little << " value " << values[i];
  }
}

TEST_P(ConverterPaths, FloatsToIntegersFollowMantissaShiftAndClip) {
  const auto values = floatSamples();
  for (const Format& f : kIntegerFormats) {
    Bytes file(values.size() * f.width + 1, 0xEE);
    GetConvertFloatToN(f.code, f.little)(file.data(), values.data(), values.size(), nullptr);
    for (std::size_t i = 0; i < values.size(); ++i) {
      const std::int32_t want = referenceToInteger32(values[i]) >> (32 - 8 * f.width);
      ASSERT_EQ(loadSample(file.data() + i * f.width, f), want)
          << "format " << f.code << "/" << f.little << " value " << values[i];
    }
    EXPECT_EQ(file.back(), 0xEE) << "wrote past the end";
  }
}

TEST_P(ConverterPaths, ClipValuesAtPlusAndMinusOne) {
  const float in[] = {1.0f, -1.0f, 7.0f, -7.0f};
  for (auto [f, plus, minus] : {std::tuple{Format{4, 0, 4}, 0x7FFFFF00, -0x7FFFFF00},
                                {Format{3, 1, 3}, 0x7FFFFF, -0x7FFFFF},
                                {Format{2, 0, 2}, 0x7FFF, -0x8000},
                                {Format{1, 0, 1}, 0x7F, -0x80},
                                {Format{1, 1, 1}, 0x7F, -0x80}}) {
    Bytes out(4 * f.width);
    GetConvertFloatToN(f.code, f.little)(out.data(), in, 4, nullptr);
    for (int i = 0; i < 4; ++i)
      EXPECT_EQ(loadSample(out.data() + i * f.width, f), i % 2 ? minus : plus)
          << f.code << "/" << f.little << " input " << in[i];
  }
}

TEST_P(ConverterPaths, RoundTripsWithinOneStepInBothChannelLayoutsAndInPlace) {
  const Format floatFormats[] = {{-4, 0, 4}, {-4, 1, 4}, {-8, 0, 8}};
  std::vector<Format> formats(std::begin(kIntegerFormats), std::end(kIntegerFormats));
  formats.insert(formats.end(), std::begin(floatFormats), std::end(floatFormats));
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
    }
    EXPECT_EQ(backLeft, back);
    for (std::size_t i = 0; f.code < 0 && i < count; ++i) {
      // Float formats store the float, or the double for -8, in file order.
      std::uint64_t bits = 0;
      for (int b = 0; b < f.width; ++b)
        bits = bits << 8 | mono[i * f.width + (f.little ? f.width - 1 - b : b)];
      ASSERT_EQ(bits, f.width == 4 ? std::bit_cast<std::uint32_t>(left[i])
                                   : std::bit_cast<std::uint64_t>(double{left[i]}));
    }

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
  // Listed converters ignore null buffers rather than crash.
  GetConvertNToFloat(2, 0)(nullptr, data.data(), 4, nullptr);
  GetConvertFloatToN(2, 0)(data.data(), nullptr, 4, nullptr);
  EXPECT_EQ(data, before);
}

} // namespace

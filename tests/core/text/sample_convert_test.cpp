#include <vtcore/core/text/data_dispatch.h>
#include <vtcore/core/text/sample_convert.h>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// The stored formats' own definition of integer to float: mantissa bits
// added to the bit pattern of +/-1.0, then 1.0 taken away again.
float referenceToFloat(std::int32_t v, int width) {
  std::uint32_t bits;
  if (width == 4) {
    const std::int32_t m = v >> 8;
    bits = v >= 0 ? 0x3F800000u + static_cast<std::uint32_t>(m)
                  : 0xBF800000u - static_cast<std::uint32_t>(m);
  } else {
    const int shift = 24 - 8 * width;
    bits = v >= 0 ? 0x3F800000u + (static_cast<std::uint32_t>(v) << shift)
                  : 0xBF800000u + (static_cast<std::uint32_t>(-v) << shift);
  }
  const float f = std::bit_cast<float>(bits);
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

std::vector<std::int32_t> integerSamples(const Format& f, std::size_t randomCount) {
  const std::int64_t lowest = -(std::int64_t{1} << (8 * f.width - 1));
  const std::int64_t highest = -lowest - 1;
  std::vector<std::int32_t> values;
  for (std::int64_t v :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, lowest, highest, std::int64_t{255},
        std::int64_t{-255}, std::int64_t{256}, std::int64_t{-256}})
    if (v >= lowest && v <= highest)
      values.push_back(static_cast<std::int32_t>(v));
  if (f.width <= 2) {
    for (std::int64_t v = lowest; v <= highest; ++v)
      values.push_back(static_cast<std::int32_t>(v));
  } else {
    std::mt19937 rng(f.width * 10 + f.little);
    std::uniform_int_distribution<std::int64_t> pick(lowest, highest);
    for (std::size_t i = 0; i < randomCount; ++i)
      values.push_back(static_cast<std::int32_t>(pick(rng)));
  }
  return values;
}

std::vector<float> floatSamples() {
  std::vector<float> values = {0.0f,
                               -0.0f,
                               1.0f,
                               -1.0f,
                               0.5f,
                               -0.5f,
                               2.0f,
                               -3.5f,
                               std::nextafter(1.0f, 0.0f),
                               -std::nextafter(1.0f, 0.0f),
                               std::numeric_limits<float>::infinity(),
                               -std::numeric_limits<float>::infinity(),
                               std::numeric_limits<float>::quiet_NaN(),
                               std::numeric_limits<float>::denorm_min(),
                               1e-10f,
                               -1e-10f,
                               0x1p-31f,
                               -0x1p-31f,
                               0x1p-24f,
                               -0x1p-24f};
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

TEST_P(ConverterPaths, IntegersToFloatsMatchTheExponentTrickExactly) {
  for (const Format& f : kIntegerFormats) {
    const auto values = integerSamples(f, 100000);
    Bytes file(values.size() * f.width);
    for (std::size_t i = 0; i < values.size(); ++i)
      storeSample(file.data() + i * f.width, f, values[i]);
    std::vector<float> out(values.size(), 99.0f);
    GetConvertNToFloat(f.code, f.little)(out.data(), file.data(), values.size(), nullptr);
    for (std::size_t i = 0; i < values.size(); ++i) {
      const float want = referenceToFloat(values[i], f.width);
      ASSERT_EQ(std::bit_cast<std::uint32_t>(out[i]), std::bit_cast<std::uint32_t>(want))
          << "format " << f.code << "/" << f.little << " value " << values[i];
      ASSERT_GE(out[i], -1.0f);
      ASSERT_LT(out[i], 1.0f);
    }
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
  struct Expect {
    Format f;
    std::int32_t plus, minus;
  };
  const Expect cases[] = {{{4, 0, 4}, 0x7FFFFF00, -0x7FFFFF00},
                          {{3, 1, 3}, 0x7FFFFF, -0x7FFFFF},
                          {{2, 0, 2}, 0x7FFF, -0x8000},
                          {{1, 0, 1}, 0x7F, -0x80},
                          {{1, 1, 1}, 0x7F, -0x80}};
  for (const auto& c : cases) {
    const std::vector<float> in = {1.0f, -1.0f, 7.0f, -7.0f};
    Bytes out(in.size() * c.f.width);
    GetConvertFloatToN(c.f.code, c.f.little)(out.data(), in.data(), in.size(), nullptr);
    EXPECT_EQ(loadSample(out.data(), c.f), c.plus) << c.f.code;
    EXPECT_EQ(loadSample(out.data() + c.f.width, c.f), c.minus) << c.f.code;
    EXPECT_EQ(loadSample(out.data() + 2 * c.f.width, c.f), c.plus) << c.f.code;
    EXPECT_EQ(loadSample(out.data() + 3 * c.f.width, c.f), c.minus) << c.f.code;
  }
  // Unsigned 8-bit: 128 is zero.
  const float zero = 0.0f;
  unsigned char byte = 0;
  GetConvertFloatToN(1, 1)(&byte, &zero, 1, nullptr);
  EXPECT_EQ(byte, 128);
}

TEST_P(ConverterPaths, RoundTripStaysWithinOneStepForBothChannelLayouts) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> pick(-1.0f, 1.0f);
  const std::size_t count = 777;
  std::vector<float> left(count), right(count);
  for (std::size_t i = 0; i < count; ++i) {
    left[i] = pick(rng);
    right[i] = pick(rng);
  }
  for (const Format& f : kIntegerFormats) {
    const float step = std::ldexp(1.0f, -(8 * f.width - 1)) * (f.width == 4 ? 256.0f : 1.0f);
    // One channel.
    Bytes file(count * f.width);
    GetConvertFloatToN(f.code, f.little)(file.data(), left.data(), count, nullptr);
    std::vector<float> back(count);
    GetConvertNToFloat(f.code, f.little)(back.data(), file.data(), count, nullptr);
    for (std::size_t i = 0; i < count; ++i)
      ASSERT_LE(std::fabs(back[i] - left[i]), step) << f.code << "/" << f.little;
    // Two interleaved channels, first channel first.
    Bytes pairs(2 * count * f.width);
    GetConvertFloatToN(f.code, f.little)(pairs.data(), left.data(), count, right.data());
    for (std::size_t i = 0; i < count; ++i) {
      ASSERT_EQ(std::memcmp(pairs.data() + 2 * i * f.width, file.data() + i * f.width, f.width), 0);
    }
    std::vector<float> backLeft(count), backRight(count);
    GetConvertNToFloat(f.code, f.little)(backLeft.data(), pairs.data(), count, backRight.data());
    EXPECT_EQ(backLeft, back);
    for (std::size_t i = 0; i < count; ++i)
      ASSERT_LE(std::fabs(backRight[i] - right[i]), step) << f.code << "/" << f.little;
  }
}

TEST_P(ConverterPaths, ConvertsInPlaceInBothDirections) {
  const Format formats[] = {{1, 0, 1}, {1, 1, 1},  {2, 1, 2},  {3, 0, 3},
                            {4, 0, 4}, {-4, 0, 4}, {-4, 1, 4}, {-8, 0, 8}};
  std::mt19937 rng(9);
  std::uniform_real_distribution<float> pick(-1.0f, 1.0f);
  for (const Format& f : formats) {
    for (bool twoChannels : {false, true}) {
      const std::size_t count = 1000; // more than one staging block
      std::vector<float> left(count), right(count);
      for (std::size_t i = 0; i < count; ++i) {
        left[i] = pick(rng);
        right[i] = pick(rng);
      }
      float* second = twoChannels ? right.data() : nullptr;
      const std::size_t fileBytes = count * f.width * (twoChannels ? 2 : 1);
      Bytes expectedFile(fileBytes);
      GetConvertFloatToN(f.code, f.little)(expectedFile.data(), left.data(), count, second);

      std::vector<unsigned char> shared(std::max(fileBytes, count * 4) + 16);
      std::memcpy(shared.data(), left.data(), count * 4);
      GetConvertFloatToN(f.code, f.little)(shared.data(), shared.data(), count, second);
      ASSERT_EQ(std::memcmp(shared.data(), expectedFile.data(), fileBytes), 0)
          << "to format " << f.code << "/" << f.little << " channels " << (twoChannels ? 2 : 1);

      std::vector<float> expectedLeft(count), expectedRight(count), gotRight(count);
      GetConvertNToFloat(f.code, f.little)(expectedLeft.data(), expectedFile.data(), count,
                                           twoChannels ? expectedRight.data() : nullptr);
      GetConvertNToFloat(f.code, f.little)(shared.data(), shared.data(), count,
                                           twoChannels ? gotRight.data() : nullptr);
      ASSERT_EQ(std::memcmp(shared.data(), expectedLeft.data(), count * 4), 0)
          << "from format " << f.code << "/" << f.little;
      if (twoChannels) {
        ASSERT_EQ(gotRight, expectedRight);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllPaths, ConverterPaths,
                         ::testing::Values(vtcore::DataCodePath::Portable,
                                           vtcore::DataCodePath::SSSE3, vtcore::DataCodePath::AVX2),
                         [](const auto& p) { return vtcore::dataCodePathName(p.param); });

TEST(SampleConverters, FloatFormatsSwapOrWidenExactly) {
  const std::vector<float> in = {0.25f, -1.5f, 3.0e-5f};
  Bytes big(12), little(12), doubles(24);
  GetConvertFloatToN(-4, 0)(big.data(), in.data(), 3, nullptr);
  GetConvertFloatToN(-4, 1)(little.data(), in.data(), 3, nullptr);
  GetConvertFloatToN(-8, 0)(doubles.data(), in.data(), 3, nullptr);
  EXPECT_EQ(big[0], 0x3E); // 0.25f = 0x3E800000, high byte first
  EXPECT_EQ(big[1], 0x80);
  EXPECT_EQ(std::memcmp(little.data(), in.data(), 12), 0);
  EXPECT_EQ(doubles[0], 0x3F); // 0.25 = 0x3FD0000000000000
  EXPECT_EQ(doubles[1], 0xD0);
  std::vector<float> back(3);
  for (auto [bytes, code, flag] : {std::tuple{&big, -4, 0}, {&little, -4, 1}, {&doubles, -8, 0}}) {
    GetConvertNToFloat(code, flag)(back.data(), bytes->data(), 3, nullptr);
    EXPECT_EQ(back, in) << code << "/" << flag;
  }
}

TEST(SampleConverters, UnlistedCombinationsDoNothing) {
  const std::vector<std::pair<int, int>> unlisted = {{-8, 1}, {0, 0}, {5, 1}, {-2, 0}, {8, 0}};
  Bytes data(64, 0x5A);
  const Bytes before = data;
  for (auto [format, flag] : unlisted) {
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

#include <vtcore/music/deviation.h>
#include <vtcore/music/trace_text.h>
#include <vtcore/music/transients.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Sends std::cout into a string for the life of the object.
struct CaptureCout {
  std::ostringstream text;
  std::streambuf* saved = std::cout.rdbuf(text.rdbuf());
  ~CaptureCout() { std::cout.rdbuf(saved); }
};

// What a trace writes after its text while std::cout is good.
std::string coutAddress() {
  std::ostringstream text;
  text << static_cast<const void*>(&std::cout);
  return text.str();
}

CTransient make(std::int64_t pos, float energy = 1.0f) {
  CTransient transient;
  transient.pos = pos;
  transient.Energy = energy;
  return transient;
}

using Positions = std::vector<std::int64_t>;

Positions positions(const CTransients& transients) {
  Positions result;
  for (const auto& transient : transients)
    result.push_back(std::int64_t{transient.pos});
  return result;
}

bool isNaN(const CTransient& t) {
  return std::isnan(t.Energy);
}

} // namespace

TEST(CTransient, EqualityByPositionOnlyAndTraceForms) {
  CTransient other = make(0, 9.0f);
  other.FreqHz = 100.0f;
  EXPECT_TRUE(CTransient() == other);
  EXPECT_FALSE(CTransient() == make(1));

  CTransient transient = make(-42, 0.5f);
  transient.visibleweight = 2.0f;
  transient.FreqHz = 440.0f;
  const std::string full = "CTransient: pos -42, Energy 0.5, visibleweight 2, FreqHz 440";
  const std::string brief = "CTransient: pos -42, Energy 0.5, FreqHz 440";
  std::ostringstream streamed, briefHook;
  streamed << transient;
  TraceStreamBrief(briefHook, transient);
  EXPECT_EQ(streamed.str(), full);
  EXPECT_EQ(briefHook.str(), full);
  EXPECT_EQ(std::string(transient.TraceStr()).substr(0, brief.size() + 2), brief + "0x");

  // The stream's address follows the text; a failed stream swallows both.
  CaptureCout cout;
  transient.Trace();
  transient.TraceBrief();
  std::cout.setstate(std::ios::failbit);
  make(1).Trace();
  std::cout.clear();
  EXPECT_EQ(cout.text.str(), full + coutAddress() + brief + coutAddress());
}

TEST(TraceText, CutsAt254Characters) {
  char buffer[vtcore::detail::kTraceStrBufferSize];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(vtcore::detail::copyTraceText(buffer, std::string(300, 'a')), buffer);
  EXPECT_EQ(std::strlen(buffer), 254u);
}

TEST(CTransients, ThinningKeepsTheWeakestAndOrderChecks) {
  CTransients three{make(10, 5), make(20, 1), make(30, 3)};
  three.ThinOutToSizeAndSortByPos(2);
  EXPECT_EQ(positions(three), (Positions{20, 30}));

  CTransients withDuplicate{make(1), make(2), make(2)};
  EXPECT_TRUE(withDuplicate.AreSortedByPos());
  EXPECT_FALSE(withDuplicate.AreUniqueAndSortedByPos());
  CTransients byEnergy{make(3, 2), make(1, 2), make(2, 0.5f)};
  byEnergy.SortByEnergyAndPos();
  EXPECT_EQ(positions(byEnergy), (Positions{2, 1, 3}));
}

// The NaN guard must not change what well-formed data sorts to.
TEST(CTransients, EnergySortMatchesThePublicOrderOnWellFormedData) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> pos(-50, 50), energy(0, 9);
  for (int round = 0; round < 20; ++round) {
    CTransients transients;
    for (int i = 0; i < 200; ++i) {
      transients.push_back(make(pos(random), static_cast<float>(energy(random))));
      transients.back().FreqHz = static_cast<float>(i); // tells equal elements apart
    }
    CTransients expected = transients;
    std::sort(expected.begin(), expected.end(), SortFunctor_CTransient_EnergyAndPos());
    transients.SortByEnergyAndPos();
    ASSERT_EQ(std::memcmp(transients.data(), expected.data(), transients.size() * 36), 0);
  }
}

// Large enough for the standard sort's unguarded insertion to run off the end.
TEST(CTransients, NaNEnergiesNeitherCrashNorLoop) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::mt19937 random(11);
  std::uniform_int_distribution<int> pos(0, 1000), pick(0, 3);
  CTransients transients;
  for (int i = 0; i < 3000; ++i)
    transients.push_back(make(pos(random), pick(random) == 0 ? nan : float(pos(random))));
  const auto nanCount = std::count_if(transients.begin(), transients.end(), isNaN);

  CTransients sorted = transients;
  sorted.SortByEnergyAndPos();
  const auto firstNaN = sorted.end() - nanCount;
  EXPECT_TRUE(std::is_sorted(sorted.begin(), firstNaN, SortFunctor_CTransient_EnergyAndPos()));
  EXPECT_TRUE(std::all_of(firstNaN, sorted.end(), isNaN));
  transients.ThinOutToSizeAndSortByPos(transients.size() - nanCount);
  EXPECT_TRUE(transients.AreSortedByPos());
  EXPECT_TRUE(std::none_of(transients.begin(), transients.end(), isNaN));

  CTransients allNaN;
  for (std::int64_t i = 0; i < 500; ++i)
    allNaN.push_back(make(i * 7919 % 500, nan));
  allNaN.ThinOutToSizeAndSortByPos(3);
  EXPECT_EQ(positions(allNaN), (Positions{0, 1, 2}));
}

TEST(CTransients, ListingIndentsEachElementOnStandardOutput) {
  CTransients transients{make(1), make(2), make(3)};
  const std::string one = "CTransient: pos 1, Energy 1, visibleweight 1, FreqHz 0";
  bbTraceIndentBegin("test", "", 4);
  {
    // Another stream gets the elements; the indentation still goes to cout.
    CaptureCout cout;
    std::ostringstream other;
    other << transients;
    EXPECT_EQ(cout.text.str(), std::string(12, ' '));
    EXPECT_EQ(other.str().substr(0, one.size()), one);
  }
  bbTraceIndentEnd();
  CaptureCout cout;
  transients.TraceBrief();
  CTransients().Trace();
  EXPECT_EQ(cout.text.str(), "CTransients: size  3" + coutAddress() + coutAddress());
  EXPECT_STREQ(transients.TraceAsPushBackList(), "");
}

// The swap fuzzer covers the records' bytes and random sizes; this pins the
// header words and a big-endian record read back on this machine.
TEST(SwapTransientCallback, HeaderWordsAndBigEndianRecords) {
  std::vector<unsigned char> block(1024 + 36 + 35);
  for (std::size_t i = 0; i < block.size(); ++i)
    block[i] = static_cast<unsigned char>(i * 31 + 7);
  // Record: pos 0x0102030405060708, Energy 1.5f, FreqHz 440f, all big-endian.
  const unsigned char record[36] = {1, 2, 3, 4, 5, 6, 7, 8, 0x3F, 0xC0, 0, 0, 0, 0, 0, 0,    0,
                                    0, 0, 0, 0, 0, 0, 0, 0, 0,    0,    0, 0, 0, 0, 0, 0x43, 0xDC};
  std::memcpy(&block[1024], record, 36);
  const auto original = block;

  SwapTransientCallback(block.data(), block.size(), false);
  for (std::size_t i = 0; i < 16; ++i)
    ASSERT_EQ(block[i], original[i / 4 * 4 + 3 - i % 4]);
  CTransient read;
  std::memcpy(static_cast<void*>(&read), &block[1024], sizeof read);
  EXPECT_EQ(std::int64_t{read.pos}, 0x0102030405060708);
  EXPECT_EQ(read.Energy, 1.5f);
  EXPECT_EQ(read.FreqHz, 440.0f);
  SwapTransientCallback(nullptr, 4096, true);
}

TEST(VTEv_AssessDeviations, TraceForms) {
  VTEv_AssessDeviations record{std::numeric_limits<std::int64_t>::min(), -2};
  const std::string text =
      "VTEv_AssessDeviations: ClockWrongDeviationPrevFrames -9223372036854775808 ...NextFrames -2";
  CaptureCout cout;
  record.Trace();
  record.TraceBrief();
  EXPECT_EQ(cout.text.str(), text + coutAddress() + text + coutAddress());
  EXPECT_EQ(std::string(record.TraceStr()).substr(0, text.size() + 2), text + "0x");
}

#include <vtcore/music/transients/detail/trace_text.h>
#include <vtcore/music/transients/deviation.h>
#include <vtcore/music/transients/transients.h>

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

} // namespace

TEST(CTransient, EqualityByPositionOnlyAndTraceForms) {
  EXPECT_TRUE(CTransient() == (CTransient{0, 9.0f}));
  EXPECT_FALSE(CTransient() == CTransient{1});

  const CTransient transient{-42, 0.5f, 0, 2.0f, 0, 0, 0, 440.0f};
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
  CTransient{1}.Trace();
  std::cout.clear();
  EXPECT_EQ(cout.text.str(), full + coutAddress() + brief + coutAddress());
}

TEST(TraceText, CutsAt254Characters) {
  char buffer[vtcore::detail::kTraceStrBufferSize];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(vtcore::detail::copyTraceText(buffer, std::string(300, 'a')), buffer);
  EXPECT_EQ(std::strlen(buffer), 254u);
}

// Equality is by position, so these compare the positions in order.
TEST(CTransients, ThinningKeepsTheWeakestAndOrderChecks) {
  CTransients three{{10, 5}, {20, 1}, {30, 3}};
  three.ThinOutToSizeAndSortByPos(2);
  EXPECT_EQ(three, (CTransients{{20}, {30}}));

  CTransients withDuplicate{{1}, {2}, {2}};
  EXPECT_TRUE(withDuplicate.AreSortedByPos());
  EXPECT_FALSE(withDuplicate.AreUniqueAndSortedByPos());
  CTransients byEnergy{{3, 2}, {1, 2}, {2, 0.5f}};
  byEnergy.SortByEnergyAndPos();
  EXPECT_EQ(byEnergy, (CTransients{{2}, {1}, {3}}));
}

// Large enough for the standard sort's unguarded insertion to run off the end.
TEST(CTransients, ThinningDropsNaNEnergiesFirst) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto isNaN = [](const CTransient& t) { return std::isnan(t.Energy); };
  std::mt19937 random(11);
  std::uniform_int_distribution<int> pos(0, 1000), pick(0, 3);
  CTransients transients;
  for (int i = 0; i < 3000; ++i)
    transients.push_back({pos(random), pick(random) == 0 ? nan : float(pos(random))});
  const auto nanCount = std::count_if(transients.begin(), transients.end(), isNaN);
  transients.ThinOutToSizeAndSortByPos(transients.size() - nanCount);
  EXPECT_TRUE(transients.AreSortedByPos());
  EXPECT_TRUE(std::none_of(transients.begin(), transients.end(), isNaN));
}

TEST(CTransients, ListingIndentsEachElementOnStandardOutput) {
  CTransients transients{{1}, {2}, {3}};
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
  // A big-endian record starts with pos 0x0102030405060708 and Energy 1.5f.
  const unsigned char record[] = {1, 2, 3, 4, 5, 6, 7, 8, 0x3F, 0xC0, 0, 0};
  std::memcpy(&block[1024], record, sizeof record);
  const auto original = block;

  SwapTransientCallback(block.data(), block.size(), false);
  for (std::size_t i = 0; i < 16; ++i)
    ASSERT_EQ(block[i], original[i / 4 * 4 + 3 - i % 4]);
  CTransient read;
  std::memcpy(static_cast<void*>(&read), &block[1024], sizeof read);
  EXPECT_EQ(std::int64_t{read.pos}, 0x0102030405060708);
  EXPECT_EQ(read.Energy, 1.5f);
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

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
class CaptureCout {
public:
  CaptureCout() : saved_(std::cout.rdbuf(text_.rdbuf())) {}
  ~CaptureCout() { std::cout.rdbuf(saved_); }
  std::string text() const { return text_.str(); }

private:
  std::ostringstream text_;
  std::streambuf* saved_;
};

std::string pointerText(const void* pointer) {
  std::ostringstream text;
  text << pointer;
  return text.str();
}

CTransient make(std::int64_t pos, float energy = 1.0f) {
  CTransient transient;
  transient.pos = pos;
  transient.Energy = energy;
  return transient;
}

std::vector<std::int64_t> positions(const CTransients& transients) {
  std::vector<std::int64_t> result;
  for (const auto& transient : transients)
    result.push_back(std::int64_t{transient.pos});
  return result;
}

CTransients withPositions(std::initializer_list<std::int64_t> list) {
  CTransients transients;
  for (auto pos : list)
    transients.push_back(make(pos));
  return transients;
}

} // namespace

TEST(CTransient, DefaultsAndStoredLayout) {
  CTransient transient;
  EXPECT_EQ(std::int64_t{transient.pos}, 0);
  EXPECT_EQ(transient.Energy, 1.0f);
  EXPECT_EQ(transient.visibleweight, 1.0f);
  EXPECT_EQ(transient.FreqHz, 0.0f);

  // Arrays are what get stored: two records must sit exactly 36 bytes apart.
  CTransient pair[2];
  pair[1].pos = 0x0102030405060708;
  pair[1].FreqHz = 440.0f;
  unsigned char bytes[sizeof pair];
  std::memcpy(bytes, pair, sizeof pair);
  std::int64_t pos;
  float freq;
  std::memcpy(&pos, bytes + 36, 8);
  std::memcpy(&freq, bytes + 36 + 32, 4);
  EXPECT_EQ(pos, 0x0102030405060708);
  EXPECT_EQ(freq, 440.0f);
  EXPECT_EQ(sizeof pair, 72u);
}

TEST(CTransient, EqualityLooksAtPositionOnly) {
  CTransient a = make(5, 1.0f), b = make(5, 9.0f);
  b.FreqHz = 100.0f;
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a == make(6, 1.0f));
}

TEST(CTransient, TraceForms) {
  CTransient transient = make(-42, 0.5f);
  transient.visibleweight = 2.0f;
  transient.FreqHz = 440.0f;
  const std::string full = "CTransient: pos -42, Energy 0.5, visibleweight 2, FreqHz 440";
  const std::string brief = "CTransient: pos -42, Energy 0.5, FreqHz 440";

  std::ostringstream streamed;
  streamed << transient;
  EXPECT_EQ(streamed.str(), full);
  std::ostringstream briefHook;
  TraceStreamBrief(briefHook, transient);
  EXPECT_EQ(briefHook.str(), full);

  {
    CaptureCout cout;
    transient.Trace();
    EXPECT_EQ(cout.text(), full + pointerText(&std::cout));
  }
  {
    CaptureCout cout;
    transient.TraceBrief();
    EXPECT_EQ(cout.text(), brief + pointerText(&std::cout));
  }
  const std::string str = transient.TraceStr();
  ASSERT_GT(str.size(), brief.size() + 2);
  EXPECT_EQ(str.substr(0, brief.size()), brief);
  EXPECT_EQ(str.substr(brief.size(), 2), "0x"); // the string stream's address
}

TEST(CTransient, NothingReachesAFailedStream) {
  CaptureCout cout;
  std::cout.setstate(std::ios::failbit);
  make(1).Trace();
  std::cout.clear();
  std::cout << "|";
  make(1).TraceBrief();
  // The null pointer a failed stream would get never shows: the stream
  // swallows it with the text. Once cleared, the address follows again.
  EXPECT_EQ(cout.text(), "|CTransient: pos 1, Energy 1, FreqHz 0" + pointerText(&std::cout));
}

TEST(TraceText, CutsAt254Characters) {
  char buffer[vtcore::detail::kTraceStrBufferSize];
  std::memset(buffer, 'x', sizeof buffer);
  const std::string longText(300, 'a');
  EXPECT_EQ(vtcore::detail::copyTraceText(buffer, longText), buffer);
  EXPECT_EQ(std::strlen(buffer), 254u);
  vtcore::detail::copyTraceText(buffer, "short");
  EXPECT_STREQ(buffer, "short");
}

TEST(CTransients, EmptyCollection) {
  CTransients empty;
  empty.SortByPos();
  empty.SortByEnergyAndPos();
  empty.ThinOutToSizeAndSortByPos(3);
  empty.SortAndMakeUniquePos();
  EXPECT_TRUE(empty.empty());
  EXPECT_TRUE(empty.AreSortedByPos());
  EXPECT_TRUE(empty.AreUniqueAndSortedByPos());
  EXPECT_EQ(std::string(empty.TraceStr()).rfind("CTransients: size  00x", 0), 0u);
  EXPECT_STREQ(empty.TraceAsPushBackList(), "");
  CaptureCout cout;
  empty.Trace();
  EXPECT_EQ(cout.text(), pointerText(&std::cout));
}

TEST(CTransients, ThinningKeepsTheWeakestInPositionOrder) {
  CTransients three{make(10, 5), make(20, 1), make(30, 3)};
  three.ThinOutToSizeAndSortByPos(2);
  EXPECT_EQ(positions(three), (std::vector<std::int64_t>{20, 30}));

  CTransients tie{make(7, 2), make(3, 2)};
  tie.ThinOutToSizeAndSortByPos(1);
  EXPECT_EQ(positions(tie), (std::vector<std::int64_t>{3}));

  CTransients untouched{make(9, 0), make(-1, 8), make(4, 4)};
  untouched.ThinOutToSizeAndSortByPos(3);
  EXPECT_EQ(positions(untouched), (std::vector<std::int64_t>{-1, 4, 9}));
  untouched.ThinOutToSizeAndSortByPos(0);
  EXPECT_TRUE(untouched.empty());
}

TEST(CTransients, SortsAndUniqueness) {
  CTransients transients = withPositions({5, 1, 5, 1, 9});
  transients.SortAndMakeUniquePos();
  EXPECT_EQ(positions(transients), (std::vector<std::int64_t>{1, 5, 9}));
  EXPECT_TRUE(transients.AreUniqueAndSortedByPos());

  CTransients withDuplicate = withPositions({1, 2, 2, 3});
  EXPECT_TRUE(withDuplicate.AreSortedByPos());
  EXPECT_FALSE(withDuplicate.AreUniqueAndSortedByPos());
  EXPECT_FALSE(withPositions({2, 1}).AreSortedByPos());

  CTransients signedOrder = withPositions({0, std::numeric_limits<std::int64_t>::min(), -1});
  signedOrder.SortByPos();
  EXPECT_EQ(positions(signedOrder),
            (std::vector<std::int64_t>{std::numeric_limits<std::int64_t>::min(), -1, 0}));

  CTransients byEnergy{make(3, 2), make(1, 2), make(2, 0.5f)};
  byEnergy.SortByEnergyAndPos();
  EXPECT_EQ(positions(byEnergy), (std::vector<std::int64_t>{2, 1, 3}));
}

TEST(CTransients, EnergySortMatchesThePublicOrderOnWellFormedData) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> pos(-50, 50), energy(0, 9);
  for (int round = 0; round < 20; ++round) {
    CTransients transients;
    for (int i = 0; i < 200; ++i) {
      CTransient transient = make(pos(random), static_cast<float>(energy(random)));
      transient.FreqHz = static_cast<float>(i); // tells equal elements apart
      transients.push_back(transient);
    }
    CTransients expected = transients;
    std::sort(expected.begin(), expected.end(), SortFunctor_CTransient_EnergyAndPos());
    transients.SortByEnergyAndPos();
    ASSERT_EQ(std::memcmp(transients.data(), expected.data(), transients.size() * 36), 0);
  }
}

TEST(CTransients, NaNEnergiesNeitherCrashNorLoop) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::mt19937 random(11);
  std::uniform_int_distribution<int> pos(0, 1000), pick(0, 3);
  CTransients transients;
  for (int i = 0; i < 3000; ++i)
    transients.push_back(make(pos(random), pick(random) == 0 ? nan : float(pos(random))));
  const auto nanCount = std::count_if(transients.begin(), transients.end(),
                                      [](const CTransient& t) { return std::isnan(t.Energy); });

  CTransients sorted = transients;
  sorted.SortByEnergyAndPos();
  ASSERT_EQ(sorted.size(), transients.size());
  const auto firstNaN = sorted.end() - nanCount;
  EXPECT_TRUE(std::is_sorted(sorted.begin(), firstNaN, SortFunctor_CTransient_EnergyAndPos()));
  EXPECT_TRUE(std::all_of(firstNaN, sorted.end(),
                          [](const CTransient& t) { return std::isnan(t.Energy); }));
  EXPECT_TRUE(std::is_sorted(firstNaN, sorted.end(), SortFunctor_CTransient_Pos()));

  CTransients thinned = transients;
  thinned.ThinOutToSizeAndSortByPos(transients.size() - nanCount);
  EXPECT_TRUE(thinned.AreSortedByPos());
  EXPECT_TRUE(std::none_of(thinned.begin(), thinned.end(),
                           [](const CTransient& t) { return std::isnan(t.Energy); }));

  CTransients allNaN(500, make(0, nan));
  for (std::size_t i = 0; i < allNaN.size(); ++i)
    allNaN[i].pos = static_cast<std::int64_t>(i * 7919 % 500);
  allNaN.ThinOutToSizeAndSortByPos(10);
  EXPECT_EQ(positions(allNaN), (std::vector<std::int64_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(CTransients, ListingIndentsEachElementOnStandardOutput) {
  CTransients transients = withPositions({1, 2, 3});
  const std::string one = "CTransient: pos 1, Energy 1, visibleweight 1, FreqHz 0";
  bbTraceIndentBegin("test", "", 4);
  {
    CaptureCout cout;
    transients.Trace();
    EXPECT_EQ(cout.text().substr(0, 4 + one.size()), "    " + one);
    EXPECT_EQ(cout.text().find("    CTransient: pos 3"), 2 * (4 + one.size()));
  }
  {
    // Another stream gets the elements; the indentation still goes to cout.
    CaptureCout cout;
    std::ostringstream other;
    other << transients;
    EXPECT_EQ(cout.text(), std::string(12, ' '));
    EXPECT_EQ(other.str().substr(0, one.size()), one);
  }
  bbTraceIndentEnd();
  CaptureCout cout;
  transients.TraceBrief();
  EXPECT_EQ(cout.text(), "CTransients: size  3" + pointerText(&std::cout));
  EXPECT_STREQ(transients.TraceAsPushBackList(), "");
}

TEST(SwapTransientCallback, ConvertsHeaderAndWholeRecordsOnly) {
  std::vector<unsigned char> block(1024 + 36 + 35);
  for (std::size_t i = 0; i < block.size(); ++i)
    block[i] = static_cast<unsigned char>(i * 31 + 7);
  const auto original = block;

  SwapTransientCallback(block.data(), block.size(), true);
  for (std::size_t word = 0; word < 4; ++word)
    for (std::size_t b = 0; b < 4; ++b)
      ASSERT_EQ(block[word * 4 + b], original[word * 4 + 3 - b]);
  EXPECT_TRUE(std::equal(block.begin() + 16, block.begin() + 1024, original.begin() + 16));
  for (std::size_t b = 0; b < 8; ++b)
    EXPECT_EQ(block[1024 + b], original[1024 + 7 - b]);
  for (std::size_t field = 8; field < 36; field += 4)
    for (std::size_t b = 0; b < 4; ++b)
      EXPECT_EQ(block[1024 + field + b], original[1024 + field + 3 - b]);
  EXPECT_TRUE(std::equal(block.end() - 35, block.end(), original.end() - 35));

  SwapTransientCallback(block.data(), block.size(), false);
  EXPECT_EQ(block, original);

  std::vector<unsigned char> headerOnly(original.begin(), original.begin() + 1024);
  SwapTransientCallback(headerOnly.data(), headerOnly.size(), false);
  EXPECT_TRUE(std::equal(headerOnly.begin() + 16, headerOnly.end(), original.begin() + 16));
  EXPECT_NE(headerOnly[0], original[0]);
}

TEST(SwapTransientCallback, ShortBlocksAndNullAreLeftAlone) {
  std::vector<unsigned char> small(1023, 0xAB);
  small[0] = 1;
  SwapTransientCallback(small.data(), small.size(), true);
  EXPECT_EQ(small[0], 1);
  SwapTransientCallback(nullptr, 4096, true);
}

TEST(SwapTransientCallback, ReadsBigEndianRecords) {
  std::vector<unsigned char> block(1024 + 36, 0);
  // pos 0x0102030405060708, Energy 1.5f (0x3FC00000), FreqHz 440f (0x43DC0000).
  const unsigned char pos[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  std::memcpy(&block[1024], pos, 8);
  block[1024 + 8] = 0x3F;
  block[1024 + 9] = 0xC0;
  block[1024 + 32] = 0x43;
  block[1024 + 33] = 0xDC;
  SwapTransientCallback(block.data(), block.size(), false);
  CTransient record;
  std::memcpy(static_cast<void*>(&record), &block[1024], sizeof record);
  EXPECT_EQ(std::int64_t{record.pos}, 0x0102030405060708);
  EXPECT_EQ(record.Energy, 1.5f);
  EXPECT_EQ(record.FreqHz, 440.0f);
}

TEST(VTEv_AssessDeviations, TraceForms) {
  VTEv_AssessDeviations record{3, -2};
  const std::string text =
      "VTEv_AssessDeviations: ClockWrongDeviationPrevFrames 3 ...NextFrames -2";
  std::ostringstream streamed, brief;
  streamed << record;
  TraceStreamBrief(brief, record);
  EXPECT_EQ(streamed.str(), text);
  EXPECT_EQ(brief.str(), text);
  {
    CaptureCout cout;
    record.Trace();
    record.TraceBrief();
    EXPECT_EQ(cout.text(), text + pointerText(&std::cout) + text + pointerText(&std::cout));
  }
  const std::string str = record.TraceStr();
  EXPECT_EQ(str.substr(0, text.size() + 2), text + "0x");

  VTEv_AssessDeviations extremes{std::numeric_limits<std::int64_t>::min(),
                                 std::numeric_limits<std::int64_t>::max()};
  std::ostringstream wide;
  wide << extremes;
  EXPECT_EQ(wide.str(), "VTEv_AssessDeviations: ClockWrongDeviationPrevFrames "
                        "-9223372036854775808 ...NextFrames 9223372036854775807");
}

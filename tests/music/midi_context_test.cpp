#include <vtcore/music/midi/midi_formatter.h>
#include <vtcore/music/midi/musical_context.h>

#include <gtest/gtest.h>

#include <any>
#include <cstdint>
#include <string>
#include <tuple>

namespace {

std::string format(int style, const std::any& value) {
  KWMIDIFormatter formatter;
  formatter.setNoteStyle(style);
  std::string text;
  return formatter.stringForObjectValue(value).toUTF8String(text);
}

} // namespace

TEST(KWMIDIFormatter, StylesOutOfRangeAndNonNumbers) {
  struct Case {
    int style, value;
    const char* text;
  };
  // The 15-versus-16 padding difference and the wide negative form are kept.
  const Case cases[] = {{0, -7, "-7"},       {1, 0, "\u00B1 0"},
                        {1, 5, "+5"},        {1, -5, "-5"},
                        {2, 9, "0x09"},      {2, 15, "0x F"},
                        {2, 16, "0x10"},     {2, 255, "0xFF"},
                        {2, 4096, "0x1000"}, {2, -1, "0x0FFFFFFFF"},
                        {3, 61, "C#3"},      {3, -1, ""},
                        {4, 5, ""},          {-1, 5, ""}};
  for (const auto& c : cases)
    EXPECT_EQ(format(c.style, c.value), c.text) << c.style << "/" << c.value;
  for (int style = 0; style <= 4; ++style)
    EXPECT_EQ(format(style, std::any()) + format(style, std::string("60")), "") << style;
  // Any arithmetic type is a number, truncated toward zero to an int.
  EXPECT_EQ(format(3, 60.9), "C3");
  EXPECT_EQ(format(0, -2.9f), "-2");
  EXPECT_EQ(format(1, true), "+1");
  EXPECT_EQ(format(0, std::int64_t{0x100000005}), "5"); // the low 32 bits
  EXPECT_EQ(format(0, -1e300), "-2147483648");
}

// C-2 at 0, C3 at 60, G8 at 127.
TEST(KWMIDIFormatter, NoteNamesFollowTheOctaveRule) {
  const char* names[] = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
  for (int v = 0; v <= 127; ++v)
    EXPECT_EQ(format(3, v), names[v % 12] + std::to_string(v / 12 - 2)) << v;
  EXPECT_EQ(format(3, 0) + format(3, 60) + format(3, 127), "C-2C3G8");
}

TEST(CMusicalContext, BuiltInDefaultAndCalculatorOrder) {
  ASSERT_EQ(CMusicalContext::s_funcDefaultCalculator.load(), nullptr);
  CMusicalContext zero(0, 7, nullptr);
  EXPECT_EQ(std::tie(zero.reference, zero.result1, zero.result2, zero.result3),
            std::tuple(7L, 0L, 0L, 1));
  EXPECT_EQ(std::tie(zero.tempo, zero.metreNumerator, zero.metreDenominator),
            std::tuple(120000, 4, 4));
  // 44100 / 1.435546875 = 30720 exactly; 44100 / 22050 = 2, whose IEEE
  // remainder by 4 is 2 (ties round to even), so 2 x 15360.
  CMusicalContext two(44100, 0, nullptr);
  EXPECT_EQ(std::tie(two.result1, two.result2), std::tuple(30720L, 30720L));
  // 66150 / 22050 = 3: remainder(3, 4) is -1, so the result is negative.
  EXPECT_EQ(CMusicalContext(66150, 0, nullptr).result2, -15360);

  CMusicalContext::s_funcDefaultCalculator = [](long, long, CMusicalContext& c) { c.result5 = 55; };
  CMusicalContext classDefault(10, 5, nullptr);
  EXPECT_EQ(std::tie(classDefault.result1, classDefault.result5), std::tuple(0L, 55));
  CMusicalContext givenWins(10, 5, [](long p, long r, CMusicalContext& c) { c.result1 = p + r; });
  EXPECT_EQ(std::tie(givenWins.result1, givenWins.result5), std::tuple(15L, 0));
  CMusicalContext::s_funcDefaultCalculator = nullptr;
}

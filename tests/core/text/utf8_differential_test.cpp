// The fast paths of the UTF-8 walkers against byte-by-byte transcriptions of
// their rules, and the validation rule against ICU, on random inputs.

#include "utf8_reference.h"

#include <vtcore/core/text/utf8/utf8.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include <unicode/unistr.h>
#include <unicode/ustring.h>

namespace {

const unsigned char* bytes(const std::string& s) {
  return reinterpret_cast<const unsigned char*>(s.c_str());
}

// ASCII runs of every length around the vector widths, broken by lead,
// continuation and odd bytes (0xFD, 0xFE, 0xFF).
std::string randomText(std::mt19937& rng) {
  static const unsigned char special[] = {0x80, 0xA9, 0xBF, 0xC0, 0xC3, 0xE2, 0xED, 0xF0,
                                          0xF4, 0xF5, 0xF8, 0xFC, 0xFD, 0xFE, 0xFF};
  std::string s;
  for (std::size_t p = 0, parts = rng() % 8; p < parts; ++p) {
    for (std::size_t i = 0, run = rng() % 3 == 0 ? rng() % 130 : rng() % 4; i < run; ++i)
      s += static_cast<char>(1 + rng() % 127);
    for (std::size_t i = 0, odd = rng() % 4; i < odd; ++i)
      s += static_cast<char>(rng() % 2 ? special[rng() % sizeof special] : 0x80 + rng() % 0x80);
  }
  return s;
}

TEST(Utf8Differential, FastWalkersEqualTheByteByByteRules) {
  std::mt19937 rng(20261122);
  for (int round = 0; round < 200000; ++round) {
    std::string s = randomText(rng);
    ASSERT_EQ(utf8_check(s.c_str()), utf8_reference::check(bytes(s), s.size()))
        << testing::PrintToString(s);
    ASSERT_EQ(utf8_strlen(s.c_str()), utf8_reference::strlen(bytes(s), s.size()))
        << testing::PrintToString(s);
    bool ascii = std::none_of(s.begin(), s.end(), [](char c) { return c & 0x80; });
    ASSERT_EQ(utf8_is_ascii(s.c_str(), 0), ascii ? 1 : 0);
  }
}

TEST(Utf8Differential, AcceptsEverythingIcuAccepts) {
  std::mt19937 rng(7);
  int accepted = 0;
  for (int round = 0; round < 200000; ++round) {
    // Random code points of every length, plus random bytes now and then.
    std::string s;
    for (std::size_t i = 0, n = rng() % 12; i < n; ++i) {
      UChar32 c = static_cast<UChar32>(1 + rng() % (rng() % 2 ? 0x7FF : 0x10FFFF));
      if (rng() % 10 == 0)
        s += static_cast<char>(1 + rng() % 255);
      else // a surrogate code point comes out as U+FFFD
        icu::UnicodeString(c).toUTF8String(s);
    }
    UErrorCode status = U_ZERO_ERROR;
    int32_t units = 0;
    u_strFromUTF8(nullptr, 0, &units, s.c_str(), static_cast<int32_t>(s.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(status)) {
      ++accepted;
      ASSERT_EQ(utf8_check(s.c_str()), 1) << testing::PrintToString(s);
    }
  }
  EXPECT_GT(accepted, 10000);
}

TEST(Utf8Differential, MegabyteStringsRoundTrip) {
  std::string big;
  while (big.size() < (1u << 20))
    big += "Bach \xC3\xA9t\xC3\xA9 \xE2\x82\xAC ";
  EXPECT_EQ(utf8_check(big.c_str()), 1);
  EXPECT_EQ(utf8_strlen(big.c_str()), utf8_reference::strlen(bytes(big), big.size()));
  std::string copy(big.size() + 1, '\0');
  utf8_from_qxstring(copy.data(), utf8_to_qxstring(big.c_str()), copy.size());
  EXPECT_EQ(copy.c_str(), big);
}

} // namespace

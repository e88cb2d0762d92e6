// The fast paths of the UTF-8 walkers against byte-by-byte transcriptions of
// their rules, and the validation rule against ICU, on random inputs.

#include <vtcore/core/text/utf8.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include <unicode/ustring.h>

namespace {

// The validation rule exactly as it is stated, one byte at a time.
int referenceCheck(const std::string& s) {
  std::size_t expectedEnd = 0;
  bool inSequence = false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    unsigned b = static_cast<unsigned char>(s[i]);
    if ((b & 0xC0) == 0x80 && !inSequence)
      return 0;
    if (b < 0x80) {
      if (expectedEnd != i)
        return 0;
      expectedEnd = i + 1;
      inSequence = false;
    } else if ((b & 0xE0) == 0xC0) {
      expectedEnd = i + 2, inSequence = true;
    } else if ((b & 0xF0) == 0xE0) {
      expectedEnd = i + 3, inSequence = true;
    } else if ((b & 0xF8) == 0xF0) {
      expectedEnd = i + 4, inSequence = true;
    } else if ((b & 0xFC) == 0xF8) {
      expectedEnd = i + 5, inSequence = true;
    } else if ((b & 0xFD) == 0xFC) {
      expectedEnd = i + 6, inSequence = true;
    }
  }
  return expectedEnd == s.size() ? 1 : 0;
}

std::size_t referenceStrlen(const std::string& s) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < s.size();) {
    unsigned b = static_cast<unsigned char>(s[i]);
    std::size_t k = b < 0x80 ? 1 : b < 0xC2 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
    if (k == 0 || i + k > s.size())
      break;
    i += k;
    ++count;
  }
  return count;
}

// Random text biased towards what the fast paths care about: ASCII runs of
// every length around the vector widths, broken by lead, continuation and
// odd bytes (0xFD, 0xFE, 0xFF).
std::string randomText(std::mt19937& rng) {
  static const unsigned char special[] = {0x80, 0xA9, 0xBF, 0xC0, 0xC3, 0xE2, 0xED, 0xF0,
                                          0xF4, 0xF5, 0xF8, 0xFC, 0xFD, 0xFE, 0xFF};
  std::string s;
  std::size_t parts = rng() % 8;
  for (std::size_t p = 0; p < parts; ++p) {
    std::size_t run = rng() % 3 == 0 ? rng() % 130 : rng() % 4;
    for (std::size_t i = 0; i < run; ++i)
      s += static_cast<char>(1 + rng() % 127);
    std::size_t odd = rng() % 4;
    for (std::size_t i = 0; i < odd; ++i)
      s += static_cast<char>(rng() % 2 ? special[rng() % sizeof special] : 0x80 + rng() % 0x80);
  }
  return s;
}

TEST(Utf8Differential, FastWalkersEqualTheByteByByteRules) {
  std::mt19937 rng(20261122);
  for (int round = 0; round < 200000; ++round) {
    std::string s = randomText(rng);
    ASSERT_EQ(utf8_check(s.c_str()), referenceCheck(s)) << testing::PrintToString(s);
    ASSERT_EQ(utf8_strlen(s.c_str()), referenceStrlen(s)) << testing::PrintToString(s);
    bool ascii = std::none_of(s.begin(), s.end(), [](char c) { return c & 0x80; });
    ASSERT_EQ(utf8_is_ascii(s.c_str(), 0), ascii ? 1 : 0);
  }
}

TEST(Utf8Differential, AcceptsEverythingIcuAccepts) {
  std::mt19937 rng(7);
  int accepted = 0;
  for (int round = 0; round < 200000; ++round) {
    std::string s;
    // Random code points of every length, plus random bytes now and then.
    std::size_t n = rng() % 12;
    for (std::size_t i = 0; i < n; ++i) {
      if (rng() % 10 == 0) {
        s += static_cast<char>(1 + rng() % 255);
        continue;
      }
      UChar32 c = static_cast<UChar32>(1 + rng() % (rng() % 2 ? 0x7FF : 0x10FFFF));
      char buffer[4];
      int32_t length = 0;
      UBool error = false;
      U8_APPEND(reinterpret_cast<uint8_t*>(buffer), length, 4, c, error);
      if (error)
        continue;
      s.append(buffer, static_cast<std::size_t>(length));
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

TEST(Utf8Differential, MegabyteStringsStayInBounds) {
  std::string big;
  while (big.size() < (1u << 20))
    big += "Bach \xC3\xA9t\xC3\xA9 \xE2\x82\xAC ";
  EXPECT_EQ(utf8_check(big.c_str()), 1);
  EXPECT_EQ(utf8_strlen(big.c_str()), referenceStrlen(big));
  std::string copy(big.size(), '\0');
  utf8_strlcpy(copy.data(), big.c_str(), copy.size());
  EXPECT_EQ(utf8_strlen(copy.c_str()), referenceStrlen(std::string(copy.c_str())));
  EXPECT_EQ(utf8_strchr(big.c_str(), 0), big.c_str() + big.size());
  auto host = utf8_to_qxstring(big.c_str());
  ASSERT_TRUE(host);
  utf8_from_qxstring(copy.data(), host, copy.size());
  EXPECT_EQ(copy.c_str(), big.substr(0, std::strlen(copy.c_str())));
}

} // namespace

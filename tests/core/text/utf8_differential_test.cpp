// The fast paths of the UTF-8 walkers against byte-by-byte transcriptions of
// their rules, and the validation rule against ICU, on random inputs.

#include "code_path_fixture.h"
#include "utf8_reference.h"

#include <vtcore/core/text/utf8/utf8.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

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

using Utf8Paths = DataCodePathTest;

void expectLikeTheRules(const std::string& s) {
  ASSERT_EQ(utf8_check(s.c_str()), utf8_reference::check(bytes(s), s.size()))
      << testing::PrintToString(s);
  ASSERT_EQ(utf8_strlen(s.c_str()), utf8_reference::strlen(bytes(s), s.size()))
      << testing::PrintToString(s);
}

TEST_P(Utf8Paths, FastWalkersEqualTheByteByByteRules) {
  std::mt19937 rng(20261122);
  for (int round = 0; round < 200000; ++round) {
    std::string s = randomText(rng);
    expectLikeTheRules(s);
    bool ascii = std::none_of(s.begin(), s.end(), [](char c) { return c & 0x80; });
    ASSERT_EQ(utf8_is_ascii(s.c_str(), 0), ascii ? 1 : 0);
  }
}

// Every short sequence (well-formed, cut, overlong, odd leads, stray
// continuations) placed across the 64-byte blocks of the scans, at every
// alignment of the string, with well-formed text before and after it so the
// scans reach it on their fast path.
TEST_P(Utf8Paths, SequencesAcrossBlockBoundariesAtEveryAlignment) {
  const char* pieces[] = {"\xC3\xA9",
                          "\xE2\x82\xAC",
                          "\xF0\x9F\x8E\xB9",
                          "\xC3",
                          "\xE2\x82",
                          "\xF0\x9F\x8E",
                          "\xA9",
                          "\xC0\x80",
                          "\xC1\xBF",
                          "\xF5\x80\x80\x80",
                          "\xF8\x88\x80\x80\x80",
                          "\xFC\x84\x80\x80\x80\x80",
                          "\xFD",
                          "\xFF",
                          "\xC3\xC3\xA9",
                          "\xC3\xA9\xA9",
                          "\xE2\x41\x42",
                          "\xFE\xBF"};
  // Within the first blocks, where the exact step runs, and further on, where
  // the fast loop has taken over.
  std::vector<std::size_t> atPositions;
  for (std::size_t at = 50; at < 140; ++at)
    atPositions.push_back(at);
  for (std::size_t at = 250; at < 400; at += 7)
    atPositions.push_back(at);
  std::string buffer(1024, '\0');
  for (std::size_t align = 0; align < 64; align += 7)
    for (const char* piece : pieces)
      for (std::size_t at : atPositions) {
        std::string s(at, 'a');
        for (std::size_t i = 0; i < at; i += 13)
          s.replace(i, 2, "\xC3\xA9"); // keep the scans on their multi-byte path
        s.resize(at);
        while (!s.empty() && (static_cast<unsigned char>(s.back()) & 0x80))
          s.pop_back(); // no cut character before the piece
        s += piece;
        for (std::size_t tail : {0, 1, 3, 70}) {
          std::string t = s + std::string(tail, 'z');
          std::memcpy(buffer.data() + align, t.c_str(), t.size() + 1);
          const char* placed = buffer.data() + align;
          ASSERT_EQ(utf8_check(placed), utf8_reference::check(bytes(t), t.size()))
              << testing::PrintToString(t) << " at alignment " << align;
          ASSERT_EQ(utf8_strlen(placed), utf8_reference::strlen(bytes(t), t.size()))
              << testing::PrintToString(t) << " at alignment " << align;
        }
      }
}

// Long text of characters of every length with one fault (or one sequence
// only the library's looser rule accepts) anywhere: the scans must hand over
// to the byte-by-byte rules in the exact state and count.
TEST_P(Utf8Paths, LongMixedTextWithOneOddSequenceAnywhere) {
  const char* characters[] = {
      "a", " ", "\xC3\xA9", "\xD0\xBC", "\xE2\x82\xAC", "\xE9\x9F\xB3", "\xF0\x9F\x8E\xB9"};
  const char* odd[] = {"\xA9",
                       "\xC3",
                       "\xE2\x82",
                       "\xC0\xAF",
                       "\xC3\xC3\xA9",
                       "\xFD",
                       "\xFF",
                       "\xF8\x88\x80\x80\x80",
                       "\xF5\x80\x80\x80",
                       "\xE2\x41",
                       "\xC3\xA9\xA9"};
  std::mt19937 rng(99);
  for (int round = 0; round < 3000; ++round) {
    std::string s;
    const std::size_t length = 100 + rng() % 900;
    while (s.size() < length)
      s += characters[rng() % (round % 2 ? 7 : 3)];
    std::size_t at = rng() % s.size();
    while (at > 0 && (static_cast<unsigned char>(s[at]) & 0xC0) == 0x80)
      --at;
    if (round % 5 != 0)
      s.insert(at, odd[rng() % (sizeof odd / sizeof *odd)]);
    expectLikeTheRules(s);
  }
}

// The byte rules, where a scan stops, and utf8_is_ascii skip ASCII runs 16
// and 64 bytes at a time: a run must end exactly at its first byte of 0x80 or
// above, whatever its length and alignment. A five-byte sequence (which only
// the validation rule accepts) and a cut character (which only the stepping
// rule walks over) stop the scans first, so that each rule meets the run in
// its own loop.
TEST_P(Utf8Paths, AsciiRunsEndAtTheirFirstHighByte) {
  for (const char* stop : {"\xF8\x88\x80\x80\x80", "\xC3z"})
    for (const char* high : {"\xC3\xA9", "\xA9", "\xFF"})
      for (std::size_t align = 0; align < 64; align += 9)
        for (std::size_t run = 0; run < 150; ++run) {
          const std::string s =
              std::string(align, 'x') + stop + std::string(run, 'a') + high + std::string(20, 'b');
          expectLikeTheRules(s);
          const char* ascii = s.c_str() + align + std::strlen(stop);
          ASSERT_EQ(utf8_is_ascii(ascii, 0), 0) << run;
          if (run > 0) { // 0 stands for the whole string
            ASSERT_EQ(utf8_is_ascii(ascii, run), 1) << run;
          }
          ASSERT_EQ(utf8_is_ascii(ascii, run + 1), 0) << run;
        }
}

// The scans read whole aligned blocks: a string that ends just before an
// unreadable page, or starts just after one, must not fault.
TEST_P(Utf8Paths, StringsAgainstUnreadablePages) {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* mapping =
      mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(mapping, MAP_FAILED);
  auto* base = static_cast<char*>(mapping);
  ASSERT_EQ(mprotect(base, page, PROT_NONE), 0);
  ASSERT_EQ(mprotect(base + 2 * page, page, PROT_NONE), 0);
  char* const first = base + page;
  for (std::size_t length : {0, 1, 2, 63, 64, 65, 127, 200}) {
    std::string text;
    while (text.size() < length)
      text += text.size() % 5 == 0 && length - text.size() >= 2 ? "\xC3\xA9" : "x";
    text.resize(length);
    // At the end of the readable page, then at its start.
    for (char* at : {first + page - length - 1, first}) {
      std::memcpy(at, text.c_str(), length + 1);
      EXPECT_EQ(utf8_check(at), utf8_reference::check(bytes(text), length));
      EXPECT_EQ(utf8_strlen(at), utf8_reference::strlen(bytes(text), length));
    }
  }
  munmap(mapping, 3 * page);
}

INSTANTIATE_TEST_SUITE_P(AllPaths, Utf8Paths, ::testing::ValuesIn(kAllDataCodePaths),
                         [](const auto& p) { return vtcore::dataCodePathName(p.param); });

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

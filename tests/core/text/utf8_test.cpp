#include <tests/support/log_capture.h>
#include <vtcore/core/platform/log_sink.h>
#include <vtcore/core/text/utf8/utf8.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;

// Looser than standard UTF-8: overlong forms, surrogates and five- and six-byte forms pass;
// 0xFD leaves the state alone, so it may sit inside a sequence or before a lead byte; 0xFC with
// five bytes is short; too many continuation bytes are caught only at the next ASCII byte.
TEST(Utf8Check, FollowsTheLooseValidationRule) {
  const std::vector<const char*> byResult[2] = {
      {"\xA9", "\xC3", "\xC3\x41", "\xC3\xA9\xA9", "\xFC\x80\x80\x80\x80", "\xFD", "\xFF",
       "\xFD\x41", "\xC3\xA9\xA9\x41"},
      {"", "\xC3\xA9", "\xC3\xC3\xA9", "\xC0\x80", "\xED\xA0\x80", "\xF8\x88\x80\x80\x80",
       "\xFE\x80\x80\x80\x80\x80", "\xE2\xFD\xAC", "\xFD\xC3\xA9"}};
  for (int valid : {0, 1})
    for (const char* text : byResult[valid])
      EXPECT_EQ(utf8_check(text), valid) << testing::PrintToString(std::string(text));
  EXPECT_EQ(utf8_check(nullptr), 0);
  EXPECT_EQ(utf8_is_ascii("AB\xC3\xA9", 2), 1); // looks at 2 bytes only
}

TEST(Utf8Walk, StepsAndSearchesByWholeCharactersAndStopsAtBadBytes) {
  const char* p = "A€B";
  EXPECT_EQ(utf8_next(p + 1), p + 4);
  EXPECT_EQ(utf8_next(p + 5), nullptr); // at the terminator
  EXPECT_EQ(utf8_next(p + 2), nullptr); // continuation byte
  EXPECT_EQ(utf8_next("\xE2\x82"), nullptr);
  EXPECT_EQ(utf8_previous(p + 4), p + 1);
  EXPECT_EQ(utf8_previous("A\xC0\x80" + 3), nullptr); // overlong: passes the check, not a step
  // Search compares lead bytes as signed bytes.
  const char* s = "aéba";
  EXPECT_EQ(utf8_strchr(s, 'b'), s + 3);
  EXPECT_EQ(utf8_strchr(s, 0), s + 5);
  EXPECT_EQ(utf8_strchr(s, 0xC3), nullptr);
  EXPECT_EQ(utf8_strchr(s, static_cast<signed char>(0xC3)), s + 1);
  EXPECT_EQ(utf8_strrchr(s, 'a'), s + 4);
  EXPECT_EQ(utf8_strrchr(s, static_cast<signed char>(0xC3)), s + 1);
  // The walk ends at a byte that is not a lead byte.
  EXPECT_EQ(utf8_strchr("a\xC0\x80\x62", 'b'), nullptr);
}

// The first n + 1 bytes of a 'U'-filled destination after utf8_strncpy.
std::string strncpyResult(const char* src, std::size_t n) {
  char dst[8];
  std::memset(dst, 'U', sizeof dst);
  EXPECT_EQ(utf8_strncpy(dst, src, n), dst);
  return std::string(dst, n + 1);
}

TEST(Utf8Copy, NeverSplitsAndStrncpyOmitsTheTerminatorWhenFull) {
  EXPECT_EQ(strncpyResult("A\xC3\xA9", 2), "A\0U"s);
  EXPECT_EQ(strncpyResult("A\xC3\xA9", 3), "A\xC3\xA9U"s);
  EXPECT_EQ(strncpyResult("A\xC3\xA9", 5), "A\xC3\xA9\0\0U"s);
  EXPECT_EQ(strncpyResult("\xA9\xA9\x42", 3), "B\0\0U"s); // starts at the next character
  EXPECT_EQ(strncpyResult("A\xF5\x42", 4), "A\0\0\0U"s);  // ends at a byte that is not a lead
  EXPECT_EQ(strncpyResult(nullptr, 4), "UUUUU"s);
  // The others always terminate.
  char dst[10] = "x";
  EXPECT_EQ(utf8_strlcpy(dst, "€A", 3), dst); // the destination, not a length
  EXPECT_STREQ(dst, "");
  EXPECT_STREQ(utf8_strlcpy(dst, "ab", 8), "ab");
  EXPECT_STREQ(utf8_strlcat(dst, "€A", 5), "ab"); // the euro sign does not fit in 2 bytes
  EXPECT_STREQ(utf8_strlcat(dst, "€A", 6), "ab€");
  // utf8_copy_chars counts characters, not bytes.
  EXPECT_STREQ(utf8_copy_chars(dst, "AéB", 2, 10), "Aé");
  EXPECT_STREQ(utf8_copy_chars(dst, "AéB", 2, 2), "A"); // the limit falls inside é
}

TEST(Utf8HostString, RoundTripsAndRefusesMalformedBytes) {
  auto text = utf8_to_qxstring("Bücher 🎹");
  ASSERT_TRUE(text);
  for (const char* bad : {"", "\xC0\x80", "\xED\xA0\x80", "a\xC3"})
    EXPECT_FALSE(utf8_to_qxstring(bad)) << testing::PrintToString(std::string(bad));

  char dst[16] = "x";
  auto from = [&](const std::optional<icu::UnicodeString>& s, std::size_t size) {
    utf8_from_qxstring(dst, s, size);
    return std::string(dst);
  };
  EXPECT_EQ(from(text, 0), "x");
  EXPECT_EQ(from(text, 3), "B"); // the second character does not fit
  // Unpaired surrogates, and a pair cut by the unit limit, become "?".
  icu::UnicodeString lone;
  lone.append(char16_t(0xDC00)).append(u'a').append(char16_t(0xD83C)).append(char16_t(0xDFB9));
  EXPECT_EQ(from(lone, sizeof dst), "?a🎹");
  EXPECT_EQ(from(lone, 4), "?a?");
}

TEST(Utf8FileNames, DecomposedAndLegacyNames) {
  char dst[300];
  // Decomposed, then cut by whole UTF-8 characters: the accent is one of its own.
  EXPECT_STREQ(utf8_to_fileSystemRepresentation(dst, "été", 5), "e\xCC\x81t");
  EXPECT_STREQ(utf8_to_fileSystemRepresentation(dst, "\xC3", 16), "");

  std::optional<icu::UnicodeString> lost = icu::UnicodeString(u"stale");
  EXPECT_STREQ(utf8_to_legacyFileSystemCString(dst, "café", sizeof dst, &lost), "caf\x8E");
  EXPECT_FALSE(lost);
  // The emoji has no byte in the legacy set.
  EXPECT_STREQ(utf8_to_legacyFileSystemCString(dst, "a€🎹z", sizeof dst, &lost), "a\xDB_z");
  EXPECT_EQ(lost, icu::UnicodeString(u"a€_z"));

  utf8_to_legacyFileSystemPascalString(dst, std::string(400, 'n').c_str(), 300, nullptr);
  EXPECT_EQ(std::string(dst, 255), "\xFE" + std::string(254, 'n'));
  utf8_to_legacyFileSystemPascalString(dst, "abc", 3, nullptr);
  EXPECT_EQ(std::string(dst, 3), "\2ab");
}

TEST(Utf8Log, LogsAtLevelFiveWithoutTagAndNeverAsAFormat) {
  std::vector<vtcore::LogRecord> records;
  {
    vtcore::test::CapturedLog log;
    utf8_log("100% sure %s");
    utf8_trace("\xC3");
    records = log.sink().records();
  }
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].level, 5);
  EXPECT_EQ(records[0].identity, "KWLogCString");
  EXPECT_EQ(records[0].field("Message"), "100% sure %s");
  EXPECT_EQ(records[1].field("Message"), "utf8_trace: malformed string");
}

} // namespace

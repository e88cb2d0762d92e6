// Behaviour of the UTF-8 string library: the validation and stepping rules,
// bounded copies, and the conversions to host strings and file names.

#include <vtcore/core/diagnostics/log_sink.h>
#include <vtcore/core/text/utf8.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::string bytes(std::initializer_list<int> values) {
  std::string s;
  for (int v : values)
    s += static_cast<char>(v);
  return s;
}

struct CheckCase {
  std::string text;
  int valid;
};

class Utf8Check : public testing::TestWithParam<CheckCase> {};

TEST_P(Utf8Check, FollowsTheLooseValidationRule) {
  EXPECT_EQ(utf8_check(GetParam().text.c_str()), GetParam().valid);
  EXPECT_EQ(utf8_check_no_assertion(GetParam().text.c_str()), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(
    Vectors, Utf8Check,
    testing::Values(CheckCase{"", 1}, CheckCase{bytes({0xC3, 0xA9}), 1},
                    CheckCase{bytes({0xA9}), 0}, CheckCase{bytes({0xC3}), 0},
                    CheckCase{bytes({0xC3, 0x41}), 0}, CheckCase{bytes({0xC3, 0xA9, 0xA9}), 0},
                    CheckCase{bytes({0xC3, 0xC3, 0xA9}), 1}, CheckCase{bytes({0xC0, 0x80}), 1},
                    CheckCase{bytes({0xED, 0xA0, 0x80}), 1},
                    CheckCase{bytes({0xF8, 0x88, 0x80, 0x80, 0x80}), 1},
                    CheckCase{bytes({0xFE, 0x80, 0x80, 0x80, 0x80, 0x80}), 1},
                    CheckCase{bytes({0xFC, 0x80, 0x80, 0x80, 0x80}), 0},
                    CheckCase{bytes({0xE2, 0xFD, 0xAC}), 1}, CheckCase{bytes({0xFD}), 0},
                    CheckCase{bytes({0xFF}), 0}, CheckCase{bytes({0xFD, 0x41}), 0},
                    // 0xFD leaves the state alone, so it may precede a lead byte.
                    CheckCase{bytes({0xFD, 0xC3, 0xA9}), 1},
                    // Too many continuation bytes are caught at the next ASCII byte.
                    CheckCase{bytes({0xC3, 0xA9, 0xA9, 0x41}), 0},
                    CheckCase{"plain ASCII text that is long enough for the block scan", 1},
                    CheckCase{std::string(100, 'a') + bytes({0xC3}) + std::string(100, 'b'), 0}));

TEST(Utf8Check, NullIsInvalidAndVerifyIsAlwaysZero) {
  EXPECT_EQ(utf8_check(nullptr), 0);
  EXPECT_EQ(utf8_verify("abc"), 0);
  EXPECT_EQ(utf8_verify(nullptr), 0);
  EXPECT_EQ(utf8_unitTest(), 1);
}

TEST(Utf8IsAscii, HonoursTheByteLimit) {
  const std::string s = bytes({0x41, 0x42, 0xC3, 0xA9});
  EXPECT_EQ(utf8_is_ascii(s.c_str(), 2), 1);
  EXPECT_EQ(utf8_is_ascii(s.c_str(), 3), 0);
  EXPECT_EQ(utf8_is_ascii(s.c_str(), 0), 0);
  EXPECT_EQ(utf8_is_ascii("", 0), 1);
  EXPECT_EQ(utf8_is_ascii("ab", 100), 1); // stops at the terminator
  EXPECT_EQ(utf8_is_ascii(nullptr, 0), 0);
  // Across the scan's internal pieces, with the high byte in the last one.
  std::string big(100000, 'x');
  EXPECT_EQ(utf8_is_ascii(big.c_str(), 0), 1);
  big[99999] = static_cast<char>(0x80);
  EXPECT_EQ(utf8_is_ascii(big.c_str(), 0), 0);
  EXPECT_EQ(utf8_is_ascii(big.c_str(), 99999), 1);
}

TEST(Utf8Walk, StrlenStopsWhereTheSteppingRuleEnds) {
  EXPECT_EQ(utf8_strlen(bytes({0x41, 0xC3, 0xA9, 0x42}).c_str()), 3u);
  EXPECT_EQ(utf8_strlen(bytes({0x41, 0xC0, 0x80}).c_str()), 1u);
  EXPECT_EQ(utf8_strlen(bytes({0xF5, 0x80}).c_str()), 0u);
  EXPECT_EQ(utf8_strlen(bytes({0x41, 0xE2, 0x82}).c_str()), 1u); // cut by the terminator
  EXPECT_EQ(utf8_strlen(bytes({0xF0, 0x9F, 0x8E, 0xB9, 0x41}).c_str()), 2u);
  EXPECT_EQ(utf8_strlen(nullptr), 0u);
}

TEST(Utf8Walk, NextAndPreviousStepByWholeCharacters) {
  const std::string s = bytes({0x41, 0xE2, 0x82, 0xAC, 0x42});
  const char* p = s.c_str();
  EXPECT_EQ(utf8_next(p), p + 1);
  EXPECT_EQ(utf8_next(p + 1), p + 4);
  EXPECT_EQ(utf8_next(p + 5), nullptr); // at the terminator
  EXPECT_EQ(utf8_next(p + 2), nullptr); // continuation byte
  EXPECT_EQ(utf8_next(nullptr), nullptr);
  EXPECT_EQ(utf8_previous(p + 5), p + 4);
  EXPECT_EQ(utf8_previous(p + 4), p + 1);
  EXPECT_EQ(utf8_previous(p + 1), p);
  const std::string bad = bytes({0x41, 0xC0, 0x80});
  EXPECT_EQ(utf8_previous(bad.c_str() + 3), nullptr);
  const std::string cut = bytes({0xE2, 0x82});
  EXPECT_EQ(utf8_next(cut.c_str()), nullptr);
}

TEST(Utf8Search, ComparesLeadBytesAsSignedBytes) {
  const std::string s = bytes({0x61, 0xC3, 0xA9, 0x62, 0x61, 0});
  const char* p = s.c_str();
  EXPECT_EQ(utf8_strchr(p, 'a'), p);
  EXPECT_EQ(utf8_strchr(p, 'b'), p + 3);
  EXPECT_EQ(utf8_strchr(p, 0), p + 5);
  EXPECT_EQ(utf8_strchr(p, 0xC3), nullptr);
  EXPECT_EQ(utf8_strchr(p, static_cast<signed char>(0xC3)), p + 1);
  EXPECT_EQ(utf8_strchr(p, 'z'), nullptr);
  EXPECT_EQ(utf8_strrchr(p, 'a'), p + 4);
  EXPECT_EQ(utf8_strrchr(p, static_cast<signed char>(0xC3)), p + 1);
  EXPECT_EQ(utf8_strrchr(p, 0), p + 5);
  EXPECT_EQ(utf8_strrchr(p, 'z'), nullptr);
  // The forward walk ends at a byte that is not a lead byte.
  const std::string bad = bytes({0x61, 0xC0, 0x80, 0x62});
  EXPECT_EQ(utf8_strchr(bad.c_str(), 'b'), nullptr);
  EXPECT_EQ(utf8_strchr(nullptr, 'a'), nullptr);
  EXPECT_EQ(utf8_strrchr(nullptr, 'a'), nullptr);
}

std::vector<int> buffer(const char* data, std::size_t n) {
  std::vector<int> out;
  for (std::size_t i = 0; i < n; ++i)
    out.push_back(static_cast<unsigned char>(data[i]));
  return out;
}

TEST(Utf8Copy, StrncpyNeverSplitsAndOmitsTheTerminatorWhenFull) {
  const std::string src = bytes({0x41, 0xC3, 0xA9});
  char dst[8];
  std::fill(dst, dst + 8, '\x55');
  utf8_strncpy(dst, src.c_str(), 2);
  EXPECT_EQ(buffer(dst, 3), (std::vector<int>{0x41, 0x00, 0x55}));
  std::fill(dst, dst + 8, '\x55');
  utf8_strncpy(dst, src.c_str(), 3);
  EXPECT_EQ(buffer(dst, 4), (std::vector<int>{0x41, 0xC3, 0xA9, 0x55}));
  std::fill(dst, dst + 8, '\x55');
  EXPECT_EQ(utf8_strncpy(dst, src.c_str(), 5), dst);
  EXPECT_EQ(buffer(dst, 6), (std::vector<int>{0x41, 0xC3, 0xA9, 0, 0, 0x55}));
  // A source starting inside a character starts at the next one.
  utf8_strncpy(dst, src.c_str() + 2, 4);
  EXPECT_EQ(buffer(dst, 2), (std::vector<int>{0, 0}));
  const std::string mid = bytes({0xA9, 0xA9, 0x42});
  utf8_strncpy(dst, mid.c_str(), 4);
  EXPECT_STREQ(dst, "B");
  // A byte that is not a lead byte ends the copy.
  const std::string bad = bytes({0x41, 0xF5, 0x42});
  std::fill(dst, dst + 8, '\x55');
  utf8_strncpy(dst, bad.c_str(), 4);
  EXPECT_EQ(buffer(dst, 5), (std::vector<int>{0x41, 0, 0, 0, 0x55}));
  EXPECT_EQ(utf8_strncpy(nullptr, "a", 4), nullptr);
  EXPECT_EQ(utf8_strncpy(dst, nullptr, 4), dst);
}

TEST(Utf8Copy, StrlcpyAndStrlcatAlwaysTerminate) {
  char dst[8];
  const std::string euro = bytes({0xE2, 0x82, 0xAC, 0x41});
  EXPECT_EQ(utf8_strlcpy(dst, euro.c_str(), 3), dst);
  EXPECT_STREQ(dst, "");
  utf8_strlcpy(dst, euro.c_str(), 5);
  EXPECT_EQ(std::string(dst), euro);
  dst[0] = 'x';
  utf8_strlcpy(dst, euro.c_str(), 1);
  EXPECT_STREQ(dst, "");
  utf8_strlcpy(dst, nullptr, 8);
  EXPECT_STREQ(dst, "");

  std::strcpy(dst, "ab");
  utf8_strlcat(dst, euro.c_str(), 6);
  EXPECT_EQ(std::string(dst), "ab" + euro.substr(0, 3));
  utf8_strlcat(dst, "zz", 6); // full: nothing appended
  EXPECT_EQ(std::string(dst), "ab" + euro.substr(0, 3));
  std::strcpy(dst, "ab");
  utf8_strlcat(dst, euro.c_str(), 5); // the euro sign does not fit in 2 bytes
  EXPECT_STREQ(dst, "ab");
  char unterminated[4] = {'a', 'b', 'c', 'd'};
  utf8_strlcat(unterminated, "e", 4);
  EXPECT_STREQ(unterminated, "abc");
}

TEST(Utf8Copy, CopyCharsCountsCharactersAndRefusesInvalidSources) {
  const std::string src = bytes({0x41, 0xC3, 0xA9, 0x42});
  char dst[10];
  utf8_copy_chars(dst, src.c_str(), 2, 10);
  EXPECT_EQ(std::string(dst), src.substr(0, 3));
  utf8_copy_chars(dst, src.c_str(), 2, 2); // the limit falls inside é
  EXPECT_STREQ(dst, "A");
  utf8_copy_chars(dst, src.c_str(), 0, 10);
  EXPECT_STREQ(dst, "");
  utf8_copy_chars(dst, src.c_str(), 99, 10);
  EXPECT_EQ(std::string(dst), src);
  utf8_copy_chars(dst, bytes({0x41, 0xC3}).c_str(), 2, 10);
  EXPECT_STREQ(dst, "");
  utf8_copy_chars(dst, nullptr, 2, 10);
  EXPECT_STREQ(dst, "");
}

TEST(Utf8HostString, RoundTripsAndRefusesMalformedBytes) {
  auto text = utf8_to_qxstring("B\xC3\xBC"
                               "cher \xF0\x9F\x8E\xB9");
  ASSERT_TRUE(text);
  EXPECT_EQ(text->length(), 9);
  EXPECT_FALSE(utf8_to_qxstring(""));
  EXPECT_FALSE(utf8_to_zvstring(nullptr));
  EXPECT_FALSE(utf8_to_qxstring("\xC0\x80"));     // overlong
  EXPECT_FALSE(utf8_to_qxstring("\xED\xA0\x80")); // surrogate
  EXPECT_FALSE(utf8_to_qxstring("a\xC3"));

  char dst[16];
  utf8_from_qxstring(dst, text, sizeof dst);
  EXPECT_STREQ(dst, "B\xC3\xBC"
                    "cher \xF0\x9F\x8E\xB9");
  utf8_from_zvstring(dst, text, 3); // ü does not fit after B
  EXPECT_STREQ(dst, "B");
  utf8_from_qxstring(dst, std::nullopt, 4);
  EXPECT_STREQ(dst, "");
  dst[0] = 'x';
  utf8_from_qxstring(dst, text, 0);
  EXPECT_EQ(dst[0], 'x');
  // Unpaired surrogates, and a pair cut by the unit limit, become "?".
  icu::UnicodeString lone;
  lone.append(static_cast<char16_t>(0xDC00)).append(u'a').append(static_cast<char16_t>(0xD83C));
  lone.append(static_cast<char16_t>(0xDFB9));
  utf8_from_qxstring(dst, lone, sizeof dst);
  EXPECT_STREQ(dst, "?a\xF0\x9F\x8E\xB9");
  utf8_from_qxstring(dst, lone, 4);
  EXPECT_STREQ(dst, "?a?");
}

TEST(Utf8FileNames, FileSystemRepresentationIsDecomposed) {
  char dst[16];
  utf8_to_fileSystemRepresentation(dst, "\xC3\xA9t\xC3\xA9", sizeof dst);
  EXPECT_STREQ(dst, "e\xCC\x81te\xCC\x81");
  // Cut by whole UTF-8 characters: the accent is a character of its own.
  utf8_to_fileSystemRepresentation(dst, "\xC3\xA9t\xC3\xA9", 5);
  EXPECT_STREQ(dst, "e\xCC\x81t");
  utf8_to_fileSystemRepresentation(dst, "\xC3\xA9t\xC3\xA9", 3);
  EXPECT_STREQ(dst, "e");
  utf8_to_fileSystemRepresentation(dst, "\xC3", sizeof dst);
  EXPECT_STREQ(dst, "");
}

TEST(Utf8FileNames, LegacyNamesSubstituteAndReportLosses) {
  char dst[300];
  std::optional<icu::UnicodeString> lost = icu::UnicodeString(u"stale");
  utf8_to_legacyFileSystemCString(dst, "caf\xC3\xA9", sizeof dst, &lost);
  EXPECT_STREQ(dst, "caf\x8E"); // é in the Mac Roman set
  EXPECT_FALSE(lost);
  utf8_to_legacyFileSystemCString(dst, "a\xE2\x82\xAC\xF0\x9F\x8E\xB9z", sizeof dst, &lost);
  EXPECT_STREQ(dst, "a\xDB_z"); // € is 0xDB; the emoji has no byte
  ASSERT_TRUE(lost);
  EXPECT_EQ(*lost, icu::UnicodeString(u"a€_z"));
  utf8_to_legacyFileSystemCString(dst, "abcdef", 4, &lost);
  EXPECT_STREQ(dst, "abc");
  EXPECT_TRUE(lost); // cut names differ from the source
  utf8_to_legacyFileSystemCString(dst, "\xC3", 4, &lost);
  EXPECT_STREQ(dst, "");
  EXPECT_FALSE(lost);

  const std::string longName(400, 'n');
  utf8_to_legacyFileSystemPascalString(dst, longName.c_str(), 300, nullptr);
  EXPECT_EQ(static_cast<unsigned char>(dst[0]), 254);
  EXPECT_EQ(std::string(dst + 1, 254), std::string(254, 'n'));
  utf8_to_legacyFileSystemPascalString(dst, "abc", 3, nullptr);
  EXPECT_EQ(buffer(dst, 3), (std::vector<int>{2, 'a', 'b'}));
}

// LogRecord::field is not exported from the library; look the key up here.
std::string message(const vtcore::LogRecord& record) {
  for (const auto& [key, value] : record.fields)
    if (key == "Message")
      return value;
  return {};
}

TEST(Utf8Log, LogsAtLevelFiveWithoutTagAndNeverAsAFormat) {
  vtcore::MemoryLogSink sink;
  vtcore::LogSink* previous = vtcore::setLogSink(&sink);
  utf8_log("100% sure %s");
  utf8_trace("\xC3");
  utf8_log("");
  utf8_log(nullptr);
  vtcore::setLogSink(previous);
  auto records = sink.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].level, 5);
  EXPECT_EQ(records[0].identity, "KWLogCString");
  EXPECT_EQ(message(records[0]), "100% sure %s");
  EXPECT_EQ(message(records[1]), "utf8_trace: malformed string");
}

} // namespace

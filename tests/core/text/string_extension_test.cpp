// The web and XML conversions of host strings, with libxml2 as the XML peer.

#include <vtcore/core/text/string_extension.h>

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>

namespace {

using X = UnicodeStringExtension;

icu::UnicodeString u(const char* utf8) {
  return icu::UnicodeString::fromUTF8(utf8);
}

std::string utf8(const icu::UnicodeString& s) {
  std::string out;
  s.toUTF8String(out);
  return out;
}

struct Conversion {
  const char* input;
  const char* expected;
};

class XmlEscape : public testing::TestWithParam<Conversion> {};
TEST_P(XmlEscape, RemovesControlsAndEscapesInOrder) {
  EXPECT_EQ(utf8(X::stringByConvertingToXML(u(GetParam().input))), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(
    Vectors, XmlEscape,
    testing::Values(Conversion{"a<b & 'c'", "a&lt;b &amp; &apos;c&apos;"},
                    Conversion{"tab\there", "tabhere"},
                    Conversion{"zero\xE2\x80\x8Bwidth\xEF\xBB\xBF", "zerowidth"},
                    Conversion{"\"&amp;\">", "&quot;&amp;amp;&quot;&gt;"},
                    Conversion{"line\r\nfeed\x7F", "linefeed"}, Conversion{"", ""}));

class UrlScheme : public testing::TestWithParam<Conversion> {};
TEST_P(UrlScheme, PrependsTheRightScheme) {
  EXPECT_EQ(utf8(X::stringByPrependingURLScheme(u(GetParam().input))), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(
    Vectors, UrlScheme,
    testing::Values(Conversion{"host/page", "http://host/page"},
                    Conversion{"a.b@c.de", "mailto:a.b@c.de"}, Conversion{"mailto:x", "mailto:x"},
                    Conversion{"ftp:/x", "ftp:/x"}, Conversion{"http://host://b", "http://hostb"},
                    Conversion{"a://b://c://d", "a://bcd"},
                    Conversion{"host:8080/x", "host:8080/x"}, Conversion{"", ""}));

class Rfc2396 : public testing::TestWithParam<Conversion> {};
TEST_P(Rfc2396, EscapesExcludedCharactersAndStrayPercents) {
  EXPECT_EQ(utf8(X::stringByConvertingToRFC2396(u(GetParam().input))), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(
    Vectors, Rfc2396,
    testing::Values(Conversion{"a b%zz", "http://a%20b%25zz"}, Conversion{"x%41y", "http://x%41y"},
                    Conversion{"x%4", "http://x%254"}, Conversion{"x%", "http://x%25"},
                    Conversion{"x/%4a#f", "http://x/%4a#f"},
                    Conversion{"h/<\"{|}\\^[]`>", "http://h/%3C%22%7B%7C%7D%5C%5E%5B%5D%60%3E"},
                    Conversion{"h/b\xC3\xBC?q=1&r=~;", "http://h/b%C3%BC?q=1&r=~;"},
                    Conversion{"", ""}));

class Punycode : public testing::TestWithParam<Conversion> {};
TEST_P(Punycode, ConvertsOnlyTheHost) {
  EXPECT_EQ(utf8(X::stringByConvertingToPunycode(u(GetParam().input))), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Vectors, Punycode,
                         testing::Values(Conversion{"http://b\xC3\xBC"
                                                    "cher.de/x",
                                                    "http://xn--bcher-kva.de/x"},
                                         Conversion{"http://b\xC3\xBC"
                                                    "cher.de:80/\xC3\xBC",
                                                    "http://xn--bcher-kva.de:80/\xC3\xBC"},
                                         Conversion{"https://example.com", "https://example.com"},
                                         Conversion{"b\xC3\xBC"
                                                    "cher.de",
                                                    "b\xC3\xBC"
                                                    "cher.de"},
                                         Conversion{"http:///path", "http:///path"},
                                         Conversion{"", ""}));

TEST(Punycode, ReturnsTheReceiverWhenIdnaRefuses) {
  std::string label(70, 'a'); // a label longer than 63 characters
  icu::UnicodeString s = u(("http://\xC3\xBC" + label + ".de/").c_str());
  EXPECT_EQ(X::stringByConvertingToPunycode(s), s);
}

TEST(EmailAddress, FollowsThePattern) {
  EXPECT_TRUE(X::stringLooksLikeValidEmailAddress(u("a.b@c.de")));
  EXPECT_TRUE(X::stringLooksLikeValidEmailAddress(u("x_y-z@mail.example.info")));
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(u("a@localhost")));
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(u("a@b.museum")));
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(u("a@b.c")));
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(u("a@@b.de")));
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(u("@b.de")));
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(u("a@b.de\n")));
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(u("\xC3\xA4@b.de")));
  // The dots may repeat: the label class contains ".".
  EXPECT_TRUE(X::stringLooksLikeValidEmailAddress(u("a@b..de")));
  EXPECT_TRUE(X::stringLooksLikeValidEmailAddress(u("a@.b.de")));
  // A text on which the pattern backtracks exponentially answers at once.
  std::string slow = "a@";
  for (int i = 0; i < 40; ++i)
    slow += "a.";
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(u((slow + "!").c_str())));
}

// The one-pass pre-test must accept exactly what the pattern accepts: compare
// with ICU matching the pattern on its own, over short texts of the
// characters that matter.
TEST(EmailAddress, AgreesWithThePlainPattern) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError parseError;
  std::unique_ptr<icu::RegexPattern> pattern(icu::RegexPattern::compile(
      icu::UnicodeString(u"^[a-zA-Z0-9\\._-]+@(?:[a-zA-Z0-9\\.-]+\\.)+[a-zA-Z0-9\\.-]{2,4}$"), 0,
      parseError, status));
  ASSERT_TRUE(U_SUCCESS(status));
  const char16_t alphabet[] = u"a.-_@Z9!";
  std::mt19937 rng(5);
  int matches = 0;
  for (int round = 0; round < 20000; ++round) {
    icu::UnicodeString text;
    std::size_t n = rng() % 12;
    for (std::size_t i = 0; i < n; ++i)
      text.append(alphabet[rng() % 8]);
    if (rng() % 2)
      text = icu::UnicodeString(u"ab@") + text; // more near-misses
    status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(text, status));
    bool expected = matcher->matches(status);
    ASSERT_TRUE(U_SUCCESS(status));
    matches += expected;
    ASSERT_EQ(X::stringLooksLikeValidEmailAddress(text), expected) << utf8(text);
  }
  EXPECT_GT(matches, 100);
}

TEST(Uri, UsesLibxml2AsTheJudge) {
  EXPECT_TRUE(X::stringLooksLikeValidURI(u("http://example.com/a?b#c")));
  EXPECT_TRUE(X::stringLooksLikeValidURI(u("relative/path")));
  EXPECT_FALSE(X::stringLooksLikeValidURI(u("")));
  EXPECT_FALSE(X::stringLooksLikeValidURI(u("http://a b")));
  EXPECT_FALSE(X::stringLooksLikeValidURI(u("%zz")));
}

struct BoolCase {
  const char* text;
  bool value;
};
class BoolValue : public testing::TestWithParam<BoolCase> {};
TEST_P(BoolValue, ReadsYesNoTexts) {
  EXPECT_EQ(X::boolValue(u(GetParam().text)), GetParam().value) << GetParam().text;
}
INSTANTIATE_TEST_SUITE_P(
    Vectors, BoolValue,
    testing::Values(BoolCase{"YES", true}, BoolCase{"yes", true}, BoolCase{"y", true},
                    BoolCase{"True", true}, BoolCase{"1", true}, BoolCase{"42", true},
                    BoolCase{" 7", true}, BoolCase{"-3", true}, BoolCase{"007x", true},
                    BoolCase{"99999999999", true}, BoolCase{"no", false}, BoolCase{"0", false},
                    BoolCase{"", false}, BoolCase{"N", false}, BoolCase{"yess", false},
                    BoolCase{"000", false}, BoolCase{"x1", false}, BoolCase{" YES", false}));

struct DocFree {
  void operator()(xmlDocPtr doc) const { xmlFreeDoc(doc); }
};

// What libxml2 reads back from <a>escaped</a>, or nullopt if it refuses.
std::optional<std::string> parseElementText(const icu::UnicodeString& escaped) {
  std::string document = "<a>" + utf8(escaped) + "</a>";
  std::unique_ptr<xmlDoc, DocFree> doc(
      xmlReadMemory(document.data(), static_cast<int>(document.size()), nullptr, "UTF-8",
                    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
  if (!doc)
    return std::nullopt;
  xmlChar* content = xmlNodeGetContent(xmlDocGetRootElement(doc.get()));
  std::string text = content ? reinterpret_cast<const char*>(content) : "";
  xmlFree(content);
  return text;
}

TEST(XmlEscape, RoundTripsThroughLibxml2) {
  std::mt19937 rng(1122);
  const UChar32 interesting[] = {'&',  '<',    '>',     '\'',   '"',    ';',    '#',
                                 'a',  ' ',    '\t',    0x7F,   0xAD,   0x200B, 0x2028,
                                 0xE9, 0x20AC, 0x1F3B9, 0xFEFF, 0x1D173};
  for (int round = 0; round < 3000; ++round) {
    icu::UnicodeString text;
    icu::UnicodeString kept;
    std::size_t n = rng() % 24;
    for (std::size_t i = 0; i < n; ++i) {
      UChar32 c = rng() % 3 ? interesting[rng() % std::size(interesting)]
                            : static_cast<UChar32>(1 + rng() % 0x2FFFF);
      if (U_IS_SURROGATE(c) || u_charType(c) == U_UNASSIGNED || (c >= 0xFDD0 && c <= 0xFDEF) ||
          (c & 0xFFFE) == 0xFFFE || u_charType(c) == U_PRIVATE_USE_CHAR)
        continue;
      text.append(c);
      if (u_charType(c) != U_CONTROL_CHAR && u_charType(c) != U_FORMAT_CHAR)
        kept.append(c);
    }
    std::optional<std::string> parsed = parseElementText(X::stringByConvertingToXML(text));
    ASSERT_TRUE(parsed) << utf8(text);
    ASSERT_EQ(*parsed, utf8(kept)) << utf8(text);
  }
}

TEST(WebStrings, UnpairedSurrogatesAreHandled) {
  icu::UnicodeString s(u"http://a/");
  s.append(static_cast<char16_t>(0xD800)).append(u'<');
  EXPECT_EQ(utf8(X::stringByConvertingToRFC2396(s)), "http://a/%EF%BF%BD%3C");
  icu::UnicodeString xml = X::stringByConvertingToXML(s);
  EXPECT_EQ(xml.charAt(9), 0xD800);
  EXPECT_FALSE(X::stringLooksLikeValidEmailAddress(s));
  EXPECT_FALSE(X::boolValue(s));
  EXPECT_EQ(X::stringByConvertingToPunycode(s), s);
}

} // namespace

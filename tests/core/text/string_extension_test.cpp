#include <vtcore/core/text/web/string_extension.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <tuple>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <unicode/uchar.h>

namespace {

using X = UnicodeStringExtension;

icu::UnicodeString u(const std::string& utf8) {
  return icu::UnicodeString::fromUTF8(utf8);
}

std::string utf8(const icu::UnicodeString& s) {
  std::string out;
  return s.toUTF8String(out);
}

TEST(WebStrings, ConversionVectors) {
  const auto xml = X::stringByConvertingToXML, url = X::stringByPrependingURLScheme,
             rfc = X::stringByConvertingToRFC2396, puny = X::stringByConvertingToPunycode;
  const std::string refused = "http://ü" + std::string(70, 'a') + ".de/";
  const std::tuple<decltype(xml), std::string, std::string> cases[] = {
      // Controls (Cc, Cf) go first; "&" is replaced before the others.
      {xml, "a<b & 'c'", "a&lt;b &amp; &apos;c&apos;"},
      // Every "://" after the first is removed.
      {url, "a.b@c.de", "mailto:a.b@c.de"},
      {url, "a://b://c://d", "a://bcd"},
      {url, "host:8080/x", "host:8080/x"},
      // A "%" not followed by two hex digits is escaped as "%25".
      {rfc, "a b%zz", "http://a%20b%25zz"},
      {rfc, "x/%41y%4a#%4", "http://x/%41y%4a#%254"},
      {rfc, "h/<\"{|}\\^[]`>", "http://h/%3C%22%7B%7C%7D%5C%5E%5B%5D%60%3E"},
      {rfc, "h/b\xC3\xBC?q=1&r=~;", "http://h/b%C3%BC?q=1&r=~;"},
      // Only the host is converted, and only with a scheme.
      {puny, "http://bücher.de/x", "http://xn--bcher-kva.de/x"},
      {puny, "http://bücher.de:80/ü", "http://xn--bcher-kva.de:80/ü"},
      // IDNA refuses a label longer than 63 characters: the text comes back.
      {puny, refused, refused},
  };
  for (const auto& [convert, input, expected] : cases)
    EXPECT_EQ(utf8(convert(u(input))), expected) << input;
}

TEST(WebStrings, Predicates) {
  auto expectAll = [](auto test, std::initializer_list<std::string> texts, bool expected) {
    for (const std::string& text : texts)
      EXPECT_EQ(test(u(text)), expected) << text;
  };
  std::string slow = "a@"; // the pattern backtracks exponentially on this
  for (int i = 0; i < 40; ++i)
    slow += "a.";
  expectAll(X::stringLooksLikeValidEmailAddress, {"x_y-z@mail.example.info", "a@b..de"}, true);
  expectAll(X::stringLooksLikeValidEmailAddress, {"a@b.museum", "a@b.de\n", "ä@b.de", slow + "!"},
            false);
  expectAll(X::stringLooksLikeValidURI, {"http://example.com/a?b#c", "relative/path"}, true);
  expectAll(X::stringLooksLikeValidURI, {"", "http://a b", "%zz"}, false);
  // "YES", "TRUE" or "Y" in any case, or a non-zero integer value.
  expectAll(X::boolValue, {"YES", "y", "True", "42", " 7", "-3", "007x", "99999999999"}, true);
  expectAll(X::boolValue, {"no", "0", "", "yess", "000", "x1", " YES"}, false);
}

// libxml2 reads back from <a>escaped</a> the text minus the removed controls.
TEST(WebStrings, XmlEscapeRoundTripsThroughLibxml2) {
  std::mt19937 rng(1122);
  const UChar32 interesting[] = {'&',  '<',    '>',     '\'',   '"',    ';',    '#',
                                 'a',  ' ',    '\t',    0x7F,   0xAD,   0x200B, 0x2028,
                                 0xE9, 0x20AC, 0x1F3B9, 0xFEFF, 0x1D173};
  for (int round = 0; round < 3000; ++round) {
    icu::UnicodeString text, kept;
    for (std::size_t i = 0, n = rng() % 24; i < n; ++i) {
      UChar32 c = rng() % 3 ? interesting[rng() % std::size(interesting)]
                            : static_cast<UChar32>(1 + rng() % 0x2FFFF);
      int8_t type = u_charType(c);
      if (type == U_SURROGATE || type == U_UNASSIGNED || type == U_PRIVATE_USE_CHAR)
        continue; // not XML characters (noncharacters are unassigned), or of no fixed category
      text.append(c);
      if (type != U_CONTROL_CHAR && type != U_FORMAT_CHAR)
        kept.append(c);
    }
    std::string document = "<a>" + utf8(X::stringByConvertingToXML(text)) + "</a>";
    xmlDocPtr doc =
        xmlReadMemory(document.data(), static_cast<int>(document.size()), nullptr, "UTF-8",
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    ASSERT_TRUE(doc) << utf8(text);
    xmlChar* content = xmlNodeGetContent(xmlDocGetRootElement(doc));
    const std::string got = content ? reinterpret_cast<const char*>(content) : "";
    xmlFree(content);
    xmlFreeDoc(doc);
    ASSERT_EQ(got, utf8(kept)) << utf8(text);
  }
}

} // namespace

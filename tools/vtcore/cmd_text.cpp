// vtcore subcommands and tour steps of the UTF-8 library and the web/XML
// string conversions.

#include "command.h"

#include <vtcore/vtcore.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace vtcore::cli;
using X = UnicodeStringExtension;

std::string hexBytes(const char* data, std::size_t length) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (std::size_t i = 0; i < length; ++i) {
    auto b = static_cast<unsigned char>(data[i]);
    if (i > 0)
      out += ' ';
    out += digits[b >> 4];
    out += digits[b & 0xF];
  }
  return out;
}

std::string hexBytes(const std::string& s) {
  return hexBytes(s.data(), s.size());
}

// "C3 A9", "c3a9" or "C3,A9" as bytes; std::nullopt on anything else.
std::optional<std::string> parseHex(const std::string& text) {
  std::string out;
  int high = -1;
  for (char c : text) {
    int value = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : -1;
    if (value < 0) {
      if (c == ' ' || c == ',' || c == '\t' || c == '\n') {
        if (high >= 0)
          return std::nullopt;
        continue;
      }
      return std::nullopt;
    }
    if (high < 0) {
      high = value;
    } else {
      out += static_cast<char>(high * 16 + value);
      high = -1;
    }
  }
  if (high >= 0)
    return std::nullopt;
  return out;
}

int runUtf8(const Invocation& call) {
  const auto& args = call.operands();
  if (args.empty())
    return usage("utf8");
  const std::string action = args[0];
  std::size_t next = 1;
  std::size_t capacity = 0;
  if (action == "copy") {
    if (args.size() < 2)
      return usage("utf8");
    capacity = static_cast<std::size_t>(integerArgument("BYTES", args[1], 0, 1 << 30));
    next = 2;
  } else if (action != "check" && action != "length" && action != "nfd" && action != "legacy") {
    throw UsageError("unknown action '" + action + "'");
  }
  const bool hex = call.has("hex");
  std::string input =
      argumentsOrStandardInput(std::vector<std::string>(args.begin() + next, args.end()));
  if (hex) {
    std::optional<std::string> decoded = parseHex(input);
    if (!decoded)
      throw UsageError("--hex wants pairs of hexadecimal digits");
    input = *decoded;
  }
  // The library works on C strings: a NUL byte ends the text.
  const char* s = input.c_str();
  if (action == "check") {
    bool valid = utf8_check(s) == 1;
    std::cout << (valid ? "valid" : "invalid") << "\n";
    return valid ? 0 : 1;
  }
  if (action == "length") {
    std::cout << utf8_strlen(s) << " characters, " << std::strlen(s) << " bytes"
              << (utf8_is_ascii(s, 0) ? ", all ASCII" : "") << "\n";
    return 0;
  }
  if (action == "copy") {
    std::vector<char> dst(capacity + 1, '\0');
    utf8_strlcpy(dst.data(), s, capacity);
    std::size_t length = capacity == 0 ? 0 : std::strlen(dst.data());
    std::cout << dst.data() << "\n" << length << " bytes: " << hexBytes(dst.data(), length) << "\n";
    return 0;
  }
  const std::size_t size = std::strlen(s) * 4 + 16;
  std::vector<char> dst(size, '\0');
  if (action == "nfd") {
    if (*s != 0 && !utf8_to_qxstring(s))
      return fail("utf8", "the text is not well-formed UTF-8");
    utf8_to_fileSystemRepresentation(dst.data(), s, size);
    std::cout << dst.data() << "\n" << hexBytes(dst.data(), std::strlen(dst.data())) << "\n";
    return 0;
  }
  if (*s != 0 && !utf8_to_qxstring(s))
    return fail("utf8", "the text is not well-formed UTF-8");
  std::optional<icu::UnicodeString> lost;
  utf8_to_legacyFileSystemCString(dst.data(), s, size, &lost);
  std::cout << hexBytes(dst.data(), std::strlen(dst.data())) << "\n";
  if (lost) {
    std::string readBack;
    lost->toUTF8String(readBack);
    std::cout << "characters were lost; the name reads back as: " << readBack << "\n";
  }
  return 0;
}

Register utf8Command{{"utf8",
                      "check|length|nfd|legacy|copy BYTES [--hex] [TEXT...]",
                      "UTF-8: validate (exit 1 if invalid), count, copy into BYTES of room, "
                      "decompose, Mac Roman",
                      {{"hex", 0, "", "the input is hexadecimal byte pairs (C3 A9, c3a9, C3,A9)"}},
                      runUtf8}};

// The web and XML commands read UTF-8 text from the arguments or standard
// input and refuse anything else.
std::optional<icu::UnicodeString> hostText(std::string_view command, const Invocation& call) {
  std::string input = argumentsOrStandardInput(call.operands());
  if (input.empty())
    return icu::UnicodeString();
  if (input.find('\0') != std::string::npos || !utf8_to_qxstring(input.c_str())) {
    fail(command, "the text is not well-formed UTF-8");
    return std::nullopt;
  }
  return utf8_to_qxstring(input.c_str());
}

int printConversion(std::string_view command, const Invocation& args,
                    icu::UnicodeString (*convert)(const icu::UnicodeString&)) {
  std::optional<icu::UnicodeString> text = hostText(command, args);
  if (!text)
    return 1;
  std::string out;
  convert(*text).toUTF8String(out);
  std::cout << out << "\n";
  return 0;
}

int printPredicate(std::string_view command, const Invocation& args,
                   bool (*test)(const icu::UnicodeString&), const char* yes, const char* no) {
  std::optional<icu::UnicodeString> text = hostText(command, args);
  if (!text)
    return 1;
  bool result = test(*text);
  std::cout << (result ? yes : no) << "\n";
  return result ? 0 : 1;
}

Register xmlCommand{{"xml-escape",
                     "[TEXT...]",
                     "text for XML: controls removed, & < > ' \" escaped",
                     {},
                     [](const Invocation& a) {
                       return printConversion("xml-escape", a, X::stringByConvertingToXML);
                     }}};
Register urlCommand{{"url",
                     "[TEXT...]",
                     "a typed address as a URL with a scheme (http://, mailto:)",
                     {},
                     [](const Invocation& a) {
                       return printConversion("url", a, X::stringByPrependingURLScheme);
                     }}};
Register rfcCommand{{"rfc2396",
                     "[TEXT...]",
                     "a typed address as a percent-escaped URL",
                     {},
                     [](const Invocation& a) {
                       return printConversion("rfc2396", a, X::stringByConvertingToRFC2396);
                     }}};
Register punyCommand{{"punycode",
                      "[URL...]",
                      "the URL with its host in IDNA ASCII form",
                      {},
                      [](const Invocation& a) {
                        return printConversion("punycode", a, X::stringByConvertingToPunycode);
                      }}};
Register emailCommand{{"is-email",
                       "[TEXT...]",
                       "does the text look like an e-mail address (exit 1 if not)",
                       {},
                       [](const Invocation& a) {
                         return printPredicate("is-email", a, X::stringLooksLikeValidEmailAddress,
                                               "yes", "no");
                       }}};
Register uriCommand{{"is-uri",
                     "[TEXT...]",
                     "does libxml2 parse the text as a URI (exit 1 if not)",
                     {},
                     [](const Invocation& a) {
                       return printPredicate("is-uri", a, X::stringLooksLikeValidURI, "yes", "no");
                     }}};
Register boolCommand{
    {"bool",
     "[TEXT...]",
     "the text read as a yes/no value (exit 1 if false)",
     {},
     [](const Invocation& a) { return printPredicate("bool", a, X::boolValue, "true", "false"); }}};

void showCheck(const std::string& s) {
  std::cout << "  utf8_check(" << (s.empty() ? "empty" : hexBytes(s))
            << ") = " << utf8_check(s.c_str()) << "\n";
}

void tourValidation() {
  std::cout << "The validation rule is looser than standard UTF-8, on purpose:\n";
  for (const char* s :
       {"", "\xC3\xA9", "\xA9", "\xC3\xC3\xA9", "\xC0\x80", "\xED\xA0\x80", "\xE2\xFD\xAC", "\xFD"})
    showCheck(s);
  const char* text = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB9";
  std::cout << "\"" << text << "\" has " << std::strlen(text) << " bytes and " << utf8_strlen(text)
            << " characters; stepping from the start:";
  for (const char* p = text; p && *p; p = utf8_next(p))
    std::cout << " [" << hexBytes(p, static_cast<std::size_t>(utf8_next(p) - p)) << "]";
  std::cout << "\n";
}

void tourCopies() {
  const char* src = "A\xC3\xA9";
  char dst[5] = {'\x55', '\x55', '\x55', '\x55', '\x55'};
  utf8_strncpy(dst, src, 3);
  std::cout << "utf8_strncpy(\"A\xC3\xA9\", n = 3) fills the 3 bytes and writes no terminator: "
            << hexBytes(dst, 4) << "\n";
  utf8_strncpy(dst, src, 2);
  std::cout << "with n = 2 the \xC3\xA9 does not fit and is not split: " << hexBytes(dst, 2)
            << "\n";
  utf8_strlcpy(dst,
               "\xE2\x82\xAC"
               "A",
               3);
  std::cout << "utf8_strlcpy of \"\xE2\x82\xAC"
               "A\" into 3 bytes gives \""
            << dst << "\": the euro sign needs 3 bytes plus the terminator\n";
}

void tourFileNames() {
  char dst[64];
  utf8_to_fileSystemRepresentation(dst, "Caf\xC3\xA9", sizeof dst);
  std::cout << "File-system (decomposed) form of \"Caf\xC3\xA9\": "
            << hexBytes(dst, std::strlen(dst)) << "\n";
  std::optional<icu::UnicodeString> lost;
  utf8_to_legacyFileSystemCString(dst, "Piano \xF0\x9F\x8E\xB9 \xE2\x82\xAC", sizeof dst, &lost);
  std::string readBack;
  if (lost)
    lost->toUTF8String(readBack);
  std::cout << "Legacy (Mac Roman) name of \"Piano \xF0\x9F\x8E\xB9 \xE2\x82\xAC\": "
            << hexBytes(dst, std::strlen(dst)) << ", reads back as \"" << readBack << "\"\n";
}

void show(const char* label, const icu::UnicodeString& in, const icu::UnicodeString& out) {
  std::string a, b;
  in.toUTF8String(a);
  out.toUTF8String(b);
  std::cout << "  " << label << "(\"" << a << "\") = \"" << b << "\"\n";
}

void tourWeb() {
  std::cout << "Web and XML conversions of host strings:\n";
  icu::UnicodeString xml = icu::UnicodeString::fromUTF8("a<b & 'c'\t");
  show("stringByConvertingToXML", xml, X::stringByConvertingToXML(xml));
  for (const char* s : {"host/page", "a.b@c.de", "http://host://b"}) {
    icu::UnicodeString in = icu::UnicodeString::fromUTF8(s);
    show("stringByPrependingURLScheme", in, X::stringByPrependingURLScheme(in));
  }
  icu::UnicodeString raw = icu::UnicodeString::fromUTF8("a b%zz/\xC3\xBC");
  show("stringByConvertingToRFC2396", raw, X::stringByConvertingToRFC2396(raw));
  icu::UnicodeString idn = icu::UnicodeString::fromUTF8("http://b\xC3\xBC"
                                                        "cher.de/x");
  show("stringByConvertingToPunycode", idn, X::stringByConvertingToPunycode(idn));
}

void tourRecognisers() {
  std::cout << "Recognisers:\n";
  for (const char* s : {"a.b@c.de", "a@localhost", "a@b.museum"})
    std::cout << "  stringLooksLikeValidEmailAddress(\"" << s << "\") = " << std::boolalpha
              << X::stringLooksLikeValidEmailAddress(icu::UnicodeString::fromUTF8(s)) << "\n";
  for (const char* s : {"http://example.com/a?b", "http://a b"})
    std::cout << "  stringLooksLikeValidURI(\"" << s
              << "\") = " << X::stringLooksLikeValidURI(icu::UnicodeString::fromUTF8(s)) << "\n";
  for (const char* s : {"yes", "Y", " 7", "no", "0"})
    std::cout << "  boolValue(\"" << s << "\") = " << X::boolValue(icu::UnicodeString::fromUTF8(s))
              << "\n";
}

TourStep validationStep{20, "UTF-8 validation and stepping", tourValidation};
TourStep copyStep{21, "UTF-8 copies that never split a character", tourCopies};
TourStep fileNameStep{22, "File names: decomposed and legacy forms", tourFileNames};
TourStep webStep{23, "XML, URL, RFC 2396 and IDNA conversions", tourWeb};
TourStep recogniserStep{24, "E-mail, URI and yes/no recognisers", tourRecognisers};

} // namespace

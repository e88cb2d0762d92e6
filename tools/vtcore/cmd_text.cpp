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

std::string hexOf(const char* data, std::size_t length) {
  return vtcore::cli::hexBytes(std::string_view(data, length));
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

// Where the library's validation rule first rejects some bytes.
struct Utf8Problem {
  std::size_t offset;
  std::string what;
};

// Whether the first `length` bytes of `piece` can still become valid by the
// library's rule, that is, are valid or end inside a character that later
// bytes could complete (a character has at most 6 bytes).
bool canContinue(const std::string& piece, std::size_t length) {
  std::string probe = piece.substr(0, length);
  for (int extra = 0; extra <= 5; ++extra, probe += '\x80')
    if (utf8_check(probe.c_str()) == 1)
      return true;
  return false;
}

// Judges every byte of `bytes` by the library's validation rule. The
// library's functions end a text at a NUL byte, so the pieces between NUL
// bytes are judged one by one; a NUL itself is the character U+0000.
std::optional<Utf8Problem> firstUtf8Problem(const std::string& bytes) {
  std::size_t start = 0;
  while (start <= bytes.size()) {
    const std::size_t end = std::min(bytes.find('\0', start), bytes.size());
    const std::string piece = bytes.substr(start, end - start);
    if (utf8_check(piece.c_str()) != 1) {
      // Once a prefix cannot continue, no longer one can: bisect for the
      // first byte that makes it so.
      std::size_t good = 0, bad = piece.size() + 1;
      while (bad - good > 1) {
        const std::size_t middle = good + (bad - good) / 2;
        (canContinue(piece, middle) ? good : bad) = middle;
      }
      if (good < piece.size()) {
        const auto byte = static_cast<unsigned char>(piece[good]);
        return Utf8Problem{start + good, "byte " + hexValue(byte, 2) + " cannot stand here"};
      }
      // Every byte fits, but the last character is not complete.
      std::size_t lead = piece.size();
      while (lead > 0 && (static_cast<unsigned char>(piece[lead - 1]) & 0xC0) == 0x80)
        --lead;
      lead = lead > 0 ? lead - 1 : 0;
      return Utf8Problem{start + lead,
                         std::string("the character starting here is cut short by ") +
                             (end < bytes.size() ? "a NUL byte" : "the end of the input")};
    }
    start = end + 1;
  }
  return std::nullopt;
}

std::string describe(const Utf8Problem& problem) {
  return "invalid UTF-8 at byte offset " + std::to_string(problem.offset) + ": " + problem.what;
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
  std::string input = textInput(call, next);
  if (call.has("hex")) {
    std::optional<std::string> decoded = parseHex(input);
    if (!decoded)
      throw UsageError("--hex wants pairs of hexadecimal digits");
    input = *decoded;
  }
  if (action == "check") {
    const auto problem = firstUtf8Problem(input);
    std::cout << (problem ? describe(*problem) : "valid") << "\n";
    return problem ? 1 : 0;
  }
  if (action == "length") {
    if (const auto problem = firstUtf8Problem(input))
      return fail("utf8", describe(*problem));
    std::size_t characters = 0;
    bool ascii = true;
    for (std::size_t start = 0; start <= input.size();) {
      const std::size_t end = std::min(input.find('\0', start), input.size());
      const std::string piece = input.substr(start, end - start);
      characters += utf8_strlen(piece.c_str()) + (end < input.size() ? 1 : 0);
      ascii = ascii && utf8_is_ascii(piece.c_str(), 0);
      start = end + 1;
    }
    std::cout << characters << " characters, " << input.size() << " bytes"
              << (ascii ? ", all ASCII" : "") << "\n";
    return 0;
  }
  // The conversions work on zero-terminated text: a NUL byte would cut the
  // input short without a word, so it is refused.
  if (const auto nul = input.find('\0'); nul != std::string::npos)
    return fail("utf8", "the input holds a NUL byte at byte offset " + std::to_string(nul) + "; '" +
                            action + "' works on text without one");
  const char* s = input.c_str();
  if (action == "copy") {
    std::vector<char> dst(capacity + 1, '\0');
    utf8_strlcpy(dst.data(), s, capacity);
    std::size_t length = capacity == 0 ? 0 : std::strlen(dst.data());
    std::cout << dst.data() << "\n" << length << " bytes: " << hexOf(dst.data(), length) << "\n";
    return 0;
  }
  if (*s != 0 && !utf8_to_qxstring(s)) {
    const auto problem = firstUtf8Problem(input);
    return fail("utf8", problem ? describe(*problem) : "the text is not well-formed UTF-8");
  }
  const std::size_t size = std::strlen(s) * 4 + 16;
  std::vector<char> dst(size, '\0');
  if (action == "nfd") {
    utf8_to_fileSystemRepresentation(dst.data(), s, size);
    std::cout << dst.data() << "\n" << hexOf(dst.data(), std::strlen(dst.data())) << "\n";
    return 0;
  }
  std::optional<icu::UnicodeString> lost;
  utf8_to_legacyFileSystemCString(dst.data(), s, size, &lost);
  std::cout << hexOf(dst.data(), std::strlen(dst.data())) << "\n";
  if (lost) {
    std::string readBack;
    lost->toUTF8String(readBack);
    std::cout << "characters were lost; the name reads back as: " << readBack << "\n";
  }
  return 0;
}

Register utf8Command{
    {"utf8",
     "check|length|nfd|legacy|copy BYTES [--hex] [TEXT... | --input FILE|-]",
     "UTF-8 by the library's rules: validate, count, copy into a limited room, decompose, "
     "make a legacy file name",
     {{"hex", 0, "", "the input is hexadecimal byte pairs (C3 A9, c3a9 or C3,A9)"}, inputOption()},
     runUtf8,
     "Actions:\n"
     "  check    is the input valid by utf8_check's rule (looser than standard UTF-8:\n"
     "           overlong forms, surrogates and 5- and 6-byte forms pass)? Prints\n"
     "           \"valid\", or the byte offset of the first problem; exit 1 if invalid.\n"
     "  length   characters and bytes (utf8_strlen); invalid input is an error (exit 1)\n"
     "           that names the byte offset of the first problem.\n"
     "  nfd      the decomposed form a file system stores (utf8_to_fileSystemRepresentation).\n"
     "  legacy   the 8-bit Mac Roman file name (utf8_to_legacyFileSystemCString), and what\n"
     "           reads back when characters were lost.\n"
     "  copy     utf8_strlcpy into BYTES of room (0 to 1073741824): never splits a\n"
     "           character.\n"
     "\n"
     "Every byte is judged, NUL bytes included: check and length take a NUL as the\n"
     "character U+0000 and judge the bytes after it too; the other actions refuse input\n"
     "with a NUL byte, as the library's functions would end the text there.\n"
     "\n"
     "The text is the arguments joined with blanks, the file named by --input ('-' for "
     "standard input; a lone '-' argument too), or standard input; from a file or standard "
     "input one trailing line feed is dropped.",
     {"check", "length", "nfd", "legacy", "copy"}}};

// The web and XML commands read UTF-8 text from the arguments or standard
// input and refuse anything else.
std::optional<icu::UnicodeString> hostText(std::string_view command, const Invocation& call) {
  std::string input = textInput(call);
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

constexpr const char* kTextInput =
    "The text is the arguments joined with blanks, the file named by --input ('-' for "
    "standard input; a lone '-' argument too), or standard input when there are neither; from "
    "a file or standard input one trailing line feed is dropped. Input that is not UTF-8 is "
    "refused (exit 1).";

std::string withTextInput(const std::string& details) {
  return details.empty() ? kTextInput : details + "\n\n" + kTextInput;
}

Register xmlCommand{{"xml-escape",
                     "[TEXT... | --input FILE|-]",
                     "the text for XML: control characters removed, & < > ' \" escaped",
                     {inputOption()},
                     [](const Invocation& a) {
                       return printConversion("xml-escape", a, X::stringByConvertingToXML);
                     },
                     withTextInput(""),
                     {}}};
Register urlCommand{
    {"url",
     "[TEXT... | --input FILE|-]",
     "a typed address as a URL with a scheme (http://, mailto:)",
     {inputOption()},
     [](const Invocation& a) { return printConversion("url", a, X::stringByPrependingURLScheme); },
     withTextInput("An address with an @ gets mailto:, any other http://."),
     {}}};
Register rfcCommand{{"rfc2396",
                     "[TEXT... | --input FILE|-]",
                     "a typed address as a percent-escaped URL with a scheme",
                     {inputOption()},
                     [](const Invocation& a) {
                       return printConversion("rfc2396", a, X::stringByConvertingToRFC2396);
                     },
                     withTextInput(""),
                     {}}};
Register punyCommand{{"punycode",
                      "[URL... | --input FILE|-]",
                      "the URL with its host name in IDNA ASCII form (xn--...)",
                      {inputOption()},
                      [](const Invocation& a) {
                        return printConversion("punycode", a, X::stringByConvertingToPunycode);
                      },
                      withTextInput(""),
                      {}}};
Register emailCommand{{"is-email",
                       "[TEXT... | --input FILE|-]",
                       "does the text look like an e-mail address? (prints yes or no)",
                       {inputOption()},
                       [](const Invocation& a) {
                         return printPredicate("is-email", a, X::stringLooksLikeValidEmailAddress,
                                               "yes", "no");
                       },
                       withTextInput("Exit status 0 for yes, 1 for no."),
                       {}}};
Register uriCommand{{"is-uri",
                     "[TEXT... | --input FILE|-]",
                     "does libxml2 parse the text as a URI? (prints yes or no)",
                     {inputOption()},
                     [](const Invocation& a) {
                       return printPredicate("is-uri", a, X::stringLooksLikeValidURI, "yes", "no");
                     },
                     withTextInput("Exit status 0 for yes, 1 for no."),
                     {}}};
Register boolCommand{
    {"bool",
     "[TEXT... | --input FILE|-]",
     "the text read as a yes/no value (prints true or false)",
     {inputOption()},
     [](const Invocation& a) { return printPredicate("bool", a, X::boolValue, "true", "false"); },
     withTextInput("True for yes, y, true (any case) and for a whole number other than 0\n"
                   "(\" 7\", \"42\"); false for anything else. Exit status 0 for true, 1 for "
                   "false."),
     {}}};

void showCheck(const std::string& s) {
  std::cout << "  utf8_check(" << (s.empty() ? "empty" : hexOf(s.data(), s.size()))
            << ") = " << utf8_check(s.c_str()) << "\n";
}

void tourValidation() {
  std::cout << "UTF-8 writes each character in 1 to 4 bytes; utf8_check says whether a text\n"
               "is well-formed (1) or not (0). Its rule is looser than standard UTF-8, on\n"
               "purpose: texts that older versions of the applications wrote still pass.\n";
  for (const char* s :
       {"", "\xC3\xA9", "\xA9", "\xC3\xC3\xA9", "\xC0\x80", "\xED\xA0\x80", "\xE2\xFD\xAC", "\xFD"})
    showCheck(s);
  const char* text = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB9";
  std::cout << "\"" << text << "\" has " << std::strlen(text) << " bytes and " << utf8_strlen(text)
            << " characters; stepping from the start:";
  for (const char* p = text; p && *p; p = utf8_next(p))
    std::cout << " [" << hexOf(p, static_cast<std::size_t>(utf8_next(p) - p)) << "]";
  std::cout << "\n";
}

void tourCopies() {
  const char* src = "A\xC3\xA9";
  char dst[5] = {'\x55', '\x55', '\x55', '\x55', '\x55'};
  utf8_strncpy(dst, src, 3);
  std::cout << "utf8_strncpy(\"A\xC3\xA9\", n = 3) fills the 3 bytes and writes no terminator: "
            << hexOf(dst, 4) << "\n";
  utf8_strncpy(dst, src, 2);
  std::cout << "with n = 2 the \xC3\xA9 does not fit and is not split: " << hexOf(dst, 2) << "\n";
  utf8_strlcpy(dst,
               "\xE2\x82\xAC"
               "A",
               3);
  std::cout << "utf8_strlcpy of \"\xE2\x82\xAC"
               "A\" into 3 bytes gives \""
            << dst << "\": the euro sign needs 3 bytes plus the terminator\n";
}

void tourFileNames() {
  std::cout << "A file system stores names decomposed: an accented letter as the letter and a\n"
               "combining accent. The legacy form is the 8-bit Mac Roman character set of old\n"
               "file formats; characters it lacks are replaced.\n";
  char dst[64];
  utf8_to_fileSystemRepresentation(dst, "Caf\xC3\xA9", sizeof dst);
  std::cout << "File-system (decomposed) form of \"Caf\xC3\xA9\": " << hexOf(dst, std::strlen(dst))
            << "\n";
  std::optional<icu::UnicodeString> lost;
  utf8_to_legacyFileSystemCString(dst, "Piano \xF0\x9F\x8E\xB9 \xE2\x82\xAC", sizeof dst, &lost);
  std::string readBack;
  if (lost)
    lost->toUTF8String(readBack);
  std::cout << "Legacy (Mac Roman) name of \"Piano \xF0\x9F\x8E\xB9 \xE2\x82\xAC\": "
            << hexOf(dst, std::strlen(dst)) << ", reads back as \"" << readBack << "\"\n";
}

void show(const char* label, const icu::UnicodeString& in, const icu::UnicodeString& out) {
  std::string a, b;
  in.toUTF8String(a);
  out.toUTF8String(b);
  std::cout << "  " << label << "(\"" << a << "\") = \"" << b << "\"\n";
}

void tourWeb() {
  std::cout << "Web and XML conversions of host strings (the library's Unicode strings).\n"
               "RFC 2396 is the URL syntax: characters outside it become %XX escapes. IDNA\n"
               "writes a host name with non-ASCII letters in ASCII (punycode, xn--...).\n";
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

#include <vtcore/core/text/web/string_extension.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <libxml/uri.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/uidna.h>
#include <unicode/utf16.h>

namespace {

bool startsWith(const icu::UnicodeString& text, const char16_t* prefix) {
  return text.startsWith(icu::UnicodeString(prefix));
}

bool isHexDigit(char16_t c) {
  return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

bool isAsciiAlnum(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
}

// RFC 2396 excludes from URIs the control characters, space, the delimiters
// < > " and the unwise characters; every non-ASCII byte is escaped too.
// "%" and "#" are left to the caller.
bool needsPercentEscape(unsigned char b) {
  if (b <= 0x20 || b >= 0x7F)
    return true;
  switch (b) {
  case '<':
  case '>':
  case '"':
  case '{':
  case '}':
  case '|':
  case '\\':
  case '^':
  case '[':
  case ']':
  case '`':
    return true;
  default:
    return false;
  }
}

// The language of the e-mail pattern, decided in one pass. The pattern nests
// a quantifier over a class that contains "." inside another, which makes a
// backtracking engine take exponential time on some texts that do not match;
// texts refused here could never match, so only matching texts reach ICU.
bool mayBeEmailAddress(const icu::UnicodeString& text) {
  const int32_t length = text.length();
  int32_t at = text.indexOf(u'@');
  if (at <= 0)
    return false;
  for (int32_t i = 0; i < at; ++i) {
    char16_t c = text.charAt(i);
    if (!isAsciiAlnum(c) && c != u'.' && c != u'_' && c != u'-')
      return false;
  }
  const int32_t domain = at + 1;
  for (int32_t i = domain; i < length; ++i) {
    char16_t c = text.charAt(i);
    if (!isAsciiAlnum(c) && c != u'.' && c != u'-')
      return false;
  }
  // (label+ ".")+ then 2 to 4 characters: some "." with at least one
  // character before it (after the "@") and 2 to 4 characters after it.
  for (int32_t tail = 2; tail <= 4; ++tail) {
    int32_t dot = length - tail - 1;
    if (dot >= domain + 1 && text.charAt(dot) == u'.')
      return true;
  }
  return false;
}

const icu::RegexPattern* emailPattern() {
  // Compiled once: a pattern is immutable and may be shared between threads.
  static const std::unique_ptr<icu::RegexPattern> pattern = [] {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(
        icu::UnicodeString(u"^[a-zA-Z0-9\\._-]+@(?:[a-zA-Z0-9\\.-]+\\.)+[a-zA-Z0-9\\.-]{2,4}$"), 0,
        parseError, status));
    return U_SUCCESS(status) ? std::move(compiled) : nullptr;
  }();
  return pattern.get();
}

struct UriFree {
  void operator()(xmlURIPtr uri) const { xmlFreeURI(uri); }
};

// The host of "scheme://host...": after the "//" that follows a scheme
// (a letter, then letters, digits, "+", "-" or "."), up to the next "/", ":"
// or the end. Returns false when there is none.
bool findHost(const icu::UnicodeString& text, int32_t& start, int32_t& limit) {
  const int32_t length = text.length();
  if (length == 0 || !isAsciiAlnum(text.charAt(0)) || text.charAt(0) <= u'9')
    return false;
  int32_t i = 1;
  while (i < length) {
    char16_t c = text.charAt(i);
    if (!isAsciiAlnum(c) && c != u'+' && c != u'-' && c != u'.')
      break;
    ++i;
  }
  if (i + 2 >= length || text.charAt(i) != u':' || text.charAt(i + 1) != u'/' ||
      text.charAt(i + 2) != u'/')
    return false;
  start = i + 3;
  limit = start;
  while (limit < length && text.charAt(limit) != u'/' && text.charAt(limit) != u':')
    ++limit;
  return limit > start;
}

// IDNA to-ASCII of one host name, std::nullopt on any error.
std::optional<icu::UnicodeString> hostToAscii(const icu::UnicodeString& host) {
  std::vector<UChar> source(host.getBuffer(), host.getBuffer() + host.length());
  std::vector<UChar> ascii(source.size() + 32);
  for (int attempt = 0; attempt < 2; ++attempt) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    // The IDNA2003 entry point is deprecated in ICU but still present; the
    // host names it produces are the ones applications have always stored.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    int32_t length =
        uidna_IDNToASCII(source.data(), static_cast<int32_t>(source.size()), ascii.data(),
                         static_cast<int32_t>(ascii.size()), UIDNA_DEFAULT, &parseError, &status);
#pragma GCC diagnostic pop
    if (status == U_BUFFER_OVERFLOW_ERROR && attempt == 0 && length > 0) {
      ascii.assign(static_cast<std::size_t>(length), 0);
      continue;
    }
    if (U_FAILURE(status) || length > static_cast<int32_t>(ascii.size()))
      return std::nullopt;
    return icu::UnicodeString(ascii.data(), length);
  }
  return std::nullopt;
}

} // namespace

icu::UnicodeString UnicodeStringExtension::stringByConvertingToXML(const icu::UnicodeString& self) {
  // One pass does what the five replacements in order would do: the entities
  // written for "<", ">", "'" and "\"" contain none of the later characters,
  // and "&" is never seen again once its entity is written.
  icu::UnicodeString result;
  for (int32_t i = 0; i < self.length();) {
    UChar32 c = self.char32At(i);
    int32_t next = i + U16_LENGTH(c); // an unpaired surrogate is one unit
    int8_t type = u_charType(c);
    if (type == U_CONTROL_CHAR || type == U_FORMAT_CHAR) {
      i = next;
      continue;
    }
    switch (c) {
    case u'&':
      result.append(u"&amp;");
      break;
    case u'<':
      result.append(u"&lt;");
      break;
    case u'>':
      result.append(u"&gt;");
      break;
    case u'\'':
      result.append(u"&apos;");
      break;
    case u'"':
      result.append(u"&quot;");
      break;
    default:
      result.append(self, i, next - i);
      break;
    }
    i = next;
  }
  return result;
}

icu::UnicodeString
UnicodeStringExtension::stringByPrependingURLScheme(const icu::UnicodeString& self) {
  if (self.isEmpty() || startsWith(self, u"mailto:"))
    return self;
  if (stringLooksLikeValidEmailAddress(self))
    return icu::UnicodeString(u"mailto:") + self;
  icu::UnicodeString m = self;
  if (self.indexOf(u':') < 0)
    m = icu::UnicodeString(u"http://") + self;
  const icu::UnicodeString separator(u"://");
  int32_t first = m.indexOf(separator);
  if (first < 0)
    return m;
  // Every later "://" goes, matched left to right in the text as it stands
  // (the removals do not create new matches).
  icu::UnicodeString result(m, 0, first + 3);
  for (int32_t i = first + 3; i < m.length();) {
    if (m.compare(i, 3, separator) == 0) {
      i += 3;
      continue;
    }
    result.append(m.charAt(i));
    ++i;
  }
  return result;
}

icu::UnicodeString
UnicodeStringExtension::stringByConvertingToRFC2396(const icu::UnicodeString& self) {
  if (self.isEmpty())
    return self;
  std::string utf8;
  stringByPrependingURLScheme(self).toUTF8String(utf8);
  static const char hex[] = "0123456789ABCDEF";
  std::string escaped;
  escaped.reserve(utf8.size());
  for (unsigned char b : utf8) {
    if (needsPercentEscape(b)) {
      escaped += '%';
      escaped += hex[b >> 4];
      escaped += hex[b & 0xF];
    } else {
      escaped += static_cast<char>(b);
    }
  }
  // A "%" that does not start an escape is escaped itself. Checking each "%"
  // against the two characters after it in the escaped text is the same as
  // rescanning after each replacement: "%25" only inserts digits.
  icu::UnicodeString text = icu::UnicodeString::fromUTF8(escaped);
  icu::UnicodeString result;
  const int32_t length = text.length();
  for (int32_t p = 0; p < length; ++p) {
    char16_t c = text.charAt(p);
    if (c == u'%' &&
        !(p + 2 < length && isHexDigit(text.charAt(p + 1)) && isHexDigit(text.charAt(p + 2))))
      result.append(u"%25");
    else
      result.append(c);
  }
  return result;
}

icu::UnicodeString
UnicodeStringExtension::stringByConvertingToPunycode(const icu::UnicodeString& self) {
  int32_t start = 0;
  int32_t limit = 0;
  if (self.isEmpty() || !findHost(self, start, limit))
    return self;
  std::optional<icu::UnicodeString> ascii =
      hostToAscii(icu::UnicodeString(self, start, limit - start));
  if (!ascii)
    return self;
  icu::UnicodeString result(self, 0, start);
  result.append(*ascii);
  result.append(self, limit, self.length() - limit);
  return result;
}

bool UnicodeStringExtension::stringLooksLikeValidEmailAddress(const icu::UnicodeString& self) {
  const icu::RegexPattern* pattern = emailPattern();
  if (pattern == nullptr || !mayBeEmailAddress(self))
    return false;
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(self, status));
  if (U_FAILURE(status))
    return false;
  // A guard against very long texts; in units of the engine's steps.
  matcher->setTimeLimit(2000, status);
  bool matched = matcher->matches(status);
  return U_SUCCESS(status) && matched;
}

bool UnicodeStringExtension::stringLooksLikeValidURI(const icu::UnicodeString& self) {
  if (self.isEmpty())
    return false;
  std::string utf8;
  self.toUTF8String(utf8);
  std::unique_ptr<xmlURI, UriFree> uri(xmlParseURI(utf8.c_str()));
  return uri != nullptr;
}

bool UnicodeStringExtension::boolValue(const icu::UnicodeString& self) {
  if (self == icu::UnicodeString(u"YES") || self == icu::UnicodeString(u"TRUE"))
    return true;
  for (const char16_t* word : {u"YES", u"TRUE", u"Y"})
    if (self.caseCompare(icu::UnicodeString(word), U_FOLD_CASE_DEFAULT) == 0)
      return true;
  // The integer value is not 0 exactly when a digit other than 0 is read
  // (an overflowing value saturates, it does not wrap to 0).
  int32_t i = 0;
  const int32_t length = self.length();
  while (i < length && u_isUWhiteSpace(self.char32At(i)))
    i += U16_LENGTH(self.char32At(i));
  if (i < length && (self.charAt(i) == u'+' || self.charAt(i) == u'-'))
    ++i;
  for (; i < length && self.charAt(i) >= u'0' && self.charAt(i) <= u'9'; ++i)
    if (self.charAt(i) != u'0')
      return true;
  return false;
}

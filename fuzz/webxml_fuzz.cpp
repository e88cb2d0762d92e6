// The web and XML conversions on random UTF-16 text (unpaired surrogates
// included), with the properties each result must have.

#include <vtcore/core/text/web/string_extension.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <unicode/uchar.h>

namespace {

void require(bool condition) {
  if (!condition)
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Bytes below 0x80 stand for themselves, so that the fuzzer finds the ASCII
  // syntax ("://", "%", "@") quickly; a byte 0xFF takes the next two bytes as
  // one UTF-16 unit.
  icu::UnicodeString text;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == 0xFF && i + 2 < size) {
      text.append(static_cast<char16_t>(data[i + 1] | (data[i + 2] << 8)));
      i += 2;
    } else {
      text.append(static_cast<char16_t>(data[i]));
    }
  }
  using X = UnicodeStringExtension;

  icu::UnicodeString xml = X::stringByConvertingToXML(text);
  for (int32_t i = 0; i < xml.length(); ++i) {
    UChar32 c = xml.char32At(i);
    require(c != '<' && c != '>' && c != '"' && c != '\'');
    require(u_charType(c) != U_CONTROL_CHAR && u_charType(c) != U_FORMAT_CHAR);
  }

  icu::UnicodeString escaped = X::stringByConvertingToRFC2396(text);
  for (int32_t i = 0; i < escaped.length(); ++i) {
    char16_t c = escaped.charAt(i);
    require(c > 0x20 && c < 0x7F);
    if (c == u'%')
      require(i + 2 < escaped.length() && u_isxdigit(escaped.charAt(i + 1)) &&
              u_isxdigit(escaped.charAt(i + 2)));
  }

  (void)X::stringByPrependingURLScheme(text);
  (void)X::stringByConvertingToPunycode(text);
  (void)X::stringByConvertingToPunycode(icu::UnicodeString(u"http://") + text);
  (void)X::stringLooksLikeValidEmailAddress(text);
  (void)X::stringLooksLikeValidURI(text);
  (void)X::boolValue(text);
  return 0;
}

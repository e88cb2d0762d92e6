// Type-safe printf-style formatting with the object placeholder "%@", used by
// KWLog. Part of the library's own machinery; applications use KWLog.
#pragma once

#include <vtcore/export.h>

#ifdef __cplusplus
#include <concepts>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unicode/unistr.h>

namespace vtcore::detail {

template <typename T>
concept HasDescription = requires(const T& value) {
  {value.description()};
};

/// One argument of a formatted message, with its type kept.
class VTCORE_EXPORT FormatArgument {
public:
  enum class Kind { None, Signed, Unsigned, Double, Pointer, Text };

  FormatArgument() = default;
  FormatArgument(bool value) : m_kind(Kind::Signed), m_signed(value) {}
  template <std::signed_integral T>
  FormatArgument(T value) : m_kind(Kind::Signed), m_signed(value) {}
  template <std::unsigned_integral T>
  FormatArgument(T value) : m_kind(Kind::Unsigned), m_unsigned(value) {}
  template <std::floating_point T>
  FormatArgument(T value) : m_kind(Kind::Double), m_double(static_cast<long double>(value)) {}
  FormatArgument(const char* text) : m_kind(Kind::Text), m_text(text ? text : "(null)") {}
  FormatArgument(char* text) : FormatArgument(static_cast<const char*>(text)) {}
  FormatArgument(std::string_view text) : m_kind(Kind::Text), m_text(text) {}
  FormatArgument(const std::string& text) : m_kind(Kind::Text), m_text(text) {}
  FormatArgument(const icu::UnicodeString& text) : m_kind(Kind::Text) { text.toUTF8String(m_text); }
  FormatArgument(const std::optional<icu::UnicodeString>& text)
      : m_kind(Kind::Text), m_text(text ? std::string() : std::string("(null)")) {
    if (text)
      text->toUTF8String(m_text);
  }
  FormatArgument(const std::exception& error) : m_kind(Kind::Text), m_text(error.what()) {}
  template <HasDescription T>
  requires(!std::derived_from<T, std::exception>) FormatArgument(const T& object)
      : FormatArgument(object.description()) {}
  template <typename T>
  requires(!std::same_as<std::remove_cv_t<T>, char>) FormatArgument(T* pointer) {
    if constexpr (HasDescription<T>) {
      if (pointer) {
        *this = FormatArgument(pointer->description());
        return;
      }
      m_kind = Kind::Text;
      m_text = "(null)";
    } else {
      m_kind = Kind::Pointer;
      m_pointer = static_cast<const volatile void*>(pointer);
    }
  }
  FormatArgument(std::nullptr_t) : m_kind(Kind::Text), m_text("(null)") {}

  Kind kind() const { return m_kind; }
  long long asSigned() const;
  unsigned long long asUnsigned() const;
  double asDouble() const;
  long double asLongDouble() const;
  const void* asPointer() const;
  /// The "%@" text: a text as itself, a number in decimal, a pointer in hex.
  std::string description() const;

private:
  Kind m_kind = Kind::None;
  long long m_signed = 0;
  unsigned long long m_unsigned = 0;
  long double m_double = 0;
  const volatile void* m_pointer = nullptr;
  std::string m_text;
};

/// Fills `format` with `arguments` as printf would, plus "%@" (description)
/// and "%C" / "%lc" (a Unicode code point, written in UTF-8). An integer
/// conversion prints the argument converted to the type its length modifier
/// names ("%x" of the int -1 is ffffffff, "%hhd" of 300 is 44), a "%c" the
/// byte it converts to. Numbered conversions ("%2$@ %1$@", "%1$*2$.*3$f")
/// pick their arguments by number; as in printf a format uses either
/// numbered or unnumbered conversions, and the first conversion decides.
/// A floating-point argument read by an integer conversion is truncated and
/// held within the range of the type the conversion reads (NaN reads 0); an
/// integer read by a floating-point conversion is converted.
///
/// Copied as they stand, never reading an argument that is not there: a
/// conversion with no argument (left), one numbered against the format's
/// kind, "%n", unknown conversions, and a conversion whose width or
/// precision has more than six digits.
VTCORE_EXPORT std::string formatSafely(std::string_view format,
                                       std::span<const FormatArgument> arguments);

} // namespace vtcore::detail
#endif

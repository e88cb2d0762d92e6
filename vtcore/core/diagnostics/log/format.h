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
  FormatArgument(T value) : m_kind(Kind::Double), m_double(static_cast<double>(value)) {}
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
  const void* asPointer() const;
  /// The "%@" text: a text as itself, a number in decimal, a pointer in hex.
  std::string description() const;

private:
  Kind m_kind = Kind::None;
  long long m_signed = 0;
  unsigned long long m_unsigned = 0;
  double m_double = 0;
  const volatile void* m_pointer = nullptr;
  std::string m_text;
};

/// Fills `format` with `arguments` as printf would, plus "%@" (description)
/// and "%C" (a Unicode code point). A conversion with no argument left, "%n"
/// and unknown conversions are copied as they stand, and so is a conversion
/// whose width or precision has more than six digits. Never reads past
/// `arguments`.
VTCORE_EXPORT std::string formatSafely(std::string_view format,
                                       std::span<const FormatArgument> arguments);

} // namespace vtcore::detail
#endif

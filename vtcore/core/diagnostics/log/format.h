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
  FormatArgument(bool value) : kind_(Kind::Signed), signed_(value) {}
  template <std::signed_integral T>
  FormatArgument(T value) : kind_(Kind::Signed), signed_(value) {}
  template <std::unsigned_integral T>
  FormatArgument(T value) : kind_(Kind::Unsigned), unsigned_(value) {}
  template <std::floating_point T>
  FormatArgument(T value) : kind_(Kind::Double), double_(static_cast<double>(value)) {}
  FormatArgument(const char* text) : kind_(Kind::Text), text_(text ? text : "(null)") {}
  FormatArgument(char* text) : FormatArgument(static_cast<const char*>(text)) {}
  FormatArgument(std::string_view text) : kind_(Kind::Text), text_(text) {}
  FormatArgument(const std::string& text) : kind_(Kind::Text), text_(text) {}
  FormatArgument(const icu::UnicodeString& text) : kind_(Kind::Text) { text.toUTF8String(text_); }
  FormatArgument(const std::optional<icu::UnicodeString>& text)
      : kind_(Kind::Text), text_(text ? std::string() : std::string("(null)")) {
    if (text)
      text->toUTF8String(text_);
  }
  FormatArgument(const std::exception& error) : kind_(Kind::Text), text_(error.what()) {}
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
      kind_ = Kind::Text;
      text_ = "(null)";
    } else {
      kind_ = Kind::Pointer;
      pointer_ = static_cast<const volatile void*>(pointer);
    }
  }
  FormatArgument(std::nullptr_t) : kind_(Kind::Text), text_("(null)") {}

  Kind kind() const { return kind_; }
  long long asSigned() const;
  unsigned long long asUnsigned() const;
  double asDouble() const;
  const void* asPointer() const;
  /// The "%@" text: a text as itself, a number in decimal, a pointer in hex.
  std::string description() const;

private:
  Kind kind_ = Kind::None;
  long long signed_ = 0;
  unsigned long long unsigned_ = 0;
  double double_ = 0;
  const volatile void* pointer_ = nullptr;
  std::string text_;
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

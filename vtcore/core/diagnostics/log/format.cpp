#include <vtcore/core/diagnostics/log/format.h>

#include <cinttypes>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>

namespace vtcore::detail {

namespace {

// A floating-point value read by an integer conversion: truncated, held
// within the integer's range, NaN as 0. A plain cast would be undefined
// for values out of range.
template <typename Integer>
Integer saturatingCast(long double value) {
  if (std::isnan(value))
    return 0;
  constexpr auto lowest = std::numeric_limits<Integer>::min();
  constexpr auto highest = std::numeric_limits<Integer>::max();
  if (value <= static_cast<long double>(lowest))
    return lowest;
  if (value >= static_cast<long double>(highest))
    return highest;
  return static_cast<Integer>(value);
}

} // namespace

long long FormatArgument::asSigned() const {
  switch (m_kind) {
  case Kind::Signed:
    return m_signed;
  case Kind::Unsigned:
    return static_cast<long long>(m_unsigned);
  case Kind::Double:
    return saturatingCast<long long>(m_double);
  case Kind::Pointer:
    return static_cast<long long>(reinterpret_cast<std::uintptr_t>(m_pointer));
  default:
    return 0;
  }
}

unsigned long long FormatArgument::asUnsigned() const {
  switch (m_kind) {
  case Kind::Signed:
    return static_cast<unsigned long long>(m_signed);
  case Kind::Unsigned:
    return m_unsigned;
  case Kind::Double:
    return saturatingCast<unsigned long long>(m_double);
  case Kind::Pointer:
    return reinterpret_cast<std::uintptr_t>(m_pointer);
  default:
    return 0;
  }
}

double FormatArgument::asDouble() const {
  return static_cast<double>(asLongDouble());
}

long double FormatArgument::asLongDouble() const {
  switch (m_kind) {
  case Kind::Signed:
    return static_cast<long double>(m_signed);
  case Kind::Unsigned:
    return static_cast<long double>(m_unsigned);
  case Kind::Double:
    return m_double;
  default:
    return 0;
  }
}

const void* FormatArgument::asPointer() const {
  if (m_kind == Kind::Pointer)
    return const_cast<const void*>(m_pointer);
  return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(asUnsigned()));
}

std::string FormatArgument::description() const {
  char buffer[64];
  switch (m_kind) {
  case Kind::Text:
    return m_text;
  case Kind::Signed:
    std::snprintf(buffer, sizeof buffer, "%lld", m_signed);
    return buffer;
  case Kind::Unsigned:
    std::snprintf(buffer, sizeof buffer, "%llu", m_unsigned);
    return buffer;
  case Kind::Double:
    std::snprintf(buffer, sizeof buffer, "%g", static_cast<double>(m_double));
    return buffer;
  case Kind::Pointer:
    std::snprintf(buffer, sizeof buffer, "%p", const_cast<const void*>(m_pointer));
    return buffer;
  default:
    return "(null)";
  }
}

namespace {

constexpr std::size_t kMaxFieldDigits = 6; // "-99999" fits too

void appendCodePoint(std::string& out, unsigned long long value) {
  auto c = static_cast<UChar32>(value > 0x10FFFF ? 0xFFFD : value);
  icu::UnicodeString(c).toUTF8String(out);
}

// snprintf into a std::string with a format built by the caller from one
// validated conversion (flags, width, precision and conversion letter).
template <typename T>
void appendPrintf(std::string& out, const std::string& conversionFormat, T value) {
  char small[128];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  int length = std::snprintf(small, sizeof small, conversionFormat.c_str(), value);
  if (length < 0)
    return;
  if (static_cast<std::size_t>(length) < sizeof small) {
    out.append(small, static_cast<std::size_t>(length));
    return;
  }
  std::string large(static_cast<std::size_t>(length) + 1, '\0');
  std::snprintf(large.data(), large.size(), conversionFormat.c_str(), value);
#pragma GCC diagnostic pop
  out.append(large.data(), static_cast<std::size_t>(length));
}

// The length modifiers of printf: they name the C type the conversion reads.
enum class Length { None, Char, Short, Long, LongLong, IntMax, Size, PtrDiff, LongDouble };

Length parseLength(std::string_view format, std::size_t& i) {
  auto next = [&](char c) { return i < format.size() && format[i] == c; };
  if (next('h')) {
    ++i;
    if (next('h')) {
      ++i;
      return Length::Char;
    }
    return Length::Short;
  }
  if (next('l')) {
    ++i;
    if (next('l')) {
      ++i;
      return Length::LongLong;
    }
    return Length::Long;
  }
  const char c = i < format.size() ? format[i] : '\0';
  switch (c) {
  case 'q':
    ++i;
    return Length::LongLong;
  case 'j':
    ++i;
    return Length::IntMax;
  case 'z':
  case 'Z':
    ++i;
    return Length::Size;
  case 't':
    ++i;
    return Length::PtrDiff;
  case 'L':
    ++i;
    return Length::LongDouble;
  default:
    return Length::None;
  }
}

// The value a signed conversion prints: the argument converted to the type
// its length modifier names, as printf reads it from the argument list.
long long signedAs(Length length, long long value) {
  switch (length) {
  case Length::None:
    return static_cast<int>(value);
  case Length::Char:
    return static_cast<signed char>(value);
  case Length::Short:
    return static_cast<short>(value);
  case Length::Long:
    return static_cast<long>(value);
  case Length::IntMax:
    return static_cast<std::intmax_t>(value);
  case Length::Size:
    return static_cast<std::make_signed_t<std::size_t>>(value);
  case Length::PtrDiff:
    return static_cast<std::ptrdiff_t>(value);
  case Length::LongLong:
  case Length::LongDouble: // glibc reads "%Ld" as "%lld"
    break;
  }
  return value;
}

unsigned long long unsignedAs(Length length, unsigned long long value) {
  switch (length) {
  case Length::None:
    return static_cast<unsigned int>(value);
  case Length::Char:
    return static_cast<unsigned char>(value);
  case Length::Short:
    return static_cast<unsigned short>(value);
  case Length::Long:
    return static_cast<unsigned long>(value);
  case Length::IntMax:
    return static_cast<std::uintmax_t>(value);
  case Length::Size:
    return static_cast<std::size_t>(value);
  case Length::PtrDiff:
    return static_cast<std::make_unsigned_t<std::ptrdiff_t>>(value);
  case Length::LongLong:
  case Length::LongDouble:
    break;
  }
  return value;
}

// A floating-point argument read by an integer conversion: truncated and held
// within the range of the type the length modifier names.
template <typename Integer>
long long heldSigned(long double value) {
  return saturatingCast<Integer>(value);
}
template <typename Integer>
unsigned long long heldUnsigned(long double value) {
  return saturatingCast<Integer>(value);
}

long long signedValue(Length length, const FormatArgument& argument) {
  if (argument.kind() != FormatArgument::Kind::Double)
    return signedAs(length, argument.asSigned());
  const long double value = argument.asLongDouble();
  switch (length) {
  case Length::None:
    return heldSigned<int>(value);
  case Length::Char:
    return heldSigned<signed char>(value);
  case Length::Short:
    return heldSigned<short>(value);
  case Length::Long:
    return heldSigned<long>(value);
  case Length::IntMax:
    return heldSigned<std::intmax_t>(value);
  case Length::Size:
    return heldSigned<std::make_signed_t<std::size_t>>(value);
  case Length::PtrDiff:
    return heldSigned<std::ptrdiff_t>(value);
  case Length::LongLong:
  case Length::LongDouble:
    break;
  }
  return heldSigned<long long>(value);
}

unsigned long long unsignedValue(Length length, const FormatArgument& argument) {
  if (argument.kind() != FormatArgument::Kind::Double)
    return unsignedAs(length, argument.asUnsigned());
  const long double value = argument.asLongDouble();
  switch (length) {
  case Length::None:
    return heldUnsigned<unsigned int>(value);
  case Length::Char:
    return heldUnsigned<unsigned char>(value);
  case Length::Short:
    return heldUnsigned<unsigned short>(value);
  case Length::Long:
    return heldUnsigned<unsigned long>(value);
  case Length::IntMax:
    return heldUnsigned<std::uintmax_t>(value);
  case Length::Size:
    return heldUnsigned<std::size_t>(value);
  case Length::PtrDiff:
    return heldUnsigned<std::make_unsigned_t<std::ptrdiff_t>>(value);
  case Length::LongLong:
  case Length::LongDouble:
    break;
  }
  return heldUnsigned<unsigned long long>(value);
}

// "123$" at `i`: the argument number of a positional conversion. Moves `i`
// past it and returns the number (from 1), or 0 when there is none there.
std::size_t parsePosition(std::string_view format, std::size_t& i) {
  std::size_t j = i;
  std::size_t number = 0;
  while (j < format.size() && format[j] >= '0' && format[j] <= '9' && j - i <= kMaxFieldDigits)
    number = number * 10 + static_cast<std::size_t>(format[j++] - '0');
  if (j == i || j >= format.size() || format[j] != '$' || number == 0)
    return 0;
  i = j + 1;
  return number;
}

// A width or precision given as "*" or, in a positional format, "*m$".
struct StarField {
  bool present = false;
  std::size_t position = 0; // 0: the next argument
};

StarField parseStar(std::string_view format, std::size_t& i) {
  StarField star;
  if (i < format.size() && format[i] == '*') {
    star.present = true;
    ++i;
    star.position = parsePosition(format, i);
  }
  return star;
}

enum class Numbering { Undecided, Sequential, Positional };

} // namespace

std::string formatSafely(std::string_view format, std::span<const FormatArgument> arguments) {
  std::string out;
  out.reserve(format.size() + 16);
  std::size_t next = 0;
  std::size_t i = 0;
  // printf takes either numbered ("%2$s") or unnumbered conversions in one
  // format, never both; the first conversion decides, and one of the other
  // kind is shown as it stands.
  Numbering numbering = Numbering::Undecided;
  while (i < format.size()) {
    char ch = format[i];
    if (ch != '%') {
      out += ch;
      ++i;
      continue;
    }
    const std::size_t start = i++;
    if (i < format.size() && format[i] == '%') {
      out += '%';
      ++i;
      continue;
    }
    const std::size_t position = parsePosition(format, i);
    std::string flags, width, precision;
    while (i < format.size() && std::strchr("-+ #0'", format[i]))
      flags += format[i++];
    const StarField widthStar = parseStar(format, i);
    if (!widthStar.present) {
      while (i < format.size() && format[i] >= '0' && format[i] <= '9')
        width += format[i++];
    }
    bool hasPrecision = false;
    StarField precisionStar;
    if (i < format.size() && format[i] == '.') {
      hasPrecision = true;
      ++i;
      precisionStar = parseStar(format, i);
      if (!precisionStar.present) {
        while (i < format.size() && format[i] >= '0' && format[i] <= '9')
          precision += format[i++];
      }
    }
    const Length length = parseLength(format, i);
    if (i >= format.size()) {
      out.append(format.substr(start));
      break;
    }
    const char conversion = format[i++];
    const std::string_view asItStands = format.substr(start, i - start);
    if (conversion == '%') {
      out += '%';
      continue;
    }
    if (!std::strchr("diouxXcCeEfFgGaAsSp@", conversion)) {
      out.append(asItStands);
      continue;
    }

    const bool positional = position != 0;
    const bool consistent = (!widthStar.present || (widthStar.position != 0) == positional) &&
                            (!precisionStar.present || (precisionStar.position != 0) == positional);
    if (!consistent || (numbering == Numbering::Sequential && positional) ||
        (numbering == Numbering::Positional && !positional)) {
      out.append(asItStands);
      continue;
    }
    if (numbering == Numbering::Undecided)
      numbering = positional ? Numbering::Positional : Numbering::Sequential;

    const FormatArgument* widthArgument = nullptr;
    const FormatArgument* precisionArgument = nullptr;
    const FormatArgument* argument = nullptr;
    if (positional) {
      auto at = [&](std::size_t number) {
        return number <= arguments.size() ? &arguments[number - 1] : nullptr;
      };
      argument = at(position);
      if (widthStar.present)
        widthArgument = at(widthStar.position);
      if (precisionStar.present)
        precisionArgument = at(precisionStar.position);
      if (!argument || (widthStar.present && !widthArgument) ||
          (precisionStar.present && !precisionArgument)) {
        out.append(asItStands);
        continue;
      }
    } else {
      const std::size_t needed = 1 + (widthStar.present ? 1 : 0) + (precisionStar.present ? 1 : 0);
      if (arguments.size() - next < needed) {
        out.append(asItStands);
        continue;
      }
      if (widthStar.present)
        widthArgument = &arguments[next++];
      if (precisionStar.present)
        precisionArgument = &arguments[next++];
      argument = &arguments[next++];
    }
    // A "*" reads an int, as printf does; a negative width is the "-" flag
    // and a negative precision is no precision.
    if (widthArgument) {
      const long long value = signedAs(Length::None, widthArgument->asSigned());
      if (value < 0)
        flags += '-';
      width = std::to_string(value < 0 ? -value : value);
    }
    if (precisionArgument) {
      const long long value = signedAs(Length::None, precisionArgument->asSigned());
      if (value < 0)
        hasPrecision = false;
      else
        precision = std::to_string(value);
    }
    // A field of a million characters or more is a broken format, not a
    // layout: it is shown as it stands rather than allocating gigabytes.
    if (width.size() > kMaxFieldDigits || precision.size() > kMaxFieldDigits) {
      out.append(asItStands);
      continue;
    }
    std::string conversionFormat = "%" + flags + width + (hasPrecision ? "." + precision : "");
    switch (conversion) {
    case 'd':
    case 'i':
      appendPrintf(out, conversionFormat + "lld", signedValue(length, *argument));
      break;
    case 'o':
    case 'u':
    case 'x':
    case 'X':
      appendPrintf(out, conversionFormat + "ll" + conversion, unsignedValue(length, *argument));
      break;
    case 'c':
      if (length != Length::Long) {
        // One byte: the int converted to unsigned char, as printf writes it.
        const int byte = argument->kind() == FormatArgument::Kind::Text
                             ? static_cast<unsigned char>(argument->description().c_str()[0])
                             : static_cast<unsigned char>(argument->asUnsigned());
        appendPrintf(out, conversionFormat + "c", byte);
        break;
      }
      [[fallthrough]];
    case 'C':
      // A character as a Unicode code point, as the host string formatting
      // reads "%C" (printf's would depend on the C locale).
      if (argument->kind() == FormatArgument::Kind::Text)
        out += argument->description().substr(0, 1);
      else
        appendCodePoint(out, argument->asUnsigned());
      break;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      if (length == Length::LongDouble)
        appendPrintf(out, conversionFormat + "L" + conversion, argument->asLongDouble());
      else
        appendPrintf(out, conversionFormat + conversion, argument->asDouble());
      break;
    case 'p':
      appendPrintf(out, conversionFormat + "p", argument->asPointer());
      break;
    default: // s, S, @
      appendPrintf(out, conversionFormat + "s", argument->description().c_str());
      break;
    }
  }
  return out;
}

} // namespace vtcore::detail

#include <vtcore/core/diagnostics/log/format.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace vtcore::detail {

long long FormatArgument::asSigned() const {
  switch (m_kind) {
  case Kind::Signed:
    return m_signed;
  case Kind::Unsigned:
    return static_cast<long long>(m_unsigned);
  case Kind::Double:
    return static_cast<long long>(m_double);
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
    return static_cast<unsigned long long>(static_cast<long long>(m_double));
  case Kind::Pointer:
    return reinterpret_cast<std::uintptr_t>(m_pointer);
  default:
    return 0;
  }
}

double FormatArgument::asDouble() const {
  switch (m_kind) {
  case Kind::Signed:
    return static_cast<double>(m_signed);
  case Kind::Unsigned:
    return static_cast<double>(m_unsigned);
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
    std::snprintf(buffer, sizeof buffer, "%g", m_double);
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

} // namespace

std::string formatSafely(std::string_view format, std::span<const FormatArgument> arguments) {
  std::string out;
  out.reserve(format.size() + 16);
  std::size_t next = 0;
  std::size_t i = 0;
  while (i < format.size()) {
    char ch = format[i];
    if (ch != '%') {
      out += ch;
      ++i;
      continue;
    }
    const std::size_t start = i++;
    std::string flags, width, precision;
    bool widthFromArgument = false, precisionFromArgument = false;
    while (i < format.size() && std::strchr("-+ #0'", format[i]))
      flags += format[i++];
    if (i < format.size() && format[i] == '*') {
      widthFromArgument = true;
      ++i;
    } else {
      while (i < format.size() && format[i] >= '0' && format[i] <= '9')
        width += format[i++];
    }
    bool hasPrecision = false;
    if (i < format.size() && format[i] == '.') {
      hasPrecision = true;
      ++i;
      if (i < format.size() && format[i] == '*') {
        precisionFromArgument = true;
        ++i;
      } else {
        while (i < format.size() && format[i] >= '0' && format[i] <= '9')
          precision += format[i++];
      }
    }
    while (i < format.size() && std::strchr("hlLqjzt", format[i]))
      ++i;
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
    const std::size_t needed = 1 + (widthFromArgument ? 1 : 0) + (precisionFromArgument ? 1 : 0);
    if (arguments.size() - next < needed) {
      out.append(asItStands);
      continue;
    }
    if (widthFromArgument)
      width = std::to_string(arguments[next++].asSigned());
    if (precisionFromArgument)
      precision = std::to_string(arguments[next++].asSigned());
    const FormatArgument& argument = arguments[next++];
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
      appendPrintf(out, conversionFormat + "lld", argument.asSigned());
      break;
    case 'o':
    case 'u':
    case 'x':
    case 'X':
      appendPrintf(out, conversionFormat + "ll" + conversion, argument.asUnsigned());
      break;
    case 'c':
    case 'C':
      if (argument.kind() == FormatArgument::Kind::Text) {
        out += argument.description().substr(0, 1);
      } else if (conversion == 'c' && argument.asUnsigned() < 0x80) {
        out += static_cast<char>(argument.asUnsigned());
      } else {
        appendCodePoint(out, argument.asUnsigned());
      }
      break;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      appendPrintf(out, conversionFormat + conversion, argument.asDouble());
      break;
    case 'p':
      appendPrintf(out, conversionFormat + "p", argument.asPointer());
      break;
    default: // s, S, @
      appendPrintf(out, conversionFormat + "s", argument.description().c_str());
      break;
    }
  }
  return out;
}

} // namespace vtcore::detail

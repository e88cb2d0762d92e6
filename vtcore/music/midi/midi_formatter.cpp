#include <vtcore/music/midi/midi_formatter.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <type_traits>

namespace {

template <typename T>
int intValueOf(T number) {
  if constexpr (std::is_floating_point_v<T>) {
    // The host truncates toward zero; a value the int cannot hold must not
    // reach the conversion, which would be undefined.
    if (std::isnan(number))
      return 0;
    if (number <= static_cast<T>(std::numeric_limits<int>::min()))
      return std::numeric_limits<int>::min();
    if (number >= static_cast<T>(std::numeric_limits<int>::max()))
      return std::numeric_limits<int>::max();
    return static_cast<int>(number);
  } else {
    // Wider integers keep their low 32 bits, as the host's int value does.
    return static_cast<int>(number);
  }
}

template <typename... Numbers>
std::optional<int> intValueOfAny(const std::any& value) {
  std::optional<int> result;
  ((result.has_value() || value.type() != typeid(Numbers)
        ? void()
        : void(result = intValueOf(std::any_cast<Numbers>(value)))),
   ...);
  return result;
}

icu::UnicodeString ascii(const char* text) {
  return icu::UnicodeString(text, -1, US_INV);
}

// Sharps only: the note names the applications have always shown.
constexpr const char* kNoteNames[12] = {"C",  "C#", "D",  "D#", "E",  "F",
                                        "F#", "G",  "G#", "A",  "A#", "B"};

} // namespace

namespace vtcore {

ValueFormatter::~ValueFormatter() = default;

std::optional<int> intValueOfNumberObject(const std::any& value) {
  if (!value.has_value())
    return std::nullopt;
  return intValueOfAny<bool, char, signed char, unsigned char, char8_t, char16_t, char32_t, wchar_t,
                       short, unsigned short, int, unsigned int, long, unsigned long, long long,
                       unsigned long long, float, double, long double>(value);
}

} // namespace vtcore

KWMIDIFormatter::KWMIDIFormatter() {
  init();
}

KWMIDIFormatter* KWMIDIFormatter::init() {
  _noteStyle = 0;
  return this;
}

void KWMIDIFormatter::setNoteStyle(int style) {
  if (style != _noteStyle)
    _noteStyle = style;
}

icu::UnicodeString KWMIDIFormatter::stringForObjectValue(const std::any& value) const {
  const std::optional<int> number = vtcore::intValueOfNumberObject(value);
  if (!number)
    return {};
  const int v = *number;
  char text[32];
  switch (_noteStyle) {
  case 0:
    std::snprintf(text, sizeof text, "%d", v);
    return ascii(text);
  case 1:
    if (v == 0)
      return icu::UnicodeString(static_cast<UChar32>(0x00B1)) + ascii(" 0");
    std::snprintf(text, sizeof text, v > 0 ? "+%d" : "%d", v);
    return ascii(text);
  case 2:
    // The pad bound is 15, not 16: 15 is written "0x F". Kept as the
    // applications have always shown it.
    if (v < 15)
      std::snprintf(text, sizeof text, "0x0%1X", static_cast<unsigned>(v));
    else
      std::snprintf(text, sizeof text, "0x%2X", static_cast<unsigned>(v));
    return ascii(text);
  case 3:
    if (v < 0)
      return {};
    std::snprintf(text, sizeof text, "%s%d", kNoteNames[v % 12], v / 12 - 2);
    return ascii(text);
  default:
    return {};
  }
}

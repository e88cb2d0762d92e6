// KWMIDIFormatter: MIDI values as display text, and the small formatter
// interface it implements.
#pragma once

#include <vtcore/export.h>

#include <any>
#include <optional>
#include <unicode/unistr.h>

namespace vtcore {

/// A value formatter: turns an object value into display text, one way
/// only. The object is a `std::any`: an empty one is null; a "number object"
/// holds an arithmetic type (an integer or floating type, or bool). A UI
/// toolkit adaptor wraps it for its cells.
class VTCORE_EXPORT ValueFormatter {
public:
  virtual ~ValueFormatter();
  /// The text for `value`; never fails (bad values give a formatter-defined
  /// text, usually the empty one).
  virtual icu::UnicodeString stringForObjectValue(const std::any& value) const = 0;
};

/// The int value of a number object as the host takes it: integers wrap to
/// 32 bits, floating values truncate toward zero (NaN gives 0, values beyond
/// the int range saturate), bool gives 0 or 1. Empty when `value` is null or
/// not a number (strings included).
VTCORE_EXPORT std::optional<int> intValueOfNumberObject(const std::any& value);

} // namespace vtcore

/// Formats MIDI values in one of four note styles: 0 decimal ("%d"), 1
/// signed decimal ("+5", "-5", and "\u00B1 0" for zero), 2 hexadecimal
/// ("0x09"; from 15 on "0x%2X", so 15 is "0x F" with a blank pad and 16 is
/// "0x10"; negative values print as unsigned 32-bit digits), 3 note name
/// with octave (C-2 at 0, C3 at 60, G8 at 127; sharps only). Null, non-number
/// values, an unknown style and negative values in style 3 give "".
class VTCORE_EXPORT KWMIDIFormatter : public vtcore::ValueFormatter {
public:
  KWMIDIFormatter();

  /// Resets the note style to 0 and returns this formatter.
  KWMIDIFormatter* init();
  /// The note style in use (0 after init()).
  int noteStyle() const { return _noteStyle; }
  /// Stores `style` when it differs from the current one. Any int is
  /// accepted; styles other than 0 to 3 format everything as "".
  void setNoteStyle(int style);

  icu::UnicodeString stringForObjectValue(const std::any& value) const override;

private:
  int _noteStyle = 0;
};

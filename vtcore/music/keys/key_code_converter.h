// Key-command names: virtual key codes, 8-bit Roman character codes and the
// toolkit's key characters, and the text a key command is shown with
// (control-option-F1 as ⌃⌥F1, shift-Page-up as ⇧Page up).
//
// Three ways of naming a key meet here:
//  - the virtual key code: a key's position on an ANSI keyboard (0 is A,
//    6 is Z, 122 is F1, 126 is Up ...), the same whatever the layout;
//  - the character code: one byte of the classic 8-bit Roman character set,
//    in which the navigation keys have control-character codes (1 Home,
//    28 Left ...);
//  - the key character: one UTF-16 unit; special keys use the private-use
//    function-key codes from 0xF700 (0xF700 Up, 0xF704 F1 ...). These are the
//    values applications store, so they are kept on Linux too.
//
// Special keys (Tab, Return, the arrows, F1 to F19 ...) come from a constant
// table. Every other key is translated through the real keyboard layout,
// built with xkbcommon from the system's layout data (xkb-data): on a German
// layout key code 6 is "Y" and 16 is "Z". The layout is the one set with
// KWKeyCodeConverter::setKeyboardLayout, else the one named by the
// XKB_DEFAULT_* environment variables, else "us".
//
// Nothing here is synchronised: use the converter from one thread.
#pragma once

#include <vtcore/export.h>

#include <stdint.h>

#ifdef __cplusplus
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unicode/unistr.h>
#include <vector>
#endif

VTCORE_EXTERN_C_BEGIN

/// The toolkit key character for an 8-bit Roman character code: the
/// navigation codes map to their function-key characters (1 Home 0xF729,
/// 4 End 0xF72B, 5 Help 0xF746, 11 Page up 0xF72C, 12 Page down 0xF72D,
/// 27 Clear 0xF739, 28 Left 0xF702, 29 Right 0xF703, 30 Up 0xF700, 31 Down
/// 0xF701, 127 forward Delete 0xF728); every other value from 0 to 0xFFFF is
/// returned unchanged. Code 27 is always Clear here, never Escape. A value
/// outside 0..0xFFFF is no character and gives 0.
VTCORE_EXPORT uint16_t VessRomanCharacterCode2PanekitCode(int charCode);

/// The 8-bit Roman character code for a toolkit key character: the inverse
/// of the eleven pairs above, and 16 (the character set's function-key code)
/// for F1 to F35 (0xF704 to 0xF726). Every other value gives 0.
VTCORE_EXPORT uint8_t PanekitFunctionKey2VessRomanCharCode(unsigned int keyChar);

VTCORE_EXTERN_C_END

#ifdef __cplusplus

namespace vtcore {

/// Toolkit modifier-flag bits understood by the display methods. Their
/// symbols are written in the order control, option, shift, command.
inline constexpr std::uint32_t controlKeyMask = 0x40000;     ///< ⌃
inline constexpr std::uint32_t optionKeyMask = 0x80000;      ///< ⌥
inline constexpr std::uint32_t shiftKeyMask = 0x20000;       ///< ⇧
inline constexpr std::uint32_t commandKeyMask = 0x100000;    ///< ⌘
inline constexpr std::uint32_t numericPadKeyMask = 0x200000; ///< a key of the numeric pad
inline constexpr std::uint32_t functionKeyMask = 0x800000;   ///< a function or navigation key

/// The XKB key name ("AC01", "RTRN", "FK01" ...) of the key at this virtual
/// key code, or null when the code has no key.
VTCORE_EXPORT const char* xkbKeyNameForKeyCode(std::uint16_t keyCode);

} // namespace vtcore

/// Names and translates keys. Class methods only.
///
/// A missing result is std::nullopt. Key code 0 is a real key (A on a US
/// layout) but the table searches treat it as "no key", as they always have.
/// Key codes without a key (52, 54, anything above 126 ...) translate to the
/// empty text, as keys that type nothing do; character codes above 255 are not character codes and
/// find nothing.
class VTCORE_EXPORT KWKeyCodeConverter {
public:
  KWKeyCodeConverter() = delete;

  /// The symbols of the modifier flags that are set, in the order ⌃ ⌥ ⇧ ⌘
  /// (0x40000, 0x80000, 0x20000, 0x100000); other bits are ignored. Null
  /// when none of the four is set.
  static std::optional<icu::UnicodeString> modifierString(std::uint32_t modifierFlags);

  /// The name of the first special key with this key character ("Tab",
  /// "Up" ...), or null. Null for 0.
  static std::optional<icu::UnicodeString> stringForKeyCharFromTable(char16_t keyChar);

  /// The first special key with this virtual key code, as its symbol (one
  /// character: ↩ for Return, ← for Left) or, when it has none, its name
  /// ("F1", "Help"). Null for 0 and for keys that are not special.
  static std::optional<icu::UnicodeString> stringForKeyCodeFromTable(std::uint16_t keyCode);

  /// As stringForKeyCodeFromTable, searching by 8-bit Roman character code;
  /// 27 gives Escape's symbol ⎋, never Clear's. Null for 0.
  static std::optional<icu::UnicodeString> stringForCharCodeFromTable(std::uint16_t charCode);

  /// The current layout's text for the key, with no modifiers (the first
  /// shift level) and no dead-key composition. A dead key gives its spacing
  /// character (^, ´, `, ~, ¨ ...) and sets `*deadKeyState`. With
  /// `toUpperCase` the text is upper-cased, except that a sharp s stays "ß"
  /// rather than becoming "SS". Control keys give their control character
  /// (Return "\r", Tab "\t"). A key that types nothing (Shift, Caps Lock,
  /// F1) and a key code without a key give the empty text, so that display
  /// texts still show their modifiers. Null, with the flag cleared, only when
  /// no keyboard layout could be built. `deadKeyState` may be null.
  static std::optional<icu::UnicodeString> translateKeyCode(std::uint16_t keyCode,
                                                            bool* deadKeyState, bool toUpperCase);

  /// translateKeyCode(keyCode, nullptr, true).
  static std::optional<icu::UnicodeString> translateKeyCode(std::uint16_t keyCode);

  /// Builds the table from a key's text (as translateKeyCode gives it, not
  /// upper-cased) to the key codes that type it, for key codes 0 to 128.
  /// A special key is also filed under its own character code (Home under
  /// 1, keypad Enter under 3), so that keyCodeForKeyChar(keyCharForKeyCode(k))
  /// gives k back for every special key whose character code is not 0 and
  /// not taken by an earlier key (27 stays Escape's, not Clear's).
  /// Built once, on first need; later calls do nothing. Only
  /// setKeyboardLayout discards it.
  static void generateKeyCharToKeyCodeLUT();

  /// The 8-bit Roman character code of the key: a special key's code (0 for
  /// the function keys), else the first byte of the layout's text in that
  /// character set, with '?' for a character the set lacks. 0 when the key
  /// has no text.
  static std::uint8_t keyCharForKeyCode(std::uint16_t keyCode);

  /// The lowest key code whose text is the 8-bit Roman character `charCode`
  /// (0 when no key types it, or when `charCode` is above 255). Sets
  /// `*foundMoreThanOneKeycode` to whether more than one key types it
  /// (`foundMoreThanOneKeycode` may be null).
  static std::uint16_t keyCodeForKeyChar(std::uint16_t charCode, bool* foundMoreThanOneKeycode);

  /// Every key code whose text is the 8-bit Roman character `charCode`, in
  /// ascending order; null when there is none.
  static std::optional<std::vector<std::uint16_t>> keyCodesForKeyChar(std::uint16_t charCode);

  /// The host's menu-glyph number of the first special key with this key
  /// code; 0 when it has none, and for key code 0.
  static std::uint16_t glyphForKeycode(std::uint16_t keyCode);

  /// The toolkit key character of the key as a one-character string. For a
  /// special key it is the table's character (0xF700 for Up ...) and the
  /// key's own flags (function key 0x800000, numeric pad 0x200000) are OR-ed
  /// into `*modifierFlags`; for any other key it is the layout's text (not
  /// upper-cased) and the flags are left alone. `modifierFlags` may be null.
  static std::optional<icu::UnicodeString> panekitStringForKeycode(std::uint16_t keyCode,
                                                                   std::uint32_t* modifierFlags);

  /// Display text of a key command: the modifier symbols followed by the
  /// key's table text, else its upper-cased layout text ("⌃⌥F1", "⌘Z").
  /// A key that types nothing shows the modifiers alone ("⌘" for Shift with
  /// command; the empty text without modifiers). Null only without a
  /// keyboard layout and without modifiers.
  static std::optional<icu::UnicodeString> stringForKeycode(std::uint16_t keyCode,
                                                            std::uint32_t modifierFlags);

  /// Display text for an 8-bit Roman character code: the modifier symbols
  /// followed by the table text, else the character itself (not
  /// upper-cased). Null for 0 and for codes above 255.
  static std::optional<icu::UnicodeString> stringForVessRomanCharCode(std::uint16_t charCode,
                                                                      std::uint32_t modifierFlags);

  /// Display text for a toolkit key character: the modifier symbols
  /// followed by the special key's name ("Up", "Tab"), else the character
  /// upper-cased (a sharp s stays "ß"). Null for 0.
  static std::optional<icu::UnicodeString>
  humandReadableStringForKeyChar(char16_t keyChar, std::uint32_t modifierFlags);

  /// Chooses the keyboard layout (an xkb-data name such as "de", with an
  /// optional variant such as "nodeadkeys"), for example from a preference,
  /// and builds it at once with the evdev rules and the pc105 model. An
  /// empty `layout` returns to the default: the XKB_DEFAULT_RULES, _MODEL,
  /// _LAYOUT, _VARIANT and _OPTIONS environment variables, else "us".
  /// Discards the key-text table so that it is rebuilt for this layout.
  /// Returns false, logging one warning, when the layout cannot be built
  /// (an unknown name); translations then give nothing until another
  /// layout is chosen.
  static bool setKeyboardLayout(std::string_view layout, std::string_view variant = {});

  /// The layout in use as "layout" or "layout(variant)", building the
  /// default one if nothing was built yet. It is named even when it could
  /// not be built.
  static std::string keyboardLayoutName();
};

#endif

// Key-command names against the real xkbcommon layouts "us", "de" and "fr".

#include <vtcore/core/diagnostics/log_sink.h>
#include <vtcore/music/key_code_converter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>

namespace {

using Text = std::optional<icu::UnicodeString>;

std::string utf8(const Text& text) {
  if (!text)
    return "(null)";
  std::string out;
  return text->toUTF8String(out);
}

Text u(const char16_t* text) {
  return icu::UnicodeString(text);
}

constexpr std::uint32_t control = vtcore::controlKeyMask;
constexpr std::uint32_t option = vtcore::optionKeyMask;
constexpr std::uint32_t shift = vtcore::shiftKeyMask;
constexpr std::uint32_t command = vtcore::commandKeyMask;

// Captures the logger's records for the life of the object.
struct CapturedLog {
  vtcore::MemoryLogSink sink;
  vtcore::LogSink* previous = vtcore::setLogSink(&sink);
  ~CapturedLog() { vtcore::setLogSink(previous); }
};

TEST(KeyModifiers, SymbolsAreWrittenControlOptionShiftCommand) {
  EXPECT_EQ(KWKeyCodeConverter::modifierString(0x1A0000), u(u"⌥⇧⌘"));
  EXPECT_EQ(KWKeyCodeConverter::modifierString(command | shift | option | control), u(u"⌃⌥⇧⌘"));
  EXPECT_EQ(KWKeyCodeConverter::modifierString(0), std::nullopt);
  // Flags of other meaning (function key, numeric pad) write nothing.
  EXPECT_EQ(KWKeyCodeConverter::modifierString(0xA00000 | 0x1), std::nullopt);
}

// Table searches: first match wins, 0 is never looked up.
TEST(SpecialKeyTable, SearchesTakeTheFirstRowAndRejectZero) {
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCodeFromTable(0), std::nullopt);
  EXPECT_EQ(KWKeyCodeConverter::stringForCharCodeFromTable(0), std::nullopt);
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCharFromTable(0), std::nullopt);
  EXPECT_EQ(KWKeyCodeConverter::glyphForKeycode(0), 0);

  // Tab's back-tab row is shadowed by the forward one.
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCodeFromTable(48), u(u"⇥"));
  EXPECT_EQ(KWKeyCodeConverter::glyphForKeycode(48), 2);
  // Character code 27 is Escape, never Clear, whichever way it is asked.
  EXPECT_EQ(KWKeyCodeConverter::stringForCharCodeFromTable(27), u(u"⎋"));
  EXPECT_EQ(KWKeyCodeConverter::stringForVessRomanCharCode(27, 0), u(u"⎋"));
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCodeFromTable(71), u(u"⌧"));

  // Keys without a symbol are shown by name; names come from the key
  // character search even when a symbol exists.
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCodeFromTable(114), u(u"Help"));
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCharFromTable(0xF700), u(u"Up"));
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCharFromTable(0x7F), u(u"Delete"));
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCharFromTable(u'a'), std::nullopt);

  EXPECT_EQ(KWKeyCodeConverter::glyphForKeycode(111), 122); // F12
  EXPECT_EQ(KWKeyCodeConverter::glyphForKeycode(106), 0);   // F16 has no glyph
}

TEST(KeyCommandDisplay, ModifiersThenKey) {
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("us"));
  // Key code 0 is not a table key but still the A key; keys without text are
  // null whatever the modifiers.
  const std::tuple<std::uint16_t, std::uint32_t, const char*> cases[] = {
      {122, control | option, "⌃⌥F1"},
      {123, 0, "←"},
      {116, shift, "⇧⇞"},
      {36, command, "⌘↩"},
      {6, command, "⌘Z"},
      {0, command | shift, "⇧⌘A"},
      {56, command, "(null)"},
      {52, control, "(null)"},
      {128, 0, "(null)"},
      {0xFFFF, command, "(null)"}};
  for (const auto& [keyCode, flags, expected] : cases)
    EXPECT_EQ(utf8(KWKeyCodeConverter::stringForKeycode(keyCode, flags)), expected) << keyCode;
}

TEST(KeyCharacterDisplay, NamesSpecialKeysAndUpperCasesOthers) {
  using C = KWKeyCodeConverter;
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(0xF700, control)), "⌃Up");
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(u'a', command)), "⌘A");
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(u'ß', 0)), "ß");
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(u'é', 0)), "É");
  EXPECT_EQ(C::humandReadableStringForKeyChar(0, command), std::nullopt);

  // Character codes read in the 8-bit Roman set, not upper-cased.
  EXPECT_EQ(utf8(C::stringForVessRomanCharCode('a', command)), "⌘a");
  EXPECT_EQ(utf8(C::stringForVessRomanCharCode(0xA7, 0)), "ß");
  EXPECT_EQ(utf8(C::stringForVessRomanCharCode(0xDB, 0)), "€");
  EXPECT_EQ(utf8(C::stringForVessRomanCharCode(30, option)), "⌥↑");
  EXPECT_EQ(C::stringForVessRomanCharCode(0, 0), std::nullopt);
  EXPECT_EQ(C::stringForVessRomanCharCode(256, command), std::nullopt);
}

TEST(ToolkitKeyCharacter, SpecialKeysAddTheirFlags) {
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("us"));
  std::uint32_t flags = command;
  EXPECT_EQ(KWKeyCodeConverter::panekitStringForKeycode(126, &flags), u(u"\uF700"));
  EXPECT_EQ(flags, command | 0xA00000);

  flags = shift;
  EXPECT_EQ(KWKeyCodeConverter::panekitStringForKeycode(36, &flags), u(u"\r"));
  EXPECT_EQ(flags, shift);

  // Key code 0 is looked up here too; it is no special key, so the layout
  // answers, lower case, and the flags stay as they were.
  flags = 0;
  EXPECT_EQ(KWKeyCodeConverter::panekitStringForKeycode(0, &flags), u(u"a"));
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(KWKeyCodeConverter::panekitStringForKeycode(127, nullptr), std::nullopt);
}

TEST(NavigationCodes, ConvertBothWaysElseFallBack) {
  const std::pair<int, std::uint16_t> pairs[] = {
      {1, 0xF729},  {4, 0xF72B},  {5, 0xF746},  {11, 0xF72C}, {12, 0xF72D}, {27, 0xF739},
      {28, 0xF702}, {29, 0xF703}, {30, 0xF700}, {31, 0xF701}, {127, 0xF728}};
  for (const auto& [charCode, keyChar] : pairs) {
    EXPECT_EQ(VessRomanCharacterCode2PanekitCode(charCode), keyChar);
    EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(keyChar), charCode);
  }
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(65), 65);
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(0xFFFF), 0xFFFF);
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(-1) | VessRomanCharacterCode2PanekitCode(0x10000),
            0);

  // The function keys F1..F35 all give the one function-key code.
  for (std::uint32_t keyChar : {0xF704u, 0xF726u})
    EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(keyChar), 16);
  for (std::uint32_t keyChar : {0xF727u, 0x1Bu, 0xFFFFFFFFu})
    EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(keyChar), 0);
}

// Real xkbcommon layouts: upper and lower case, and the dead-key flag.
struct Case {
  const char* layout;
  std::uint16_t keyCode;
  const char *upper, *lower;
  bool dead;
};

TEST(LayoutTranslation, FollowsTheRealLayout) {
  // layout, key code, upper case, lower case, dead key. Shift (56), F1 (122)
  // and codes without a key type nothing; the keypad types digits as if Num Lock were on; the
  // German sharp s is never upper-cased to "SS".
  // clang-format off
  const Case cases[] = {
      {"us", 0, "A", "a", false},  {"us", 6, "Z", "z", false},  {"us", 50, "`", "`", false},
      {"us", 36, "\r", "\r", false}, {"us", 56, "(null)", "(null)", false},
      {"us", 122, "(null)", "(null)", false}, {"us", 82, "0", "0", false},
      {"us", 92, "9", "9", false}, {"us", 65, ".", ".", false}, {"de", 6, "Y", "y", false},
      {"de", 16, "Z", "z", false}, {"de", 27, "ß", "ß", false}, {"de", 50, "^", "^", true},
      {"de", 24, "´", "´", true},  {"de", 41, "Ö", "ö", false}, {"fr", 0, "Q", "q", false},
      {"fr", 12, "A", "a", false}, {"fr", 18, "&", "&", false}, {"fr", 33, "^", "^", true},
      {"de", 52, "(null)", "(null)", false}, {"de", 127, "(null)", "(null)", false},
      {"de", 128, "(null)", "(null)", false}, {"de", 0xFFFF, "(null)", "(null)", false}};
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.layout) + " " + std::to_string(c.keyCode));
    ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout(c.layout));
    bool dead = !c.dead;
    EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(c.keyCode, &dead, false)), c.lower);
    EXPECT_EQ(dead, c.dead);
    dead = !c.dead;
    EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(c.keyCode, &dead, true)), c.upper);
    EXPECT_EQ(dead, c.dead);
    EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(c.keyCode)), c.upper);
  }
}

TEST(KeyCharacterCodes, SpecialKeysThenTheLayoutInTheRomanSet) {
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("de"));
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(122), 0); // F1
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(36), 13); // Return
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(71), 27); // Clear
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(0), 'a'); // not rejected here
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(6), 'y');
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(27), 0xA7); // ß
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(24), 0xAB); // ´ of the dead acute
  for (std::uint16_t code : {52, 127, 128, 0xFFFF})           // no key
    EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(code), 0) << code;

  // A character the Roman set lacks is converted lossily.
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("fr"));
  EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(50, nullptr, false)), "²");
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(50), '?');
}

TEST(KeyCodeSearch, FindsTheKeysThatTypeACharacter) {
  for (const char* layout : {"us", "de"}) {
    ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout(layout));
    bool more = true;
    EXPECT_EQ(KWKeyCodeConverter::keyCodeForKeyChar('a', &more), 0) << layout;
    EXPECT_FALSE(more);
  }

  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("us"));
  bool more = false;
  EXPECT_EQ(KWKeyCodeConverter::keyCodeForKeyChar('-', &more), 27);
  EXPECT_TRUE(more); // the keypad minus types it too
  EXPECT_EQ(KWKeyCodeConverter::keyCodesForKeyChar('-'), (std::vector<std::uint16_t>{27, 78}));
  // Upper-case letters are a shifted level: no key types them unshifted.
  EXPECT_EQ(KWKeyCodeConverter::keyCodeForKeyChar('Z', &more), 0);
  EXPECT_FALSE(more);
  EXPECT_EQ(KWKeyCodeConverter::keyCodesForKeyChar('Z'), std::nullopt);
  EXPECT_EQ(KWKeyCodeConverter::keyCodeForKeyChar(0x100 + 'a', nullptr), 0);
  EXPECT_EQ(KWKeyCodeConverter::keyCodesForKeyChar(0), std::nullopt);

  // The table follows a layout chosen later.
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("de"));
  EXPECT_EQ(KWKeyCodeConverter::keyCodesForKeyChar('z'), (std::vector<std::uint16_t>{16}));
  EXPECT_EQ(KWKeyCodeConverter::keyCodeForKeyChar(0xA7, nullptr), 27); // ß
  EXPECT_EQ(KWKeyCodeConverter::keyCodeForKeyChar('^', nullptr), 50);  // dead key
}

TEST(KeyboardLayoutChoice, UnknownLayoutWarnsOnceAndTranslatesNothing) {
  CapturedLog log;
  EXPECT_FALSE(KWKeyCodeConverter::setKeyboardLayout("xx"));
  EXPECT_EQ(KWKeyCodeConverter::keyboardLayoutName(), "xx");

  bool dead = true;
  EXPECT_EQ(KWKeyCodeConverter::translateKeyCode(0, &dead, true), std::nullopt);
  EXPECT_FALSE(dead);
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(0) |
                KWKeyCodeConverter::keyCodeForKeyChar('a', nullptr),
            0);
  EXPECT_EQ(KWKeyCodeConverter::keyCodesForKeyChar('a'), std::nullopt);
  EXPECT_EQ(KWKeyCodeConverter::stringForKeycode(6, command), std::nullopt);
  // The special keys do not need a layout.
  EXPECT_EQ(utf8(KWKeyCodeConverter::stringForKeycode(122, control)), "⌃F1");

  const auto records = log.sink.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, 4);
  EXPECT_EQ(records[0].identity, "KWKeyCodeConverter");
  std::string message;
  for (const auto& [key, value] : records[0].fields)
    if (key == "Message")
      message = value;
  EXPECT_NE(message.find("\"xx\""), std::string::npos) << message;

  // A known layout afterwards works again.
  EXPECT_TRUE(KWKeyCodeConverter::setKeyboardLayout("fr"));
  EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(0)), "Q");
  EXPECT_EQ(log.sink.records().size(), 1u);
}

TEST(KeyboardLayoutChoice, VariantsAndTheEnvironmentDefault) {
  // The test process owns its environment: start from none of XKB_DEFAULT_*.
  for (const char* name : {"XKB_DEFAULT_RULES", "XKB_DEFAULT_MODEL", "XKB_DEFAULT_LAYOUT",
                           "XKB_DEFAULT_VARIANT", "XKB_DEFAULT_OPTIONS"})
    ::unsetenv(name);
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("de", "nodeadkeys"));
  EXPECT_EQ(KWKeyCodeConverter::keyboardLayoutName(), "de(nodeadkeys)");
  bool dead = true;
  EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(50, &dead, false)), "^");
  EXPECT_FALSE(dead);

  // With no layout chosen, XKB_DEFAULT_LAYOUT and _VARIANT decide...
  ::setenv("XKB_DEFAULT_LAYOUT", "fr", 1);
  ::setenv("XKB_DEFAULT_VARIANT", "azerty", 1);
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout(""));
  EXPECT_EQ(KWKeyCodeConverter::keyboardLayoutName(), "fr(azerty)");
  EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(0)), "Q");

  // ...but an environment variant never applies to a layout the application
  // names, nor without the environment's own layout.
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("de"));
  EXPECT_EQ(KWKeyCodeConverter::keyboardLayoutName(), "de");
  ::unsetenv("XKB_DEFAULT_LAYOUT");
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout(""));
  EXPECT_EQ(KWKeyCodeConverter::keyboardLayoutName(), "us");
  EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(0)), "A");
  ::unsetenv("XKB_DEFAULT_VARIANT");
}

TEST(XkbKeyNames, FollowTheAnsiPositions) {
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(0), "AC01");
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(10), "LSGT");
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(92), "KP9");
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(126), "UP");
  int keys = 0;
  for (int code = 0; code < 200; ++code)
    keys += vtcore::xkbKeyNameForKeyCode(static_cast<std::uint16_t>(code)) != nullptr;
  EXPECT_EQ(keys, 108);
}

} // namespace

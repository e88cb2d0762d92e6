// Key-command names against the real xkbcommon layouts "us", "de" and "fr".

#include <vtcore/core/diagnostics/log_sink.h>
#include <vtcore/music/key_code_converter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

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
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCodeFromTable(80), u(u"F19"));
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCharFromTable(0xF700), u(u"Up"));
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCharFromTable(0x7F), u(u"Delete"));
  EXPECT_EQ(KWKeyCodeConverter::stringForKeyCharFromTable(u'a'), std::nullopt);

  EXPECT_EQ(KWKeyCodeConverter::glyphForKeycode(111), 122); // F12
  EXPECT_EQ(KWKeyCodeConverter::glyphForKeycode(106), 0);   // F16 has no glyph
  EXPECT_EQ(KWKeyCodeConverter::glyphForKeycode(52), 0);    // no key
}

struct DisplayCase {
  std::uint16_t keyCode;
  std::uint32_t flags;
  const char* expected;
};

class KeyCommandDisplay : public testing::TestWithParam<DisplayCase> {
protected:
  void SetUp() override { ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("us")); }
};

TEST_P(KeyCommandDisplay, ModifiersThenKey) {
  const auto& c = GetParam();
  EXPECT_EQ(utf8(KWKeyCodeConverter::stringForKeycode(c.keyCode, c.flags)), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    UsLayout, KeyCommandDisplay,
    testing::Values(DisplayCase{122, control, "⌃F1"}, DisplayCase{122, control | option, "⌃⌥F1"},
                    DisplayCase{123, 0, "←"}, DisplayCase{116, shift, "⇧⇞"},
                    DisplayCase{36, command, "⌘↩"}, DisplayCase{6, command, "⌘Z"},
                    // Key code 0 is not a table key but still the A key.
                    DisplayCase{0, command | shift, "⇧⌘A"},
                    // Keys without text are null whatever the modifiers.
                    DisplayCase{56, command, "(null)"}, DisplayCase{52, control, "(null)"},
                    DisplayCase{128, 0, "(null)"}, DisplayCase{0xFFFF, command, "(null)"}));

TEST(KeyCharacterDisplay, NamesSpecialKeysAndUpperCasesOthers) {
  using C = KWKeyCodeConverter;
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(0xF700, control)), "⌃Up");
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(0xF704, 0)), "F1");
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

struct CodePair {
  int charCode;
  std::uint16_t keyChar;
};

class NavigationCodes : public testing::TestWithParam<CodePair> {};

TEST_P(NavigationCodes, ConvertBothWays) {
  const auto& p = GetParam();
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(p.charCode), p.keyChar);
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(p.keyChar), p.charCode);
}

INSTANTIATE_TEST_SUITE_P(AllElevenPairs, NavigationCodes,
                         testing::Values(CodePair{1, 0xF729}, CodePair{4, 0xF72B},
                                         CodePair{5, 0xF746}, CodePair{11, 0xF72C},
                                         CodePair{12, 0xF72D}, CodePair{27, 0xF739},
                                         CodePair{28, 0xF702}, CodePair{29, 0xF703},
                                         CodePair{30, 0xF700}, CodePair{31, 0xF701},
                                         CodePair{127, 0xF728}));

TEST(NavigationCodeFallbacks, OtherValuesPassOrGiveZero) {
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(65), 65);
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(0), 0);
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(16), 16);
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(0xFFFF), 0xFFFF);
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(-1), 0);
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(0x10000), 0);

  // The function keys F1..F35 all give the one function-key code.
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(0xF704), 16);
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(0xF726), 16);
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(0xF727), 0);
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(0xF703 - 0x100), 0);
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(0x001B), 0);
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(0xFFFFFFFFu), 0);
}

struct LayoutCase {
  const char* layout;
  std::uint16_t keyCode;
  const char* upper;
  const char* lower;
  bool dead;
};

class LayoutTranslation : public testing::TestWithParam<LayoutCase> {};

TEST_P(LayoutTranslation, FollowsTheRealLayout) {
  const auto& c = GetParam();
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout(c.layout));
  bool dead = !c.dead;
  EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(c.keyCode, &dead, false)), c.lower);
  EXPECT_EQ(dead, c.dead);
  dead = !c.dead;
  EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(c.keyCode, &dead, true)), c.upper);
  EXPECT_EQ(dead, c.dead);
  EXPECT_EQ(utf8(KWKeyCodeConverter::translateKeyCode(c.keyCode)), c.upper);
}

INSTANTIATE_TEST_SUITE_P(
    UsDeFr, LayoutTranslation,
    testing::Values(LayoutCase{"us", 0, "A", "a", false}, LayoutCase{"us", 6, "Z", "z", false},
                    LayoutCase{"us", 16, "Y", "y", false}, LayoutCase{"us", 50, "`", "`", false},
                    LayoutCase{"us", 27, "-", "-", false}, LayoutCase{"us", 36, "\r", "\r", false},
                    LayoutCase{"us", 56, "(null)", "(null)", false}, // Shift types nothing
                    LayoutCase{"us", 122, "(null)", "(null)", false},
                    // The keypad types digits, as if Num Lock were always on.
                    LayoutCase{"us", 82, "0", "0", false}, LayoutCase{"us", 92, "9", "9", false},
                    LayoutCase{"us", 65, ".", ".", false}, LayoutCase{"us", 67, "*", "*", false},
                    LayoutCase{"de", 6, "Y", "y", false}, LayoutCase{"de", 16, "Z", "z", false},
                    LayoutCase{"de", 27, "ß", "ß", false}, // never "SS"
                    LayoutCase{"de", 50, "^", "^", true}, LayoutCase{"de", 24, "´", "´", true},
                    LayoutCase{"de", 41, "Ö", "ö", false}, LayoutCase{"fr", 0, "Q", "q", false},
                    LayoutCase{"fr", 12, "A", "a", false}, LayoutCase{"fr", 18, "&", "&", false},
                    LayoutCase{"fr", 33, "^", "^", true}),
    [](const testing::TestParamInfo<LayoutCase>& param) {
      return std::string(param.param.layout) + "_" + std::to_string(param.param.keyCode);
    });

TEST(LayoutTranslationGaps, KeyCodesWithoutAKeyGiveNothing) {
  ASSERT_TRUE(KWKeyCodeConverter::setKeyboardLayout("de"));
  for (std::uint16_t code : {52, 54, 63, 127, 128, 200, 0xFFFF}) {
    bool dead = true;
    EXPECT_EQ(KWKeyCodeConverter::translateKeyCode(code, &dead, true), std::nullopt) << code;
    EXPECT_FALSE(dead) << code;
    EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(code), 0) << code;
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
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(56), 0);    // Shift

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
  EXPECT_EQ(KWKeyCodeConverter::keyCodesForKeyChar('z'), (std::vector<std::uint16_t>{6}));
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
  EXPECT_EQ(KWKeyCodeConverter::keyCharForKeyCode(0), 0);
  EXPECT_EQ(KWKeyCodeConverter::keyCodeForKeyChar('a', nullptr), 0);
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

// Clears the XKB_DEFAULT_* variables for the test and puts back what the
// environment had.
class CleanXkbEnvironment {
public:
  CleanXkbEnvironment() {
    for (const char* name : names)
      if (const char* value = std::getenv(name))
        saved_.emplace_back(name, value);
    for (const char* name : names)
      ::unsetenv(name);
  }
  ~CleanXkbEnvironment() {
    for (const char* name : names)
      ::unsetenv(name);
    for (const auto& [name, value] : saved_)
      ::setenv(name.c_str(), value.c_str(), 1);
  }

private:
  static constexpr const char* names[] = {"XKB_DEFAULT_RULES", "XKB_DEFAULT_MODEL",
                                          "XKB_DEFAULT_LAYOUT", "XKB_DEFAULT_VARIANT",
                                          "XKB_DEFAULT_OPTIONS"};
  std::vector<std::pair<std::string, std::string>> saved_;
};

TEST(KeyboardLayoutChoice, VariantsAndTheEnvironmentDefault) {
  CleanXkbEnvironment clean;
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
}

TEST(XkbKeyNames, FollowTheAnsiPositions) {
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(0), "AC01");
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(10), "LSGT");
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(71), "NMLK");
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(92), "KP9");
  EXPECT_STREQ(vtcore::xkbKeyNameForKeyCode(126), "UP");
  int keys = 0;
  for (int code = 0; code < 200; ++code)
    keys += vtcore::xkbKeyNameForKeyCode(static_cast<std::uint16_t>(code)) != nullptr;
  EXPECT_EQ(keys, 108);
}

} // namespace

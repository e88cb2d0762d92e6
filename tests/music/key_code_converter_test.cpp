// Key-command names against the real xkbcommon layouts "us", "de" and "fr".

#include <tests/support/log_capture.h>
#include <vtcore/core/platform/log_sink.h>
#include <vtcore/music/keys/key_code_converter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>

namespace {

using C = KWKeyCodeConverter;

std::string utf8(const std::optional<icu::UnicodeString>& text) {
  std::string out = "(null)";
  return text ? text->toUTF8String(out = "") : out;
}

constexpr std::uint32_t control = vtcore::controlKeyMask;
constexpr std::uint32_t option = vtcore::optionKeyMask;
constexpr std::uint32_t shift = vtcore::shiftKeyMask;
constexpr std::uint32_t command = vtcore::commandKeyMask;

// The table searches: first match wins, 0 is never looked up, 27 is Escape.
TEST(SpecialKeyTable, ModifiersAndSearches) {
  EXPECT_EQ(utf8(C::modifierString(command | shift | option | control)), "⌃⌥⇧⌘");
  EXPECT_EQ(utf8(C::modifierString(0xA00000 | 0x1)), "(null)"); // other flags write nothing
  EXPECT_EQ(utf8(C::stringForKeyCodeFromTable(0)), "(null)");
  EXPECT_EQ(utf8(C::stringForKeyCodeFromTable(48)), "⇥"); // back-tab's row is shadowed
  EXPECT_EQ(C::glyphForKeycode(48), 2);
  EXPECT_EQ(utf8(C::stringForCharCodeFromTable(27)), "⎋");
  EXPECT_EQ(utf8(C::stringForKeyCodeFromTable(71)), "⌧");
  EXPECT_EQ(utf8(C::stringForKeyCodeFromTable(114)), "Help"); // no symbol: the name
  EXPECT_EQ(utf8(C::stringForKeyCharFromTable(0xF700)), "Up");
}

TEST(KeyCommandDisplay, ModifiersThenKey) {
  ASSERT_TRUE(C::setKeyboardLayout("us"));
  // Key code 0 is not a table key but still the A key; keys that type
  // nothing (Shift, Caps Lock, a code with no key) still show the modifiers.
  const std::tuple<std::uint16_t, std::uint32_t, const char*> cases[] = {
      {122, control | option, "⌃⌥F1"},
      {116, shift, "⇧⇞"},
      {6, command, "⌘Z"},
      {0, command | shift, "⇧⌘A"},
      {56, command, "⌘"},
      {57, shift | control, "⌃⇧"},
      {128, option, "⌥"},
      {56, 0, ""},
      {128, 0, ""}};
  for (const auto& [keyCode, flags, expected] : cases)
    EXPECT_EQ(utf8(C::stringForKeycode(keyCode, flags)), expected) << keyCode;

  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(0xF700, control)), "⌃Up");
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(u'a', command)), "⌘A");
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(u'ß', 0)), "ß"); // never "SS"
  EXPECT_EQ(utf8(C::humandReadableStringForKeyChar(0, command)), "(null)");
  // Character codes are read in the 8-bit Roman set and not upper-cased.
  EXPECT_EQ(utf8(C::stringForVessRomanCharCode('a', command)), "⌘a");
  EXPECT_EQ(utf8(C::stringForVessRomanCharCode(0xDB, 0)), "€");
  EXPECT_EQ(utf8(C::stringForVessRomanCharCode(256, command)), "(null)");
}

TEST(ToolkitKeyCharacter, SpecialKeysAddTheirFlagsAndNavigationCodesConvert) {
  ASSERT_TRUE(C::setKeyboardLayout("us"));
  std::uint32_t flags = command;
  EXPECT_EQ(utf8(C::panekitStringForKeycode(126, &flags)), "\uF700");
  EXPECT_EQ(flags, command | 0xA00000);
  flags = 0; // key code 0 is looked up here: the layout answers, lower case
  EXPECT_EQ(utf8(C::panekitStringForKeycode(0, &flags)), "a");
  EXPECT_EQ(flags, 0u);

  const std::pair<int, std::uint16_t> pairs[] = {
      {1, 0xF729},  {4, 0xF72B},  {5, 0xF746},  {11, 0xF72C}, {12, 0xF72D}, {27, 0xF739},
      {28, 0xF702}, {29, 0xF703}, {30, 0xF700}, {31, 0xF701}, {127, 0xF728}};
  for (const auto& [charCode, keyChar] : pairs) {
    EXPECT_EQ(VessRomanCharacterCode2PanekitCode(charCode), keyChar);
    EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(keyChar), charCode);
  }
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(65), 65);
  EXPECT_EQ(VessRomanCharacterCode2PanekitCode(0x10000), 0);
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(0xF726), 16); // F35
  EXPECT_EQ(PanekitFunctionKey2VessRomanCharCode(0xF727), 0);
}

// layout, key code, upper case, lower case, dead key. The keypad types digits
// as if Num Lock were on; the sharp s is never upper-cased to "SS".
TEST(LayoutTranslation, FollowsTheRealLayout) {
  const std::tuple<const char*, std::uint16_t, const char*, const char*, bool> cases[] = {
      {"us", 0, "A", "a", false},  {"us", 6, "Z", "z", false},  {"us", 36, "\r", "\r", false},
      {"us", 56, "", "", false},   {"us", 82, "0", "0", false}, {"de", 6, "Y", "y", false},
      {"de", 16, "Z", "z", false}, {"de", 27, "ß", "ß", false}, {"de", 50, "^", "^", true},
      {"fr", 0, "Q", "q", false},  {"fr", 33, "^", "^", true},  {"de", 52, "", "", false}};
  for (const auto& [layout, keyCode, upper, lower, dead] : cases) {
    SCOPED_TRACE(std::string(layout) + " " + std::to_string(keyCode));
    ASSERT_TRUE(C::setKeyboardLayout(layout));
    bool isDead = !dead;
    EXPECT_EQ(utf8(C::translateKeyCode(keyCode, &isDead, true)), upper);
    EXPECT_EQ(isDead, dead);
    EXPECT_EQ(utf8(C::translateKeyCode(keyCode, nullptr, false)), lower);
  }
}

TEST(KeyCharacterCodes, ThroughTheLayoutInTheRomanSet) {
  ASSERT_TRUE(C::setKeyboardLayout("de"));
  EXPECT_EQ(C::keyCharForKeyCode(122), 0);   // F1
  EXPECT_EQ(C::keyCharForKeyCode(71), 27);   // Clear
  EXPECT_EQ(C::keyCharForKeyCode(6), 'y');   // not a table key
  EXPECT_EQ(C::keyCharForKeyCode(27), 0xA7); // ß
  EXPECT_EQ(C::keyCodeForKeyChar(0xA7, nullptr), 27);
  EXPECT_EQ(C::keyCodeForKeyChar('^', nullptr), 50); // dead key

  for (const char* layout : {"de", "us"}) { // "us" last: the searches below use it
    ASSERT_TRUE(C::setKeyboardLayout(layout));
    bool more = true;
    EXPECT_EQ(C::keyCodeForKeyChar('a', &more), 0) << layout;
    EXPECT_FALSE(more);
  }
  bool more = false;
  EXPECT_EQ(C::keyCodeForKeyChar('-', &more), 27);
  EXPECT_TRUE(more); // the keypad minus types it too
  EXPECT_EQ(C::keyCodesForKeyChar('-'), (std::vector<std::uint16_t>{27, 78}));
  EXPECT_EQ(C::keyCodesForKeyChar('Z'), std::nullopt); // shifted level only
  EXPECT_EQ(C::keyCodeForKeyChar(0x100 + 'a', nullptr), 0);
}

// keyCodeForKeyChar(keyCharForKeyCode(k)) == k over the special-key table,
// in layouts that type different texts. Excluded by the table's own rules:
// the function keys F1 to F19 (character code 0, "none") and Clear, whose 27
// belongs to Escape.
TEST(KeyCharacterCodes, SpecialKeysRoundTripThroughTheirCharacterCodes) {
  const std::uint16_t roundTripping[] = {48,  76,  49,  117, 51,  36,  53,  116,
                                         121, 123, 124, 126, 125, 115, 119, 114};
  for (const char* layout : {"us", "de", "fr"}) {
    ASSERT_TRUE(C::setKeyboardLayout(layout));
    for (std::uint16_t keyCode : roundTripping) {
      const std::uint8_t charCode = C::keyCharForKeyCode(keyCode);
      EXPECT_NE(charCode, 0) << layout << " " << keyCode;
      EXPECT_EQ(C::keyCodeForKeyChar(charCode, nullptr), keyCode) << layout << " " << keyCode;
    }
    EXPECT_EQ(C::keyCodeForKeyChar(27, nullptr), 53) << "Escape, never Clear";
    EXPECT_EQ(C::keyCodesForKeyChar(27), (std::vector<std::uint16_t>{53, 71}));
    EXPECT_EQ(C::keyCodesForKeyChar('\r'), (std::vector<std::uint16_t>{36, 76}))
        << "keypad Enter still types a carriage return";
  }
}

TEST(KeyboardLayoutChoice, UnknownLayoutWarnsOnceAndTranslatesNothing) {
  vtcore::test::CapturedLog log;
  EXPECT_FALSE(C::setKeyboardLayout("xx"));
  bool dead = true;
  EXPECT_EQ(C::translateKeyCode(0, &dead, true), std::nullopt);
  EXPECT_FALSE(dead);
  EXPECT_EQ(C::keyCharForKeyCode(0) | C::keyCodeForKeyChar('a', nullptr), 0);
  EXPECT_EQ(utf8(C::stringForKeycode(122, control)), "⌃F1"); // needs no layout
  const auto records = log.sink().records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, 4);
  EXPECT_NE(records[0].field("Message").find("\"xx\""), std::string::npos);
}

// With no layout chosen the environment decides, else "us"; an environment
// variant never applies to a layout the application names.
TEST(KeyboardLayoutChoice, TheEnvironmentDecidesWhenNoneIsChosen) {
  ::setenv("XKB_DEFAULT_LAYOUT", "fr", 1);
  ::setenv("XKB_DEFAULT_VARIANT", "azerty", 1);
  ASSERT_TRUE(C::setKeyboardLayout(""));
  EXPECT_EQ(C::keyboardLayoutName(), "fr(azerty)");
  EXPECT_EQ(utf8(C::translateKeyCode(0)), "Q");
  ASSERT_TRUE(C::setKeyboardLayout("de"));
  EXPECT_EQ(C::keyboardLayoutName(), "de");
  ::unsetenv("XKB_DEFAULT_LAYOUT");
  ::unsetenv("XKB_DEFAULT_VARIANT");
  ASSERT_TRUE(C::setKeyboardLayout(""));
  EXPECT_EQ(C::keyboardLayoutName(), "us");
}

} // namespace

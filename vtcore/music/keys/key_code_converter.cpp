// Key-command names: the special-key table, the key-text table and the
// display texts.

#include <vtcore/core/text/utf8/icu_handles.h>
#include <vtcore/music/keys/key_code_converter.h>

#include <vtcore/music/keys/detail/keyboard_layout.h>

#include <map>
#include <memory>
#include <unicode/locid.h>
#include <unicode/ucnv.h>

namespace {

struct SpecialKey {
  const char* name;
  std::uint16_t keyCode;
  std::uint16_t charCode; // 0: none
  char16_t symbol;        // 0: none, show the name
  std::uint16_t glyph;    // the host's menu-glyph number, 0: none
  char16_t keyChar;
  std::uint32_t flags;
};

// Searched from the top, the first match wins. Row 1 (the back-tab symbol) is
// shadowed by row 0 and never found, and character code 27 always finds
// Escape, not Clear: applications depend on these results, so the rows stay
// exactly as they are.
constexpr SpecialKey specialKeys[] = {
    {"Tab", 48, 9, u'\u21E5', 2, 0x0009, 0},
    {"Tab", 48, 9, u'\u21E4', 3, 0x0009, 0},
    {"Enter", 76, 3, u'\u2305', 4, 0x0003, 0},
    {"Space", 49, 32, u'\u02FD', 9, 0x0020, 0},
    {"Delete", 117, 127, u'\u2326', 10, 0xF728, 0x800000},
    {"Delete", 51, 8, u'\u232B', 23, 0x007F, 0},
    {"Return", 36, 13, u'\u21A9', 11, 0x000D, 0},
    {"Escape", 53, 27, u'\u238B', 27, 0x001B, 0},
    {"Clear", 71, 27, u'\u2327', 28, 0xF739, 0x800000},
    {"Page up", 116, 11, u'\u21DE', 98, 0xF72C, 0x800000},
    {"Page down", 121, 12, u'\u21DF', 107, 0xF72D, 0x800000},
    {"Left", 123, 28, u'\u2190', 100, 0xF702, 0xA00000},
    {"Right", 124, 29, u'\u2192', 101, 0xF703, 0xA00000},
    {"Up", 126, 30, u'\u2191', 104, 0xF700, 0xA00000},
    {"Down", 125, 31, u'\u2193', 106, 0xF701, 0xA00000},
    {"Home", 115, 1, u'\u2196', 102, 0xF729, 0x800000},
    {"End", 119, 4, u'\u2198', 105, 0xF72B, 0x800000},
    {"Help", 114, 5, 0, 103, 0xF746, 0x800000},
    {"F1", 122, 0, 0, 111, 0xF704, 0},
    {"F2", 120, 0, 0, 112, 0xF705, 0},
    {"F3", 99, 0, 0, 113, 0xF706, 0},
    {"F4", 118, 0, 0, 114, 0xF707, 0},
    {"F5", 96, 0, 0, 115, 0xF708, 0},
    {"F6", 97, 0, 0, 116, 0xF709, 0},
    {"F7", 98, 0, 0, 117, 0xF70A, 0},
    {"F8", 100, 0, 0, 118, 0xF70B, 0},
    {"F9", 101, 0, 0, 119, 0xF70C, 0},
    {"F10", 109, 0, 0, 120, 0xF70D, 0},
    {"F11", 103, 0, 0, 121, 0xF70E, 0},
    {"F12", 111, 0, 0, 122, 0xF70F, 0},
    {"F13", 105, 0, 0, 135, 0xF710, 0},
    {"F14", 107, 0, 0, 136, 0xF711, 0},
    {"F15", 113, 0, 0, 137, 0xF712, 0},
    {"F16", 106, 0, 0, 0, 0xF713, 0},
    {"F17", 64, 0, 0, 0, 0xF714, 0},
    {"F18", 79, 0, 0, 0, 0xF715, 0},
    {"F19", 80, 0, 0, 0, 0xF716, 0},
};
static_assert(std::size(specialKeys) == 37);

// The navigation keys' character codes and their toolkit key characters.
struct NavigationPair {
  std::uint8_t charCode;
  std::uint16_t keyChar;
};
constexpr NavigationPair navigationPairs[] = {
    {1, 0xF729},  {4, 0xF72B},  {5, 0xF746},  {11, 0xF72C}, {12, 0xF72D},  {27, 0xF739},
    {28, 0xF702}, {29, 0xF703}, {30, 0xF700}, {31, 0xF701}, {127, 0xF728},
};

template <typename Predicate>
const SpecialKey* findSpecialKey(Predicate matches) {
  for (const auto& key : specialKeys)
    if (matches(key))
      return &key;
  return nullptr;
}

icu::UnicodeString nameOf(const SpecialKey& key) {
  return icu::UnicodeString::fromUTF8(key.name);
}

icu::UnicodeString symbolOrNameOf(const SpecialKey& key) {
  return key.symbol != 0 ? icu::UnicodeString(key.symbol) : nameOf(key);
}

// Upper case as the user sees it, except that the sharp s would become the
// two letters "SS": a one-key text stays one letter.
icu::UnicodeString upperCasedKeyText(const icu::UnicodeString& text) {
  icu::UnicodeString upper(text);
  upper.toUpper(icu::Locale::getRoot());
  return upper == icu::UnicodeString(u"SS") ? text : upper;
}

std::optional<icu::UnicodeString> joined(const std::optional<icu::UnicodeString>& modifiers,
                                         std::optional<icu::UnicodeString> key) {
  if (!key || !modifiers)
    return key;
  return *modifiers + *key;
}

std::optional<icu::UnicodeString> romanCharacter(std::uint16_t charCode) {
  if (charCode == 0 || charCode > 0xFF)
    return std::nullopt;
  // Lossy conversion writes '?' for a character the set lacks.
  auto converter = vtcore::openRomanConverter('?');
  if (!converter)
    return std::nullopt;
  const char byte = static_cast<char>(charCode);
  UChar units[4];
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length = ucnv_toUChars(converter.get(), units, 4, &byte, 1, &status);
  if (U_FAILURE(status) || length <= 0)
    return std::nullopt;
  return icu::UnicodeString(units, length);
}

std::uint8_t firstRomanByte(const icu::UnicodeString& text) {
  // Lossy conversion writes '?' for a character the set lacks.
  auto converter = vtcore::openRomanConverter('?');
  if (!converter || text.isEmpty())
    return 0;
  char bytes[64];
  UErrorCode status = U_ZERO_ERROR;
  // Only the first byte is wanted; a longer text may overflow the buffer,
  // which still leaves the first bytes written.
  ucnv_fromUChars(converter.get(), bytes, sizeof bytes, text.getBuffer(), text.length(), &status);
  if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR)
    return 0;
  return static_cast<std::uint8_t>(bytes[0]);
}

using KeyTextTable = std::map<icu::UnicodeString, std::vector<std::uint16_t>>;

// Built on first need and kept, so that a search does not translate 129 keys
// every time; only an explicit change of layout discards it.
std::unique_ptr<KeyTextTable>& keyTextTable() {
  static std::unique_ptr<KeyTextTable> table;
  return table;
}

const std::vector<std::uint16_t>* keyCodesTyping(std::uint16_t charCode) {
  KWKeyCodeConverter::generateKeyCharToKeyCodeLUT();
  auto text = romanCharacter(charCode);
  if (!text)
    return nullptr;
  const auto& table = *keyTextTable();
  auto found = table.find(*text);
  return found == table.end() || found->second.empty() ? nullptr : &found->second;
}

} // namespace

uint16_t VessRomanCharacterCode2PanekitCode(int charCode) {
  if (charCode < 0 || charCode > 0xFFFF)
    return 0;
  for (const auto& pair : navigationPairs)
    if (pair.charCode == charCode)
      return pair.keyChar;
  return static_cast<uint16_t>(charCode);
}

uint8_t PanekitFunctionKey2VessRomanCharCode(unsigned int keyChar) {
  for (const auto& pair : navigationPairs)
    if (pair.keyChar == keyChar)
      return pair.charCode;
  // F1 to F35 all share the character set's one function-key code.
  if (keyChar >= 0xF704 && keyChar <= 0xF726)
    return 16;
  return 0;
}

std::optional<icu::UnicodeString> KWKeyCodeConverter::modifierString(std::uint32_t modifierFlags) {
  constexpr std::pair<std::uint32_t, char16_t> symbols[] = {
      {vtcore::controlKeyMask, u'\u2303'},
      {vtcore::optionKeyMask, u'\u2325'},
      {vtcore::shiftKeyMask, u'\u21E7'},
      {vtcore::commandKeyMask, u'\u2318'},
  };
  icu::UnicodeString text;
  for (const auto& [flag, symbol] : symbols)
    if ((modifierFlags & flag) != 0)
      text.append(symbol);
  if (text.isEmpty())
    return std::nullopt;
  return text;
}

std::optional<icu::UnicodeString> KWKeyCodeConverter::stringForKeyCharFromTable(char16_t keyChar) {
  if (keyChar == 0)
    return std::nullopt;
  if (auto key = findSpecialKey([&](const SpecialKey& k) { return k.keyChar == keyChar; }))
    return nameOf(*key);
  return std::nullopt;
}

std::optional<icu::UnicodeString>
KWKeyCodeConverter::stringForKeyCodeFromTable(std::uint16_t keyCode) {
  // Key code 0 is the A key, but it has always meant "no key" here.
  if (keyCode == 0)
    return std::nullopt;
  if (auto key = findSpecialKey([&](const SpecialKey& k) { return k.keyCode == keyCode; }))
    return symbolOrNameOf(*key);
  return std::nullopt;
}

std::optional<icu::UnicodeString>
KWKeyCodeConverter::stringForCharCodeFromTable(std::uint16_t charCode) {
  if (charCode == 0)
    return std::nullopt;
  if (auto key = findSpecialKey([&](const SpecialKey& k) { return k.charCode == charCode; }))
    return symbolOrNameOf(*key);
  return std::nullopt;
}

std::optional<icu::UnicodeString>
KWKeyCodeConverter::translateKeyCode(std::uint16_t keyCode, bool* deadKeyState, bool toUpperCase) {
  auto translation = vtcore::detail::translateKeyThroughLayout(keyCode);
  if (deadKeyState != nullptr)
    *deadKeyState = translation && translation->deadKey;
  if (!translation)
    return std::nullopt;
  return toUpperCase ? upperCasedKeyText(translation->text) : translation->text;
}

std::optional<icu::UnicodeString> KWKeyCodeConverter::translateKeyCode(std::uint16_t keyCode) {
  return translateKeyCode(keyCode, nullptr, true);
}

void KWKeyCodeConverter::generateKeyCharToKeyCodeLUT() {
  auto& table = keyTextTable();
  if (table)
    return;
  table = std::make_unique<KeyTextTable>();
  // 128 has no key; the range is kept as it has always been.
  for (std::uint16_t keyCode = 0; keyCode <= 128; ++keyCode) {
    auto text = translateKeyCode(keyCode, nullptr, false);
    if (text && !text->isEmpty())
      (*table)[*text].push_back(keyCode);
    // A special key is also found by its own character code, which the
    // layout does not type (Home, Page up, the arrows) or types differently
    // (keypad Enter types a carriage return): keyCharForKeyCode gives that
    // code, and it has to lead back to the key.
    const auto* special = findSpecialKey([&](const SpecialKey& k) { return k.keyCode == keyCode; });
    if (special == nullptr || special->charCode == 0)
      continue;
    auto character = romanCharacter(special->charCode);
    if (character && (!text || *character != *text))
      (*table)[*character].push_back(keyCode);
  }
}

std::uint8_t KWKeyCodeConverter::keyCharForKeyCode(std::uint16_t keyCode) {
  if (auto key = findSpecialKey([&](const SpecialKey& k) { return k.keyCode == keyCode; }))
    return static_cast<std::uint8_t>(key->charCode);
  auto text = translateKeyCode(keyCode, nullptr, false);
  return text ? firstRomanByte(*text) : 0;
}

std::uint16_t KWKeyCodeConverter::keyCodeForKeyChar(std::uint16_t charCode,
                                                    bool* foundMoreThanOneKeycode) {
  if (foundMoreThanOneKeycode != nullptr)
    *foundMoreThanOneKeycode = false;
  const auto* keyCodes = keyCodesTyping(charCode);
  if (keyCodes == nullptr)
    return 0;
  if (foundMoreThanOneKeycode != nullptr)
    *foundMoreThanOneKeycode = keyCodes->size() > 1;
  return keyCodes->front();
}

std::optional<std::vector<std::uint16_t>>
KWKeyCodeConverter::keyCodesForKeyChar(std::uint16_t charCode) {
  if (const auto* keyCodes = keyCodesTyping(charCode))
    return *keyCodes;
  return std::nullopt;
}

std::uint16_t KWKeyCodeConverter::glyphForKeycode(std::uint16_t keyCode) {
  if (keyCode == 0)
    return 0;
  auto key = findSpecialKey([&](const SpecialKey& k) { return k.keyCode == keyCode; });
  return key != nullptr ? key->glyph : 0;
}

std::optional<icu::UnicodeString>
KWKeyCodeConverter::panekitStringForKeycode(std::uint16_t keyCode, std::uint32_t* modifierFlags) {
  if (auto key = findSpecialKey([&](const SpecialKey& k) { return k.keyCode == keyCode; })) {
    if (modifierFlags != nullptr)
      *modifierFlags |= key->flags;
    return icu::UnicodeString(key->keyChar);
  }
  return translateKeyCode(keyCode, nullptr, false);
}

std::optional<icu::UnicodeString>
KWKeyCodeConverter::stringForKeycode(std::uint16_t keyCode, std::uint32_t modifierFlags) {
  auto key = stringForKeyCodeFromTable(keyCode);
  if (!key)
    key = translateKeyCode(keyCode);
  return joined(modifierString(modifierFlags), std::move(key));
}

std::optional<icu::UnicodeString>
KWKeyCodeConverter::stringForVessRomanCharCode(std::uint16_t charCode,
                                               std::uint32_t modifierFlags) {
  auto key = stringForCharCodeFromTable(charCode);
  if (!key)
    key = romanCharacter(charCode);
  return joined(modifierString(modifierFlags), std::move(key));
}

std::optional<icu::UnicodeString>
KWKeyCodeConverter::humandReadableStringForKeyChar(char16_t keyChar, std::uint32_t modifierFlags) {
  auto key = stringForKeyCharFromTable(keyChar);
  if (!key && keyChar != 0)
    key = upperCasedKeyText(icu::UnicodeString(keyChar));
  return joined(modifierString(modifierFlags), std::move(key));
}

bool KWKeyCodeConverter::setKeyboardLayout(std::string_view layout, std::string_view variant) {
  keyTextTable().reset();
  return vtcore::detail::selectKeyboardLayout(layout, variant);
}

std::string KWKeyCodeConverter::keyboardLayoutName() {
  return vtcore::detail::keyboardLayoutName();
}

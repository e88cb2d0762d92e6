// vtcore subcommands and tour step of the key-command names.

#include "command.h"

#include <vtcore/core/text/utf8/icu_handles.h>
#include <vtcore/vtcore.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <unicode/ucnv.h>

namespace {

using namespace vtcore::cli;

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  return text.toUTF8String(out);
}

// Control characters would disturb the terminal: they are shown by number.
std::string printable(const std::optional<icu::UnicodeString>& text) {
  if (!text)
    return "(none)";
  std::string out;
  for (int32_t i = 0; i < text->length(); i = text->moveIndex32(i, 1)) {
    const UChar32 c = text->char32At(i);
    if (c < 0x20 || c == 0x7F) {
      char code[16];
      std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(c));
      out += code;
    } else {
      out += utf8(icu::UnicodeString(c));
    }
  }
  return out;
}

struct Options {
  std::vector<std::string> operands;
  std::optional<std::string> layout;
  std::uint32_t modifiers = 0;
};

// "de" or "de(nodeadkeys)", the form the converter names its layout in.
bool chooseLayout(const std::string& layoutText) {
  const auto open = layoutText.find('(');
  if (open != std::string::npos && !layoutText.empty() && layoutText.back() == ')')
    return KWKeyCodeConverter::setKeyboardLayout(
        layoutText.substr(0, open), layoutText.substr(open + 1, layoutText.size() - open - 2));
  return KWKeyCodeConverter::setKeyboardLayout(layoutText);
}

std::optional<std::uint32_t> parseModifiers(const std::string& list) {
  std::uint32_t flags = 0;
  std::size_t start = 0;
  while (start <= list.size()) {
    const auto end = std::min(list.find(',', start), list.size());
    const std::string name = list.substr(start, end - start);
    if (name == "control")
      flags |= vtcore::controlKeyMask;
    else if (name == "option")
      flags |= vtcore::optionKeyMask;
    else if (name == "shift")
      flags |= vtcore::shiftKeyMask;
    else if (name == "command")
      flags |= vtcore::commandKeyMask;
    else
      return std::nullopt;
    start = end + 1;
  }
  return flags;
}

// The one character of `text` as an 8-bit Roman character code.
std::optional<std::uint16_t> romanCharCode(const std::string& text) {
  const auto unicode = icu::UnicodeString::fromUTF8(text);
  if (unicode.countChar32() != 1)
    return std::nullopt;
  auto converter = vtcore::openRomanConverter('?');
  if (!converter)
    return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  // Stop instead of substituting: a character the set lacks has no code.
  ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
  char bytes[8];
  const int32_t length = ucnv_fromUChars(converter.get(), bytes, sizeof bytes, unicode.getBuffer(),
                                         unicode.length(), &status);
  if (U_FAILURE(status) || length != 1)
    return std::nullopt;
  return static_cast<std::uint8_t>(bytes[0]);
}

int runName(const Options& options) {
  if (options.operands.size() != 1)
    return usage("keys");
  const auto keyCode =
      static_cast<std::uint16_t>(integerArgument("KEYCODE", options.operands[0], 0, 0xFFFF));
  auto text = KWKeyCodeConverter::stringForKeycode(keyCode, options.modifiers);
  if (!text)
    return fail("keys", "key code " + options.operands[0] + " has no text under layout \"" +
                            KWKeyCodeConverter::keyboardLayoutName() + "\"");
  std::cout << printable(text) << "\n";
  return 0;
}

int runTable(const Options& options) {
  if (!options.operands.empty())
    return usage("keys");
  std::cout << "Key codes under layout \"" << KWKeyCodeConverter::keyboardLayoutName() << "\"\n"
            << "code  key   char  text\n";
  for (std::uint16_t code = 0; code < 128; ++code) {
    const char* keyName = vtcore::xkbKeyNameForKeyCode(code);
    bool dead = false;
    KWKeyCodeConverter::translateKeyCode(code, &dead, false);
    const auto charCode = KWKeyCodeConverter::keyCharForKeyCode(code);
    char charText[8] = "-";
    if (charCode != 0)
      std::snprintf(charText, sizeof charText, "0x%02X", charCode);
    char line[64];
    std::snprintf(line, sizeof line, "%4u  %-4s  %-4s  ", code, keyName ? keyName : "-", charText);
    std::cout << line << printable(KWKeyCodeConverter::stringForKeycode(code, 0))
              << (dead ? "  (dead key)" : "") << "\n";
  }
  return 0;
}

int runFind(const Options& options) {
  if (options.operands.size() != 1 || options.operands[0].empty())
    return usage("keys");
  const auto charCode = romanCharCode(options.operands[0]);
  if (!charCode)
    throw UsageError("'" + options.operands[0] +
                     "' is not one character of the 8-bit Roman character set");
  const auto keyCodes = KWKeyCodeConverter::keyCodesForKeyChar(*charCode);
  if (!keyCodes)
    return fail("keys", "no key types '" + options.operands[0] +
                            "' without modifiers under layout \"" +
                            KWKeyCodeConverter::keyboardLayoutName() + "\"");
  for (std::size_t i = 0; i < keyCodes->size(); ++i)
    std::cout << (i ? " " : "") << (*keyCodes)[i];
  std::cout << "\n";
  return 0;
}

int runKeys(const Invocation& call) {
  if (call.operands().empty())
    return usage("keys");
  const std::string& action = call.operands()[0];
  if (action != "name" && action != "table" && action != "find")
    throw UsageError("unknown action '" + action + "'");
  Options options;
  options.operands.assign(call.operands().begin() + 1, call.operands().end());
  options.layout = call.value("layout");
  if (options.layout && options.layout->empty())
    throw UsageError("--layout needs a layout name");
  if (auto mods = call.value("mods")) {
    if (action != "name")
      throw UsageError("--mods goes with 'keys name' only");
    auto flags = parseModifiers(*mods);
    if (!flags)
      throw UsageError("--mods takes a comma-separated list of control, option, shift, command");
    options.modifiers = *flags;
  }
  if (options.layout && !chooseLayout(*options.layout))
    throw UsageError("keyboard layout \"" + *options.layout + "\" is not in the XKB data");
  if (action == "name")
    return runName(options);
  if (action == "table")
    return runTable(options);
  return runFind(options);
}

Register keysCommand{
    {"keys",
     "name KEYCODE [--mods LIST] [--layout L] | table [--layout L] | find CHAR [--layout L]",
     "key-command names through the keyboard layout (KWKeyCodeConverter)",
     {{"layout", 0, "L",
       "an XKB layout such as de or de(nodeadkeys); default: XKB_DEFAULT_LAYOUT, else us"},
      {"mods", 0, "LIST",
       "with 'name': modifiers held, a comma-separated list of control, "
       "option, shift, command"}},
     runKeys,
     "Actions:\n"
     "  name KEYCODE   the text a key-command menu shows for the key (KEYCODE 0 to 65535,\n"
     "                 the classic Macintosh virtual key codes: 0 is A, 122 is F1).\n"
     "  table          the key codes 0 to 127 with their XKB key names, the 8-bit Roman\n"
     "                 character each types, and their menu text; a dead key (one that\n"
     "                 puts an accent on the next key) is marked.\n"
     "  find CHAR      the key codes that type CHAR without modifiers.\n"
     "Exit status 1 when a key has no text or no key types CHAR; 2 for a layout that is\n"
     "not in the XKB data or a CHAR that is not one 8-bit Roman character.",
     {"name", "table", "find"}}};

void tourKeys() {
  using C = KWKeyCodeConverter;
  std::cout << "Key commands name keys by their classic Macintosh key codes (0 is the key\n"
               "labelled A on a US keyboard); the keyboard layout (XKB, the X keyboard data)\n"
               "decides what each key types. A dead key types nothing by itself and puts an\n"
               "accent on the next key.\n";
  std::cout << "Special keys and modifiers: control-option-F1 is "
            << printable(C::stringForKeycode(122, vtcore::controlKeyMask | vtcore::optionKeyMask))
            << ", shift-Page-up is " << printable(C::stringForKeycode(116, vtcore::shiftKeyMask))
            << ", Help is " << printable(C::stringForKeycode(114, 0)) << "\n";
  for (const char* layout : {"us", "de", "fr"}) {
    if (!C::setKeyboardLayout(layout)) {
      std::cout << "layout \"" << layout << "\" is not in the XKB data\n";
      continue;
    }
    bool dead = false;
    const auto tilde = C::translateKeyCode(50, &dead, false);
    std::cout << "layout " << layout << ": key codes 0, 6, 16 type "
              << printable(C::stringForKeycode(0, 0)) << ", "
              << printable(C::stringForKeycode(6, 0)) << ", "
              << printable(C::stringForKeycode(16, 0)) << "; code 27 is "
              << printable(C::stringForKeycode(27, vtcore::commandKeyMask)) << "; code 50 is "
              << printable(tilde) << (dead ? " (a dead key)" : "") << "; 'z' is key code "
              << C::keyCodeForKeyChar('z', nullptr) << "\n";
  }
  C::setKeyboardLayout("");
}

TourStep keysStep{70, "Key commands", tourKeys};

} // namespace

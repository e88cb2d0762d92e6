// The keyboard layout through xkbcommon.

#include <vtcore/music/keys/detail/keyboard_layout.h>

#include <vtcore/core/diagnostics/log/log.h>
#include <vtcore/music/keys/key_code_converter.h>

#include <array>
#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <xkbcommon/xkbcommon.h>

namespace {

// Virtual key codes are positions on an ANSI keyboard; the XKB key names name
// the same positions, so the mapping holds for every layout.
constexpr std::array<const char*, 128> xkbKeyNames = [] {
  std::array<const char*, 128> names{};
  constexpr std::pair<int, const char*> keys[] = {
      {0, "AC01"},   {1, "AC02"},   {2, "AC03"},   {3, "AC04"},   {4, "AC06"},   {5, "AC05"},
      {6, "AB01"},   {7, "AB02"},   {8, "AB03"},   {9, "AB04"},   {10, "LSGT"},  {11, "AB05"},
      {12, "AD01"},  {13, "AD02"},  {14, "AD03"},  {15, "AD04"},  {16, "AD06"},  {17, "AD05"},
      {18, "AE01"},  {19, "AE02"},  {20, "AE03"},  {21, "AE04"},  {22, "AE06"},  {23, "AE05"},
      {24, "AE12"},  {25, "AE09"},  {26, "AE07"},  {27, "AE11"},  {28, "AE08"},  {29, "AE10"},
      {30, "AD12"},  {31, "AD09"},  {32, "AD07"},  {33, "AD11"},  {34, "AD08"},  {35, "AD10"},
      {36, "RTRN"},  {37, "AC09"},  {38, "AC07"},  {39, "AC11"},  {40, "AC08"},  {41, "AC10"},
      {42, "BKSL"},  {43, "AB08"},  {44, "AB10"},  {45, "AB06"},  {46, "AB07"},  {47, "AB09"},
      {48, "TAB"},   {49, "SPCE"},  {50, "TLDE"},  {51, "BKSP"},  {53, "ESC"},   {55, "LWIN"},
      {56, "LFSH"},  {57, "CAPS"},  {58, "LALT"},  {59, "LCTL"},  {60, "RTSH"},  {61, "RALT"},
      {62, "RCTL"},  {64, "FK17"},  {65, "KPDL"},  {67, "KPMU"},  {69, "KPAD"},  {71, "NMLK"},
      {75, "KPDV"},  {76, "KPEN"},  {78, "KPSU"},  {79, "FK18"},  {80, "FK19"},  {81, "KPEQ"},
      {82, "KP0"},   {83, "KP1"},   {84, "KP2"},   {85, "KP3"},   {86, "KP4"},   {87, "KP5"},
      {88, "KP6"},   {89, "KP7"},   {91, "KP8"},   {92, "KP9"},   {96, "FK05"},  {97, "FK06"},
      {98, "FK07"},  {99, "FK03"},  {100, "FK08"}, {101, "FK09"}, {103, "FK11"}, {105, "FK13"},
      {106, "FK16"}, {107, "FK14"}, {109, "FK10"}, {111, "FK12"}, {113, "FK15"}, {114, "INS"},
      {115, "HOME"}, {116, "PGUP"}, {117, "DELE"}, {118, "FK04"}, {119, "END"},  {120, "FK02"},
      {121, "PGDN"}, {122, "FK01"}, {123, "LEFT"}, {124, "RGHT"}, {125, "DOWN"}, {126, "UP"},
  };
  for (const auto& [code, name] : keys)
    names[static_cast<std::size_t>(code)] = name;
  return names;
}();

// A dead key is shown by the accent it puts on the next letter, as a
// character of its own. Dead keys whose accent has no spacing form here give
// no text (the dead-key flag still tells what they are).
UChar32 spacingCharacterForDeadKey(xkb_keysym_t keysym) {
  switch (keysym) {
  case XKB_KEY_dead_grave:
    return 0x0060;
  case XKB_KEY_dead_acute:
    return 0x00B4;
  case XKB_KEY_dead_circumflex:
    return 0x005E;
  case XKB_KEY_dead_tilde:
    return 0x007E;
  case XKB_KEY_dead_macron:
    return 0x00AF;
  case XKB_KEY_dead_breve:
    return 0x02D8;
  case XKB_KEY_dead_abovedot:
    return 0x02D9;
  case XKB_KEY_dead_diaeresis:
    return 0x00A8;
  case XKB_KEY_dead_abovering:
    return 0x02DA;
  case XKB_KEY_dead_doubleacute:
    return 0x02DD;
  case XKB_KEY_dead_caron:
    return 0x02C7;
  case XKB_KEY_dead_cedilla:
    return 0x00B8;
  case XKB_KEY_dead_ogonek:
    return 0x02DB;
  case XKB_KEY_dead_iota:
    return 0x037A;
  case XKB_KEY_dead_voiced_sound:
    return 0x309B;
  case XKB_KEY_dead_semivoiced_sound:
    return 0x309C;
  case XKB_KEY_dead_abovecomma:
    return 0x1FBF;
  case XKB_KEY_dead_abovereversedcomma:
    return 0x1FFE;
  case XKB_KEY_dead_doublegrave:
    return 0x02F5;
  case XKB_KEY_dead_belowring:
    return 0x02F3;
  case XKB_KEY_dead_belowmacron:
    return 0x02CD;
  case XKB_KEY_dead_belowtilde:
    return 0x02F7;
  case XKB_KEY_dead_currency:
    return 0x00A4;
  case XKB_KEY_dead_lowline:
    return 0x005F;
  case XKB_KEY_dead_aboveverticalline:
    return 0x02C8;
  case XKB_KEY_dead_belowverticalline:
    return 0x02CC;
  default:
    return 0;
  }
}

bool isDeadKeysym(xkb_keysym_t keysym) {
  return (keysym >= XKB_KEY_dead_grave && keysym <= XKB_KEY_dead_currency) ||
         (keysym >= XKB_KEY_dead_a && keysym <= XKB_KEY_dead_greek) ||
         (keysym >= XKB_KEY_dead_lowline && keysym <= XKB_KEY_dead_longsolidusoverlay);
}

struct ContextDeleter {
  void operator()(xkb_context* context) const { xkb_context_unref(context); }
};
struct KeymapDeleter {
  void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};

struct RuleNames {
  std::string rules, model, layout, variant, options;
};

struct LayoutState {
  bool attempted = false;
  RuleNames names;
  std::unique_ptr<xkb_keymap, KeymapDeleter> keymap;
};

LayoutState& layoutState() {
  static LayoutState state;
  return state;
}

std::string environmentOr(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0' ? value : fallback;
}

// The names xkbcommon itself would use, read here so that the choice is made
// in one visible place (the context is created without environment names).
RuleNames defaultRuleNames() {
  RuleNames names{
      environmentOr("XKB_DEFAULT_RULES", "evdev"), environmentOr("XKB_DEFAULT_MODEL", "pc105"),
      environmentOr("XKB_DEFAULT_LAYOUT", "us"), "", environmentOr("XKB_DEFAULT_OPTIONS", "")};
  // A variant belongs to the layout it was named with.
  if (!environmentOr("XKB_DEFAULT_LAYOUT", "").empty())
    names.variant = environmentOr("XKB_DEFAULT_VARIANT", "");
  return names;
}

std::string describe(const RuleNames& names) {
  return names.variant.empty() ? names.layout : names.layout + "(" + names.variant + ")";
}

void silentXkbLog(xkb_context*, xkb_log_level, const char*, va_list) {}

void build(RuleNames names) {
  auto& state = layoutState();
  state.attempted = true;
  state.names = std::move(names);
  state.keymap.reset();

  std::unique_ptr<xkb_context, ContextDeleter> context(
      xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES));
  if (context) {
    // xkbcommon reports a missing layout as a page of include-path errors;
    // the converter says it once, in its own words, below.
    xkb_context_set_log_fn(context.get(), silentXkbLog);
    const auto optional = [](const std::string& text) {
      return text.empty() ? nullptr : text.c_str();
    };
    const xkb_rule_names rmlvo{state.names.rules.c_str(), state.names.model.c_str(),
                               state.names.layout.c_str(), optional(state.names.variant),
                               optional(state.names.options)};
    state.keymap.reset(
        xkb_keymap_new_from_names(context.get(), &rmlvo, XKB_KEYMAP_COMPILE_NO_FLAGS));
  }
  if (!state.keymap) {
    const std::string name = describe(state.names);
    KWLogCString(4, KWLogWithSyslogBanner() != 0, "KWKeyCodeConverter",
                 "keyboard layout \"%s\" (rules \"%s\", model \"%s\") could not be built from "
                 "the XKB data; keys outside the special-key table have no text",
                 name.c_str(), state.names.rules.c_str(), state.names.model.c_str());
  }
}

LayoutState& builtLayout() {
  auto& state = layoutState();
  if (!state.attempted)
    build(defaultRuleNames());
  return state;
}

} // namespace

const char* vtcore::xkbKeyNameForKeyCode(std::uint16_t keyCode) {
  return keyCode < xkbKeyNames.size() ? xkbKeyNames[keyCode] : nullptr;
}

namespace vtcore::detail {

std::optional<KeyTranslation> translateKeyThroughLayout(std::uint16_t keyCode) {
  const char* keyName = xkbKeyNameForKeyCode(keyCode);
  auto& state = builtLayout();
  if (!state.keymap)
    return std::nullopt;
  // A code with no key on this keyboard types nothing, like Shift does.
  if (keyName == nullptr)
    return KeyTranslation{};
  const xkb_keycode_t key = xkb_keymap_key_by_name(state.keymap.get(), keyName);
  if (key == XKB_KEYCODE_INVALID)
    return KeyTranslation{};

  // The first shift level of the first layout group is what the key types
  // with no modifier held. Keypads of the keyboards these key codes come from
  // have no Num Lock and always type digits; in XKB the digits sit on the
  // keypad's second level (Num Lock on), so a keypad key whose first level
  // has no text is read there.
  auto translateLevel = [&](xkb_level_index_t level) {
    const xkb_keysym_t* keysyms = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(state.keymap.get(), key, 0, level, &keysyms);
    KeyTranslation translation;
    for (int i = 0; i < count; ++i) {
      if (isDeadKeysym(keysyms[i])) {
        translation.deadKey = true;
        if (UChar32 spacing = spacingCharacterForDeadKey(keysyms[i]); spacing != 0)
          translation.text.append(spacing);
      } else if (std::uint32_t character = xkb_keysym_to_utf32(keysyms[i]); character != 0) {
        translation.text.append(static_cast<UChar32>(character));
      }
    }
    return translation;
  };
  KeyTranslation translation = translateLevel(0);
  if (translation.text.isEmpty() && std::string_view(keyName).starts_with("KP") &&
      xkb_keymap_num_levels_for_key(state.keymap.get(), key, 0) > 1)
    translation = translateLevel(1);
  return translation;
}

bool selectKeyboardLayout(std::string_view layout, std::string_view variant) {
  if (layout.empty())
    build(defaultRuleNames());
  else
    build(RuleNames{"evdev", "pc105", std::string(layout), std::string(variant), ""});
  return layoutState().keymap != nullptr;
}

std::string keyboardLayoutName() {
  return describe(builtLayout().names);
}

} // namespace vtcore::detail

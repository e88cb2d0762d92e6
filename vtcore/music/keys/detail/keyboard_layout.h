// The keyboard layout behind the key-code converter: an xkbcommon keymap,
// built once and kept until the application chooses another layout.
// Internal; not installed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unicode/unistr.h>

namespace vtcore::detail {

/// What one key types at its first shift level with no modifiers.
struct KeyTranslation {
  /// The key's text; empty when the key types nothing (Shift, F1, Insert).
  icu::UnicodeString text;
  /// The key is a dead key; `text` is then its spacing character.
  bool deadKey = false;
};

/// Translates the key at `keyCode` through the current layout, building the
/// layout on first use. Null only when there is no layout (it could not be
/// built); a code with no key translates to an empty text.
std::optional<KeyTranslation> translateKeyThroughLayout(std::uint16_t keyCode);

/// Replaces the layout with `layout`/`variant` (empty layout: the default
/// from the environment) and builds it now. False, with one warning logged,
/// when it cannot be built.
bool selectKeyboardLayout(std::string_view layout, std::string_view variant);

/// "layout" or "layout(variant)" of the layout in use, building the default
/// one first if none was asked for yet.
std::string keyboardLayoutName();

} // namespace vtcore::detail

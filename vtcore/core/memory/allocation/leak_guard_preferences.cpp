// The leak guard's scope conditions: the "LeakGuard" preference dictionary,
// written back to the user-defaults store when a value needed converting,
// and the in-process overrides.
#include <vtcore/core/memory/allocation/detail/leak_preferences.h>
#include <vtcore/core/memory/allocation/leak_guard.h>
#include <vtcore/core/platform/user_defaults.h>

#include <nlohmann/json.hpp>
#include <string>

namespace {

using json = nlohmann::json;

json*& dictionaryOf(void*& slot) {
  return reinterpret_cast<json*&>(slot);
}

std::string utf8(const icu::UnicodeString& text) {
  std::string result;
  text.toUTF8String(result);
  return result;
}

} // namespace

namespace vtcore::detail {

std::mutex& leakGuardDictionaryMutex() {
  static std::mutex mutex;
  return mutex;
}

void* loadLeakGuardPreferences() {
  auto preferences = vtcore::UserDefaults::standard().dictionaryForKey("LeakGuard");
  return preferences ? new json(std::move(*preferences)) : nullptr;
}

void deleteLeakGuardDictionary(void* dictionary) {
  delete static_cast<json*>(dictionary);
}

} // namespace vtcore::detail

int KWLeakGuardHandler::CheckPreference(const icu::UnicodeString& group,
                                        const icu::UnicodeString& key) {
  const std::string groupName = utf8(group);
  const std::string keyName = utf8(key);
  std::unique_lock dictionaries(vtcore::detail::leakGuardDictionaryMutex());
  if (json* overrides = dictionaryOf(m_overrides)) {
    auto groupEntry = overrides->find(groupName);
    if (groupEntry != overrides->end() && groupEntry->is_object()) {
      auto value = groupEntry->find(keyName);
      if (value != groupEntry->end())
        return static_cast<int>(vtcore::defaultsIntegerValue(*value));
    }
  }
  json* preferences = dictionaryOf(m_preferences);
  if (!preferences)
    return 0;
  auto groupEntry = preferences->find(groupName);
  if (groupEntry == preferences->end() || !groupEntry->is_object())
    return 0;
  auto value = groupEntry->find(keyName);
  if (value == groupEntry->end())
    return 0;
  if (value->is_string()) {
    // A number written as text is accepted once and stored back as a number.
    const long long number = vtcore::defaultsIntegerValue(*value);
    *value = number;
    const json copy = *preferences;
    dictionaries.unlock();
    auto& defaults = vtcore::UserDefaults::standard();
    defaults.setObject(copy, "LeakGuard");
    defaults.synchronize();
    return static_cast<int>(number);
  }
  if (value->is_number())
    return static_cast<int>(vtcore::defaultsIntegerValue(*value));
  return 0;
}

void KWLeakGuardHandler::OverridePreference(const std::optional<icu::UnicodeString>& group,
                                            const std::optional<icu::UnicodeString>& key,
                                            unsigned value) {
  if (!group || !key)
    return;
  std::lock_guard dictionaries(vtcore::detail::leakGuardDictionaryMutex());
  json*& overrides = dictionaryOf(m_overrides);
  if (!overrides)
    overrides = new json(json::object());
  json& groupEntry = (*overrides)[utf8(*group)];
  if (!groupEntry.is_object())
    groupEntry = json::object();
  groupEntry[utf8(*key)] = value;
}

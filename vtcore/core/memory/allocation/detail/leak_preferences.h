// Internal to the leak guard: the "LeakGuard" preference dictionary and the
// in-process overrides.
#pragma once

#include <mutex>

namespace vtcore::detail {

/// Guards both dictionaries of the handler.
std::mutex& leakGuardDictionaryMutex();

/// The "LeakGuard" dictionary of the user-defaults store, as an owned opaque
/// object for the handler to keep; null when the store has none.
void* loadLeakGuardPreferences();

/// Deletes a dictionary made by loadLeakGuardPreferences or by an override.
/// Null is allowed.
void deleteLeakGuardDictionary(void* dictionary);

} // namespace vtcore::detail

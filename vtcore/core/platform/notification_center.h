// A process-wide notification centre: observers register for a name and are
// called synchronously, on the posting thread, for every notification of that
// name. The low-memory centre posts "kLowMemoryNotification" through it;
// applications may use it for their own notifications.
#pragma once

#include <vtcore/export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unicode/unistr.h>
#include <vector>

namespace vtcore {

/// One posted notification, as observers receive it.
struct Notification {
  icu::UnicodeString name;      ///< what happened ("kLowMemoryNotification", ...)
  const void* object = nullptr; ///< the poster's object, often null
};

/// A registry of observers by notification name; see the top of this file.
class VTCORE_EXPORT NotificationCenter {
public:
  /// Called on the posting thread with each notification of its name.
  using Observer = std::function<void(const Notification& notification)>;
  /// Identifies one registration; 0 is never a valid token.
  using Token = std::uint64_t;

  /// The process-wide centre.
  static NotificationCenter& defaultCenter();

  NotificationCenter() = default;
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  /// Registers `observer` for notifications named `name` (an empty name
  /// observes every notification). Returns the token that removes it, or 0
  /// for an empty observer (nothing is registered).
  Token addObserver(const icu::UnicodeString& name, Observer observer);
  /// Removes a registration; returns false when `token` is not registered.
  bool removeObserver(Token token);

  /// Calls every observer registered for `name` (and every catch-all one),
  /// in order of registration, on the calling thread, before returning.
  /// Observers may add or remove observers; the changes apply from the next
  /// post. An exception thrown by an observer is passed on to the poster and
  /// skips the observers after it.
  void postNotification(const icu::UnicodeString& name, const void* object = nullptr);

private:
  struct Registration {
    Token token;
    icu::UnicodeString name;
    std::shared_ptr<Observer> observer;
  };
  std::mutex m_mutex;
  std::vector<Registration> m_registrations;
  Token m_lastToken = 0;
};

} // namespace vtcore

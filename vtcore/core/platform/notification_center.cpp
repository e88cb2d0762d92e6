#include <vtcore/core/platform/notification_center.h>

#include <algorithm>

namespace vtcore {

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: notifications may be posted from other statics'
  // destructors at exit.
  static auto* center = new NotificationCenter;
  return *center;
}

NotificationCenter::Token NotificationCenter::addObserver(const icu::UnicodeString& name,
                                                          Observer observer) {
  if (!observer)
    return 0;
  std::lock_guard lock(m_mutex);
  const Token token = ++m_lastToken;
  m_registrations.push_back({token, name, std::make_shared<Observer>(std::move(observer))});
  return token;
}

bool NotificationCenter::removeObserver(Token token) {
  std::lock_guard lock(m_mutex);
  auto found = std::find_if(m_registrations.begin(), m_registrations.end(),
                            [token](const Registration& r) { return r.token == token; });
  if (found == m_registrations.end())
    return false;
  m_registrations.erase(found);
  return true;
}

void NotificationCenter::postNotification(const icu::UnicodeString& name, const void* object) {
  // Observers run outside the lock, on a snapshot: they may post, add or
  // remove without deadlocking, and a removal during a post does not destroy
  // an observer that is still running.
  std::vector<std::shared_ptr<Observer>> observers;
  {
    std::lock_guard lock(m_mutex);
    for (const Registration& registration : m_registrations)
      if (registration.name.isEmpty() || registration.name == name)
        observers.push_back(registration.observer);
  }
  const Notification notification{name, object};
  for (const auto& observer : observers)
    (*observer)(notification);
}

} // namespace vtcore

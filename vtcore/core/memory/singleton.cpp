#include <vtcore/core/diagnostics/exception.h>
#include <vtcore/core/memory/singleton.h>

KWSingletonClass::KWSingletonClass(std::string name, const vtcore::Class* superclass,
                                   Creator creator)
    : vtcore::Class(std::move(name), superclass), creator_(creator) {}

KWSingleton* KWSingletonClass::singleton() const {
  throw KWException("ESSingleton", "+singleton not implemented");
}

void KWSingletonClass::setSingleton(KWSingleton*) {
  throw KWException("ESSingleton", "+setSingleton: not implemented");
}

KWSingleton* KWSingletonClass::allocWithZone() {
  std::lock_guard lock(this->lock());
  if (singleton())
    return nullptr;
  KWSingleton* instance = creator_ ? creator_() : nullptr;
  if (!instance)
    return nullptr;
  setSingleton(instance);
  return singleton();
}

KWSingleton* KWSingletonClass::sharedInstance() {
  KWSingleton* created = nullptr;
  {
    std::lock_guard lock(this->lock());
    if (KWSingleton* existing = singleton())
      return existing;
    created = allocWithZone();
  }
  // The new instance is registered outside this class's lock:
  // releaseAllSingletons() holds the collector's class lock while it takes
  // the lock of every registered class, and taking the two the other way
  // round here could deadlock.
  if (created)
    _KWSingletonCollector::sharedInstance()->_addSingleton(created);
  std::lock_guard lock(this->lock());
  return singleton();
}

void KWSingletonClass::releaseSharedInstance() {
  std::lock_guard lock(this->lock());
  _KWSingletonCollector::sharedInstance()->_removeSingleton(singleton());
  // Read again: when this is the collector's own class and it had no
  // instance, the line above has just made one, which must not be lost.
  if (KWSingleton* instance = singleton())
    instance->destroy();
  setSingleton(nullptr);
}

KWSingletonClass& KWSingleton::classObject() {
  static KWSingletonClass theClass("KWSingleton", &vtcore::Object::classObject(), nullptr);
  return theClass;
}

KWSingleton::~KWSingleton() = default;

void KWSingleton::releaseAllSingletons() {
  _KWSingletonCollector::releaseSharedInstance();
}

void _KWSingletonCollector::_addSingleton(KWSingleton* object) {
  if (!object || object == this)
    return;
  std::lock_guard lock(this->lock());
  m_allSingletons.insert(object->objectClass().name());
}

void _KWSingletonCollector::_removeSingleton(KWSingleton* object) {
  if (!object || object == this)
    return;
  std::lock_guard lock(this->lock());
  m_allSingletons.erase(object->objectClass().name());
}

std::set<std::string> _KWSingletonCollector::registeredClassNames() const {
  std::lock_guard lock(this->lock());
  return m_allSingletons;
}

_KWSingletonCollector::~_KWSingletonCollector() {
  // Each release below removes its name from m_allSingletons through this
  // very collector, so a copy is walked.
  const std::set<std::string> names = registeredClassNames();
  for (const std::string& name : names)
    if (auto* cls = dynamic_cast<KWSingletonClass*>(vtcore::Class::named(name)))
      cls->releaseSharedInstance();
}

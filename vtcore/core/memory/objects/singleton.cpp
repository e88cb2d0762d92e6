#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/memory/objects/singleton.h>

KWSingletonClass::KWSingletonClass(std::string name, const vtcore::Class* superclass,
                                   Creator creator)
    : vtcore::Class(std::move(name), superclass), m_creator(creator) {}

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
  KWSingleton* instance = m_creator ? m_creator() : nullptr;
  if (!instance)
    return nullptr;
  setSingleton(instance);
  return singleton();
}

KWSingleton* KWSingletonClass::sharedInstance() {
  // The common case takes no lock: flyweights ask for their pool while they
  // hold their own lock, and the pool's class lock is held while the pool
  // releases its flyweights.
  if (KWSingleton* existing = singleton())
    return existing;
  KWSingletonClass& collectorClass = _KWSingletonCollector::classObject();
  if (this == &collectorClass) {
    std::lock_guard lock(this->lock());
    if (KWSingleton* existing = singleton())
      return existing;
    return allocWithZone();
  }
  // Made and registered in one step under the collector's class lock, taken
  // before this class's own (the order releaseAllSingletons() takes them
  // in): a release of all singletons running meanwhile either comes first,
  // and this call makes an instance that the next collector knows, or comes
  // after and releases it. No call ever sees the class without an instance
  // it just made, or an instance that no collector lists.
  std::lock_guard collectorLock(collectorClass.lock());
  std::lock_guard lock(this->lock());
  if (KWSingleton* existing = singleton())
    return existing;
  KWSingleton* created = allocWithZone();
  if (created)
    _KWSingletonCollector::sharedInstance()->_addSingleton(created);
  return created;
}

void KWSingletonClass::releaseSharedInstance() {
  // The collector's class lock comes before a class's own, as in
  // sharedInstance(); it is recursive, so the collector's destructor (which
  // runs under it) releases each class through this same path.
  KWSingletonClass& collectorClass = _KWSingletonCollector::classObject();
  std::lock_guard collectorLock(collectorClass.lock());
  if (this != &collectorClass) {
    if (auto* collector = static_cast<_KWSingletonCollector*>(collectorClass.singleton()))
      collector->_removeSingletonClass(name());
  }
  std::lock_guard lock(this->lock());
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
  _removeSingletonClass(object->objectClass().name());
}

void _KWSingletonCollector::_removeSingletonClass(const std::string& className) {
  std::lock_guard lock(this->lock());
  m_allSingletons.erase(className);
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

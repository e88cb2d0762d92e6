#include <vtcore/core/diagnostics/exception/exception.h>
#include <vtcore/core/memory/objects/flyweight.h>

#include <vector>

// Lock order: a flyweight's lock may be held while the pool's is taken, never
// the other way round. The pool therefore releases the references it gives
// up only after unlocking itself, since a release may lock the flyweight.

KWFlyweight* KWFlyweight::initWithHash(unsigned hash) {
  KWFlyweight* existing = nullptr;
  {
    // Held until the intrinsic state is built: a caller that finds this
    // flyweight in the pool meanwhile waits for it below.
    std::lock_guard lock(this->lock());
    m_hash.store(hash, std::memory_order_relaxed);
    existing = _KWPoolOfFlyweights::sharedInstance()->addOrReturnFlyweight(this);
    if (!existing) {
      setupIntrinsicStateData();
      return this;
    }
  }
  release();
  { std::lock_guard wait(existing->lock()); }
  return existing;
}

KWFlyweight* KWFlyweight::init() {
  throw KWException("KWFlyweight", "-init: not the designated initializer");
}

void KWFlyweight::setupIntrinsicStateData() {}

KWFlyweight::~KWFlyweight() = default;

bool KWFlyweight::isEqual(const vtcore::Object* other) const {
  return other && other->hash() == hash();
}

void KWFlyweight::release() {
  // Every release of a flyweight tests and drops under the flyweight's lock,
  // as one step: two holders releasing at once must not both see three
  // references and leave the pool as the only holder, for ever.
  bool last = false;
  {
    std::lock_guard lock(this->lock());
    unsigned long dropping = 1;
    // Two references left: the pool's and the caller's last one. The pool's
    // reference is taken over and dropped here with the caller's.
    if (willAutoRemoveFromPool() && retainCount() == 2 &&
        _KWPoolOfFlyweights::sharedInstance()->takeFlyweight(this))
      dropping = 2;
    last = dropReferences(dropping);
  }
  // Outside the lock: destroying the flyweight destroys its lock with it.
  if (last)
    destroy();
}

void KWFlyweight::setWillAutoRemoveFromPool(bool flag) {
  bool last = false;
  {
    std::lock_guard lock(this->lock());
    // Only the pool holds it: leaving the pool ends it.
    if (flag && !willAutoRemoveFromPool() && retainCount() == 1 &&
        _KWPoolOfFlyweights::sharedInstance()->takeFlyweight(this))
      last = dropReferences(1);
    m_autoRemoveFromPool.store(flag, std::memory_order_relaxed);
  }
  if (last)
    destroy();
}

void KWFlyweight::releasePoolOfFlyweights(const vtcore::Class& flyweightClass) {
  _KWPoolOfFlyweights::sharedInstance()->releasePoolOfFlyweightsOfClassName(flyweightClass.name());
}

KWFlyweight* _KWPoolOfFlyweights::addOrReturnFlyweight(KWFlyweight* flyweight) {
  if (!flyweight)
    return nullptr;
  std::lock_guard lock(this->lock());
  Set& pool = m_thePool[flyweight->objectClass().name()];
  if (auto found = pool.find(flyweight); found != pool.end()) {
    // Retained under the pool's lock, so that a concurrent last release
    // cannot destroy it between the look-up and the caller's use.
    (*found)->retain();
    return *found;
  }
  flyweight->retain();
  pool.insert(flyweight);
  return nullptr;
}

bool _KWPoolOfFlyweights::takeFlyweight(KWFlyweight* flyweight) {
  if (!flyweight)
    return false;
  std::lock_guard lock(this->lock());
  auto pool = m_thePool.find(flyweight->objectClass().name());
  if (pool == m_thePool.end())
    return false;
  auto found = pool->second.find(flyweight);
  if (found == pool->second.end() || *found != flyweight)
    return false;
  pool->second.erase(found);
  return true;
}

void _KWPoolOfFlyweights::removeFlyweight(KWFlyweight* flyweight) {
  // Released after the pool's lock is given up (see the lock order above).
  if (takeFlyweight(flyweight))
    flyweight->release();
}

void _KWPoolOfFlyweights::releasePoolOfFlyweightsOfClassName(const std::string& className) {
  Set dropped;
  {
    std::lock_guard lock(this->lock());
    auto pool = m_thePool.find(className);
    if (pool == m_thePool.end())
      return;
    dropped = std::move(pool->second);
    m_thePool.erase(pool);
  }
  for (KWFlyweight* flyweight : dropped)
    flyweight->release();
}

std::size_t _KWPoolOfFlyweights::countOfFlyweightsOfClassName(const std::string& className) const {
  std::lock_guard lock(this->lock());
  auto pool = m_thePool.find(className);
  return pool == m_thePool.end() ? 0 : pool->second.size();
}

_KWPoolOfFlyweights::~_KWPoolOfFlyweights() {
  std::vector<KWFlyweight*> dropped;
  {
    std::lock_guard lock(this->lock());
    for (auto& [name, pool] : m_thePool)
      dropped.insert(dropped.end(), pool.begin(), pool.end());
    m_thePool.clear();
  }
  for (KWFlyweight* flyweight : dropped)
    flyweight->release();
}

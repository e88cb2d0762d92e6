// Flyweights: shared immutable objects keyed by a value hash. Making a
// flyweight whose hash equals that of a live one of the same class gives the
// existing instance instead.
//
//   class Glyph : public KWFlyweight {
//     VTCORE_OBJECT(Glyph, KWFlyweight)
//   public:
//     explicit Glyph(char32_t c) : m_c(c) {}
//     void setupIntrinsicStateData() override { /* build the shared state */ }
//   };
//
//   vtcore::Ref<Glyph> g = makeFlyweight<Glyph>(hashOf('a'), U'a');
#pragma once

#include <vtcore/core/memory/objects/singleton.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>

/// Base of the flyweight classes. A flyweight is pooled per class name, and
/// two flyweights are equal when their hashes are (the class is not
/// compared; the pool keeps one set per class). A pooled flyweight is held by
/// the pool until it is removed: by auto-removal (see
/// setWillAutoRemoveFromPool), or by releasePoolOfFlyweights of its class.
class VTCORE_EXPORT KWFlyweight : public vtcore::Object {
  VTCORE_OBJECT(KWFlyweight, vtcore::Object)

public:
  /// The designated initialiser, for a receiver just made (one reference,
  /// owned by the caller). Stores `hash` and offers the receiver to the pool
  /// of its class. When no equal flyweight is pooled, the receiver enters the
  /// pool, setupIntrinsicStateData() runs once on it, and the receiver is
  /// returned. Otherwise the receiver is released and the pooled flyweight is
  /// returned with a reference for the caller. makeFlyweight() wraps this.
  KWFlyweight* initWithHash(unsigned hash);
  /// Not the designated initialiser: always raises KWException "KWFlyweight"
  /// with the reason "-init: not the designated initializer".
  KWFlyweight* init();

  /// Builds the state shared by all users of a new pooled flyweight; runs
  /// once, before any other caller gets the flyweight from the pool. Empty
  /// in the base.
  virtual void setupIntrinsicStateData();

  /// The hash given to initWithHash.
  std::size_t hash() const override { return m_hash.load(std::memory_order_relaxed); }
  /// False for null, else whether both hashes are equal.
  bool isEqual(const vtcore::Object* other) const override;

  /// With auto-removal on, the release that leaves the pool as the only
  /// holder (retain count 2 before it) takes the flyweight out of the pool
  /// first, so it is destroyed. Otherwise an ordinary release.
  void release() override;

  /// Whether the flyweight leaves the pool by itself when only the pool
  /// holds it (see release()).
  bool willAutoRemoveFromPool() const {
    return m_autoRemoveFromPool.load(std::memory_order_relaxed);
  }
  /// Switches auto-removal on or off. Switching it on while only the pool
  /// holds the flyweight (retain count 1) removes and destroys it at once.
  void setWillAutoRemoveFromPool(bool flag);

  /// Drops the pool of the class `flyweightClass` (for instance
  /// Glyph::classObject()): the pool lets go of all its flyweights, which
  /// live on while others hold them. Later flyweights of the class start a
  /// new pool.
  static void releasePoolOfFlyweights(const vtcore::Class& flyweightClass);

protected:
  KWFlyweight() = default;
  ~KWFlyweight() override;

private:
  std::atomic<std::uint32_t> m_hash{0};
  std::atomic<bool> m_autoRemoveFromPool{false};
};

/// Makes a flyweight of class `T` from `arguments` and passes it through
/// initWithHash(`hash`): the result is the new flyweight or the pooled equal
/// one, with a reference for the caller. `T` must declare its own class
/// object (VTCORE_OBJECT); when it does not and the pool answers with an
/// instance of another type, the result is null rather than a mistyped
/// object.
template <typename T, typename... Arguments>
vtcore::Ref<T> makeFlyweight(unsigned hash, Arguments&&... arguments) {
  T* fresh = new T(std::forward<Arguments>(arguments)...);
  KWFlyweight* pooled = fresh->initWithHash(hash);
  // The pool keeps one set per class object; a T whose class declares no
  // class object of its own (no VTCORE_OBJECT) shares its base's set, and
  // the pooled instance may then be another type: never hand that out as a
  // T.
  if (T* same = dynamic_cast<T*>(pooled))
    return vtcore::Ref<T>::adopt(same);
  if (pooled)
    pooled->release();
  return {};
}

/// The pools of flyweights, one set per class name.
class VTCORE_EXPORT _KWPoolOfFlyweights : public KWSingleton {
  KW_SINGLETON(_KWPoolOfFlyweights, KWSingleton)

public:
  /// Returns the pooled flyweight equal to `flyweight`, with a reference for
  /// the caller; or, when there is none, pools `flyweight` (the pool takes a
  /// reference) and returns null.
  KWFlyweight* addOrReturnFlyweight(KWFlyweight* flyweight);
  /// Takes `flyweight` out of its pool, but only when the pooled equal
  /// member is that very object. Ignores null.
  void removeFlyweight(KWFlyweight* flyweight);
  /// Takes `flyweight` out of its class's set when that very object is
  /// pooled, handing the pool's reference to the caller without releasing
  /// it; false (and nothing changes) otherwise. For a release that must drop
  /// the pool's reference together with its own, under the flyweight's lock.
  bool takeFlyweight(KWFlyweight* flyweight);
  /// Drops the pool stored under `className` and the references it held.
  void releasePoolOfFlyweightsOfClassName(const std::string& className);
  /// The number of flyweights pooled under `className`.
  std::size_t countOfFlyweightsOfClassName(const std::string& className) const;

private:
  _KWPoolOfFlyweights() = default;
  ~_KWPoolOfFlyweights() override;

  struct HashOf {
    std::size_t operator()(const KWFlyweight* flyweight) const { return flyweight->hash(); }
  };
  struct Equal {
    bool operator()(const KWFlyweight* a, const KWFlyweight* b) const { return a->isEqual(b); }
  };
  using Set = std::unordered_set<KWFlyweight*, HashOf, Equal>;

  std::unordered_map<std::string, Set> m_thePool; // guarded by the object lock
};

// Singletons: one instance per class, made on first request and released
// explicitly, one class or all at once.
//
//   class Mixer : public KWSingleton {
//     KW_SINGLETON(Mixer, KWSingleton)
//     Mixer() = default;   // only sharedInstance() makes one
//   public:
//     ...
//   };
//
//   Mixer* mixer = Mixer::sharedInstance();
//   Mixer::releaseSharedInstance();        // or KWSingleton::releaseAllSingletons()
#pragma once

#include <vtcore/core/memory/objects/object.h>

#include <atomic>

#include <set>
#include <string>

class KWSingleton;

/// The class object of a singleton class: it carries the class-level methods
/// of KWSingleton. Every class method runs inside a synchronised block on
/// the class object, so concurrent first requests make one instance.
class VTCORE_EXPORT KWSingletonClass : public vtcore::Class {
public:
  /// Makes a new instance of the class (ordinary allocation and
  /// initialisation); may return null.
  using Creator = KWSingleton* (*)();

  /// Registers the class `name` below `superclass`; `creator` makes its
  /// instance.
  KWSingletonClass(std::string name, const vtcore::Class* superclass, Creator creator);

  /// The one instance, made and registered with the collector on the first
  /// call. Raises KWException "ESSingleton" when the class provides no
  /// storage for its instance.
  KWSingleton* sharedInstance();
  /// The allocation entry: makes and stores a new instance only when the
  /// class has none; null otherwise (a second allocation yields nothing).
  KWSingleton* allocWithZone();
  /// Unregisters the class from the collector and destroys the instance
  /// (bypassing reference counting); the next sharedInstance() makes a
  /// fresh one. Nothing to do without one.
  void releaseSharedInstance();

  ///@{
  /// The storage of the one instance, which the subclass provides (see
  /// KW_SINGLETON). The base versions raise KWException "ESSingleton" with
  /// the reason "+singleton not implemented" / "+setSingleton: not
  /// implemented".
  virtual KWSingleton* singleton() const;
  virtual void setSingleton(KWSingleton* instance);
  ///@}

private:
  Creator m_creator;
};

/// Base of the classes that have exactly one instance. Reference counting is
/// switched off for singletons: retain, release and autorelease change
/// nothing, copy returns the receiver and the retain count always reads as
/// UINT32_MAX (4294967295). Instances end only by releaseSharedInstance() of their class
/// or releaseAllSingletons().
class VTCORE_EXPORT KWSingleton : public vtcore::Object {
public:
  /// The class object of KWSingleton.
  static KWSingletonClass& classObject();
  const vtcore::Class& objectClass() const override { return classObject(); }

  vtcore::Object* retain() override { return this; }
  void release() override {}
  vtcore::Object* autorelease() override { return this; }
  vtcore::Object* copy() override { return this; }
  unsigned long retainCount() const override { return 4294967295UL; }

  /// Destroys every singleton that was obtained through sharedInstance(), of
  /// every class (the order is not defined). Meant for shutdown: it must not
  /// race with the first request of a class that is not registered yet.
  static void releaseAllSingletons();

protected:
  KWSingleton() = default;
  ~KWSingleton() override;

  friend class KWSingletonClass;
};

namespace vtcore::detail {
/// A singleton class object that stores its instance: what KW_SINGLETON
/// gives every subclass.
class VTCORE_EXPORT SingletonClassWithStorage : public KWSingletonClass {
public:
  using KWSingletonClass::KWSingletonClass;
  KWSingleton* singleton() const override { return m_instance.load(std::memory_order_acquire); }
  void setSingleton(KWSingleton* instance) override {
    m_instance.store(instance, std::memory_order_release);
  }

private:
  // Changed under the class object's lock; read without it by the fast path
  // of sharedInstance().
  std::atomic<KWSingleton*> m_instance{nullptr};
};
} // namespace vtcore::detail

#define VTCORE_SINGLETON_CLASS_BODY(ClassName, SuperName, ClassObjectType)                         \
public:                                                                                            \
  static KWSingletonClass& classObject() {                                                         \
    static ClassObjectType theClass(::vtcore::detail::typeName(typeid(ClassName)),                 \
                                    &SuperName::classObject(),                                     \
                                    []() -> KWSingleton* { return new ClassName(); });             \
    return theClass;                                                                               \
  }                                                                                                \
  const ::vtcore::Class& objectClass() const override {                                            \
    return classObject();                                                                          \
  }                                                                                                \
  static ClassName* sharedInstance() {                                                             \
    return static_cast<ClassName*>(classObject().sharedInstance());                                \
  }                                                                                                \
  static void releaseSharedInstance() {                                                            \
    classObject().releaseSharedInstance();                                                         \
  }                                                                                                \
                                                                                                   \
private:

/// Makes a class a singleton class with its own instance storage. Put it in
/// the class body with the class and its direct superclass; the class needs
/// a default constructor (it may be private). Gives the class the static
/// sharedInstance() and releaseSharedInstance().
#define KW_SINGLETON(ClassName, SuperName)                                                         \
  VTCORE_SINGLETON_CLASS_BODY(ClassName, SuperName, ::vtcore::detail::SingletonClassWithStorage)

/// The same without instance storage: sharedInstance() raises "ESSingleton".
/// For classes that provide their storage by a KWSingletonClass subclass of
/// their own (`ClassObjectType`).
#define KW_SINGLETON_WITH_CLASS(ClassName, SuperName, ClassObjectType)                             \
  VTCORE_SINGLETON_CLASS_BODY(ClassName, SuperName, ClassObjectType)

/// The registry of singleton classes that releaseAllSingletons() walks. It
/// is a singleton itself and never registers itself.
class VTCORE_EXPORT _KWSingletonCollector : public KWSingleton {
  KW_SINGLETON(_KWSingletonCollector, KWSingleton)

public:
  /// Registers the class of `object` by name (one entry per class).
  /// Ignores null and the collector itself.
  void _addSingleton(KWSingleton* object);
  /// Unregisters the class of `object`; ignores null and the collector.
  void _removeSingleton(KWSingleton* object);
  /// Unregisters the class named `className`.
  void _removeSingletonClass(const std::string& className);
  /// The registered class names.
  std::set<std::string> registeredClassNames() const;

private:
  _KWSingletonCollector() = default;
  /// Releases every registered singleton.
  ~_KWSingletonCollector() override;

  std::set<std::string> m_allSingletons; // class names, guarded by the object lock
};

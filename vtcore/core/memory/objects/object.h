// The library's small object layer: reference-counted objects, class objects
// known by name, per-object and per-class locks for synchronised blocks, and
// deferred release scopes.
//
// KWSingleton and KWFlyweight are built on it; applications use it through
// vtcore::Ref (a smart handle over the retain count) and rarely need to touch
// the counts themselves.
#pragma once

#include <vtcore/export.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace vtcore {

class Object;

namespace detail {
/// The readable full name of a C++ type ("audio::Glyph"), as the class
/// objects of VTCORE_OBJECT and KW_SINGLETON name their classes.
VTCORE_EXPORT std::string typeName(const std::type_info& type);
} // namespace detail

/// A class object: the name under which a class of the object layer is known,
/// its superclass and the recursive lock its class-level methods synchronise
/// on. Class objects live for the whole process; each registers itself by name
/// when it is made, which happens on the first use of the class (see
/// VTCORE_OBJECT).
///
/// A class's name is its full C++ type ("Glyph", "audio::Glyph",
/// "(anonymous namespace)::Glyph"), so classes of one spelling in different
/// namespaces stay apart in the flyweight pools and the singleton registry.
class VTCORE_EXPORT Class {
public:
  /// Registers the class under `name`. Names are unique: when `name` is
  /// already taken by another class (two anonymous-namespace classes of one
  /// spelling in different files, say), the clash is logged as an error and
  /// this class is registered as "<name>#2" (or #3, ...), which name() then
  /// answers, so the two never share a pool or a registry entry.
  Class(std::string name, const Class* superclass);
  virtual ~Class();
  Class(const Class&) = delete;
  Class& operator=(const Class&) = delete;

  /// The name the class is registered under ("<name>#2" for a second class
  /// of the same name).
  const std::string& name() const noexcept { return m_name; }
  /// The superclass, or null for the root class.
  const Class* superclass() const noexcept { return m_superclass; }
  /// Whether this class is `other` or derives from it.
  bool isSubclassOf(const Class& other) const noexcept;
  /// The lock of synchronised class-level methods (recursive).
  std::recursive_mutex& lock() const noexcept { return m_lock; }

  /// The registered class of that name, or null when no such class has been
  /// used yet.
  static Class* named(std::string_view name);

private:
  std::string m_name;
  const Class* m_superclass;
  mutable std::recursive_mutex m_lock;
};

/// The root of the object layer: an object with an intrusive, thread-safe
/// retain count. A new object has a retain count of 1 and belongs to whoever
/// made it; the last release destroys it. Subclasses declare their class
/// object with VTCORE_OBJECT.
class VTCORE_EXPORT Object {
public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  /// Adds one reference; returns the receiver.
  virtual Object* retain();
  /// Drops one reference; the last one destroys the object.
  virtual void release();
  /// The number of references held.
  virtual unsigned long retainCount() const;
  /// Hands one reference to the innermost AutoreleasePool of the calling
  /// thread, which releases it when it ends. Without a pool the reference is
  /// released when the thread ends. Returns the receiver.
  virtual Object* autorelease();
  /// A copy the caller owns (one reference). Objects of the layer are
  /// immutable unless a subclass says otherwise, so the default shares the
  /// receiver and retains it.
  virtual Object* copy();
  /// A readable description: "<ClassName: 0x...>" by default.
  virtual std::string description() const;
  /// The hash of isEqual: equal objects have equal hashes. Default: identity.
  virtual std::size_t hash() const;
  /// Equality; false for null. Default: identity.
  virtual bool isEqual(const Object* other) const;

  /// The class object of the receiver's class.
  virtual const Class& objectClass() const { return classObject(); }
  /// The class object of the root class, named "Object".
  static const Class& classObject();

  /// The lock of synchronised blocks on this object (recursive).
  std::recursive_mutex& lock() const noexcept { return m_lock; }

protected:
  /// Objects are destroyed by their last release, never directly.
  virtual ~Object();
  /// Destroys the receiver whatever its retain count; for classes that
  /// manage their instances' lifetimes themselves (singletons).
  void destroy() { delete this; }
  /// Drops `count` references (at most as many as are held) without
  /// destroying the receiver; true when none is left, and the caller must
  /// then destroy() it. For subclasses whose release must test and drop in
  /// one step under a lock of their own.
  bool dropReferences(unsigned long count) noexcept {
    return m_retainCount.fetch_sub(count, std::memory_order_acq_rel) == count;
  }

private:
  std::atomic<unsigned long> m_retainCount{1};
  mutable std::recursive_mutex m_lock;
};

/// Gives an object class its class object. Put it in the class body, with
/// the class and its direct superclass:
///
///   class Note : public KWFlyweight {
///     VTCORE_OBJECT(Note, KWFlyweight)
///     ...
///   };
///
/// The class is registered under its full type name the first time its class
/// object is used (an instance is made, or classObject() is called).
#define VTCORE_OBJECT(ClassName, SuperName)                                                        \
public:                                                                                            \
  static const ::vtcore::Class& classObject() {                                                    \
    static ::vtcore::Class theClass(::vtcore::detail::typeName(typeid(ClassName)),                 \
                                    &SuperName::classObject());                                    \
    return theClass;                                                                               \
  }                                                                                                \
  const ::vtcore::Class& objectClass() const override {                                            \
    return classObject();                                                                          \
  }                                                                                                \
                                                                                                   \
private:

/// An owning handle of one reference to an object of the layer: copying
/// retains, destruction releases. Ordinary code holds objects through it.
template <typename T>
class Ref {
public:
  ///@{
  /// An empty handle.
  Ref() = default;
  Ref(std::nullptr_t) {}
  ///@}
  /// Another reference to the same object (retained).
  Ref(const Ref& other) : m_object(other.m_object) {
    if (m_object)
      m_object->retain();
  }
  /// Takes over `other`'s reference, leaving it empty.
  Ref(Ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  /// Takes over the reference of a handle to a derived class.
  template <typename U>
  requires std::is_convertible_v<U*, T*> Ref(Ref<U> other) : m_object(other.detach()) {}
  ~Ref() {
    if (m_object)
      m_object->release();
  }
  /// Holds `other`'s object instead, releasing the one held before.
  Ref& operator=(Ref other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }

  /// Takes over a reference the caller owns (a new object, a copy).
  static Ref adopt(T* object) {
    Ref ref;
    ref.m_object = object;
    return ref;
  }
  /// Adds a reference of its own to `object` (may be null).
  static Ref retain(T* object) {
    if (object)
      object->retain();
    return adopt(object);
  }

  ///@{
  /// The object, or null; the handle keeps its reference.
  T* get() const noexcept { return m_object; }
  T* operator->() const noexcept { return m_object; }
  T& operator*() const noexcept { return *m_object; }
  ///@}
  /// Whether the handle holds an object.
  explicit operator bool() const noexcept { return m_object != nullptr; }
  /// Gives the reference back to the caller, leaving the handle empty.
  T* detach() noexcept { return std::exchange(m_object, nullptr); }

  /// Whether both hold the same object (or both are empty).
  friend bool operator==(const Ref& a, const Ref& b) { return a.m_object == b.m_object; }

private:
  T* m_object = nullptr;
};

/// Makes a new object and holds its first reference.
template <typename T, typename... Arguments>
Ref<T> makeObject(Arguments&&... arguments) {
  return Ref<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}

/// A deferred-release scope. Pools form a per-thread stack: autorelease()
/// hands its reference to the innermost pool of the calling thread, and the
/// pool releases every reference it was given when it ends (in the order
/// they were given). Pools must end in the reverse order of their creation,
/// which the scope rule of C++ ensures for pools on the stack.
class VTCORE_EXPORT AutoreleasePool {
public:
  AutoreleasePool();
  ~AutoreleasePool();
  AutoreleasePool(const AutoreleasePool&) = delete;
  AutoreleasePool& operator=(const AutoreleasePool&) = delete;

  /// Releases what the pool holds now; the pool stays in place.
  void drain();

  /// Hands one reference to `object` (not null) to the innermost pool.
  static void add(Object* object);

private:
  std::size_t m_depth;
};

} // namespace vtcore

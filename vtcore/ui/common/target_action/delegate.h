// Delegates: optional questions and notifications a control sends its owner.
//
// Each control that has a delegate declares a C++ interface deriving from
// vtcore::Delegate. Every method of that interface has a default that means
// "not answered": notifications do nothing, questions return an empty
// std::optional, and the control then uses its own default answer. A
// delegate overrides only what it wants to answer. This replaces the
// responds-to test of optional delegate messages with the type system.
//
// A control does not own its delegate. It keeps it in a DelegatePointer,
// which reads as null once the delegate has been destroyed, so a control
// never calls into a dead delegate.
#pragma once

#include <vtcore/export.h>

#include <memory>

namespace vtcore {

/// Base of every delegate interface: gives the object a life token that
/// DelegatePointer watches.
class VTCORE_UI_EXPORT Delegate {
public:
  Delegate() : m_life(std::make_shared<char>()) {}
  /// A copy is a different delegate with a life of its own; assignment
  /// keeps the receiver's.
  ///@{
  Delegate(const Delegate&) : Delegate() {}
  Delegate& operator=(const Delegate&) { return *this; }
  ///@}
  virtual ~Delegate() = default;

  /// Expires when this delegate is destroyed.
  std::weak_ptr<const void> lifeToken() const { return m_life; }

private:
  std::shared_ptr<char> m_life;
};

/// A non-owning pointer to a delegate that answers null once the delegate
/// is destroyed (the delegate counterpart of QPointer). Single-threaded, like
/// the controls that hold it.
template <class T>
class DelegatePointer {
public:
  DelegatePointer() = default;
  /// Points at `delegate` (may be null) until it is destroyed.
  ///@{
  DelegatePointer(T* delegate) { *this = delegate; }
  DelegatePointer& operator=(T* delegate) {
    m_delegate = delegate;
    m_life = delegate ? static_cast<const Delegate*>(delegate)->lifeToken()
                      : std::weak_ptr<const void>();
    return *this;
  }
  ///@}

  ///@{
  /// The delegate, or null when none was set or it has been destroyed.
  T* get() const { return m_life.expired() ? nullptr : m_delegate; }
  T* operator->() const { return get(); }
  ///@}
  /// Whether a delegate is set and alive.
  explicit operator bool() const { return get() != nullptr; }

private:
  T* m_delegate = nullptr;
  std::weak_ptr<const void> m_life;
};

} // namespace vtcore

// Target/action: how a control tells its owner that something happened.
//
// A control keeps a target (a QObject it does not own, guarded against
// deletion) and an action (a method signature such as "timerFired(KwTimer*)").
// The action is sent only when the target responds to it: when the target's
// meta-object has a slot or Q_INVOKABLE method of that signature, whose one
// parameter is a pointer to the sender's class or to one of its bases. The
// method is called directly, with the sender as its argument. Every control
// also emits an ordinary Qt signal at the same moment, for code that prefers
// connect().
#pragma once

#include <vtcore/export.h>

#include <QByteArray>
#include <QObject>
#include <QPointer>

namespace vtcore {

/// Normalises an action signature the way Qt's meta-object system does
/// ("fired( KwTimer * )" becomes "fired(KwTimer*)"). A signature made by Qt's
/// SLOT() macro loses the macro's leading code digit. Null gives an empty one.
VTCORE_UI_EXPORT QByteArray normalizedAction(const char* action);

/// Whether `target` responds to `action` called with an argument of the
/// class of `sender`: the method exists with exactly one parameter, and that
/// parameter is a QObject pointer type that `sender` can be passed as. A
/// null `sender` is accepted by any such parameter. A null target or action
/// responds to nothing.
VTCORE_UI_EXPORT bool respondsToAction(const QObject* target, const char* action,
                                       const QObject* sender);

/// Calls `action` on `target` with `sender` as its one argument, on the
/// calling thread, if the target responds to it (see respondsToAction).
/// Returns whether it was called; nothing happens otherwise.
VTCORE_UI_EXPORT bool sendAction(QObject* target, const char* action, QObject* sender);

/// The target and action of one control. The target is not owned: once it is
/// destroyed, target() answers null and nothing is sent.
class VTCORE_UI_EXPORT TargetAction {
public:
  TargetAction() = default;
  /// Sends `action` (a method signature, normalised here) to `target`.
  TargetAction(QObject* target, const char* action);

  ///@{
  /// The target; null when none is set or it has been destroyed.
  QObject* target() const { return m_target.data(); }
  void setTarget(QObject* target) { m_target = target; }
  ///@}

  /// The normalised signature; empty when none is set.
  const QByteArray& action() const { return m_action; }
  /// Sets the action signature (normalised); null clears it.
  void setAction(const char* action);

  /// Whether the current target responds to the current action for `sender`.
  bool respondsFor(const QObject* sender) const;
  /// Sends the action to the target with `sender` as argument, if the target
  /// responds to it; returns whether it was sent.
  bool send(QObject* sender) const;

private:
  QPointer<QObject> m_target;
  QByteArray m_action;
};

} // namespace vtcore

// KwTimer: the library's restartable timer on the thread's Qt event loop.
//
// A KwTimer keeps its interval, target, action and user information while it
// is stopped, and can be started and stopped any number of times. While it
// runs it fires on every event loop of its thread, nested ones included: it
// keeps firing while a modal dialog runs (QDialog::exec) and while the mouse
// is tracked in a drag or menu loop. An interval of 0 fires on every pass of
// the event loop, as often as the loop allows.
//
// On every firing the action is sent to the target with the KwTimer as its
// one argument, if the target responds to it (see target_action.h), and the
// signal fired() is emitted. A timer that does not repeat is stopped before
// either happens, so isActive() answers false inside the action.
//
// A run belongs to the thread whose event loop it was started on: start() on
// a worker thread schedules the run on that worker's event loop, and the
// action is sent there, whichever thread made the KwTimer. stop(), fire()
// and isActive() are for the thread of the current run (a stop from another
// thread does nothing); the KwTimer may be destroyed on any thread once its
// run has stopped. It takes no locks.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/common/target_action/target_action.h>

#include <QObject>
#include <QPointer>
#include <QVariant>

#include <memory>

class QTimer;
class KwTimer;

/// The object the Qt timer calls: it keeps the target, action and user
/// information of a KwTimer and forwards each firing to the target.
class VTCORE_UI_EXPORT KwTimerProxy : public QObject {
  Q_OBJECT
public:
  /// An empty proxy: no target, no action, no user information, no owner.
  KwTimerProxy();
  /// Stores the four values. Neither the target nor the owner is owned; a
  /// destroyed target reads as null.
  KwTimerProxy(QObject* target, const char* selector, QVariant userInfo, KwTimer* owner);
  ~KwTimerProxy() override;

  /// The target; null once it has been destroyed.
  QObject* target() const { return m_action.target(); }
  /// The normalised action signature.
  const QByteArray& selector() const { return m_action.action(); }
  /// The user information given at creation.
  const QVariant& userInfo() const { return m_userInfo; }

public Q_SLOTS:
  /// Called by the Qt timer `timer` on each firing: stops the owner first if
  /// it does not repeat, then sends the action to the target with the owner
  /// as argument (only if the target responds to it) and emits the owner's
  /// fired() signal. Without an owner it does nothing.
  void action(QTimer* timer);

private:
  vtcore::TargetAction m_action;
  QVariant m_userInfo;
  QPointer<KwTimer> m_owner;
};

/// The library's restartable timer; see the top of this file.
class VTCORE_UI_EXPORT KwTimer : public QObject {
  Q_OBJECT
public:
  /// A stopped timer of `interval` seconds that will send `selector` (a
  /// method signature such as "tick(KwTimer*)", see target_action.h) to
  /// `target` with `userInfo`. Nothing is scheduled until start(). A
  /// negative or not-a-number interval counts as 0.
  KwTimer(double interval, QObject* target, const char* selector, QVariant userInfo, bool repeats);
  /// The same, repeating.
  KwTimer(double interval, QObject* target, const char* selector, QVariant userInfo = {});
  /// Stops the timer; the action is never sent afterwards.
  ~KwTimer() override;

  KwTimer(const KwTimer&) = delete;
  KwTimer& operator=(const KwTimer&) = delete;

  /// startWithTimeInterval() with the interval given at creation.
  void start();
  /// Starts a run of `seconds` (negative or not-a-number: 0). A running
  /// timer is not restarted and keeps its interval. The interval is used for
  /// this run only: a later start() uses the interval given at creation.
  void startWithTimeInterval(double seconds);
  /// Stops the current run (nothing when stopped); the timer can be started
  /// again.
  void stop();
  /// The same as stop().
  void invalidate() { stop(); }

  /// Whether a run is going on.
  bool isActive() const;
  /// The same as isActive().
  bool isValid() const { return isActive(); }
  /// Whether the timer runs again after each firing.
  bool isRepeating() const { return m_repeats; }
  /// The interval given at creation, in seconds.
  double timeInterval() const { return m_interval; }

  /// Fires now, as the Qt timer would (a timer that does not repeat stops);
  /// the schedule of a repeating run is unchanged. Nothing when stopped.
  void fire();

  /// The user information given at creation.
  QVariant userInfo() const;
  /// The forwarding object that the Qt timer calls.
  KwTimerProxy* proxy() const { return m_proxy.get(); }

Q_SIGNALS:
  /// Emitted on every firing, after the action has been sent.
  void fired(KwTimer* timer);

private:
  friend class KwTimerProxy;

  // A fresh Qt timer on the calling thread, replacing the old one.
  void makeTimerOnThisThread();
  // Gives up the Qt timer, deleting it on its own thread.
  void retireTimer();

  double m_interval;
  bool m_repeats;
  // One Qt timer, made with the KwTimer on its thread, serves every run: a
  // start after a stop schedules it anew, which is all a fresh timer would
  // do, and no timer is ever destroyed while delivering its own timeout
  // (unless the target destroys the KwTimer itself, which Qt allows).
  std::unique_ptr<QTimer> m_timer;
  std::unique_ptr<KwTimerProxy> m_proxy;
};

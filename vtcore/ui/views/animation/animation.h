// VTAnimation: a time-driven animation with an eased parameter.
//
// An animation runs for a time amount. On every idle step it turns the
// elapsed fraction t of that time into a parameter T in 0 ... 1 through an
// easing curve and applies T (animate()); when the time is up it applies the
// stop T it was started with and ends. Its steps are virtual, and each one
// asks an optional delegate first, so it can be used by subclassing or by
// delegation.
//
// A running animation is clocked by a KwTimer with an interval of 0, which
// fires on every pass of the thread's event loop. Time stamps are seconds of
// a monotonic clock (currentTimeStamp()); handleIdle() with an explicit time
// stamp lets callers and tests drive an animation without the clock.
//
// An animation can drive a slave: the slave is started with the master's
// arguments and is stepped by the master's idle steps (with the master's
// time stamps) instead of a timer of its own.
//
// Single-threaded: an animation belongs to the thread that created it.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/common/target_action/delegate.h>

#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class KwTimer;
class VTAnimation;

/// Optional answers and notifications of an animation's owner. Every hook
/// has a default meaning "not answered", and the animation then does what
/// it does without a delegate (see each hook).
class VTCORE_UI_EXPORT VTAnimationDelegate : public vtcore::Delegate {
public:
  /// Whether `animation` may start; unanswered means yes.
  virtual std::optional<bool> vtAnimationOnStartAnimation(VTAnimation* animation);
  /// Applies `T`; answers whether a frame was drawn. Unanswered: no frame.
  /// (This hook and the next both take the animation and a fraction, so in
  /// C++ they carry their second part in their names.)
  virtual std::optional<bool> vtAnimationAnimate(VTAnimation* animation, float T);
  /// The eased T for the elapsed fraction `t`; unanswered: the default curve.
  virtual std::optional<float> vtAnimationCalculateT(VTAnimation* animation, float t);
  /// The animation has stopped.
  virtual void vtAnimationOnStopAnimation(VTAnimation* animation);
};

/// A time-driven animation with an eased parameter; see the top of this file.
class VTCORE_UI_EXPORT VTAnimation : public QObject {
  Q_OBJECT
public:
  /// A stopped animation that reports to `delegate` (not owned; may be null).
  explicit VTAnimation(VTAnimationDelegate* delegate = nullptr);
  /// Stops the clock without applying a last frame. A slave that this
  /// animation is driving is stopped (it applies its stop T), since nothing
  /// else would ever step it again.
  ~VTAnimation() override;

  VTAnimation(const VTAnimation&) = delete;
  VTAnimation& operator=(const VTAnimation&) = delete;

  ///@{
  /// The delegate, or null when none is set or it has been destroyed.
  VTAnimationDelegate* delegate() const { return m_delegate.get(); }
  void setDelegate(VTAnimationDelegate* delegate) { m_delegate = delegate; }
  ///@}

  ///@{
  /// The animation started and stepped together with this one (not owned;
  /// null once destroyed). Setting a slave does not mark it as a slave: call
  /// setIsSlave() on it too. An animation cannot be its own slave (ignored).
  VTAnimation* slave() const { return m_slave.data(); }
  void setSlave(VTAnimation* slave);
  ///@}
  ///@{
  /// A slave starts no timer of its own: its master's idle steps drive it.
  void setIsSlave(bool isSlave) { m_isSlave = isSlave; }
  bool isSlave() const { return m_isSlave; }
  ///@}

  /// Whether a run is going on.
  bool isAnimating() const { return m_isAnimating; }
  /// The frames counted by the last run that ended (idle steps that applied
  /// a T, plus the stop frame if it drew).
  int lastFramesCount() const { return m_lastFrameCount; }
  /// The time stamp the running animation started at (0 when stopped).
  double startTimeStamp() const { return m_startTime; }
  /// The time amount of the running animation (0 when stopped).
  double timeAmount() const { return m_timeAmount; }

  /// Seconds of the monotonic clock that the animation's timer uses.
  static double currentTimeStamp();

  /// Starts at the current time stamp (see below).
  void startAnimationWithTimeAmount(double timeAmount, float stopT);
  /// Starts a run of `timeAmount` seconds from `startTimeStamp` that ends by
  /// applying `stopT`. Ignored while animating, and when onStartAnimation()
  /// answers no. The slave, if any, is started with the same arguments. A
  /// time amount not above 0.01 s (zero, negative and not-a-number
  /// included) stops at once, applying `stopT` in a single frame.
  void startAnimationWithTimeAmount(double timeAmount, float stopT, double startTimeStamp);
  /// Ends a run: stops the clock, applies the stop T and calls
  /// onStopAnimation(). Nothing when not animating.
  void stopAnimation();

  /// One idle step at `timeStamp`: the slave steps first; then, if the time
  /// amount has passed, the animation stops, otherwise it applies the eased
  /// T (clamped to 0 ... 1; not-a-number counts as 0). Nothing when not
  /// animating. `timer` is informational and may be null.
  void handleIdle(KwTimer* timer, double timeStamp);

  /// The default easing: a symmetric slow-in, slow-out curve with T(0) = 0,
  /// T(0.5) = 0.5, T(1) = 1 and T(0.25) = 0.075 (see the .cpp).
  static float defaultCurve(float t);

public Q_SLOTS:
  /// The timer's action: one idle step at the current time stamp.
  void handleIdle(KwTimer* timer);

protected:
  /// Whether to start: the delegate's answer, yes without one.
  virtual bool onStartAnimation();
  /// Applies `T`; answers whether a frame was drawn: the delegate's answer,
  /// no without one.
  virtual bool animate(float T);
  /// The eased T for `t`: the delegate's answer, else defaultCurve(t).
  virtual float calculateT(float t);
  /// Called after the animation stopped; tells the delegate.
  virtual void onStopAnimation();

  /// The T that the running animation ends with.
  float stopT() const { return m_stopT; }

private:
  double m_timeAmount = 0;
  double m_startTime = 0;
  int m_frameCount = 0;
  int m_lastFrameCount = 0;
  float m_stopT = 0;
  bool m_isAnimating = false;
  std::unique_ptr<KwTimer> m_timer;
  QPointer<VTAnimation> m_slave;
  bool m_isSlave = false;
  vtcore::DelegatePointer<VTAnimationDelegate> m_delegate;
};

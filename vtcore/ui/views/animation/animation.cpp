#include <vtcore/ui/views/animation/animation.h>

#include <vtcore/ui/common/timer/timer.h>

#include <chrono>
#include <cmath>

std::optional<bool> VTAnimationDelegate::vtAnimationOnStartAnimation(VTAnimation*) {
  return std::nullopt;
}
std::optional<bool> VTAnimationDelegate::vtAnimationAnimate(VTAnimation*, float) {
  return std::nullopt;
}
std::optional<float> VTAnimationDelegate::vtAnimationCalculateT(VTAnimation*, float) {
  return std::nullopt;
}
void VTAnimationDelegate::vtAnimationOnStopAnimation(VTAnimation*) {}

VTAnimation::VTAnimation(VTAnimationDelegate* delegate) : m_delegate(delegate) {}

VTAnimation::~VTAnimation() {
  if (m_timer)
    m_timer->stop();
  if (m_slave && m_slave->m_isSlave && m_slave->isAnimating())
    m_slave->stopAnimation();
}

void VTAnimation::setSlave(VTAnimation* slave) {
  if (slave != this)
    m_slave = slave;
}

double VTAnimation::currentTimeStamp() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void VTAnimation::startAnimationWithTimeAmount(double timeAmount, float stopT) {
  startAnimationWithTimeAmount(timeAmount, stopT, currentTimeStamp());
}

void VTAnimation::startAnimationWithTimeAmount(double timeAmount, float stopT,
                                               double startTimeStamp) {
  if (m_isAnimating || !onStartAnimation())
    return;
  m_timeAmount = timeAmount;
  m_startTime = startTimeStamp;
  m_frameCount = 0;
  m_stopT = stopT;
  m_isAnimating = true;
  if (m_slave)
    m_slave->startAnimationWithTimeAmount(timeAmount, stopT, startTimeStamp);
  if (!(timeAmount > 0.01)) {
    stopAnimation();
    return;
  }
  if (m_isSlave)
    return;
  if (!m_timer)
    m_timer = std::make_unique<KwTimer>(0.0, this, "handleIdle(KwTimer*)");
  m_timer->start();
}

void VTAnimation::stopAnimation() {
  if (!m_isAnimating)
    return;
  if (m_timer)
    m_timer->stop();
  if (animate(m_stopT))
    ++m_frameCount;
  m_lastFrameCount = m_frameCount;
  m_timeAmount = 0;
  m_startTime = 0;
  m_isAnimating = false;
  m_frameCount = 0;
  m_stopT = 0;
  onStopAnimation();
}

void VTAnimation::handleIdle(KwTimer* timer) {
  handleIdle(timer, currentTimeStamp());
}

void VTAnimation::handleIdle(KwTimer* timer, double timeStamp) {
  if (!m_isAnimating)
    return;
  const double elapsed = timeStamp - m_startTime;
  const float t = float(elapsed / m_timeAmount);
  // The slave may be deleted by its own delegate while it steps; so may this
  // animation's owner, through the slave's notifications.
  QPointer<VTAnimation> self(this);
  if (VTAnimation* slave = m_slave.data())
    slave->handleIdle(timer, timeStamp);
  if (!self || !m_isAnimating)
    return;
  float T = calculateT(t);
  if (!(T >= 0)) // below 0, or not a number
    T = 0;
  else if (T > 1)
    T = 1;
  if (elapsed > m_timeAmount) {
    stopAnimation();
    return;
  }
  ++m_frameCount;
  animate(T);
}

bool VTAnimation::onStartAnimation() {
  if (VTAnimationDelegate* delegate = m_delegate.get())
    return delegate->vtAnimationOnStartAnimation(this).value_or(true);
  return true;
}

bool VTAnimation::animate(float T) {
  if (VTAnimationDelegate* delegate = m_delegate.get())
    return delegate->vtAnimationAnimate(this, T).value_or(false);
  return false;
}

float VTAnimation::calculateT(float t) {
  if (VTAnimationDelegate* delegate = m_delegate.get())
    if (std::optional<float> T = delegate->vtAnimationCalculateT(this, t))
      return *T;
  return defaultCurve(t);
}

void VTAnimation::onStopAnimation() {
  if (VTAnimationDelegate* delegate = m_delegate.get())
    delegate->vtAnimationOnStopAnimation(this);
}

float VTAnimation::defaultCurve(float t) {
  // k = log2(1 / 0.15), with 0.15 taken as the single-precision value that
  // the curve has always used, so that T(0.25) = 0.5 * 0.5^k is 0.075 to
  // the last digit applications have seen. The divisor is ln(0.5) as it was
  // written, not std::log(0.5).
  static const double k = std::log(double(0.15f)) / -0.6931471824645996;
  if (t < 0.5f)
    return float(0.5 * std::pow(2.0 * t, k));
  return float(1.0 - 0.5 * std::pow(2.0 - 2.0 * t, k));
}

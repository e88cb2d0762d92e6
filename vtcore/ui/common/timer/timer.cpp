#include <vtcore/ui/common/timer/timer.h>

#include <QThread>
#include <QTimer>

#include <climits>
#include <cmath>

namespace {

// Seconds to the milliseconds of a Qt timer. Zero stays zero (fire on every
// pass of the event loop); a positive interval is at least one millisecond,
// so that a short interval never turns into a busy one by rounding.
int toMilliseconds(double seconds) {
  if (!(seconds > 0))
    return 0;
  const double milliseconds = std::round(seconds * 1000.0);
  if (milliseconds >= static_cast<double>(INT_MAX))
    return INT_MAX;
  return milliseconds < 1.0 ? 1 : static_cast<int>(milliseconds);
}

double sanitizedInterval(double seconds) {
  return seconds > 0 ? seconds : 0.0;
}

} // namespace

KwTimerProxy::KwTimerProxy() = default;

KwTimerProxy::KwTimerProxy(QObject* target, const char* selector, QVariant userInfo, KwTimer* owner)
    : m_action(target, selector), m_userInfo(std::move(userInfo)), m_owner(owner) {}

KwTimerProxy::~KwTimerProxy() = default;

void KwTimerProxy::action(QTimer* /*timer*/) {
  QPointer<KwTimer> owner = m_owner;
  if (!owner)
    return;
  if (!owner->m_repeats)
    owner->stop();
  // The target may stop, restart or even delete the timer in its action;
  // neither this proxy nor the owner is touched once the owner is gone.
  m_action.send(owner.data());
  if (owner)
    Q_EMIT owner->fired(owner.data());
}

KwTimer::KwTimer(double interval, QObject* target, const char* selector, QVariant userInfo,
                 bool repeats)
    : m_interval(sanitizedInterval(interval)), m_repeats(repeats),
      m_proxy(std::make_unique<KwTimerProxy>(target, selector, std::move(userInfo), this)) {
  makeTimerOnThisThread();
}

void KwTimer::makeTimerOnThisThread() {
  retireTimer();
  m_timer = std::make_unique<QTimer>();
  m_timer->setTimerType(Qt::PreciseTimer);
  QTimer* timer = m_timer.get();
  KwTimerProxy* proxy = m_proxy.get();
  // The Qt timer is the context: the proxy runs directly on the thread whose
  // event loop the timer fires on, whichever thread made the KwTimer.
  QObject::connect(timer, &QTimer::timeout, timer, [proxy, timer] { proxy->action(timer); });
}

void KwTimer::retireTimer() {
  if (!m_timer)
    return;
  QTimer* old = m_timer.release();
  old->disconnect();
  // A Qt object may only be deleted on its own thread: one of another thread
  // is handed to that thread's event loop (it is stopped and disconnected,
  // so nothing of it fires meanwhile).
  if (old->thread() == QThread::currentThread())
    delete old;
  else
    old->deleteLater();
}

KwTimer::KwTimer(double interval, QObject* target, const char* selector, QVariant userInfo)
    : KwTimer(interval, target, selector, std::move(userInfo), true) {}

KwTimer::~KwTimer() {
  stop();
  retireTimer();
}

void KwTimer::start() {
  startWithTimeInterval(m_interval);
}

void KwTimer::startWithTimeInterval(double seconds) {
  if (isActive())
    return;
  // A run belongs to the event loop of the thread that starts it, and Qt
  // starts a timer only on its own thread: a start on another thread gets a
  // Qt timer of that thread.
  if (m_timer->thread() != QThread::currentThread())
    makeTimerOnThisThread();
  // The Qt timer stops itself before its timeout when it is single-shot, so
  // the owner is already stopped when the proxy runs; the proxy stops it
  // again all the same, which keeps fire() and a real firing alike.
  m_timer->setSingleShot(!m_repeats);
  m_timer->start(toMilliseconds(seconds));
}

void KwTimer::stop() {
  // Only the thread of the run can stop it (Qt refuses a stop from another
  // thread and warns).
  if (m_timer && m_timer->thread() == QThread::currentThread())
    m_timer->stop();
}

bool KwTimer::isActive() const {
  return m_timer && m_timer->isActive();
}

void KwTimer::fire() {
  if (isActive())
    m_proxy->action(m_timer.get());
}

QVariant KwTimer::userInfo() const {
  return m_proxy->userInfo();
}

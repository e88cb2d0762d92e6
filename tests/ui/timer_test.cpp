#include <vtcore/ui/common/timer/timer.h>

#include <QApplication>
#include <QDialog>
#include <QEventLoop>
#include <QThread>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <vector>

// Records the timer of every call, whether it was still valid inside the
// action, and can run a step of its own there.
class TimerTarget : public QObject {
  Q_OBJECT
public:
  std::vector<KwTimer*> calls;
  std::vector<bool> validInAction;
  std::function<void(KwTimer*)> onTick;

public Q_SLOTS:
  void tick(KwTimer* timer) {
    calls.push_back(timer);
    validInAction.push_back(timer->isValid());
    if (onTick)
      onTick(timer);
  }
};

namespace {

constexpr const char* kTick = "tick(KwTimer*)";

// Enough passes for every timer of interval 0 to fire, never one of an hour.
void spinEventLoop(int passes = 5) {
  for (int i = 0; i < passes; ++i)
    QCoreApplication::processEvents(QEventLoop::AllEvents);
}

} // namespace

TEST(KwTimer, StartingTwiceOrWhileRunningSchedulesOneRun) {
  TimerTarget target;
  KwTimer once(0.0, &target, kTick, {}, false);
  once.start();
  once.start();
  once.startWithTimeInterval(0.0);
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 1u);

  // A running timer keeps its interval: no run at 0 s.
  KwTimer hourly(3600.0, &target, kTick);
  hourly.start();
  hourly.startWithTimeInterval(0.0);
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 1u);
}

TEST(KwTimer, OneRunIntervalDoesNotReplaceTheStoredOne) {
  TimerTarget target;
  KwTimer quick(0.0, &target, kTick, {}, false);
  quick.startWithTimeInterval(0.5);
  quick.stop();
  quick.start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 1u) << "start() used the one-run interval";
}

TEST(KwTimer, NonRepeatingTimerIsInvalidInsideItsAction) {
  TimerTarget target;
  KwTimer once(0.0, &target, kTick, {}, false);
  KwTimer repeating(0.0, &target, kTick);
  KwTimer hourlyOnce(3600.0, &target, kTick, {}, false);
  target.onTick = [](KwTimer* timer) { timer->stop(); };
  once.start();
  spinEventLoop();
  repeating.start();
  spinEventLoop();
  hourlyOnce.fire(); // does nothing while the timer is stopped
  hourlyOnce.start();
  hourlyOnce.fire();
  ASSERT_EQ(target.calls, (std::vector<KwTimer*>{&once, &repeating, &hourlyOnce}));
  EXPECT_EQ(target.validInAction, (std::vector<bool>{false, true, false}));
  EXPECT_FALSE(repeating.isActive()) << "stop() inside the action did not stop it";
  auto* doomed = new KwTimer(0.0, &target, kTick); // deleted by its own action
  target.onTick = [](KwTimer* timer) { delete timer; };
  doomed->start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 4u);
}

TEST(KwTimer, TargetWithoutTheActionIsNeverCalled) {
  // No such method, a deleted target, no target. The timers still fire.
  TimerTarget target;
  auto doomed = std::make_unique<TimerTarget>();
  const std::pair<QObject*, const char*> cases[] = {
      {&target, "missing(KwTimer*)"}, {doomed.get(), kTick}, {nullptr, kTick}};
  for (const auto& [receiver, action] : cases) {
    KwTimer timer(0.0, receiver, action, {}, false);
    if (receiver == doomed.get())
      doomed.reset();
    int fired = 0;
    QObject::connect(&timer, &KwTimer::fired, [&fired](KwTimer*) { ++fired; });
    timer.start();
    spinEventLoop();
    EXPECT_EQ(fired, 1) << action;
  }
  EXPECT_TRUE(target.calls.empty());
}

// Timers keep firing in the loops Qt runs inside a modal dialog and inside
// mouse tracking (drags and menus run a nested QEventLoop).
TEST(KwTimerRealWindow, KeepsFiringInModalDialogsAndNestedEventLoops) {
  TimerTarget target;
  QDialog dialog;
  QEventLoop tracking;
  int firedWhileModal = 0, firedWhileTracking = 0;
  target.onTick = [&](KwTimer*) {
    if (QApplication::activeModalWidget() == &dialog && ++firedWhileModal == 3)
      dialog.accept();
    if (tracking.isRunning() && ++firedWhileTracking == 3)
      tracking.quit();
  };
  KwTimer timer(0.001, &target, kTick);
  timer.start();
  EXPECT_EQ(dialog.exec(), QDialog::Accepted);
  tracking.exec();
  EXPECT_EQ(firedWhileTracking, 3);
}

TEST(KwTimer, ARunFiresOnTheEventLoopOfTheThreadThatStartedIt) {
  TimerTarget target;
  KwTimer timer(0.0, &target, kTick, {}, false); // made on the main thread
  QThread worker;
  worker.start();
  QObject onWorker;
  onWorker.moveToThread(&worker);
  std::promise<QThread*> firedOn;
  target.onTick = [&](KwTimer*) { firedOn.set_value(QThread::currentThread()); };
  QMetaObject::invokeMethod(&onWorker, [&] { timer.start(); });
  auto fired = firedOn.get_future();
  ASSERT_EQ(fired.wait_for(std::chrono::seconds(30)), std::future_status::ready)
      << "a timer started on a worker's event loop never fired";
  EXPECT_EQ(fired.get(), &worker);

  // Started on the main thread again, the next run is the main thread's.
  std::promise<QThread*> firedAgain;
  target.onTick = [&](KwTimer*) { firedAgain.set_value(QThread::currentThread()); };
  timer.start();
  spinEventLoop();
  auto again = firedAgain.get_future();
  ASSERT_EQ(again.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  EXPECT_EQ(again.get(), QThread::currentThread());
  worker.quit();
  worker.wait();
}

#include "timer_test.moc"

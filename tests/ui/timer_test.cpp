#include <vtcore/ui/common/timer.h>

#include <QApplication>
#include <QDialog>
#include <QEventLoop>
#include <QTimer>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

// Records every timer it is called with, whether that timer was still valid
// inside the action, and can run a step of its own there.
class TimerTarget : public QObject {
  Q_OBJECT
public:
  std::vector<KwTimer*> calls;
  std::vector<bool> validInAction;
  std::function<void(KwTimer*)> onTick;

public Q_SLOTS:
  void tick(KwTimer* timer) {
    calls.push_back(timer);
    validInAction.push_back(timer->isActive() && timer->isValid());
    if (onTick)
      onTick(timer);
  }
};

namespace {

constexpr const char* kTick = "tick(KwTimer*)";

// A few passes of the event loop: enough for every timer of interval 0 to
// fire, never enough for one of an hour.
void spinEventLoop(int passes = 5) {
  for (int i = 0; i < passes; ++i)
    QCoreApplication::processEvents(QEventLoop::AllEvents);
}

} // namespace

TEST(KwTimer, StartingTwiceOrWhileRunningSchedulesOneRun) {
  TimerTarget target;
  KwTimer once(0.0, &target, kTick, {}, false);
  spinEventLoop();
  EXPECT_TRUE(target.calls.empty()) << "fired before start";
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
  EXPECT_TRUE(hourly.isActive());
}

TEST(KwTimer, OneRunIntervalDoesNotReplaceTheStoredOne) {
  TimerTarget target;
  KwTimer quick(0.0, &target, kTick, {}, false);
  quick.startWithTimeInterval(0.5);
  quick.stop();
  quick.start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 1u) << "start() used the one-run interval";

  // The other way round: one run at 0 s, then start() waits the hour again.
  KwTimer slow(3600.0, &target, kTick, {}, false);
  slow.startWithTimeInterval(0.0);
  spinEventLoop();
  ASSERT_EQ(target.calls.size(), 2u);
  slow.start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 2u);
  EXPECT_TRUE(slow.isActive());
}

TEST(KwTimer, NonRepeatingTimerIsInvalidInsideItsActionAndFiresOnlyWhileRunning) {
  TimerTarget target;
  KwTimer once(0.0, &target, kTick, {}, false);
  once.start();
  spinEventLoop();
  ASSERT_EQ(target.calls.size(), 1u);
  EXPECT_EQ(target.calls[0], &once);
  EXPECT_FALSE(target.validInAction[0]);
  EXPECT_FALSE(once.isActive());
  once.fire();
  EXPECT_EQ(target.calls.size(), 1u);

  KwTimer hourly(3600.0, &target, kTick);
  hourly.fire();
  EXPECT_EQ(target.calls.size(), 1u);
  hourly.start();
  hourly.fire();
  ASSERT_EQ(target.calls.size(), 2u);
  EXPECT_TRUE(target.validInAction[1]);
  EXPECT_TRUE(hourly.isActive());

  KwTimer hourlyOnce(3600.0, &target, kTick, {}, false);
  hourlyOnce.start();
  hourlyOnce.fire();
  ASSERT_EQ(target.calls.size(), 3u);
  EXPECT_FALSE(target.validInAction[2]);
  EXPECT_FALSE(hourlyOnce.isActive());
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

TEST(KwTimer, CanBeRestartedStoppedOrDestroyedFromItsOwnActionOrBeforeItFires) {
  TimerTarget target;
  KwTimer once(0.0, &target, kTick, {}, false);
  target.onTick = [&target](KwTimer* timer) {
    if (target.calls.size() < 3)
      timer->start();
  };
  once.start();
  spinEventLoop(10);
  EXPECT_EQ(target.calls.size(), 3u);

  KwTimer repeating(0.0, &target, kTick);
  target.onTick = [](KwTimer* timer) { timer->stop(); };
  repeating.start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 4u);
  EXPECT_FALSE(repeating.isActive());

  auto* doomed = new KwTimer(0.0, &target, kTick);
  target.onTick = [](KwTimer* timer) { delete timer; };
  doomed->start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 5u);

  target.onTick = {};
  KwTimer(0.0, &target, kTick).start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 5u) << "a destroyed timer fired";
}

// Timers keep firing in the loops Qt runs inside a modal dialog and inside
// mouse tracking (drags and menus run a nested QEventLoop).
TEST(KwTimerRealWindow, KeepsFiringWhileAModalDialogRuns) {
  TimerTarget target;
  QDialog dialog;
  int firedWhileModal = 0;
  target.onTick = [&](KwTimer*) {
    if (QApplication::activeModalWidget() == &dialog && ++firedWhileModal == 3)
      dialog.accept();
  };
  KwTimer timer(0.0, &target, kTick);
  timer.start();
  EXPECT_EQ(dialog.exec(), QDialog::Accepted);
  EXPECT_TRUE(timer.isActive());
}

TEST(KwTimerRealWindow, KeepsFiringInANestedEventLoop) {
  TimerTarget target;
  QEventLoop tracking;
  int firedWhileTracking = 0;
  target.onTick = [&](KwTimer*) {
    if (tracking.isRunning() && ++firedWhileTracking == 3)
      tracking.quit();
  };
  KwTimer timer(0.001, &target, kTick);
  timer.start();
  tracking.exec();
  EXPECT_EQ(firedWhileTracking, 3);
}

#include "timer_test.moc"

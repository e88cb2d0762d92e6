#include <vtcore/ui/common/timer.h>

#include <QApplication>
#include <QDialog>
#include <QEventLoop>
#include <QTimer>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace {

// Runs a few passes of the event loop: enough for every timer of interval 0
// to fire, never enough for one of an hour.
void spinEventLoop(int passes = 5) {
  for (int i = 0; i < passes; ++i)
    QCoreApplication::processEvents(QEventLoop::AllEvents);
}

} // namespace

// A target that records every timer it is called with and can run a step
// inside the action.
class TimerTarget : public QObject {
  Q_OBJECT
public:
  std::vector<KwTimer*> calls;
  std::vector<bool> activeInAction;
  std::function<void(KwTimer*)> onTick;

public Q_SLOTS:
  void tick(KwTimer* timer) {
    calls.push_back(timer);
    activeInAction.push_back(timer->isActive() && timer->isValid());
    if (onTick)
      onTick(timer);
  }
};

// A target with methods of the wrong shape for a timer's action.
class UnrelatedTarget : public QObject {
  Q_OBJECT
public:
  int called = 0;

public Q_SLOTS:
  void tick() { ++called; }
  void tock(QTimer*) { ++called; }
};

TEST(KwTimer, IsStoppedUntilStarted) {
  TimerTarget target;
  KwTimer timer(0.0, &target, "tick(KwTimer*)", QVariant(42), false);
  EXPECT_FALSE(timer.isActive());
  EXPECT_FALSE(timer.isValid());
  EXPECT_FALSE(timer.isRepeating());
  EXPECT_EQ(timer.userInfo().toInt(), 42);
  EXPECT_TRUE(KwTimer(0.1, &target, "tick(KwTimer*)").isRepeating());
  spinEventLoop();
  EXPECT_TRUE(target.calls.empty());
}

TEST(KwTimer, StartingTwiceSchedulesOneRun) {
  TimerTarget target;
  KwTimer timer(0.0, &target, "tick(KwTimer*)", {}, false);
  timer.start();
  timer.start();
  timer.startWithTimeInterval(0.0);
  spinEventLoop();
  // A second scheduled run would have fired a second time.
  EXPECT_EQ(target.calls.size(), 1u);
}

TEST(KwTimer, StartingWhileRunningKeepsTheRunningInterval) {
  TimerTarget target;
  KwTimer timer(3600.0, &target, "tick(KwTimer*)");
  timer.start();
  timer.startWithTimeInterval(0.0);
  spinEventLoop();
  EXPECT_TRUE(target.calls.empty());
  EXPECT_TRUE(timer.isActive());
}

TEST(KwTimer, OneRunIntervalDoesNotReplaceTheStoredOne) {
  TimerTarget target;
  // Created with 0 s: a one-run interval of an hour, then stop and start,
  // must be back at 0 s and fire at once.
  KwTimer quick(0.0, &target, "tick(KwTimer*)");
  quick.startWithTimeInterval(3600.0);
  spinEventLoop();
  EXPECT_TRUE(target.calls.empty());
  quick.stop();
  quick.start();
  spinEventLoop();
  EXPECT_FALSE(target.calls.empty());
  quick.stop();
  EXPECT_EQ(quick.timeInterval(), 0.0);

  // And the other way round: created with an hour, one run at 0 s, then
  // start() waits the hour again.
  target.calls.clear();
  KwTimer slow(3600.0, &target, "tick(KwTimer*)", {}, false);
  slow.startWithTimeInterval(0.0);
  spinEventLoop();
  ASSERT_EQ(target.calls.size(), 1u);
  slow.start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 1u);
  EXPECT_TRUE(slow.isActive());
}

TEST(KwTimer, NonRepeatingTimerIsInvalidInsideItsAction) {
  TimerTarget target;
  KwTimer once(0.0, &target, "tick(KwTimer*)", {}, false);
  once.start();
  spinEventLoop();
  ASSERT_EQ(target.calls.size(), 1u);
  EXPECT_FALSE(target.activeInAction[0]);
  EXPECT_FALSE(once.isActive());

  target.calls.clear();
  target.activeInAction.clear();
  KwTimer repeating(0.0, &target, "tick(KwTimer*)");
  repeating.start();
  spinEventLoop();
  ASSERT_FALSE(target.calls.empty());
  EXPECT_TRUE(target.activeInAction[0]);
  EXPECT_TRUE(repeating.isActive());
}

TEST(KwTimer, ActionReceivesTheTimerItselfSoOneTargetServesSeveral) {
  TimerTarget target;
  KwTimer first(0.0, &target, "tick(KwTimer*)", QStringLiteral("first"), false);
  KwTimer second(0.0, &target, "tick(KwTimer*)", QStringLiteral("second"), false);
  first.start();
  second.start();
  spinEventLoop();
  ASSERT_EQ(target.calls.size(), 2u);
  EXPECT_NE(target.calls[0], target.calls[1]);
  for (KwTimer* timer : target.calls)
    EXPECT_TRUE(timer == &first || timer == &second);
  EXPECT_EQ(first.userInfo().toString(), QStringLiteral("first"));
}

TEST(KwTimer, TargetWithoutTheActionIsNeverCalled) {
  UnrelatedTarget target;
  // No such method; a method without the argument; one whose argument is
  // not a KwTimer. The timers still fire (the signal says so).
  for (const char* action : {"missing(KwTimer*)", "tick()", "tock(QTimer*)"}) {
    KwTimer timer(0.0, &target, action, {}, false);
    int fired = 0;
    QObject::connect(&timer, &KwTimer::fired, [&fired](KwTimer*) { ++fired; });
    timer.start();
    spinEventLoop();
    EXPECT_EQ(fired, 1) << action;
  }
  KwTimer noTarget(0.0, nullptr, "tick(KwTimer*)", {}, false);
  noTarget.start();
  spinEventLoop();
  EXPECT_EQ(target.called, 0);
}

TEST(KwTimer, DestroyedTargetIsNeverCalled) {
  auto* target = new TimerTarget;
  KwTimer timer(0.0, target, "tick(KwTimer*)");
  int fired = 0;
  QObject::connect(&timer, &KwTimer::fired, [&fired](KwTimer*) { ++fired; });
  delete target;
  timer.start();
  spinEventLoop();
  EXPECT_GT(fired, 0);
  EXPECT_EQ(timer.proxy()->target(), nullptr);
}

TEST(KwTimer, FireRunsTheActionAtOnceOnlyWhileRunning) {
  TimerTarget target;
  KwTimer repeating(3600.0, &target, "tick(KwTimer*)");
  repeating.fire();
  EXPECT_TRUE(target.calls.empty());
  repeating.start();
  repeating.fire();
  EXPECT_EQ(target.calls.size(), 1u);
  EXPECT_TRUE(repeating.isActive());

  KwTimer once(3600.0, &target, "tick(KwTimer*)", {}, false);
  once.start();
  once.fire();
  EXPECT_EQ(target.calls.size(), 2u);
  EXPECT_FALSE(target.activeInAction[1]);
  EXPECT_FALSE(once.isActive());
  once.fire();
  EXPECT_EQ(target.calls.size(), 2u);
}

TEST(KwTimer, CanBeRestartedStoppedOrDestroyedFromItsOwnAction) {
  TimerTarget target;
  KwTimer once(0.0, &target, "tick(KwTimer*)", {}, false);
  // Restarting from the action starts a new run: three runs in all.
  target.onTick = [&target](KwTimer* timer) {
    if (target.calls.size() < 3)
      timer->start();
  };
  once.start();
  spinEventLoop(10);
  EXPECT_EQ(target.calls.size(), 3u);

  target.calls.clear();
  KwTimer repeating(0.0, &target, "tick(KwTimer*)");
  target.onTick = [](KwTimer* timer) { timer->stop(); };
  repeating.start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 1u);
  EXPECT_FALSE(repeating.isActive());

  target.calls.clear();
  auto* doomed = new KwTimer(0.0, &target, "tick(KwTimer*)");
  target.onTick = [](KwTimer* timer) { delete timer; };
  doomed->start();
  spinEventLoop();
  EXPECT_EQ(target.calls.size(), 1u);
}

TEST(KwTimer, DestroyingARunningTimerStopsIt) {
  TimerTarget target;
  {
    KwTimer timer(0.0, &target, "tick(KwTimer*)");
    timer.start();
  }
  spinEventLoop();
  EXPECT_TRUE(target.calls.empty());
}

// Timers must keep firing in the loops that Qt runs inside a modal dialog
// and inside mouse tracking (drags, menus, which run a nested QEventLoop).
TEST(KwTimerRealWindow, KeepsFiringWhileAModalDialogRuns) {
  TimerTarget target;
  QDialog dialog;
  dialog.setWindowTitle(QStringLiteral("modal"));
  int firedWhileModal = 0;
  target.onTick = [&](KwTimer*) {
    if (QApplication::activeModalWidget() == &dialog && ++firedWhileModal == 3)
      dialog.accept();
  };
  KwTimer timer(0.0, &target, "tick(KwTimer*)");
  timer.start();
  EXPECT_EQ(dialog.exec(), QDialog::Accepted);
  EXPECT_EQ(firedWhileModal, 3);
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
  KwTimer timer(0.001, &target, "tick(KwTimer*)");
  timer.start();
  tracking.exec();
  EXPECT_EQ(firedWhileTracking, 3);
}

#include "timer_test.moc"

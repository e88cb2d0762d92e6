// VTAnimation and VTAccesoryViewAnimation, driven by injected time stamps:
// no event loop runs, so the animations' own timers never fire here.
#include <vtcore/ui/views/animation/accessory_view_animation.h>
#include <vtcore/ui/views/animation/animation.h>

#include <QWidget>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

namespace {

using vtcore::AutoresizingFlag;
using vtcore::AutoresizingMask;

constexpr double kStart = 1000.0;

// Records what an animation asks and tells; answers as configured.
class RecordingDelegate : public VTAccesoryViewAnimationDelegate {
public:
  std::optional<bool> startAnswer;
  std::optional<bool> animateAnswer = true;
  std::optional<float> fixedT;
  std::vector<float> applied;
  std::vector<std::string> events;

  std::optional<bool> vtAnimationOnStartAnimation(VTAnimation*) override {
    events.push_back("start");
    return startAnswer;
  }
  std::optional<bool> vtAnimationAnimate(VTAnimation*, float T) override {
    applied.push_back(T);
    return animateAnswer;
  }
  std::optional<float> vtAnimationCalculateT(VTAnimation*, float) override { return fixedT; }
  void vtAnimationOnStopAnimation(VTAnimation*) override { events.push_back("stop"); }
  void accessoryViewAnimationWillBeginAnimation(VTAccesoryViewAnimation*) override {
    events.push_back("will");
  }
  void accessoryViewAnimationDidEndAnimation(VTAccesoryViewAnimation*) override {
    events.push_back("did");
  }
};

} // namespace

TEST(VTAnimationCurve, IsTheSymmetricSlowInSlowOutCurve) {
  const double k = std::log(double(0.15f)) / -0.6931471824645996;
  EXPECT_NEAR(k, 2.737, 0.001);
  struct Case {
    float t, T;
  } const cases[] = {{0.0f, 0.0f}, {0.25f, 0.075f}, {0.5f, 0.5f}, {0.75f, 0.925f}, {1.0f, 1.0f}};
  for (const Case& c : cases)
    EXPECT_NEAR(VTAnimation::defaultCurve(c.t), c.T, 1e-6) << "t = " << c.t;
  EXPECT_FLOAT_EQ(VTAnimation::defaultCurve(0.25f), float(0.5 * std::pow(0.5, k)));
  // Symmetric about the middle, and rising.
  float last = 0;
  for (float t = 0.05f; t < 1.0f; t += 0.05f) {
    EXPECT_NEAR(VTAnimation::defaultCurve(t) + VTAnimation::defaultCurve(1 - t), 1.0f, 1e-5);
    EXPECT_GT(VTAnimation::defaultCurve(t), last);
    last = VTAnimation::defaultCurve(t);
  }
}

TEST(VTAnimation, StepsTheEasedTThenStopsWithTheStopT) {
  RecordingDelegate delegate;
  VTAnimation animation(&delegate);
  animation.startAnimationWithTimeAmount(1.0, 0.8f, kStart);
  ASSERT_TRUE(animation.isAnimating());
  animation.handleIdle(nullptr, kStart + 0.5);
  animation.handleIdle(nullptr, kStart + 0.25);
  animation.handleIdle(nullptr, kStart + 1.0); // not past the time amount yet
  EXPECT_TRUE(animation.isAnimating());
  animation.handleIdle(nullptr, kStart + 1.001);
  EXPECT_FALSE(animation.isAnimating());
  ASSERT_EQ(delegate.applied.size(), 4u);
  EXPECT_FLOAT_EQ(delegate.applied[0], 0.5f);
  EXPECT_NEAR(delegate.applied[1], 0.075f, 1e-6);
  EXPECT_FLOAT_EQ(delegate.applied[2], 1.0f);
  EXPECT_FLOAT_EQ(delegate.applied[3], 0.8f);
  EXPECT_EQ(animation.lastFramesCount(), 4); // three steps and the drawn stop frame
  EXPECT_EQ(delegate.events, (std::vector<std::string>{"start", "stop"}));
  EXPECT_EQ(animation.startTimeStamp(), 0.0);

  animation.handleIdle(nullptr, kStart + 2); // stopped: nothing
  EXPECT_EQ(delegate.applied.size(), 4u);
}

TEST(VTAnimation, StartRules) {
  RecordingDelegate delegate;
  VTAnimation animation(&delegate);
  delegate.startAnswer = false;
  animation.startAnimationWithTimeAmount(1.0, 1.0f, kStart);
  EXPECT_FALSE(animation.isAnimating());

  delegate.startAnswer.reset();
  animation.startAnimationWithTimeAmount(1.0, 1.0f, kStart);
  animation.startAnimationWithTimeAmount(5.0, 0.0f, kStart + 3); // ignored while animating
  EXPECT_EQ(animation.startTimeStamp(), kStart);
  EXPECT_EQ(animation.timeAmount(), 1.0);
  animation.stopAnimation();

  // Not above 0.01 s, or not a time at all: one frame at the stop T.
  for (double amount : {0.01, 0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    delegate.applied.clear();
    animation.startAnimationWithTimeAmount(amount, 0.3f, kStart);
    EXPECT_FALSE(animation.isAnimating()) << amount;
    EXPECT_EQ(delegate.applied, std::vector<float>{0.3f}) << amount;
    EXPECT_EQ(animation.lastFramesCount(), 1);
  }
  delegate.animateAnswer = false; // a stop frame that draws nothing is not counted
  animation.startAnimationWithTimeAmount(0.0, 0.3f, kStart);
  EXPECT_EQ(animation.lastFramesCount(), 0);
}

TEST(VTAnimation, ClampsWhatTheCurveAnswers) {
  RecordingDelegate delegate;
  VTAnimation animation(&delegate);
  animation.startAnimationWithTimeAmount(1.0, 1.0f, kStart);
  for (float answer : {-0.5f, 1.5f, std::numeric_limits<float>::quiet_NaN(), 0.4f}) {
    delegate.fixedT = answer;
    animation.handleIdle(nullptr, kStart + 0.5);
  }
  EXPECT_EQ(delegate.applied, (std::vector<float>{0.0f, 1.0f, 0.0f, 0.4f}));
  // A time stamp before the start gives a t below 0: T stays 0.
  delegate.fixedT.reset();
  animation.handleIdle(nullptr, kStart - 0.5);
  EXPECT_EQ(delegate.applied.back(), 0.0f);
}

TEST(VTAnimation, WithoutDelegateCountsStepsButNoStopFrame) {
  VTAnimation animation;
  animation.startAnimationWithTimeAmount(0.5, 1.0f, kStart);
  animation.handleIdle(nullptr, kStart + 0.1);
  animation.handleIdle(nullptr, kStart + 0.2);
  animation.handleIdle(nullptr, kStart + 0.6);
  EXPECT_FALSE(animation.isAnimating());
  EXPECT_EQ(animation.lastFramesCount(), 2);
}

TEST(VTAnimation, MasterStartsAndStepsItsSlave) {
  RecordingDelegate masterDelegate, slaveDelegate;
  VTAnimation master(&masterDelegate);
  auto slave = std::make_unique<VTAnimation>(&slaveDelegate);
  slave->setIsSlave(true);
  master.setSlave(slave.get());
  master.setSlave(&master); // ignored
  EXPECT_EQ(master.slave(), slave.get());

  master.startAnimationWithTimeAmount(1.0, 1.0f, kStart);
  EXPECT_TRUE(slave->isAnimating());
  EXPECT_EQ(slave->startTimeStamp(), kStart);
  master.handleIdle(nullptr, kStart + 0.5);
  EXPECT_EQ(slaveDelegate.applied, std::vector<float>{0.5f});
  master.handleIdle(nullptr, kStart + 1.5);
  EXPECT_FALSE(slave->isAnimating());
  EXPECT_FALSE(master.isAnimating());
  EXPECT_EQ(slaveDelegate.applied.back(), 1.0f);

  // A master that goes away mid-run ends its slave at the stop T; a slave
  // that goes away is simply no longer stepped.
  auto shortLived = std::make_unique<VTAnimation>();
  shortLived->setSlave(slave.get());
  shortLived->startAnimationWithTimeAmount(1.0, 0.25f, kStart);
  shortLived.reset();
  EXPECT_FALSE(slave->isAnimating());
  EXPECT_EQ(slaveDelegate.applied.back(), 0.25f);

  master.startAnimationWithTimeAmount(1.0, 1.0f, kStart);
  slave.reset();
  EXPECT_EQ(master.slave(), nullptr);
  master.handleIdle(nullptr, kStart + 2);
  EXPECT_FALSE(master.isAnimating());
}

// --- VTAccesoryViewAnimation --------------------------------------------

namespace {

// A 600 x 400 root with a main view and a 150-point panel on one side. The
// panel holds a child that should ride on the shared edge while sliding.
struct Panels {
  explicit Panels(int alignment) {
    root.resize(600, 400);
    main = new QWidget(&root);
    slide = new QWidget(&root);
    switch (alignment) {
    case 1:
      slide->setGeometry(0, 0, 150, 400);
      main->setGeometry(150, 0, 450, 400);
      break;
    case 2:
      main->setGeometry(0, 0, 450, 400);
      slide->setGeometry(450, 0, 150, 400);
      break;
    case 3:
      slide->setGeometry(0, 0, 600, 150);
      main->setGeometry(0, 150, 600, 250);
      break;
    case 4:
      main->setGeometry(0, 0, 600, 250);
      slide->setGeometry(0, 250, 600, 150);
      break;
    }
    content = new QWidget(slide);
    content->setGeometry(10, 10, 130, 130);
    animation = std::make_unique<VTAccesoryViewAnimation>(&root);
    animation->setMainView(main);
    animation->setSlideView(slide);
    animation->setDelegate(&delegate);
    animation->resetProperties();
  }

  // The two views fill the root and meet at one edge.
  bool share() const {
    return (main->geometry() | slide->geometry()) == root.rect() &&
           !main->geometry().intersects(slide->geometry());
  }
  int slideSize() const { return int(animation->currentSlideSize()); }

  QWidget root;
  QWidget* main;
  QWidget* slide;
  QWidget* content;
  RecordingDelegate delegate;
  std::unique_ptr<VTAccesoryViewAnimation> animation;
};

class EveryAlignment : public testing::TestWithParam<int> {};

// The position of the panel's content relative to the shared edge.
QPoint fromEdge(const Panels& p, int alignment) {
  const QRect content = p.content->geometry().translated(p.slide->pos());
  const QRect slide = p.slide->geometry();
  switch (alignment) {
  case 1:
    return {slide.right() - content.right(), content.top()};
  case 2:
    return {content.left() - slide.left(), content.top()};
  case 3:
    return {content.left(), slide.bottom() - content.bottom()};
  default:
    return {content.left(), content.top() - slide.top()};
  }
}

} // namespace

INSTANTIATE_TEST_SUITE_P(VTAccesoryViewAnimation, EveryAlignment, testing::Values(1, 2, 3, 4));

TEST_P(EveryAlignment, ReadsTheSideAndSizeFromTheFrames) {
  Panels p(GetParam());
  EXPECT_EQ(p.animation->slideAlignment(), GetParam());
  EXPECT_EQ(p.animation->isHorizontal(), GetParam() <= 2);
  EXPECT_EQ(p.animation->slidedInSize(), 150.0f);
  EXPECT_EQ(p.animation->currentMainViewSize(), GetParam() <= 2 ? 450.0f : 250.0f);
  EXPECT_TRUE(p.animation->isSlidedIn());
}

TEST_P(EveryAlignment, SlidesOutAndBackInAlongTheCurve) {
  const int alignment = GetParam();
  Panels p(alignment);
  const QRect shownMain = p.main->geometry(), shownSlide = p.slide->geometry();
  const QPoint contentFromEdge = fromEdge(p, alignment);

  p.animation->slideOut();
  EXPECT_TRUE(p.animation->isSlidingOut());
  EXPECT_NE(vtcore::autoresizingMask(p.content), AutoresizingMask());
  const double start = p.animation->startTimeStamp();
  p.animation->handleIdle(nullptr, start + 0.3); // t = 0.5 of 0.6 s
  EXPECT_FLOAT_EQ(p.animation->lastAnimationT(), 0.5f);
  EXPECT_EQ(p.slideSize(), 75);
  EXPECT_TRUE(p.share());
  EXPECT_EQ(fromEdge(p, alignment), contentFromEdge) << "the content rides on the edge";
  p.animation->handleIdle(nullptr, start + 0.7);
  EXPECT_TRUE(p.animation->isSlidedOut());
  EXPECT_EQ(p.main->geometry(), p.root.rect());
  // Slided out to nothing: the panel is out of the hierarchy, its content's
  // mask is back.
  EXPECT_EQ(p.slide->parentWidget(), nullptr);
  EXPECT_TRUE(p.slide->isHidden());
  EXPECT_EQ(vtcore::autoresizingMask(p.content), AutoresizingMask());

  p.animation->slideIn();
  EXPECT_EQ(p.slide->parentWidget(), &p.root);
  EXPECT_FALSE(p.slide->isHidden());
  const double in = p.animation->startTimeStamp();
  p.animation->handleIdle(nullptr, in + 0.125); // t = 0.25 of 0.5 s: T = 0.075
  EXPECT_EQ(p.slideSize(), 12);                 // ceil(150 * 0.075)
  EXPECT_TRUE(p.share());
  p.animation->handleIdle(nullptr, in + 0.6);
  EXPECT_TRUE(p.animation->isSlidedIn());
  EXPECT_EQ(p.main->geometry(), shownMain);
  EXPECT_EQ(p.slide->geometry(), shownSlide);
  EXPECT_EQ(p.delegate.events, (std::vector<std::string>{"will", "did", "will", "did"}));
}

TEST_P(EveryAlignment, StickingMasksDuringASlideAndRestoredAfter) {
  const int alignment = GetParam();
  Panels p(alignment);
  vtcore::setAutoresizingMask(p.content, AutoresizingFlag::FlexibleWidth);
  using F = AutoresizingFlag;
  const AutoresizingMask expected[] = {
      F::FlexibleLeftMargin | F::FlexibleHeight, F::FlexibleRightMargin | F::FlexibleHeight,
      F::FlexibleTopMargin | F::FlexibleWidth, F::FlexibleBottomMargin | F::FlexibleWidth};
  p.animation->setUseCustomSlideViewAutoresizeMask(true);
  p.animation->setCustomSlideViewAutoresizeMask(F::FlexibleTopMargin);
  p.animation->slideOut();
  EXPECT_EQ(vtcore::autoresizingMask(p.content), expected[alignment - 1]);
  EXPECT_EQ(vtcore::autoresizingMask(p.slide), AutoresizingMask(F::FlexibleTopMargin));
  p.animation->handleIdle(nullptr, p.animation->startTimeStamp() + 1);
  EXPECT_EQ(vtcore::autoresizingMask(p.content), AutoresizingMask(F::FlexibleWidth));
  EXPECT_EQ(vtcore::autoresizingMask(p.slide), AutoresizingMask());

  p.animation->setChangeSlideSubviewAutoresizeMasks(false);
  p.animation->slideIn();
  EXPECT_EQ(vtcore::autoresizingMask(p.content), AutoresizingMask(F::FlexibleWidth));
}

TEST_P(EveryAlignment, UserResizeGrowsThePanelWithinItsLimits) {
  Panels p(GetParam());
  const int total = GetParam() <= 2 ? 600 : 400;
  p.animation->userResize(10);
  EXPECT_EQ(p.slideSize(), 160);
  EXPECT_EQ(p.animation->slidedInSize(), 160.0f);
  EXPECT_TRUE(p.share());
  p.animation->userResize(-1000); // held at the minimum slide size
  EXPECT_EQ(p.slideSize(), 100);
  EXPECT_TRUE(p.animation->minSplitSizeReached());
  p.animation->userResize(1000); // the main view keeps 200
  EXPECT_EQ(p.animation->currentMainViewSize(), 200.0f);
  EXPECT_EQ(p.slideSize(), total - 200);
  EXPECT_TRUE(p.animation->maxSplitSizeReached());
  EXPECT_TRUE(p.share());
}

TEST(VTAccesoryViewAnimation, ASwapReachesTheEndInOneFrame) {
  Panels p(2);
  p.animation->swapOut();
  EXPECT_TRUE(p.animation->isSlidedOut());
  EXPECT_EQ(p.animation->lastFramesCount(), 1);
  EXPECT_EQ(p.animation->lastAnimationT(), 0.0f);
  EXPECT_EQ(p.slideSize(), 0);
  p.animation->swapToggle();
  EXPECT_TRUE(p.animation->isSlidedIn());
  EXPECT_EQ(p.animation->lastFramesCount(), 1);
  EXPECT_EQ(p.slideSize(), 150);
  p.animation->toggleWithAnimation(false);
  EXPECT_TRUE(p.animation->isSlidedOut());
}

TEST(VTAccesoryViewAnimation, RequestsThatDoNotFitTheStateAreIgnored) {
  Panels p(2);
  p.animation->slideIn(); // already in
  EXPECT_FALSE(p.animation->isAnimating());
  p.animation->slideOut();
  const double start = p.animation->startTimeStamp();
  for (auto request : {&VTAccesoryViewAnimation::slideIn, &VTAccesoryViewAnimation::slideOut,
                       &VTAccesoryViewAnimation::toggle, &VTAccesoryViewAnimation::swapToggle})
    (p.animation.get()->*request)(nullptr);
  p.animation->setSlideSize(300, true);
  p.animation->userResize(20);
  EXPECT_TRUE(p.animation->isSlidingOut());
  EXPECT_EQ(p.animation->startTimeStamp(), start);
  EXPECT_FALSE(p.animation->userResizingPossible());
  EXPECT_EQ(p.animation->slidedInSize(), 150.0f);
}

TEST(VTAccesoryViewAnimation, AnimatedAndImmediateResizing) {
  Panels p(4);
  p.animation->setSlideSize(250, true);
  EXPECT_TRUE(p.animation->isResizing());
  EXPECT_TRUE(p.animation->isSliding());
  const double start = p.animation->startTimeStamp();
  p.animation->handleIdle(nullptr, start + 0.25);
  EXPECT_EQ(p.slideSize(), 200); // 150 + ceil(100 * 0.5)
  EXPECT_EQ(vtcore::autoresizingMask(p.content), AutoresizingMask()) << "masks untouched";
  p.animation->handleIdle(nullptr, start + 1);
  EXPECT_TRUE(p.animation->isSlidedIn());
  EXPECT_EQ(p.slideSize(), 250);
  EXPECT_TRUE(p.share());
  EXPECT_EQ(p.delegate.events, (std::vector<std::string>{"will", "did"}));

  // Immediate: a user resize, which may not take the main view (now 150
  // of 400, below its minimum of 200) any further down.
  p.animation->setSlideSize(390, false);
  EXPECT_EQ(p.slideSize(), 250);
  p.animation->setViewSizesToMinSlideSize();
  EXPECT_EQ(p.slideSize(), 100);

  // Slided out, a new size is kept for the next slide in.
  p.animation->swapOut();
  p.animation->setSlideSize(180, true);
  EXPECT_EQ(p.slideSize(), 0);
  p.animation->slideInWithSlideSize(170, false);
  EXPECT_EQ(p.slideSize(), 170);
  EXPECT_TRUE(p.share());
}

TEST(VTAccesoryViewAnimation, BadInputHasADefinedResult) {
  // Views of no size at one place: above (3), and already slided out.
  {
    QWidget root;
    root.resize(100, 100);
    QWidget main(&root), slide(&root);
    main.setGeometry(0, 0, 0, 0);
    slide.setGeometry(0, 0, 0, 0);
    VTAccesoryViewAnimation animation(&root);
    animation.setMainView(&main);
    animation.setSlideView(&slide);
    animation.resetProperties();
    EXPECT_EQ(animation.slideAlignment(), 3);
    EXPECT_TRUE(animation.isSlidedOut());
    animation.slideInWithSlideSize(80, false);
    EXPECT_TRUE(animation.isSlidedIn());
    EXPECT_GE(slide.height(), 0);
    EXPECT_GE(main.height(), 0);
  }
  // A minimum above the maximum: the maximum wins. Not-a-number is ignored.
  {
    Panels p(2);
    p.animation->setMinSlideSize(300);
    p.animation->setMaxSlideSize(120);
    p.animation->setMaxSlideSize(std::numeric_limits<float>::quiet_NaN());
    p.animation->userResize(5);
    EXPECT_EQ(p.slideSize(), 120);
    EXPECT_TRUE(p.animation->minSplitSizeReached());
    EXPECT_TRUE(p.animation->maxSplitSizeReached());
    p.animation->setSlidedOutSize(-40); // counts as 0
    EXPECT_EQ(p.animation->slidedOutSize(), 0.0f);
  }
  // No views at all: every request is ignored or moves nothing.
  {
    QWidget root;
    VTAccesoryViewAnimation animation(&root);
    animation.resetProperties();
    animation.slideOut();
    animation.swapOut();
    animation.userResize(10);
    animation.setSlideSize(50, true);
    animation.handleIdle(nullptr, 1e9);
    EXPECT_FALSE(animation.userResizingPossible());
    EXPECT_EQ(animation.currentSlideSize(), 0.0f);
  }
}

TEST(VTAccesoryViewAnimation, ViewsDeletedWhileASlideRunsAreSkipped) {
  Panels p(1);
  p.animation->slideOut();
  const double start = p.animation->startTimeStamp();
  p.animation->handleIdle(nullptr, start + 0.2);
  delete p.slide;
  p.animation->handleIdle(nullptr, start + 0.4);
  p.animation->handleIdle(nullptr, start + 1);
  EXPECT_TRUE(p.animation->isSlidedOut());
  p.animation->slideIn();
  delete p.main;
  p.animation->handleIdle(nullptr, p.animation->startTimeStamp() + 1);
  EXPECT_TRUE(p.animation->isSlidedIn());
}

TEST(VTAccesoryViewAnimation, RemovedPanelFollowsRootResizesAndIsNeverLost) {
  Panels p(2);
  using F = AutoresizingFlag;
  vtcore::setAutoresizingMask(p.main, F::FlexibleWidth | F::FlexibleHeight);
  vtcore::setAutoresizingMask(p.slide, F::FlexibleLeftMargin | F::FlexibleHeight);
  p.animation->swapOut();
  ASSERT_EQ(p.slide->parentWidget(), nullptr);
  const QSize old = p.root.size();
  vtcore::markSubviewsLaidOut(&p.root);
  vtcore::setFrame(&p.root, QRect(0, 0, 800, 500));
  p.animation->resizeRemovedViewsWithOldSize(old, p.root.size());
  p.animation->swapIn();
  EXPECT_EQ(p.slide->geometry(), QRect(650, 0, 150, 500));
  EXPECT_EQ(p.main->geometry(), QRect(0, 0, 650, 500));

  // Freed while the panel is out: it goes back to its parent.
  QPointer<QWidget> slide = p.slide;
  p.animation->swapOut();
  p.animation.reset();
  ASSERT_TRUE(slide);
  EXPECT_EQ(slide->parentWidget(), &p.root);
}

TEST(VTAccesoryViewAnimation, ViewsToHideAreTakenOutInsteadOfThePanel) {
  Panels p(3);
  p.animation->setSlidedOutSize(20); // a strip stays: nothing taken out by default
  p.animation->swapOut();
  EXPECT_EQ(p.slideSize(), 20);
  EXPECT_EQ(p.slide->parentWidget(), &p.root);
  p.animation->swapIn();
  p.animation->setViewsToHide({p.content});
  p.animation->swapOut();
  EXPECT_EQ(p.content->parentWidget(), nullptr);
  EXPECT_EQ(p.slide->parentWidget(), &p.root);
  p.animation->swapIn();
  EXPECT_EQ(p.content->parentWidget(), p.slide);
}

TEST(VTAccesoryViewAnimation, SlaveSlidesWithItsMaster) {
  Panels master(2), slave(4);
  slave.animation->setIsSlave(true);
  master.animation->setSlave(slave.animation.get());
  master.animation->slideOut();
  EXPECT_TRUE(slave.animation->isSlidingOut());
  master.animation->handleIdle(nullptr, master.animation->startTimeStamp() + 0.3);
  EXPECT_EQ(slave.slideSize(), 75);
  master.animation->handleIdle(nullptr, master.animation->startTimeStamp() + 1);
  EXPECT_TRUE(slave.animation->isSlidedOut());
  EXPECT_TRUE(master.animation->isSlidedOut());
}

// VTAccessoryContainerView and VTAccessorySplitter with real mouse events in
// a shown window, and the autoresizing the container relies on. The tests
// named *RealWindow* also run in an X server under xvfb-run; the one that
// captures a slide writes its frames where VTCORE_SLIDE_FRAMES_DIR says.
#include <vtcore/ui/views/accessory/accessory_container_view.h>
#include <vtcore/ui/views/accessory/accessory_splitter.h>
#include <vtcore/ui/views/autoresizing/autoresizing.h>

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPixmap>
#include <QScreen>
#include <QTest>
#include <QWindow>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using F = vtcore::AutoresizingFlag;

class CountingDelegate : public VTAccessoryContainerViewDelegate {
public:
  int willStart = 0, didEnd = 0, willBegin = 0, didEndAnimation = 0;
  void accessoryContainerViewWillStartUserResize(VTAccessoryContainerView*) override {
    ++willStart;
  }
  void accessoryContainerViewDidEndUserResize(VTAccessoryContainerView*) override { ++didEnd; }
  void accessoryContainerViewWillBeginAnimation(VTAccessoryContainerView*) override { ++willBegin; }
  void accessoryContainerViewDidEndAnimation(VTAccessoryContainerView*) override {
    ++didEndAnimation;
  }
};

// A window of 600 x 400 holding a container with a 150-point panel on the
// side given by `alignment`, and a splitter on the panel's shared edge.
struct Window {
  explicit Window(int alignment, QSize size = {600, 400}, int panel = 150) {
    window.resize(size);
    container = new VTAccessoryContainerView(&window);
    container->setGeometry(QRect(QPoint(), size));
    main = new QWidget(container);
    slide = new QWidget(container);
    splitter = new VTAccessorySplitter(slide);
    const int w = size.width(), h = size.height(), t = 8;
    switch (alignment) {
    case 1:
      slide->setGeometry(0, 0, panel, h);
      main->setGeometry(panel, 0, w - panel, h);
      splitter->setGeometry(panel - t, 0, t, h);
      vtcore::setAutoresizingMask(slide, F::FlexibleHeight);
      vtcore::setAutoresizingMask(splitter, F::FlexibleLeftMargin | F::FlexibleHeight);
      break;
    case 2:
      main->setGeometry(0, 0, w - panel, h);
      slide->setGeometry(w - panel, 0, panel, h);
      splitter->setGeometry(0, 0, t, h);
      vtcore::setAutoresizingMask(slide, F::FlexibleLeftMargin | F::FlexibleHeight);
      vtcore::setAutoresizingMask(splitter, F::FlexibleHeight);
      break;
    case 3:
      slide->setGeometry(0, 0, w, panel);
      main->setGeometry(0, panel, w, h - panel);
      splitter->setGeometry(0, panel - t, w, t);
      vtcore::setAutoresizingMask(slide, F::FlexibleWidth);
      vtcore::setAutoresizingMask(splitter, F::FlexibleTopMargin | F::FlexibleWidth);
      break;
    case 4:
      main->setGeometry(0, 0, w, h - panel);
      slide->setGeometry(0, h - panel, w, panel);
      splitter->setGeometry(0, 0, w, t);
      vtcore::setAutoresizingMask(slide, F::FlexibleTopMargin | F::FlexibleWidth);
      vtcore::setAutoresizingMask(splitter, F::FlexibleWidth);
      break;
    }
    vtcore::setAutoresizingMask(main, F::FlexibleWidth | F::FlexibleHeight);
    container->setMainView(main);
    container->setSlideView(slide);
    container->setDelegate(&delegate);
    splitter->setSplitView(container);
    window.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&window));
  }

  QPoint grabPoint() const { return splitter->mapTo(&window, splitter->rect().center()); }
  void press(QPoint at) { QTest::mousePress(window.windowHandle(), Qt::LeftButton, {}, at); }
  void moveTo(QPoint at) { QTest::mouseMove(window.windowHandle(), at); }
  void release(QPoint at) { QTest::mouseRelease(window.windowHandle(), Qt::LeftButton, {}, at); }
  // Grabs the handle, moves the pointer by `by` in `steps` equal steps, and
  // lets go there.
  void drag(QPoint by, int steps = 1) {
    const QPoint from = grabPoint();
    press(from);
    for (int i = 1; i <= steps; ++i)
      moveTo(from + by * i / steps);
    release(from + by);
  }
  int slideSize() const { return int(container->currentSlideSize()); }

  CountingDelegate delegate;
  QWidget window;
  VTAccessoryContainerView* container;
  QWidget* main;
  QWidget* slide;
  VTAccessorySplitter* splitter;
};

// The direction from the panel towards the main view.
QPoint towardsMain(int alignment, int by) {
  switch (alignment) {
  case 1:
    return {by, 0};
  case 2:
    return {-by, 0};
  case 3:
    return {0, by};
  default:
    return {0, -by};
  }
}

bool hasCursor(const QWidget* widget) {
  return widget->testAttribute(Qt::WA_SetCursor);
}

class SplitterAlignment : public testing::TestWithParam<int> {};

} // namespace

INSTANTIATE_TEST_SUITE_P(VTAccessorySplitterRealWindow, SplitterAlignment,
                         testing::Values(1, 2, 3, 4));

TEST_P(SplitterAlignment, MovingTheHandleTowardsTheMainViewEnlargesThePanel) {
  Window w(GetParam());
  w.drag(towardsMain(GetParam(), 10));
  EXPECT_EQ(w.slideSize(), 160);
  w.drag(towardsMain(GetParam(), -25), 5);
  EXPECT_EQ(w.slideSize(), 135);
  EXPECT_EQ(w.delegate.willStart, 2);
  EXPECT_EQ(w.delegate.didEnd, 2);
}

TEST(VTAccessorySplitterRealWindow, AClickWithoutMovementSendsNothing) {
  Window w(2);
  const QPoint at = w.grabPoint();
  w.press(at);
  EXPECT_EQ(QGuiApplication::overrideCursor() ? QGuiApplication::overrideCursor()->shape()
                                              : Qt::ArrowCursor,
            Qt::ClosedHandCursor);
  w.moveTo(at);
  w.release(at);
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
  EXPECT_EQ(w.delegate.willStart, 0);
  EXPECT_EQ(w.delegate.didEnd, 0);
  EXPECT_EQ(w.slideSize(), 150);
}

TEST(VTAccessorySplitterRealWindow, PanelOnTheRightDraggedRightBecomesSmaller) {
  Window w(2);
  // Several events on the way: will-start only on the first movement, and
  // the edge ends where the pointer is, without drift.
  w.drag({10, 0}, 4);
  EXPECT_EQ(w.slideSize(), 140);
  EXPECT_EQ(w.container->currentMainViewSize(), 460.0f);
  EXPECT_EQ(w.delegate.willStart, 1);
  EXPECT_EQ(w.delegate.didEnd, 1);
  EXPECT_EQ(w.splitter->mapTo(w.container, QPoint()).x(), 460);
}

TEST(VTAccessorySplitterRealWindow, TheMainViewNeverGoesBelowItsMinimum) {
  Window w(2);
  w.drag({-500, 0}, 3);
  EXPECT_EQ(w.container->currentMainViewSize(), 200.0f);
  EXPECT_EQ(w.slideSize(), 400);
  EXPECT_TRUE(w.container->maxSplitSizeReached());
}

TEST(VTAccessorySplitterRealWindow, CursorsFollowTheLimits) {
  Window w(2);
  ASSERT_TRUE(hasCursor(w.splitter));
  EXPECT_EQ(w.splitter->cursor().shape(), Qt::OpenHandCursor);
  // 300 wide: panel at its minimum of 100 and main view at its 200.
  Window stuck(2, {300, 400}, 100);
  EXPECT_TRUE(stuck.container->minSplitSizeReached());
  EXPECT_TRUE(stuck.container->maxSplitSizeReached());
  EXPECT_FALSE(hasCursor(stuck.splitter));
  EXPECT_FALSE(stuck.splitter->currentCursor().has_value());
  // Slided out: no resizing, no cursor, and a press does nothing.
  w.container->swapOut();
  w.splitter->resetCursorRects();
  EXPECT_FALSE(hasCursor(w.splitter));
}

namespace {

// A splitter that never shows a cursor while dragging.
class NoDragCursorSplitter : public VTAccessorySplitter {
public:
  using VTAccessorySplitter::VTAccessorySplitter;
  int asked = 0;

protected:
  using VTAccessorySplitter::determineCursor;
  std::optional<QCursor> determineCursor(std::optional<QCursor> cursor, bool mouseIsDown, bool,
                                         bool) override {
    ++asked;
    return mouseIsDown ? std::nullopt : cursor;
  }
};

} // namespace

TEST(VTAccessorySplitterRealWindow, SubclassHookChoosesTheCursor) {
  Window w(2);
  auto* splitter = new NoDragCursorSplitter(w.slide);
  splitter->setGeometry(0, 100, 8, 50);
  splitter->setSplitView(w.container);
  splitter->show();
  EXPECT_EQ(splitter->cursor().shape(), Qt::OpenHandCursor);
  const QPoint at = splitter->mapTo(&w.window, splitter->rect().center());
  w.press(at);
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
  w.moveTo(at + QPoint(-10, 0));
  w.release(at + QPoint(-10, 0));
  EXPECT_EQ(w.slideSize(), 160);
  EXPECT_GT(splitter->asked, 0);
}

TEST(VTAccessorySplitterRealWindow, OneCornerHandleDrivesTwoContainers) {
  // An outer container with a browser below, whose main view is an inner
  // container with an inspector on the right.
  QWidget window;
  window.resize(600, 400);
  auto* outer = new VTAccessoryContainerView(&window);
  outer->setGeometry(0, 0, 600, 400);
  auto* inner = new VTAccessoryContainerView(outer);
  inner->setGeometry(0, 0, 600, 250);
  auto* browser = new QWidget(outer);
  browser->setGeometry(0, 250, 600, 150);
  auto* area = new QWidget(inner);
  area->setGeometry(0, 0, 450, 250);
  auto* inspector = new QWidget(inner);
  inspector->setGeometry(450, 0, 150, 250);
  vtcore::setAutoresizingMask(inner, F::FlexibleWidth | F::FlexibleHeight);
  vtcore::setAutoresizingMask(area, F::FlexibleWidth | F::FlexibleHeight);
  vtcore::setAutoresizingMask(inspector, F::FlexibleLeftMargin | F::FlexibleHeight);
  auto* corner = new VTAccessorySplitter(inspector);
  corner->setGeometry(0, 238, 12, 12);
  vtcore::setAutoresizingMask(corner, F::FlexibleTopMargin);
  outer->setMainView(inner);
  outer->setSlideView(browser);
  inner->setMainView(area);
  inner->setSlideView(inspector);
  CountingDelegate outerDelegate, innerDelegate;
  outer->setDelegate(&outerDelegate);
  inner->setDelegate(&innerDelegate);
  corner->setHorizontalSplitView(outer);
  corner->setVerticalSplitView(inner);
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  ASSERT_TRUE(corner->drivesTwoContainers());

  const QPoint from = corner->mapTo(&window, corner->rect().center());
  QTest::mousePress(window.windowHandle(), Qt::LeftButton, {}, from);
  QTest::mouseMove(window.windowHandle(), from + QPoint(-20, 0)); // x only
  QTest::mouseMove(window.windowHandle(), from + QPoint(-30, -40));
  QTest::mouseRelease(window.windowHandle(), Qt::LeftButton, {}, from + QPoint(-30, -40));
  EXPECT_EQ(inner->currentSlideSize(), 180.0f);
  EXPECT_EQ(outer->currentSlideSize(), 190.0f);
  EXPECT_EQ(inspector->height(), 210) << "the inspector follows the browser's edge";
  EXPECT_EQ(corner->mapTo(&window, QPoint()), QPoint(420, 198));
  EXPECT_EQ(innerDelegate.willStart, 1);
  EXPECT_EQ(outerDelegate.willStart, 1);
  EXPECT_EQ(innerDelegate.didEnd, 1);
  EXPECT_EQ(outerDelegate.didEnd, 1);

  // A drag along x only: the outer container hears nothing.
  const QPoint again = corner->mapTo(&window, corner->rect().center());
  QTest::mousePress(window.windowHandle(), Qt::LeftButton, {}, again);
  QTest::mouseMove(window.windowHandle(), again + QPoint(5, 0));
  QTest::mouseRelease(window.windowHandle(), Qt::LeftButton, {}, again + QPoint(5, 0));
  EXPECT_EQ(outerDelegate.willStart, 1);
  EXPECT_EQ(innerDelegate.willStart, 2);
  EXPECT_EQ(inner->currentSlideSize(), 175.0f);
}

TEST(VTAccessoryContainerViewRealWindow, SlidingOutToNothingRemovesThePanelAndBringsItBack) {
  Window w(2);
  QPointer<QWidget> slide = w.slide;
  w.container->slideOutWithAnimation(false);
  EXPECT_TRUE(w.container->isSlidedOut());
  EXPECT_EQ(slide->parentWidget(), nullptr);
  EXPECT_FALSE(w.splitter->isVisible());
  // The container is resized while the panel is out; it follows.
  w.window.resize(700, 450);
  w.container->resize(700, 450);
  EXPECT_EQ(w.main->geometry(), QRect(0, 0, 700, 450));
  w.container->toggleWithAnimation(false);
  EXPECT_TRUE(w.container->isSlidedIn());
  EXPECT_EQ(slide->parentWidget(), w.container);
  EXPECT_TRUE(slide->isVisible());
  EXPECT_EQ(slide->geometry(), QRect(550, 0, 150, 450));
  EXPECT_EQ(w.main->geometry(), QRect(0, 0, 550, 450));
  EXPECT_EQ(w.delegate.willBegin, 2);
  EXPECT_EQ(w.delegate.didEndAnimation, 2);
}

TEST(VTAccessoryContainerView, ForwardsToItsAnimation) {
  VTAccessoryContainerView container;
  container.resize(600, 400);
  auto* main = new QWidget(&container);
  main->setGeometry(0, 0, 450, 400);
  auto* slide = new QWidget; // not yet a child: adopted
  slide->setGeometry(450, 0, 150, 400);
  container.setMainView(main);
  EXPECT_EQ(container.animationObject()->slideView(), nullptr);
  container.setSlideView(slide);
  EXPECT_EQ(slide->parentWidget(), &container);
  EXPECT_EQ(container.animationObject()->slideAlignment(), 2);
  container.setMinSlideSize(50);
  container.setMaxSlideSize(170);
  container.setMinMainViewSize(300);
  EXPECT_EQ(container.minSlideFrameSizeValue(), 50.0f);
  EXPECT_EQ(container.minMainFrameSizeValue(), 300.0f);
  container.doUserResize(100);
  EXPECT_EQ(container.currentSlideSize(), 170.0f);
  container.setSlideSize(60, false);
  EXPECT_EQ(container.slidedInSize(), 60.0f);
  container.setSlideSize(120, true);
  EXPECT_TRUE(container.isResizing());
  EXPECT_TRUE(container.isSliding());
  container.animationObject()->handleIdle(nullptr, 1e12); // long past: done
  EXPECT_EQ(container.currentSlideSize(), 120.0f);
  container.setSlidedOutSize(10);
  container.swapOut();
  EXPECT_EQ(container.currentSlideSize(), 10.0f);
  container.slideInWithSlideSize(140, false);
  EXPECT_EQ(container.currentSlideSize(), 140.0f);
  container.setSlideView(nullptr);
  EXPECT_EQ(container.animationObject()->slideView(), nullptr);
  EXPECT_FALSE(container.userResizingPossible());
}

TEST(VTAccessoryContainerView, WithoutViewsNothingMoves) {
  // The states change as requested, but there is nothing to move or drag.
  VTAccessoryContainerView container;
  CountingDelegate delegate;
  container.setDelegate(&delegate);
  container.resize(300, 300);
  container.slideIn();
  container.toggleWithAnimation(true);
  EXPECT_TRUE(container.isSlidingOut());
  container.doUserResize(10);
  container.resize(500, 500);
  container.animationObject()->handleIdle(nullptr, 1e12);
  EXPECT_TRUE(container.isSlidedOut());
  container.swapToggle();
  EXPECT_TRUE(container.isSlidedIn());
  EXPECT_EQ(delegate.didEndAnimation, 2);
  EXPECT_FALSE(container.userResizingPossible());
  VTAccessorySplitter splitter;
  splitter.setSplitView(&container);
  EXPECT_FALSE(splitter.resizingPossible());
  EXPECT_FALSE(hasCursor(&splitter));
}

TEST(VTAccessoryContainerView, DestroyedMidSlideLosesNothing) {
  QWidget window;
  window.resize(600, 400);
  auto* container = new VTAccessoryContainerView(&window);
  container->setGeometry(0, 0, 600, 400);
  auto* main = new QWidget(container);
  auto* slide = new QWidget(container);
  main->setGeometry(0, 0, 450, 400);
  slide->setGeometry(450, 0, 150, 400);
  container->setMainView(main);
  container->setSlideView(slide);
  QPointer<QWidget> guardedSlide = slide;
  // Mid-slide: the real clock runs the timer; delete while it runs.
  container->slideOut();
  ASSERT_TRUE(container->isSliding());
  QCoreApplication::processEvents();
  delete container;
  QCoreApplication::processEvents();
  EXPECT_FALSE(guardedSlide);

  // Out of the hierarchy when the container goes: freed with it, not leaked.
  container = new VTAccessoryContainerView(&window);
  container->setGeometry(0, 0, 600, 400);
  main = new QWidget(container);
  slide = new QWidget(container);
  main->setGeometry(0, 0, 450, 400);
  slide->setGeometry(450, 0, 150, 400);
  container->setMainView(main);
  container->setSlideView(slide);
  container->swapOut();
  guardedSlide = slide;
  ASSERT_EQ(slide->parentWidget(), nullptr);
  delete container;
  EXPECT_FALSE(guardedSlide);
}

TEST(VTAccessoryContainerViewRealWindow, ASlideRunsOnTheTimerAlongTheCurve) {
  // The real clock and the real event loop: frames at about a quarter, a
  // half and three quarters of the slide are captured (and written out when
  // asked), and each shows the panel at the size its T stands for.
  Window w(2, {640, 400}, 240);
  // Colours and content that make the pictures readable: the panel's
  // content should ride in with its edge.
  const auto paint = [](QWidget* widget, QColor color) {
    QPalette palette = widget->palette();
    palette.setColor(QPalette::Window, color);
    palette.setColor(QPalette::WindowText, Qt::white);
    widget->setPalette(palette);
    widget->setAutoFillBackground(true);
  };
  paint(w.main, QColor(0xd8, 0xdc, 0xe0));
  paint(w.slide, QColor(0x2d, 0x4f, 0x7c));
  for (int row = 0; row < 5; ++row) {
    auto* label = new QLabel(QStringLiteral("Inspector row %1").arg(row + 1), w.slide);
    label->setGeometry(24, 24 + row * 40, 190, 28);
    paint(label, QColor(0x45, 0x6f, 0xa8));
    label->show();
  }
  w.container->animationObject()->setSlideInTimeAmount(1.2);
  w.container->swapOut();
  QCoreApplication::processEvents();
  const QString frames = qEnvironmentVariable("VTCORE_SLIDE_FRAMES_DIR");
  w.container->slideIn();
  VTAccesoryViewAnimation* animation = w.container->animationObject();
  const double start = animation->startTimeStamp();
  const double marks[] = {0.25, 0.5, 0.75};
  std::vector<int> sizes;
  std::vector<float> shownTs;
  size_t next = 0;
  while (animation->isAnimating()) {
    QCoreApplication::processEvents(QEventLoop::AllEvents);
    if (next < 3 && animation->isAnimating() &&
        VTAnimation::currentTimeStamp() - start >= marks[next] * 1.2) {
      w.window.repaint();
      const float T = animation->lastAnimationT();
      sizes.push_back(w.slideSize());
      shownTs.push_back(T);
      EXPECT_EQ(w.slideSize(), int(std::ceil(240 * T))) << "frame " << next;
      if (!frames.isEmpty()) {
        QDir().mkpath(frames);
        QPixmap picture;
        if (QScreen* screen = w.window.screen();
            screen && QGuiApplication::platformName() != QLatin1String("offscreen"))
          picture = screen->grabWindow(w.window.winId());
        if (picture.isNull())
          picture = w.window.grab();
        picture.save(QStringLiteral("%1/slide-%2.png").arg(frames).arg(int(marks[next] * 100)));
      }
      ++next;
    }
  }
  EXPECT_TRUE(w.container->isSlidedIn());
  EXPECT_EQ(w.slideSize(), 240);
  EXPECT_GT(animation->lastFramesCount(), 3);
  ASSERT_EQ(sizes.size(), 3u);
  // Eased, whatever the machine's speed: the panel grows, and its T runs
  // ahead of or behind the linear one only as the curve allows.
  EXPECT_LT(sizes[0], sizes[1]);
  EXPECT_LT(sizes[1], sizes[2]);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_GE(shownTs[i], 0.0f);
    EXPECT_LE(shownTs[i], 1.0f);
  }
}

TEST(VTAutoresizing, ChildrenShareTheChangeByTheirMasks) {
  struct Case {
    vtcore::AutoresizingMask mask;
    QRect expected;
  } const cases[] = {
      {{}, QRect(20, 10, 100, 50)},
      {F::FlexibleWidth | F::FlexibleHeight, QRect(20, 10, 200, 150)},
      {F::FlexibleLeftMargin | F::FlexibleBottomMargin, QRect(120, 10, 100, 50)},
      {F::FlexibleRightMargin | F::FlexibleTopMargin, QRect(20, 110, 100, 50)},
      // Two flexible parts share in proportion: left 20 and width 100 of 100.
      {F::FlexibleLeftMargin | F::FlexibleWidth, QRect(37, 10, 183, 50)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(vtcore::autoresizedFrame(QRect(20, 10, 100, 50), c.mask, {200, 100}, {300, 200}),
              c.expected)
        << c.mask.toInt();
  }
  // Squeezed beyond nothing: a size of 0, never negative.
  EXPECT_EQ(vtcore::autoresizedFrame(QRect(0, 0, 100, 50), F::FlexibleWidth, {200, 100}, {50, 100})
                .width(),
            0);

  QWidget parent;
  parent.resize(200, 100);
  QWidget child(&parent);
  child.setGeometry(20, 10, 100, 50);
  vtcore::setAutoresizingMask(&child, F::FlexibleWidth);
  vtcore::setFrame(&parent, QRect(0, 0, 300, 100));
  EXPECT_EQ(child.geometry(), QRect(20, 10, 200, 50));
  vtcore::layoutSubviewsIfResized(&parent); // laid out once per size
  EXPECT_EQ(child.geometry(), QRect(20, 10, 200, 50));
}

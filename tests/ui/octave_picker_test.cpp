#include <vtcore/ui/common/images/images.h>
#include <vtcore/ui/controls/octave_picker/octave_picker_view.h>

#include <QApplication>
#include <QMouseEvent>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using vtcore::KeyRange;

constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();

// The target of the picker's action: records the range at every action.
class RangeRecorder : public QObject {
  Q_OBJECT
public:
  std::vector<KeyRange> ranges;

public Q_SLOTS:
  void moved(DfOctavePickerView* view) { ranges.push_back(view->keyRange()); }
};

// A picker wired to a recorder, driven by mouse events delivered through
// QApplication as the window system's would be.
struct Picker {
  explicit Picker(bool large) : view(QRect(), large) {
    view.setTarget(&recorder);
    view.setAction("moved(DfOctavePickerView*)");
  }

  // The x of the middle of white key `key`, rounded down to a whole point as
  // a mouse position is.
  int keyX(double key) const { return static_cast<int>(6.0 + (key + 0.5) * view.keyWidth()); }

  void send(QEvent::Type type, int x, Qt::MouseButton button, Qt::MouseButtons buttons) {
    const QPointF local(x, view.height() / 2);
    QMouseEvent event(type, local, view.mapToGlobal(local), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(&view, &event);
  }
  void press(int x, Qt::MouseButton button = Qt::LeftButton) {
    send(QEvent::MouseButtonPress, x, button, button);
  }
  void drag(int x) { send(QEvent::MouseMove, x, Qt::NoButton, Qt::LeftButton); }
  void release(int x) { send(QEvent::MouseButtonRelease, x, Qt::LeftButton, Qt::NoButton); }

  DfOctavePickerView view;
  RangeRecorder recorder;
};

TEST(DfOctavePickerView, BothVariantsTakeTheirSizeAndKeyWidthFromTheArtwork) {
  for (const bool large : {true, false}) {
    DfOctavePickerView view(QRect(30, 40, 1, 1), large);
    const QImage background = kw_loadQuillonBundleImage(
        large ? QStringLiteral("octave-control-bg") : QStringLiteral("octave-control-bg-short"));
    const QImage keys = kw_loadQuillonBundleImage(large ? QStringLiteral("octave-glyphKeys")
                                                        : QStringLiteral("octave-glyphKeys-short"));
    ASSERT_FALSE(background.isNull());
    ASSERT_FALSE(keys.isNull());
    EXPECT_EQ(view.geometry(), QRect(QPoint(30, 40), background.deviceIndependentSize().toSize()));
    EXPECT_EQ(view.totalNumWhiteKeys(), large ? 75 : 74);
    EXPECT_FLOAT_EQ(view.keyWidth(), keys.deviceIndependentSize().width() / (large ? 75 : 74));
    EXPECT_EQ(view.keyRange(), (KeyRange{10, 10}));
    EXPECT_EQ(view.clickRaster(), 7);
    EXPECT_EQ(view.dragRaster(), 1);
    EXPECT_EQ(view.focusPolicy(), Qt::NoFocus);
    EXPECT_TRUE(view.acceptsFirstMouse(nullptr));
    EXPECT_FALSE(view.mouseDownCanMoveWindow());
  }
  std::unique_ptr<DfOctavePickerView> owned(DfOctavePickerView::octavePickerViewLarge(false));
  EXPECT_EQ(owned->parent(), nullptr);
  EXPECT_EQ(owned->totalNumWhiteKeys(), 74);
}

// A press, then drags: the range after the press, and the location reported
// by each action (the length never changes).
struct MouseCase {
  const char* name;
  bool large;
  KeyRange start;
  double pressKey; // the white key under the press; fractions allowed
  KeyRange afterPress;
  std::vector<double> dragKeys;
  std::vector<std::size_t> actions;
  int dragRaster = 1;
};

void PrintTo(const MouseCase& c, std::ostream* os) {
  *os << c.name;
}

class OctavePickerMouse : public testing::TestWithParam<MouseCase> {};

TEST_P(OctavePickerMouse, MovesTheMarkerAndSendsTheAction) {
  const MouseCase& c = GetParam();
  Picker picker(c.large);
  picker.view.setKeyRange(c.start);
  picker.view.setDragRaster(c.dragRaster);
  picker.press(picker.keyX(c.pressKey));
  EXPECT_EQ(picker.view.keyRange(), c.afterPress);
  for (const double key : c.dragKeys)
    picker.drag(picker.keyX(key));
  picker.release(picker.keyX(c.dragKeys.empty() ? c.pressKey : c.dragKeys.back()));

  std::vector<std::size_t> locations;
  for (const KeyRange& range : picker.recorder.ranges) {
    EXPECT_EQ(range.length, c.start.length);
    locations.push_back(range.location);
  }
  EXPECT_EQ(locations, c.actions);
  const std::size_t last = c.actions.empty() ? c.afterPress.location : c.actions.back();
  EXPECT_EQ(picker.view.keyRange(), (KeyRange{last, c.start.length}));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, OctavePickerMouse,
    testing::Values(
        // x = 3, left of the keyboard picture.
        MouseCase{"LeftOfThePictureGivesLocation0", true, {10, 10}, -0.9, {0, 10}, {}, {0}},
        MouseCase{"ClickSnapsToTheOctave", true, {10, 10}, 30.5, {28, 10}, {}, {28}},
        // Key 70 snaps to 70, is pushed back to 65 and still lies under the
        // marker: the drag moves it from there, by single keys.
        MouseCase{"PushedBackFromTheRightEndAndDragged",
                  true,
                  {10, 10},
                  70,
                  {65, 10},
                  {69, 68, 66},
                  {65, 64, 63, 61}},
        MouseCase{"ShortKeyboardPushesBackTo64", false, {10, 10}, 73, {64, 10}, {72}, {64, 63}},
        // In the right margin: pushed back, the marker no longer holds the
        // click, so the drags do nothing and send nothing.
        MouseCase{"PushBackLeavingTheClickOutsideIgnoresDrags",
                  true,
                  {10, 10},
                  75.3,
                  {65, 10},
                  {40, 10, 0},
                  {65}},
        // Grabbed at key 14, the fifth of the marker: that key stays under
        // the mouse, with an action for every drag event, until the left end.
        MouseCase{"GrabKeepsTheGrabbedKeyUnderTheMouse",
                  true,
                  {10, 10},
                  14,
                  {10, 10},
                  {15, 16, 17, 17, 9, 4, 3},
                  {11, 12, 13, 13, 5, 0, 0}},
        MouseCase{"DragRasterSnapsDrags", true, {10, 10}, 14, {10, 10}, {16, 20}, {7, 14}, 7},
        // A range longer than the keyboard, set from outside, goes to 0.
        MouseCase{
            "OverlongRangeDraggedGoesToTheLeftEnd", true, {5, 1000}, 30, {5, 1000}, {40}, {0}},
        MouseCase{"OverlongRangeClickedOutsideGoesToTheLeftEnd",
                  true,
                  {80, 1000},
                  30,
                  {0, 1000},
                  {},
                  {0}}),
    [](const testing::TestParamInfo<MouseCase>& param) { return std::string(param.param.name); });

TEST(DfOctavePickerView, OtherButtonsAndDragsWithoutAPressDoNothing) {
  Picker picker(true);
  picker.drag(picker.keyX(40));
  picker.press(picker.keyX(40), Qt::RightButton);
  EXPECT_EQ(picker.view.keyRange(), (KeyRange{10, 10}));
  EXPECT_TRUE(picker.recorder.ranges.empty());
}

TEST(DfOctavePickerView, SendsNoActionWithoutTargetOrAction) {
  const std::vector<std::pair<bool, const char*>> cases = {
      {false, "moved(DfOctavePickerView*)"}, {true, nullptr}, {true, "moved(QString)"}};
  for (const auto& [withTarget, action] : cases) {
    Picker picker(true);
    picker.view.setTarget(withTarget ? &picker.recorder : nullptr);
    picker.view.setAction(action);
    QSignalSpy moved(&picker.view, &DfOctavePickerView::keyRangeMoved);
    picker.press(picker.keyX(40));
    EXPECT_EQ(picker.view.keyRange(), (KeyRange{35, 10}));
    EXPECT_TRUE(picker.recorder.ranges.empty()) << (action ? action : "(no action)");
    // The signal is for connect() users and comes regardless.
    EXPECT_EQ(moved.count(), 1);
  }
}

// Closing the picker is a plausible answer to its action.
class Closer : public QObject {
  Q_OBJECT
public Q_SLOTS:
  void close(DfOctavePickerView* view) { delete view; }
};

TEST(DfOctavePickerView, TargetMayDeleteTheViewInItsAction) {
  Closer closer;
  auto* view = new DfOctavePickerView(QRect(), true);
  view->setTarget(&closer);
  view->setAction("close(DfOctavePickerView*)");
  const QPointer<DfOctavePickerView> alive(view);
  const QMouseEvent event(QEvent::MouseButtonPress, QPointF(300, 20), QPointF(300, 20),
                          Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
  view->setKeyRangeForMouseEvent(&event, 7);
  EXPECT_TRUE(alive.isNull());
}

// Paints the view into an image at a device pixel ratio, as a screen of that
// ratio would.
QImage render(DfOctavePickerView& view, qreal ratio) {
  QImage image(view.size() * ratio, QImage::Format_ARGB32_Premultiplied);
  image.setDevicePixelRatio(ratio);
  image.fill(Qt::transparent);
  view.render(&image);
  return image;
}

struct PixelCase {
  bool large;
  KeyRange range;
  qreal ratio;
};

void PrintTo(const PixelCase& c, std::ostream* os) {
  *os << (c.large ? "large" : "short") << " {" << c.range.location << ", " << c.range.length
      << "} at ratio " << c.ratio;
}

class OctavePickerPixels : public testing::TestWithParam<PixelCase> {};

// The marker covers exactly the white keys it counts: the middles of its first
// and last key, and its first and last pixel column, differ from the picture
// without a marker; the neighbouring keys and columns do not.
TEST_P(OctavePickerPixels, MarkerCoversExactlyItsWhiteKeys) {
  const PixelCase& c = GetParam();
  DfOctavePickerView view(QRect(), c.large);
  view.setKeyRange({1000, 1});
  const QImage bare = render(view, c.ratio);
  view.setKeyRange(c.range);
  const QImage marked = render(view, c.ratio);

  const double w = view.keyWidth();
  const int keys = view.totalNumWhiteKeys();
  // Below the black keys, above the keys' front edge.
  const int y = static_cast<int>((view.height() - 8) * c.ratio);
  const auto isMarked = [&](double x) {
    const int column = static_cast<int>(std::floor(x * c.ratio));
    return marked.pixel(column, y) != bare.pixel(column, y);
  };
  const auto keyMiddle = [&](double key) { return 6.0 + (key + 0.5) * w; };
  const double first = static_cast<double>(c.range.location);
  const double last = first + static_cast<double>(c.range.length) - 1.0;

  EXPECT_TRUE(isMarked(keyMiddle(first)));
  EXPECT_TRUE(isMarked(keyMiddle(last)));
  if (first > 0) {
    EXPECT_FALSE(isMarked(keyMiddle(first - 1)));
  }
  if (last + 1 < keys) {
    EXPECT_FALSE(isMarked(keyMiddle(last + 1)));
  }

  const double left = std::floor(first * w) + 6.0;
  const double end = std::floor((last + 1.0) * w) + 6.0; // first point after the marker
  EXPECT_TRUE(isMarked(left));
  EXPECT_FALSE(isMarked(left - 1.0 / c.ratio));
  EXPECT_TRUE(isMarked(end - 1.0 / c.ratio));
  EXPECT_FALSE(isMarked(end));
}

INSTANTIATE_TEST_SUITE_P(Ranges, OctavePickerPixels,
                         testing::Values(PixelCase{true, {10, 10}, 1}, PixelCase{true, {10, 10}, 2},
                                         PixelCase{true, {0, 1}, 1}, PixelCase{true, {0, 1}, 2},
                                         PixelCase{true, {65, 10}, 1}, PixelCase{true, {65, 10}, 2},
                                         PixelCase{true, {74, 1}, 2}, PixelCase{false, {33, 7}, 1},
                                         PixelCase{false, {33, 7}, 2}, PixelCase{false, {0, 74}, 2},
                                         PixelCase{false, {64, 10}, 1}));

// Ranges set from outside are stored as they are, however far they reach, and
// drawn only where they meet the view.
TEST(DfOctavePickerView, StoresAnyRangeAndDrawsItClippedToTheView) {
  const std::vector<std::pair<KeyRange, bool>> cases = {
      {{kMax, kMax}, false}, {{kMax, 0}, false}, {{kMax - 5, 10}, false}, {{0, kMax}, true},
      {{70, kMax}, true},    {{0, 0}, false},    {{76, 3}, false}};
  for (const qreal ratio : {1.0, 2.0}) {
    DfOctavePickerView view(QRect(), true);
    view.setKeyRange({1000, 1});
    const QImage bare = render(view, ratio);
    for (const auto& [range, coversKey72] : cases) {
      view.setKeyRange(range);
      EXPECT_EQ(view.keyRange(), range);
      const QImage marked = render(view, ratio);
      const QPoint key72(static_cast<int>((6.0 + 72.5 * view.keyWidth()) * ratio),
                         static_cast<int>((view.height() - 8) * ratio));
      EXPECT_EQ(marked.pixel(key72) != bare.pixel(key72), coversKey72)
          << range.location << " + " << range.length;
    }
  }
}

// Records what each paint event was asked to repaint.
class PaintRecorder : public DfOctavePickerView {
public:
  using DfOctavePickerView::DfOctavePickerView;
  QRegion painted;

protected:
  void paintEvent(QPaintEvent* event) override {
    painted += event->region();
    DfOctavePickerView::paintEvent(event);
  }
};

TEST(DfOctavePickerView, SetKeyRangeRepaintsTheOldAndNewMarkerWidenedByOnePoint) {
  PaintRecorder view(QRect(), true);
  view.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
  ASSERT_TRUE(QTest::qWaitFor([&] { return !view.painted.isEmpty(); }));
  const QRect old = view.rangeRect().toAlignedRect().adjusted(-1, -1, 1, 1) & view.rect();
  view.painted = QRegion();
  view.setKeyRange({50, 3});
  const QRect now = view.rangeRect().toAlignedRect().adjusted(-1, -1, 1, 1) & view.rect();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !view.painted.isEmpty(); }));
  EXPECT_TRUE(view.painted.contains(old));
  EXPECT_TRUE(view.painted.contains(now));
  // Nothing between the two markers.
  EXPECT_FALSE(view.painted.contains(QPoint((old.right() + now.left()) / 2, 20)));
}

} // namespace

#include "octave_picker_test.moc"

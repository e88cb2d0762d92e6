#include <vtcore/ui/common/border_view/border_view.h>

#include <QGuiApplication>
#include <QImage>
#include <QScreen>
#include <QTest>
#include <QWindow>
#include <gtest/gtest.h>

namespace {

const QColor kBorder(255, 0, 0);
const QColor kBackground(0, 0, 255);

QImage render(DfBorderView& view) {
  return view.grab().toImage().convertToFormat(QImage::Format_RGB32);
}

} // namespace

TEST(DfBorderView, DrawsBordersOnTheChosenEdgesAndTheGripAlongTheLongerSide) {
  DfBorderView view;
  view.resize(120, 12);
  view.setBorderColor(kBorder);
  view.setBackgroundColor(kBackground);
  view.setBorderEdges(Qt::TopEdge | Qt::BottomEdge);
  const QImage image = render(view);
  EXPECT_EQ(image.pixelColor(60, 0), kBorder);
  EXPECT_EQ(image.pixelColor(60, 11), kBorder);
  // No left or right border; the grip in the centre.
  EXPECT_EQ(image.pixelColor(0, 6), kBackground);
  EXPECT_EQ(image.pixelColor(119, 6), kBackground);
  EXPECT_NE(image.pixelColor(60, 6), kBackground);
  EXPECT_GT(view.gripRect().width(), view.gripRect().height());

  view.resize(9, 200);
  EXPECT_GT(view.gripRect().height(), view.gripRect().width());
  EXPECT_TRUE(QRectF(view.rect()).contains(view.gripRect()));
  view.resize(120, 12);
  view.setDrawsGrip(false);
  EXPECT_TRUE(view.gripRect().isEmpty());
  EXPECT_EQ(render(view).pixelColor(60, 6), kBackground);
}

TEST(DfBorderView, DefaultColoursComeFromThePalette) {
  DfBorderView view;
  view.resize(60, 10);
  QPalette palette = view.palette();
  palette.setColor(QPalette::Mid, QColor(0, 200, 0));
  view.setPalette(palette);
  EXPECT_EQ(render(view).pixelColor(30, 0), QColor(0, 200, 0));
}

// The view in a real top-level window, read back from the screen: what a
// user would see, not what the widget renders into an image.
TEST(DfBorderViewRealWindow, IsVisibleOnScreen) {
  DfBorderView view;
  view.setBorderColor(kBorder);
  view.setBackgroundColor(kBackground);
  view.resize(160, 16);
  view.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
  QImage shot;
  // The window system may show the window before its first paint arrives.
  const bool painted = QTest::qWaitFor([&] {
    shot = view.screen()->grabWindow(view.winId()).toImage().convertToFormat(QImage::Format_RGB32);
    return !shot.isNull() && shot.width() >= 160 && shot.pixelColor(80, 0) == kBorder;
  });
  ASSERT_TRUE(painted) << "platform " << qPrintable(QGuiApplication::platformName());
  EXPECT_EQ(shot.pixelColor(10, 8), kBackground);
  EXPECT_NE(shot.pixelColor(80, 8), kBackground);
}

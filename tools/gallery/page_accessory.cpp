// Gallery samples of the views: sliding accessory panels with their
// splitters.
#include "gallery.h"

#include <vtcore/ui.h>

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QVBoxLayout>

namespace {

using F = vtcore::AutoresizingFlag;

// Shows what the two containers are doing.
class PanelStatus : public QObject, public VTAccessoryContainerViewDelegate {
public:
  PanelStatus(QLabel* label, VTAccessoryContainerView* inspector, VTAccessoryContainerView* browser,
              QObject* parent)
      : QObject(parent), m_label(label), m_inspector(inspector), m_browser(browser) {
    show();
  }

  void accessoryContainerViewWillBeginAnimation(VTAccessoryContainerView*) override { show(); }
  void accessoryContainerViewDidEndAnimation(VTAccessoryContainerView*) override { show(); }
  void accessoryContainerViewDidEndUserResize(VTAccessoryContainerView*) override { show(); }

private:
  static QString describe(const VTAccessoryContainerView* container) {
    if (container->isSlidingIn())
      return QStringLiteral("sliding in");
    if (container->isSlidingOut())
      return QStringLiteral("sliding out");
    if (container->isSlidedOut())
      return QStringLiteral("hidden");
    return QStringLiteral("%1 pt").arg(container->currentSlideSize());
  }
  void show() {
    m_label->setText(QStringLiteral("inspector: %1 · browser: %2")
                         .arg(describe(m_inspector), describe(m_browser)));
  }

  QLabel* m_label;
  VTAccessoryContainerView* m_inspector;
  VTAccessoryContainerView* m_browser;
};

QWidget* makePanel(QWidget* parent, QPalette::ColorRole role, const QRect& frame) {
  auto* panel = new QWidget(parent);
  panel->setAutoFillBackground(true);
  panel->setBackgroundRole(role);
  panel->setGeometry(frame);
  return panel;
}

QLabel* makeLabel(QWidget* parent, const QString& text, const QRect& frame,
                  vtcore::AutoresizingMask mask, QPalette::ColorRole role = QPalette::NoRole) {
  auto* label = new QLabel(text, parent);
  label->setGeometry(frame);
  if (role != QPalette::NoRole) {
    label->setAutoFillBackground(true);
    label->setBackgroundRole(role);
    label->setAlignment(Qt::AlignCenter);
  }
  vtcore::setAutoresizingMask(label, mask);
  return label;
}

// An inspector on the right of an arrangement area and a browser below both;
// each has a splitter on its edge, and one corner handle drags both edges.
QWidget* makeAccessorySample() {
  auto* sample = new QWidget;
  auto* column = new QVBoxLayout(sample);
  column->setContentsMargins(0, 0, 0, 0);

  constexpr int width = 500, height = 330, inspectorWidth = 190, browserHeight = 110;
  constexpr int upper = height - browserHeight, handle = 8;

  // The outer container: everything above, the browser below.
  auto* outer = new VTAccessoryContainerView;
  outer->resize(width, height);
  outer->setMinimumSize(460, height);
  // The inner container: the arrangement, the inspector on its right.
  auto* inner = new VTAccessoryContainerView(outer);
  inner->setGeometry(0, 0, width, upper);
  vtcore::setAutoresizingMask(inner, F::FlexibleWidth | F::FlexibleHeight);

  QWidget* area = makePanel(inner, QPalette::Base, QRect(0, 0, width - inspectorWidth, upper));
  vtcore::setAutoresizingMask(area, F::FlexibleWidth | F::FlexibleHeight);
  makeLabel(area, QStringLiteral("<b>Arrangement</b><br>the main view"), QRect(16, 12, 200, 48),
            F::FlexibleRightMargin);
  for (int track = 0; track < 4; ++track)
    makeLabel(area, QStringLiteral("Track %1").arg(track + 1),
              QRect(16, 72 + track * 34, width - inspectorWidth - 32, 28), F::FlexibleWidth,
              QPalette::Button);

  QWidget* inspector = makePanel(inner, QPalette::AlternateBase,
                                 QRect(width - inspectorWidth, 0, inspectorWidth, upper));
  vtcore::setAutoresizingMask(inspector, F::FlexibleLeftMargin | F::FlexibleHeight);
  makeLabel(inspector, QStringLiteral("<b>Inspector</b>"), QRect(20, 12, 150, 22),
            F::FlexibleWidth);
  const char* const controls[] = {"Volume", "Pan", "Send A", "Send B"};
  for (int row = 0; row < 4; ++row) {
    makeLabel(inspector, QString::fromUtf8(controls[row]), QRect(20, 44 + row * 40, 60, 24),
              F::None);
    auto* slider = new QSlider(Qt::Horizontal, inspector);
    slider->setGeometry(80, 44 + row * 40, inspectorWidth - 96, 24);
    slider->setValue(20 + row * 18);
    vtcore::setAutoresizingMask(slider, F::FlexibleWidth);
  }
  auto* inspectorEdge = new VTAccessorySplitter(inspector);
  inspectorEdge->setBorderEdges(Qt::LeftEdge);
  inspectorEdge->setGeometry(0, 0, handle, upper - 14);
  vtcore::setAutoresizingMask(inspectorEdge, F::FlexibleHeight);
  auto* corner = new VTAccessorySplitter(inspector);
  corner->setDrawsGrip(false);
  corner->setBorderEdges(Qt::LeftEdge | Qt::BottomEdge | Qt::TopEdge | Qt::RightEdge);
  corner->setGeometry(0, upper - 14, 14, 14);
  corner->setToolTip(QStringLiteral("Drag to resize the inspector and the browser together"));
  vtcore::setAutoresizingMask(corner, F::FlexibleTopMargin);

  QWidget* browser =
      makePanel(outer, QPalette::AlternateBase, QRect(0, upper, width, browserHeight));
  vtcore::setAutoresizingMask(browser, F::FlexibleTopMargin | F::FlexibleWidth);
  makeLabel(browser, QStringLiteral("<b>Browser</b>"), QRect(16, handle + 6, 200, 22),
            F::FlexibleRightMargin);
  for (int clip = 0; clip < 5; ++clip)
    makeLabel(browser, QStringLiteral("Clip %1").arg(clip + 1),
              QRect(16 + clip * 88, handle + 36, 80, 56), F::FlexibleRightMargin, QPalette::Button);
  auto* browserEdge = new VTAccessorySplitter(browser);
  browserEdge->setBorderEdges(Qt::TopEdge);
  browserEdge->setGeometry(0, 0, width, handle);
  vtcore::setAutoresizingMask(browserEdge, F::FlexibleWidth);

  inner->setMainView(area);
  inner->setSlideView(inspector);
  inner->setMinSlideSize(140);
  outer->setMainView(inner);
  outer->setSlideView(browser);
  outer->setMinSlideSize(60);
  outer->setMinMainViewSize(150);
  outer->animationObject()->setSlideOutTimeAmount(0.5);
  inspectorEdge->setSplitView(inner);
  browserEdge->setSplitView(outer);
  corner->setHorizontalSplitView(outer);
  corner->setVerticalSplitView(inner);

  auto* buttons = new QHBoxLayout;
  const auto addButton = [&](const char* title, std::function<void()> run) {
    auto* button = new QPushButton(QString::fromUtf8(title));
    QObject::connect(button, &QPushButton::clicked, sample, std::move(run));
    buttons->addWidget(button);
  };
  addButton("Inspector", [inner] { inner->toggleWithAnimation(true); });
  addButton("Inspector at once", [inner] { inner->toggleWithAnimation(false); });
  addButton("Browser", [outer] { outer->toggleWithAnimation(true); });
  addButton("Browser at once", [outer] { outer->toggleWithAnimation(false); });
  buttons->addStretch(1);

  auto* status = new QLabel;
  auto* delegate = new PanelStatus(status, inner, outer, sample);
  inner->setDelegate(delegate);
  outer->setDelegate(delegate);

  column->addLayout(buttons);
  column->addWidget(outer, 1);
  column->addWidget(status);
  return sample;
}

const vtcore::gallery::Sample accessorySample{
    30, "VTAccessoryContainerView",
    "Panels that slide in from an edge with an eased motion, their content riding on the "
    "edge. Drag an edge to resize a panel (the arrangement keeps at least 200 pt), or the "
    "small corner handle to resize the inspector and the browser together. The buttons toggle "
    "each panel, animated or at once.",
    makeAccessorySample};

} // namespace

#include <vtcore/ui/views/autoresizing/autoresizing.h>

#include <QLayout>
#include <QPointer>
#include <QVariant>
#include <QWidget>

#include <algorithm>
#include <cmath>
#include <vector>

namespace vtcore {
namespace {

// Dynamic properties keep the model's state on the widgets themselves, so
// that it lives and dies with them and needs no registry.
constexpr char kMaskProperty[] = "_vtcore_autoresizingMask";
constexpr char kLaidOutSizeProperty[] = "_vtcore_laidOutSize";

// One direction of the rule: a leading margin, a length and a trailing
// margin share `delta`. Returns the new leading margin and length.
std::pair<double, double> distribute(double leading, double length, double trailing, double delta,
                                     bool flexLeading, bool flexLength, bool flexTrailing) {
  const int flexible = int(flexLeading) + int(flexLength) + int(flexTrailing);
  if (flexible == 0 || delta == 0)
    return {leading, length};
  const double sum = (flexLeading ? std::max(leading, 0.0) : 0.0) +
                     (flexLength ? std::max(length, 0.0) : 0.0) +
                     (flexTrailing ? std::max(trailing, 0.0) : 0.0);
  const auto share = [&](bool flex, double part) {
    if (!flex)
      return 0.0;
    return sum > 0 ? delta * std::max(part, 0.0) / sum : delta / flexible;
  };
  return {leading + share(flexLeading, leading), length + share(flexLength, length)};
}

void layoutChildren(QWidget* view, const QSize& oldSize, const QSize& newSize) {
  if (view->layout() || !oldSize.isValid() || oldSize == newSize)
    return;
  // A child's own layout pass may add or delete widgets: work on a guarded
  // snapshot.
  std::vector<QPointer<QWidget>> children;
  for (QObject* child : view->children())
    if (child->isWidgetType() && !static_cast<QWidget*>(child)->isWindow())
      children.emplace_back(static_cast<QWidget*>(child));
  for (const QPointer<QWidget>& child : children)
    if (child)
      setFrame(child,
               autoresizedFrame(child->geometry(), autoresizingMask(child), oldSize, newSize));
}

} // namespace

void setAutoresizingMask(QWidget* view, AutoresizingMask mask) {
  if (view)
    view->setProperty(kMaskProperty, QVariant::fromValue(unsigned(mask.toInt())));
}

AutoresizingMask autoresizingMask(const QWidget* view) {
  if (!view)
    return {};
  return AutoresizingMask::fromInt(int(view->property(kMaskProperty).toUInt()));
}

QRect autoresizedFrame(const QRect& frame, AutoresizingMask mask, const QSize& oldParentSize,
                       const QSize& newParentSize) {
  if (!oldParentSize.isValid() || !newParentSize.isValid())
    return frame;
  using F = AutoresizingFlag;
  const auto [x, width] = distribute(
      frame.x(), frame.width(), oldParentSize.width() - frame.x() - frame.width(),
      newParentSize.width() - oldParentSize.width(), mask.testFlag(F::FlexibleLeftMargin),
      mask.testFlag(F::FlexibleWidth), mask.testFlag(F::FlexibleRightMargin));
  const auto [y, height] = distribute(
      frame.y(), frame.height(), oldParentSize.height() - frame.y() - frame.height(),
      newParentSize.height() - oldParentSize.height(), mask.testFlag(F::FlexibleTopMargin),
      mask.testFlag(F::FlexibleHeight), mask.testFlag(F::FlexibleBottomMargin));
  // Round the edges, not the sizes, so that neighbours that share an edge
  // keep sharing it.
  const int left = int(std::lround(x));
  const int top = int(std::lround(y));
  const int right = int(std::lround(x + std::max(width, 0.0)));
  const int bottom = int(std::lround(y + std::max(height, 0.0)));
  return QRect(left, top, std::max(right - left, 0), std::max(bottom - top, 0));
}

void resizeSubviewsWithOldSize(QWidget* view, const QSize& oldSize) {
  if (!view)
    return;
  view->setProperty(kLaidOutSizeProperty, view->size());
  layoutChildren(view, oldSize, view->size());
}

void setFrame(QWidget* view, const QRect& frame) {
  if (!view)
    return;
  // The children were arranged for the size the view has now, unless the
  // model has seen it before.
  if (!view->property(kLaidOutSizeProperty).isValid())
    markSubviewsLaidOut(view);
  view->setGeometry(frame.x(), frame.y(), std::max(frame.width(), 0), std::max(frame.height(), 0));
  layoutSubviewsIfResized(view);
}

void layoutSubviewsIfResized(QWidget* view) {
  if (!view)
    return;
  const QVariant laidOut = view->property(kLaidOutSizeProperty);
  const QSize size = view->size();
  if (!laidOut.isValid()) {
    view->setProperty(kLaidOutSizeProperty, size);
    return;
  }
  const QSize oldSize = laidOut.toSize();
  if (oldSize == size)
    return;
  if (auto* custom = dynamic_cast<AutoresizingView*>(view)) {
    // Recorded first, so that a resize event the custom layout causes finds
    // nothing left to do.
    view->setProperty(kLaidOutSizeProperty, size);
    custom->resizeSubviewsWithOldSize(oldSize);
    return;
  }
  resizeSubviewsWithOldSize(view, oldSize);
}

QSize laidOutSize(const QWidget* view) {
  if (!view)
    return {};
  const QVariant laidOut = view->property(kLaidOutSizeProperty);
  return laidOut.isValid() ? laidOut.toSize() : QSize();
}

void markSubviewsLaidOut(QWidget* view) {
  if (view)
    view->setProperty(kLaidOutSizeProperty, view->size());
}

} // namespace vtcore

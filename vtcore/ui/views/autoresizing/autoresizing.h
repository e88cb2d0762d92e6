// Autoresizing: how the children of a view without a layout follow it when it
// is resized.
//
// Every widget may carry an autoresizing mask that says which of its margins
// to its parent, and which of its own dimensions, are flexible. When the
// parent is resized through setFrame() (or resizeSubviewsWithOldSize()), each
// child's frame takes up the change of the parent's width among its flexible
// left margin, width and right margin, and the change of the height among its
// flexible top margin, height and bottom margin. One flexible part takes the
// whole change; several share it in proportion to their current sizes (in
// equal parts when those are all zero). With no flexible part in a direction
// the child keeps its position and size in that direction, which is also
// what a widget without a mask does.
//
// Names are in Qt's y-down terms: the top margin is the distance from the
// parent's top edge to the child's top edge.
//
// The model applies only to the children of widgets without a QLayout (a
// layout manages its own children) and never to child windows. The
// accessory container and its animation apply it to their views.
#pragma once

#include <vtcore/export.h>

#include <QFlags>
#include <QRect>
#include <QSize>

class QWidget;

namespace vtcore {

/// A widget that lays out its children itself when resized: the model calls
/// its resizeSubviewsWithOldSize() instead of the plain one below.
class VTCORE_UI_EXPORT AutoresizingView {
public:
  virtual ~AutoresizingView() = default;
  /// The widget has been resized from `oldSize` to its current size; lay out
  /// the children (usually by calling vtcore::resizeSubviewsWithOldSize()).
  virtual void resizeSubviewsWithOldSize(const QSize& oldSize) = 0;
};

enum class AutoresizingFlag : unsigned {
  None = 0,
  FlexibleLeftMargin = 1u << 0,
  FlexibleWidth = 1u << 1,
  FlexibleRightMargin = 1u << 2,
  FlexibleTopMargin = 1u << 3,
  FlexibleHeight = 1u << 4,
  FlexibleBottomMargin = 1u << 5,
};
Q_DECLARE_FLAGS(AutoresizingMask, AutoresizingFlag)
Q_DECLARE_OPERATORS_FOR_FLAGS(AutoresizingMask)

/// Sets the mask of `view` (kept on the widget itself). Null does nothing.
VTCORE_UI_EXPORT void setAutoresizingMask(QWidget* view, AutoresizingMask mask);
/// The mask of `view`: none when none was set or `view` is null.
VTCORE_UI_EXPORT AutoresizingMask autoresizingMask(const QWidget* view);

/// The frame that a child with `frame` and `mask` takes when its parent goes
/// from `oldParentSize` to `newParentSize` (rules above). Sizes never come
/// out negative: a child squeezed beyond zero keeps a size of 0. An invalid
/// old or new parent size leaves the frame unchanged.
VTCORE_UI_EXPORT QRect autoresizedFrame(const QRect& frame, AutoresizingMask mask,
                                        const QSize& oldParentSize, const QSize& newParentSize);

/// The size the children of `view` were last laid out for by the model;
/// invalid when it has not seen `view` yet (or `view` is null).
VTCORE_UI_EXPORT QSize laidOutSize(const QWidget* view);

/// Resizes the children of `view` by their masks for a change of `view` from
/// `oldSize` to its current size, each through setFrame() so that their own
/// children follow in turn. Nothing for a null view, a view with a layout, or
/// an unchanged or invalid old size.
VTCORE_UI_EXPORT void resizeSubviewsWithOldSize(QWidget* view, const QSize& oldSize);

/// Gives `view` the frame `frame` (in its parent's coordinates) and, if its
/// size changed since its children were last laid out by this model, lays
/// them out. Safe to call from the view's own resizeEvent(): the children of
/// one size are laid out once. Null does nothing; negative sizes become 0.
VTCORE_UI_EXPORT void setFrame(QWidget* view, const QRect& frame);

/// Lays out the children of `view` for its current size if that differs from
/// the size they were last laid out for (a view seen for the first time is
/// only recorded); an AutoresizingView does it through its own
/// resizeSubviewsWithOldSize(). For widgets that are resized by other means, such as a
/// layout or the window: call it from their resizeEvent(). Null does nothing.
VTCORE_UI_EXPORT void layoutSubviewsIfResized(QWidget* view);

/// Records the current size of `view` as the one its children are laid out
/// for, without moving them: call it after arranging the children by hand.
VTCORE_UI_EXPORT void markSubviewsLaidOut(QWidget* view);

} // namespace vtcore

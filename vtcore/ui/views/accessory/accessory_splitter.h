// VTAccessorySplitter: the drag handle on the edge of an accessory container.
//
// A border view that turns mouse drags into size changes of one container
// (splitView), or of two at once (horizontalSplitView, the container whose
// edge runs across and follows vertical drags, and verticalSplitView, whose
// edge runs up and down and follows horizontal drags). It drives two
// containers when both of those are set, otherwise splitView.
//
// Place it on the edge so that it moves with it, usually as a child of the
// panel. The distance the pointer has moved is measured from where the
// handle was grabbed, in the handle's own coordinates; as the handle follows
// the edge, that is how far the edge lags behind the pointer, and the edge
// catches up without drift.
//
// A container hears accessorySplitterWillStartResize() once per drag, on the
// first movement, then accessorySplitter(delta) for every movement, and
// accessorySplitterDidEndResize() when the button is released, only if it
// moved. A click without movement sends nothing.
//
// Cursor: an open hand over the handle, a closed hand while dragging (kept
// as an override cursor for the whole drag), none when the driven
// containers can move neither way. Subclasses may change the choice through
// the determineCursor() hooks.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/common/border_view/border_view.h>

#include <QCursor>
#include <QPointer>

#include <optional>

class VTAccessoryContainerView;

/// The drag handle on the edge of an accessory container; see the top of
/// this file.
class VTCORE_UI_EXPORT VTAccessorySplitter : public DfBorderView {
  Q_OBJECT
public:
  /// A handle that drives no container yet.
  explicit VTAccessorySplitter(QWidget* parent = nullptr);
  /// Ends a drag in progress: the override cursor is taken down and the
  /// containers that moved hear accessorySplitterDidEndResize().
  ~VTAccessorySplitter() override;

  ///@{
  /// The containers it drives (not owned; null once destroyed).
  VTAccessoryContainerView* splitView() const { return m_splitView.data(); }
  void setSplitView(VTAccessoryContainerView* container);
  VTAccessoryContainerView* horizontalSplitView() const { return m_horizontalSplitView.data(); }
  void setHorizontalSplitView(VTAccessoryContainerView* container);
  VTAccessoryContainerView* verticalSplitView() const { return m_verticalSplitView.data(); }
  void setVerticalSplitView(VTAccessoryContainerView* container);
  ///@}

  /// Whether both horizontalSplitView and verticalSplitView are set.
  bool drivesTwoContainers() const;
  /// Whether a driven container (either of two) allows user resizing.
  bool resizingPossible() const;
  /// The cursor that the handle shows now; none for no cursor of its own.
  std::optional<QCursor> currentCursor() const;
  /// Sets the handle's cursor from currentCursor() when resizing is
  /// possible, otherwise takes it away. Called on entering the handle, on
  /// hovering, after a drag and when the containers change.
  void resetCursorRects();

protected:
  // A subclass that overrides one of the two hooks brings the other into
  // scope with `using VTAccessorySplitter::determineCursor;`.

  /// The cursor to show with one container: `cursor` is the chosen one
  /// (none at both limits). The base returns it unchanged.
  virtual std::optional<QCursor> determineCursor(std::optional<QCursor> cursor, bool mouseIsDown,
                                                 bool minimumReached, bool maximumReached);
  /// The same with two containers (none when both are at both limits).
  virtual std::optional<QCursor> determineCursor(std::optional<QCursor> cursor, bool mouseIsDown,
                                                 bool hMinimumReached, bool hMaximumReached,
                                                 bool vMinimumReached, bool vMaximumReached);

  ///@{
  /// A drag of the handle: grab, move the edge by the distance from the
  /// grab, let go; entering the handle sets its cursor.
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void enterEvent(QEnterEvent* event) override;
  ///@}

private:
  void endDrag();
  void showDraggingCursor();
  void takeDownDraggingCursor();

  QPointer<VTAccessoryContainerView> m_splitView;
  QPointer<VTAccessoryContainerView> m_horizontalSplitView;
  QPointer<VTAccessoryContainerView> m_verticalSplitView;
  float m_startValue = 0;
  bool m_changedSomething = false;
  float m_startValueVertical = 0;
  bool m_changedSomethingVertical = false;
  bool m_mouseIsDown = false;
  bool m_overridingCursor = false;
};

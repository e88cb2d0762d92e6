#include <vtcore/ui/views/accessory/accessory_splitter.h>

#include <vtcore/ui/views/accessory/accessory_container_view.h>

#include <QGuiApplication>
#include <QMouseEvent>

VTAccessorySplitter::VTAccessorySplitter(QWidget* parent) : DfBorderView(parent) {
  // Hover moves keep the cursor right when the containers reach or leave a
  // limit by other means (a window resize, a slide).
  setMouseTracking(true);
}

VTAccessorySplitter::~VTAccessorySplitter() {
  if (m_mouseIsDown)
    endDrag();
}

void VTAccessorySplitter::setSplitView(VTAccessoryContainerView* container) {
  m_splitView = container;
  resetCursorRects();
}

void VTAccessorySplitter::setHorizontalSplitView(VTAccessoryContainerView* container) {
  m_horizontalSplitView = container;
  resetCursorRects();
}

void VTAccessorySplitter::setVerticalSplitView(VTAccessoryContainerView* container) {
  m_verticalSplitView = container;
  resetCursorRects();
}

bool VTAccessorySplitter::drivesTwoContainers() const {
  return m_horizontalSplitView && m_verticalSplitView;
}

bool VTAccessorySplitter::resizingPossible() const {
  if (drivesTwoContainers())
    return m_horizontalSplitView->userResizingPossible() ||
           m_verticalSplitView->userResizingPossible();
  return m_splitView && m_splitView->userResizingPossible();
}

std::optional<QCursor> VTAccessorySplitter::currentCursor() const {
  const QCursor hand(m_mouseIsDown ? Qt::ClosedHandCursor : Qt::OpenHandCursor);
  auto* self = const_cast<VTAccessorySplitter*>(this);
  if (drivesTwoContainers()) {
    const bool hMin = m_horizontalSplitView->minSplitSizeReached();
    const bool hMax = m_horizontalSplitView->maxSplitSizeReached();
    const bool vMin = m_verticalSplitView->minSplitSizeReached();
    const bool vMax = m_verticalSplitView->maxSplitSizeReached();
    const bool stuck = hMin && hMax && vMin && vMax;
    return self->determineCursor(stuck ? std::nullopt : std::optional<QCursor>(hand), m_mouseIsDown,
                                 hMin, hMax, vMin, vMax);
  }
  if (!m_splitView)
    return std::nullopt;
  const bool min = m_splitView->minSplitSizeReached();
  const bool max = m_splitView->maxSplitSizeReached();
  return self->determineCursor(min && max ? std::nullopt : std::optional<QCursor>(hand),
                               m_mouseIsDown, min, max);
}

std::optional<QCursor> VTAccessorySplitter::determineCursor(std::optional<QCursor> cursor, bool,
                                                            bool, bool) {
  return cursor;
}

std::optional<QCursor> VTAccessorySplitter::determineCursor(std::optional<QCursor> cursor, bool,
                                                            bool, bool, bool, bool) {
  return cursor;
}

void VTAccessorySplitter::resetCursorRects() {
  const std::optional<QCursor> cursor = resizingPossible() ? currentCursor() : std::nullopt;
  if (cursor)
    setCursor(*cursor);
  else
    unsetCursor();
}

void VTAccessorySplitter::enterEvent(QEnterEvent* event) {
  DfBorderView::enterEvent(event);
  resetCursorRects();
}

void VTAccessorySplitter::showDraggingCursor() {
  const std::optional<QCursor> cursor = currentCursor();
  if (cursor && m_overridingCursor)
    QGuiApplication::changeOverrideCursor(*cursor);
  else if (cursor)
    QGuiApplication::setOverrideCursor(*cursor);
  else if (m_overridingCursor)
    QGuiApplication::restoreOverrideCursor();
  m_overridingCursor = cursor.has_value();
}

void VTAccessorySplitter::takeDownDraggingCursor() {
  if (m_overridingCursor)
    QGuiApplication::restoreOverrideCursor();
  m_overridingCursor = false;
}

void VTAccessorySplitter::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || m_mouseIsDown || !resizingPossible()) {
    event->ignore();
    return;
  }
  const QPointF at = event->position();
  if (drivesTwoContainers()) {
    m_startValue = float(at.y());
    m_startValueVertical = float(at.x());
    m_changedSomething = false;
    m_changedSomethingVertical = false;
  } else {
    m_startValue = float(m_splitView->isHorizontal() ? at.x() : at.y());
    m_changedSomething = false;
  }
  m_mouseIsDown = true;
  // The override cursor stands in for the host switching off the window's
  // cursor rectangles: the hand stays closed wherever the pointer goes.
  showDraggingCursor();
}

void VTAccessorySplitter::mouseMoveEvent(QMouseEvent* event) {
  if (!m_mouseIsDown) {
    resetCursorRects();
    DfBorderView::mouseMoveEvent(event);
    return;
  }
  const QPointF at = event->position();
  // A container's notifications may delete the splitter or the containers.
  QPointer<VTAccessorySplitter> self(this);
  if (drivesTwoContainers()) {
    const float dy = float(at.y()) - m_startValue;
    const float dx = float(at.x()) - m_startValueVertical;
    QPointer<VTAccessoryContainerView> horizontal = m_horizontalSplitView;
    QPointer<VTAccessoryContainerView> vertical = m_verticalSplitView;
    if (dy != 0 && horizontal && horizontal->userResizingPossible()) {
      if (!m_changedSomething) {
        m_changedSomething = true;
        horizontal->accessorySplitterWillStartResize(this);
      }
      if (self && horizontal)
        horizontal->accessorySplitter(this, dy);
    }
    if (!self)
      return;
    if (dx != 0 && vertical && vertical->userResizingPossible()) {
      if (!m_changedSomethingVertical) {
        m_changedSomethingVertical = true;
        vertical->accessorySplitterWillStartResize(this);
      }
      if (self && vertical)
        vertical->accessorySplitter(this, dx);
    }
  } else if (QPointer<VTAccessoryContainerView> container = m_splitView) {
    const float delta = float(container->isHorizontal() ? at.x() : at.y()) - m_startValue;
    if (delta != 0) {
      if (!m_changedSomething) {
        m_changedSomething = true;
        container->accessorySplitterWillStartResize(this);
      }
      if (self && container)
        container->accessorySplitter(this, delta);
    }
  }
  if (self && m_mouseIsDown)
    showDraggingCursor();
}

void VTAccessorySplitter::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !m_mouseIsDown) {
    event->ignore();
    return;
  }
  QPointer<VTAccessorySplitter> self(this);
  endDrag();
  if (self)
    resetCursorRects();
}

void VTAccessorySplitter::endDrag() {
  m_mouseIsDown = false;
  takeDownDraggingCursor();
  const bool horizontalMoved = m_changedSomething;
  const bool verticalMoved = m_changedSomethingVertical;
  m_changedSomething = false;
  m_changedSomethingVertical = false;
  QPointer<VTAccessoryContainerView> first =
      drivesTwoContainers() ? m_horizontalSplitView : m_splitView;
  QPointer<VTAccessoryContainerView> second = drivesTwoContainers() ? m_verticalSplitView : nullptr;
  if (horizontalMoved && first)
    first->accessorySplitterDidEndResize(this);
  if (verticalMoved && second)
    second->accessorySplitterDidEndResize(this);
}

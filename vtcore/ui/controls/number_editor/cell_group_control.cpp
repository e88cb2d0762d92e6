#include <vtcore/ui/controls/number_editor/cell_group_control.h>

#include <QFocusEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

KwCellGroupControl::KwCellGroupControl(QWidget* parent) : QWidget(parent) {
  setFocusPolicy(Qt::StrongFocus);
  setAttribute(Qt::WA_KeyCompression, false);
}

KwCellGroupControl::~KwCellGroupControl() {
  // Cells are destroyed before the QWidget part: make sure nothing points at
  // them in between.
  m_editingCell = nullptr;
  m_mouseTrackingCell = nullptr;
  m_cells.clear();
}

// --- Cells ---

KwActionCell* KwCellGroupControl::addCell(std::unique_ptr<KwActionCell> cell, const QRectF& frame) {
  if (!cell)
    return nullptr;
  KwActionCell* added = cell.get();
  m_cells.push_back({std::move(cell), frame});
  setUpAddedCellAttributes(added);
  update();
  return added;
}

KwActionCell* KwCellGroupControl::addCell(std::unique_ptr<KwActionCell> cell, const QSizeF& size) {
  const qreal x = m_cells.empty() ? 0.0 : m_cells.back().frame.right();
  return addCell(std::move(cell), QRectF(QPointF(x, 0), size));
}

KwActionCell* KwCellGroupControl::addCell(std::unique_ptr<KwActionCell> cell, qreal width) {
  return addCell(std::move(cell), QSizeF(width, height()));
}

void KwCellGroupControl::setFrameOfCell(const QRectF& frame, int atIndex) {
  if (atIndex < 0 || atIndex >= cellCount())
    return;
  m_cells[static_cast<std::size_t>(atIndex)].frame = frame;
  update();
}

void KwCellGroupControl::setSizeOfCell(const QSizeF& size, int atIndex) {
  if (atIndex < 0 || atIndex >= cellCount())
    return;
  m_cells[static_cast<std::size_t>(atIndex)].frame.setSize(size);
  update();
}

void KwCellGroupControl::setWidthOfCell(qreal width, int atIndex) {
  if (atIndex < 0 || atIndex >= cellCount())
    return;
  m_cells[static_cast<std::size_t>(atIndex)].frame.setWidth(width);
  update();
}

void KwCellGroupControl::removeCellAtIndex(int index) {
  if (index < 0 || index >= cellCount())
    return;
  KwActionCell* cell = m_cells[static_cast<std::size_t>(index)].cell.get();
  if (cell == m_editingCell) {
    m_editingCell->stopEditingAndResignFirstResponder(false);
    m_editingCell = nullptr;
  }
  if (cell == m_mouseTrackingCell) {
    m_mouseTrackingCell = nullptr;
    m_mouseTrackingActive = false;
  }
  // The cell may have called back into the control while it stopped: find
  // it again instead of trusting the index.
  const int now = indexOfCell(cell);
  if (now >= 0)
    m_cells.erase(m_cells.begin() + now);
  update();
}

void KwCellGroupControl::removeAllCells() {
  while (!m_cells.empty())
    removeCellAtIndex(cellCount() - 1);
}

KwActionCell* KwCellGroupControl::cellAtIndex(int index) const {
  if (index < 0 || index >= cellCount())
    return nullptr;
  return m_cells[static_cast<std::size_t>(index)].cell.get();
}

QRectF KwCellGroupControl::frameOfCellAtIndex(int index) const {
  if (index < 0 || index >= cellCount())
    return {};
  return m_cells[static_cast<std::size_t>(index)].frame;
}

int KwCellGroupControl::indexOfCell(const KwActionCell* cell) const {
  if (!cell)
    return -1;
  for (std::size_t i = 0; i < m_cells.size(); ++i) {
    if (m_cells[i].cell.get() == cell)
      return static_cast<int>(i);
  }
  return -1;
}

void KwCellGroupControl::setUpAddedCellAttributes(KwActionCell* cell) {
  cell->setControlView(this);
  auto* number = dynamic_cast<KwNumberEditorCell*>(cell);
  if (!number)
    return;
  number->setBackgroundColor(m_backgroundColor);
  number->setTextColor(m_textColor);
  number->setEditBackgroundColor(m_editBackgroundColor);
  number->setEditTextColor(m_editTextColor);
  number->setDrawsBackground(m_drawsBackground);
  number->setFont(font());
  number->setAlignment(m_textAlignment);
  number->setEnabled(m_enabled);
  number->setControlSize(m_controlSize);
  number->setDisablesFontSmoothing(m_disableFontSmoothing);
  number->setDelegate(this);
}

void KwCellGroupControl::recalculateCellPositions() {
  qreal x = 0;
  for (CellSlot& slot : m_cells) {
    slot.frame.moveTopLeft(QPointF(x, 0));
    x += slot.frame.width();
  }
  update();
}

void KwCellGroupControl::recalculateCellPositionsAndSizes() {
  for (CellSlot& slot : m_cells)
    slot.frame.setSize(QSizeF(slot.cell->cellSize().width(), height()));
  recalculateCellPositions();
}

// --- Look ---

void KwCellGroupControl::forEachNumberCell(const std::function<void(KwNumberEditorCell&)>& apply) {
  for (CellSlot& slot : m_cells) {
    if (auto* number = dynamic_cast<KwNumberEditorCell*>(slot.cell.get()))
      apply(*number);
  }
  update();
}

void KwCellGroupControl::setBackgroundColor(const QColor& color) {
  m_backgroundColor = color;
  forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setBackgroundColor(color); });
}

void KwCellGroupControl::setEditBackgroundColor(const QColor& color) {
  m_editBackgroundColor = color;
  forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setEditBackgroundColor(color); });
}

void KwCellGroupControl::setTextColor(const QColor& color) {
  m_textColor = color;
  forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setTextColor(color); });
}

void KwCellGroupControl::setEditTextColor(const QColor& color) {
  m_editTextColor = color;
  forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setEditTextColor(color); });
}

void KwCellGroupControl::setDrawsBackground(bool draws) {
  m_drawsBackground = draws;
  forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setDrawsBackground(draws); });
}

void KwCellGroupControl::setAlignment(Qt::Alignment alignment) {
  m_textAlignment = alignment & Qt::AlignHorizontal_Mask;
  forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setAlignment(alignment); });
}

void KwCellGroupControl::setControlSize(KwControlSize size) {
  m_controlSize = size;
  forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setControlSize(size); });
}

void KwCellGroupControl::setDisablesFontSmoothing(bool disables) {
  m_disableFontSmoothing = disables;
  forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setDisablesFontSmoothing(disables); });
}

void KwCellGroupControl::changeEvent(QEvent* event) {
  switch (event->type()) {
  case QEvent::FontChange: {
    const QFont current = font();
    forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setFont(current); });
    break;
  }
  case QEvent::EnabledChange:
    m_enabled = isEnabled();
    forEachNumberCell([&](KwNumberEditorCell& cell) { cell.setEnabled(m_enabled); });
    break;
  case QEvent::ParentChange:
    // Moved to another window (or out of one): editing does not follow.
    stopEditingAndResignFirstResponder(false);
    break;
  default:
    break;
  }
  QWidget::changeEvent(event);
}

QSize KwCellGroupControl::sizeHint() const {
  qreal width = 0;
  qreal tallest = 0;
  for (const CellSlot& slot : m_cells) {
    const QSizeF size = slot.cell->cellSize();
    width += size.width();
    tallest = std::max(tallest, size.height());
  }
  return {static_cast<int>(std::ceil(width)), static_cast<int>(std::ceil(tallest))};
}

// --- Editing ---

void KwCellGroupControl::startEditingForCell(KwActionCell* cell) {
  auto* number = dynamic_cast<KwNumberEditorCell*>(cell);
  if (!number || indexOfCell(number) < 0 || !isEnabled() || !number->isEnabled() ||
      !number->isEditable())
    return;
  if (m_editingCell && m_editingCell != number)
    m_editingCell->stopEditingAndResignFirstResponder(false);
  m_editingCell = number;
  number->startEditing();
  update();
}

void KwCellGroupControl::stopEditingAndResignFirstResponder(bool resign) {
  if (m_editingCell)
    m_editingCell->stopEditingAndResignFirstResponder(resign);
}

bool KwCellGroupControl::makeFirstResponderWithoutStartingEditing() {
  if (window()->focusWidget() == this)
    return true;
  const bool starts = m_becomeFirstResponderStartsEditing;
  m_becomeFirstResponderStartsEditing = false;
  setFocus(Qt::OtherFocusReason);
  m_becomeFirstResponderStartsEditing = starts;
  return window()->focusWidget() == this;
}

bool KwCellGroupControl::isFirstResponder() const {
  return window()->focusWidget() == this || m_editingCell != nullptr;
}

void KwCellGroupControl::dfNumberEditorCell(KwNumberEditorCell* cell,
                                            int /*stoppedEditingWithReason*/) {
  if (cell == m_editingCell)
    m_editingCell = nullptr;
}

void KwCellGroupControl::focusInEvent(QFocusEvent* event) {
  QWidget::focusInEvent(event);
  if (m_becomeFirstResponderStartsEditing && !m_editingCell) {
    for (const CellSlot& slot : m_cells) {
      auto* number = dynamic_cast<KwNumberEditorCell*>(slot.cell.get());
      if (number && number->isEditable() && number->isEnabled()) {
        startEditingForCell(number);
        break;
      }
    }
  }
  update();
}

void KwCellGroupControl::focusOutEvent(QFocusEvent* event) {
  QWidget::focusOutEvent(event);
  // Another window becoming active, or a pop-up opening, leaves the control
  // its window's focus widget: editing goes on when the user comes back.
  if (event->reason() == Qt::ActiveWindowFocusReason || event->reason() == Qt::PopupFocusReason)
    return;
  stopEditingAndResignFirstResponder(false);
  update();
}

// --- Keys ---

bool KwCellGroupControl::moveEditing(int step) {
  const int count = cellCount();
  const int current = indexOfCell(m_editingCell);
  if (current < 0 || count == 0)
    return false;
  for (int i = (current + step + count) % count; i != current; i = (i + step + count) % count) {
    KwActionCell* cell = cellAtIndex(i);
    if (cell->isEditable() && cell->isEnabled()) {
      startEditingForCell(cell);
      return true;
    }
  }
  return false;
}

void KwCellGroupControl::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
  case Qt::Key_Return:
  case Qt::Key_Enter:
    if (m_editingCell) {
      m_editingCell->keyDown(event);
      keyInEditorWasPressed();
    } else {
      startEditingForCell(cellAtIndex(0));
    }
    event->accept();
    return;
  case Qt::Key_Tab:
  case Qt::Key_Backtab:
    QWidget::keyPressEvent(event);
    return;
  case Qt::Key_Right:
  case Qt::Key_Left:
    if (!m_editingCell) {
      if (cellCount() >= 2)
        startEditingForCell(cellAtIndex(0));
      event->accept();
      return;
    }
    if (moveEditing(event->key() == Qt::Key_Right ? 1 : -1))
      event->accept();
    else
      QWidget::keyPressEvent(event);
    return;
  default:
    if (m_editingCell) {
      m_editingCell->keyDown(event);
      keyInEditorWasPressed();
      event->accept();
    } else {
      QWidget::keyPressEvent(event);
    }
    return;
  }
}

// --- Mouse ---

void KwCellGroupControl::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) {
    QWidget::mousePressEvent(event);
    return;
  }
  mouseDownAt(*event, 1);
}

void KwCellGroupControl::mouseDoubleClickEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) {
    QWidget::mouseDoubleClickEvent(event);
    return;
  }
  mouseDownAt(*event, 2);
}

void KwCellGroupControl::mouseDownAt(const QMouseEvent& event, int clickCount) {
  ++m_eventNumber;
  m_lastMousePosition = event.position();
  m_mouseIsDown = true;
  mouseButtonWentDown();
  // Offer the press to every cell under it; the list is copied because a
  // cell may change the control while it handles the press.
  std::vector<KwActionCell*> offered;
  for (std::size_t i = 0; i < m_cells.size(); ++i) {
    const CellSlot& slot = m_cells[i];
    if (slot.frame.contains(event.position()) && slot.cell->isEditable() &&
        slot.cell->isEnabled() && willStartTrackingCellWithIndex(static_cast<int>(i)))
      offered.push_back(slot.cell.get());
  }
  for (KwActionCell* cell : offered) {
    const int index = indexOfCell(cell);
    if (index >= 0)
      cellMouseEventHandling(cell, frameOfCellAtIndex(index), event, clickCount);
  }
}

void KwCellGroupControl::cellMouseEventHandling(KwActionCell* cell, const QRectF& inRect,
                                                const QMouseEvent& forEvent, int clickCount) {
  if (clickCount == 2) {
    if (!makeFirstResponderWithoutStartingEditing())
      return;
    if (cell == m_editingCell)
      m_editingCell->stopEditingAndResignFirstResponder(true);
    else
      startEditingForCell(cell);
    return;
  }
  if (cell->trackMouse(forEvent, inRect, this, KwNumberEditorCell::prefersTrackingUntilMouseUp())) {
    m_mouseTrackingEventNumber = m_eventNumber;
    m_mouseTrackingActive = true;
    m_mouseTrackingCell = cell;
    m_mouseTrackingCellFrame = inRect;
  }
}

bool KwCellGroupControl::trackedCellIsAlive() const {
  return m_mouseTrackingActive && m_mouseTrackingCell && indexOfCell(m_mouseTrackingCell) >= 0;
}

void KwCellGroupControl::mouseMoveEvent(QMouseEvent* event) {
  if (!(event->buttons() & Qt::LeftButton)) {
    QWidget::mouseMoveEvent(event);
    return;
  }
  // A drag belongs to the press in progress: it carries that press's number.
  const std::uint64_t eventNumber = m_eventNumber;
  const QPointF previous = m_lastMousePosition;
  m_lastMousePosition = event->position();
  if (!trackedCellIsAlive() || eventNumber != m_mouseTrackingEventNumber)
    return;
  const QPointF origin = m_mouseTrackingCellFrame.topLeft();
  const QPointF last = previous - origin;
  const QPointF current = event->position() - origin;
  KwActionCell* cell = m_mouseTrackingCell;
  const bool goesOn = cell->continueTracking(last, current, this);
  // The cell's action may have removed the cell.
  if (!trackedCellIsAlive())
    return;
  m_mouseTrackingActive = goesOn;
  if (!goesOn)
    cell->stopTracking(last, current, this, false);
}

void KwCellGroupControl::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) {
    QWidget::mouseReleaseEvent(event);
    return;
  }
  const QPointF previous = m_lastMousePosition;
  m_lastMousePosition = event->position();
  // The release's own movement counts like a drag's.
  mouseUpAt(previous, event->position());
}

void KwCellGroupControl::mouseUpAt(QPointF lastPoint, QPointF point) {
  m_mouseIsDown = false;
  if (trackedCellIsAlive() && m_eventNumber == m_mouseTrackingEventNumber) {
    const QPointF origin = m_mouseTrackingCellFrame.topLeft();
    m_mouseTrackingCell->stopTracking(lastPoint - origin, point - origin, this, true);
  }
  mouseButtonWentUp();
  m_mouseTrackingActive = false;
  m_mouseTrackingCell = nullptr;
}

void KwCellGroupControl::endMouseTrackingAsMouseUp() {
  if (m_mouseIsDown)
    mouseUpAt(m_lastMousePosition, m_lastMousePosition);
}

void KwCellGroupControl::wheelEvent(QWheelEvent* event) {
  for (std::size_t i = 0; i < m_cells.size(); ++i) {
    if (!m_cells[i].frame.contains(event->position()))
      continue;
    KwActionCell* cell = m_cells[i].cell.get();
    if (cell->isEditable() && cell->respondsToScrollWheel()) {
      cell->scrollWheel(event);
      scrollWheelWasMoved();
      event->accept();
    } else {
      event->ignore();
    }
    return;
  }
  event->ignore();
}

// --- Drawing ---

void KwCellGroupControl::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  if (m_drawsBackground && m_backgroundColor.isValid())
    painter.fillRect(rect(), m_backgroundColor);
  const QRectF dirty(event->rect());
  for (const CellSlot& slot : m_cells) {
    if (slot.frame.intersects(dirty))
      slot.cell->drawWithFrame(slot.frame, this, painter);
  }
}

// --- Hooks ---

void KwCellGroupControl::keyInEditorWasPressed() {}
void KwCellGroupControl::mouseButtonWentDown() {}
void KwCellGroupControl::mouseButtonWentUp() {}
void KwCellGroupControl::scrollWheelWasMoved() {}
bool KwCellGroupControl::willStartTrackingCellWithIndex(int /*index*/) {
  return true;
}

// KwCellGroupControl: a widget that lays out a row of cells and drives them.
//
// The control owns its cells (KwActionCell objects, usually
// KwNumberEditorCell) and a frame for each, in its own coordinates. It paints
// them, keeps at most one number editor cell in editing state, and routes
// events to them:
//
// - Keys (while it has the keyboard focus): Return or Enter commit the
//   editing cell, or start editing cell 0; Left and Right arrows move the
//   editing to the previous or next editable, enabled cell, wrapping around
//   (separators are skipped); every other key goes to the editing cell. Tab
//   and Back-Tab, and keys with no cell to take them, go on to Qt (the focus
//   chain, then the parent widget).
// - Mouse: a double click on a cell starts editing it (or, on the editing
//   cell, stops); a single press never starts editing but begins a tracking
//   session: the press's drags and its release are routed to the cell's
//   continueTracking / stopTracking. Each press gets a new event number, and
//   only drags of the tracked press reach the cell.
// - Wheel: to the editable cell under the pointer.
//
// Losing the keyboard focus stops editing; a window merely becoming inactive
// does not. Subclasses hook in through the protected virtual functions.
#pragma once

#include <vtcore/export.h>
#include <vtcore/ui/common/target_action/delegate.h>
#include <vtcore/ui/controls/number_editor/action_cell.h>
#include <vtcore/ui/controls/number_editor/number_editor_cell.h>

#include <QColor>
#include <QRectF>
#include <QWidget>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

/// A row of cells in one widget, at most one of them editing; see the top of
/// this file. Single-threaded: use it on the GUI thread only.
class VTCORE_UI_EXPORT KwCellGroupControl : public QWidget, public KwNumberEditorCellDelegate {
  Q_OBJECT
public:
  /// An empty, enabled control that takes the keyboard focus by Tab and click.
  explicit KwCellGroupControl(QWidget* parent = nullptr);
  /// Destroys the cells (without stopping their editing: no delegate or
  /// action is called) and the widget.
  ~KwCellGroupControl() override;

  ///@{
  /// The control's delegate; not owned, null once destroyed. Subclasses
  /// define what they ask it; this class asks it nothing.
  vtcore::Delegate* delegate() const { return m_delegate.get(); }
  void setDelegate(vtcore::Delegate* delegate) { m_delegate = delegate; }
  ///@}

  // --- Cells. Indexes run from 0 to cellCount() - 1; an index out of range
  // or a null cell does nothing (getters answer null, an empty rectangle or
  // -1). ---

  /// Appends `cell` with `frame`, calls setUpAddedCellAttributes and
  /// repaints. Returns the cell (null when `cell` is null).
  KwActionCell* addCell(std::unique_ptr<KwActionCell> cell, const QRectF& frame);
  /// Appends `cell` with `size`, placed right of the last cell at y = 0.
  KwActionCell* addCell(std::unique_ptr<KwActionCell> cell, const QSizeF& size);
  /// Appends `cell` with `width` and the control's height.
  KwActionCell* addCell(std::unique_ptr<KwActionCell> cell, qreal width);
  ///@{
  /// Sets the whole frame, the size (keeping the origin) or the width
  /// (keeping the rest) of the cell at `atIndex` and repaints. The other
  /// cells do not move: call recalculateCellPositions for that.
  void setFrameOfCell(const QRectF& frame, int atIndex);
  void setSizeOfCell(const QSizeF& size, int atIndex);
  void setWidthOfCell(qreal width, int atIndex);
  ///@}
  /// Removes and destroys the cell and repaints; the other cells do not move.
  /// An editing cell first stops (reason dfne_se_StopEditingCalled, keeping
  /// the focus) and a tracked press of it ends without a stopTracking call.
  void removeCellAtIndex(int index);
  /// Removes and destroys every cell.
  void removeAllCells();
  /// The cell at `index`, still owned by the control; null out of range.
  KwActionCell* cellAtIndex(int index) const;
  /// The frame of the cell at `index` in the control's coordinates; an empty
  /// rectangle out of range.
  QRectF frameOfCellAtIndex(int index) const;
  /// The index of `cell`; -1 for null or a cell of another control.
  int indexOfCell(const KwActionCell* cell) const;
  /// The number of cells.
  int cellCount() const { return static_cast<int>(m_cells.size()); }
  /// Called for every added cell. Gives a KwNumberEditorCell the control's
  /// colours, background flag, font, alignment, enabled state, control size
  /// and font-smoothing flag, and makes the control its delegate. Every cell
  /// gets the control as its control view.
  virtual void setUpAddedCellAttributes(KwActionCell* cell);
  /// Lays the cells out left to right from x = 0 at y = 0, no gaps, each
  /// keeping its size, and repaints.
  void recalculateCellPositions();
  /// Gives every cell the control's height and its own cellSize() width,
  /// then lays them out.
  virtual void recalculateCellPositionsAndSizes();

  // --- Look. Setters store the value, pass it on to every number editor
  // cell and repaint. The font and the enabled state are the QWidget's own
  // (setFont, setEnabled) and reach the cells the same way. ---

  ///@{
  /// The fill of the control (when drawsBackground()) and of each cell (when
  /// the cell draws its background); invalid, the default, means none.
  QColor backgroundColor() const { return m_backgroundColor; }
  void setBackgroundColor(const QColor& color);
  ///@}
  ///@{
  /// The cells' editing frame fill; invalid (the default): the palette's
  /// highlight.
  QColor editBackgroundColor() const { return m_editBackgroundColor; }
  void setEditBackgroundColor(const QColor& color);
  ///@}
  ///@{
  /// The cells' text colour when not editing; invalid (the default): the
  /// palette's window text.
  QColor textColor() const { return m_textColor; }
  void setTextColor(const QColor& color);
  ///@}
  ///@{
  /// The cells' text colour while editing; invalid (the default): the
  /// palette's highlighted text.
  QColor editTextColor() const { return m_editTextColor; }
  void setEditTextColor(const QColor& color);
  ///@}
  ///@{
  /// Whether the control and its cells fill their background with
  /// backgroundColor(); false by default.
  bool drawsBackground() const { return m_drawsBackground; }
  void setDrawsBackground(bool draws);
  ///@}
  ///@{
  /// The cells' horizontal text alignment; left by default. Only the
  /// horizontal flags are kept.
  Qt::Alignment alignment() const { return m_textAlignment; }
  void setAlignment(Qt::Alignment alignment);
  ///@}
  ///@{
  /// The cells' size class; Regular by default. Stored only.
  KwControlSize controlSize() const { return m_controlSize; }
  void setControlSize(KwControlSize size);
  ///@}
  ///@{
  /// Whether the cells draw their text without antialiasing; false by
  /// default.
  bool disablesFontSmoothing() const { return m_disableFontSmoothing; }
  void setDisablesFontSmoothing(bool disables);
  ///@}

  // --- Editing ---

  /// The one cell in editing state, or null.
  KwNumberEditorCell* editingCell() const { return m_editingCell; }
  /// Starts editing `cell` when it is a KwNumberEditorCell of this control
  /// and the control and cell are enabled and the cell editable; another
  /// editing cell stops first (keeping the focus). Otherwise nothing.
  void startEditingForCell(KwActionCell* cell);
  /// Stops the editing cell, if any, with reason dfne_se_StopEditingCalled;
  /// with `resign` the window's focus widget also loses the keyboard focus.
  /// Nothing when no cell is editing.
  void stopEditingAndResignFirstResponder(bool resign);
  /// Takes the keyboard focus without starting to edit a cell; answers
  /// whether the control is now its window's focus widget.
  bool makeFirstResponderWithoutStartingEditing();
  /// Whether the control is its window's focus widget or a cell is editing.
  bool isFirstResponder() const;
  ///@{
  /// Whether gaining the keyboard focus starts editing the first editable,
  /// enabled number editor cell (when none is editing); off by default.
  bool becomeFirstResponderStartsEditing() const { return m_becomeFirstResponderStartsEditing; }
  void setBecomeFirstResponderStartsEditing(bool starts) {
    m_becomeFirstResponderStartsEditing = starts;
  }
  ///@}
  /// As the cells' delegate: the cell left editing; if it was the editing
  /// cell, no cell is editing any more.
  void dfNumberEditorCell(KwNumberEditorCell* cell, int stoppedEditingWithReason) override;

  /// Whether the left button is down on the control.
  bool mouseIsDown() const { return m_mouseIsDown; }
  /// Whether a press is being tracked by a cell.
  bool isMouseTrackingActive() const { return m_mouseTrackingActive; }

  /// The sum of the cells' cellSize() widths by the tallest of their
  /// heights, each rounded up; 0 by 0 without cells.
  QSize sizeHint() const override;

protected:
  /// Called after a key went to the editing cell; nothing here.
  virtual void keyInEditorWasPressed();
  /// Called when the left button goes down on the control, before the press
  /// is offered to the cells; nothing here.
  virtual void mouseButtonWentDown();
  /// Called when the left button goes up (or the press ends as if it had),
  /// after the tracked cell's stopTracking and while isMouseTrackingActive()
  /// still tells whether a cell tracked the press; nothing here.
  virtual void mouseButtonWentUp();
  /// Called after a wheel event went to a cell; nothing here.
  virtual void scrollWheelWasMoved();
  /// Whether a press may go to the cell at `index`; yes here.
  virtual bool willStartTrackingCellWithIndex(int index);
  /// A press of `clickCount` clicks on `cell` in `inRect`: a double click
  /// takes the keyboard focus and toggles editing of the cell (nothing if
  /// the focus cannot be had); a single click starts tracking it when the
  /// cell's trackMouse agrees.
  virtual void cellMouseEventHandling(KwActionCell* cell, const QRectF& inRect,
                                      const QMouseEvent& forEvent, int clickCount);
  /// Ends the tracked press as if the button had gone up at the last known
  /// pointer position (stopTracking with mouseIsUp, then mouseButtonWentUp).
  /// Nothing when the button is not down.
  void endMouseTrackingAsMouseUp();

  /// Fills the background when drawsBackground() and a colour is set, then
  /// draws every cell whose frame meets the dirty rectangle.
  void paintEvent(QPaintEvent* event) override;
  /// Return or Enter go to the editing cell (then keyInEditorWasPressed), or
  /// start editing cell 0 when none is editing. Left and Right arrows move
  /// the editing to the previous or next editable, enabled cell, wrapping
  /// around, and go on to QWidget when no other cell can take it; with no
  /// cell editing they start editing cell 0 if there are at least two cells.
  /// Tab and Back-Tab go on to QWidget. Any other key goes to the editing
  /// cell (then keyInEditorWasPressed), or on to QWidget when none edits.
  void keyPressEvent(QKeyEvent* event) override;
  ///@{
  /// Left button only (other buttons go on to QWidget): a single or double
  /// click offered to every editable, enabled cell under the pointer that
  /// willStartTrackingCellWithIndex accepts, through cellMouseEventHandling.
  void mousePressEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  ///@}
  /// A move with the left button down: for the tracked press, goes to the
  /// cell's continueTracking from where the pointer was last seen to where it
  /// is now (cell coordinates); when that answers false the tracking ends
  /// with stopTracking (mouseIsUp false). Moves of other presses are ignored.
  void mouseMoveEvent(QMouseEvent* event) override;
  /// The left button's release: stopTracking (mouseIsUp true) for the
  /// tracked press, then mouseButtonWentUp.
  void mouseReleaseEvent(QMouseEvent* event) override;
  /// Gives the event to the first cell under the pointer when that cell is
  /// editable and handles the wheel, then calls scrollWheelWasMoved;
  /// otherwise ignores it, so that it goes on to the parent widget.
  void wheelEvent(QWheelEvent* event) override;
  /// Starts editing the first editable, enabled number editor cell when
  /// becomeFirstResponderStartsEditing() and none is editing; repaints.
  void focusInEvent(QFocusEvent* event) override;
  /// Stops editing (keeping the window's focus) and repaints, except when
  /// the focus left only because the window became inactive or a pop-up
  /// opened.
  void focusOutEvent(QFocusEvent* event) override;
  /// Passes font and enabled-state changes on to the number editor cells,
  /// and stops editing when the control gets another parent.
  void changeEvent(QEvent* event) override;

private:
  struct CellSlot {
    std::unique_ptr<KwActionCell> cell;
    QRectF frame;
  };

  void mouseDownAt(const QMouseEvent& event, int clickCount);
  // The button went up (or the press ends as if it had) at `point`, the
  // pointer last seen at `lastPoint`.
  void mouseUpAt(QPointF lastPoint, QPointF point);
  bool trackedCellIsAlive() const;
  void forEachNumberCell(const std::function<void(KwNumberEditorCell&)>& apply);
  // Moves the editing from the current cell by `step` (+1 or -1), wrapping;
  // answers false when no other cell can take it.
  bool moveEditing(int step);

  vtcore::DelegatePointer<vtcore::Delegate> m_delegate;
  std::vector<CellSlot> m_cells;
  QColor m_backgroundColor;
  QColor m_editBackgroundColor;
  QColor m_textColor;
  QColor m_editTextColor;
  Qt::Alignment m_textAlignment = Qt::AlignLeft;
  bool m_drawsBackground = false;
  bool m_enabled = true;
  KwControlSize m_controlSize = KwControlSize::Regular;
  bool m_disableFontSmoothing = false;
  KwNumberEditorCell* m_editingCell = nullptr;
  bool m_mouseIsDown = false;
  bool m_becomeFirstResponderStartsEditing = false;
  std::uint64_t m_mouseTrackingEventNumber = 0;
  bool m_mouseTrackingActive = false;
  KwActionCell* m_mouseTrackingCell = nullptr;
  QRectF m_mouseTrackingCellFrame;
  // The event number of the last press, and where the pointer was last seen
  // during it: a drag's previous point is where the one before it ended.
  std::uint64_t m_eventNumber = 0;
  QPointF m_lastMousePosition;
};
